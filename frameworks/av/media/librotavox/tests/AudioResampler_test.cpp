// Tests of the linear resampler against signals whose expected output is
// known independently of the kernel: a ramp shifted or reversed, integer
// means, and a double-precision interpolator on channels of their own.

#include "AudioResampler.h"

#include <android/log.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "LogCapture.h"

using android::AudioBufferProvider;
using android::status_t;
using android::testing::LogCapture;

namespace {

constexpr char kTag[] = "AudioResampler";

// Serves a signal cut into buffers of the given (cycled) sizes, first to last
// or last to first as the scratch source does when playing backward.  Each
// buffer is a fresh heap copy that is freed by the next call, so a kernel
// that keeps reading a buffer it has left trips the address sanitizer.
class SignalProvider : public AudioBufferProvider {
public:
    enum class Order { kForward, kReverse };

    SignalProvider(std::vector<int16_t> samples, int channels, std::vector<size_t> sizes,
                   Order order)
        : mSamples(std::move(samples)), mChannels(channels), mOrder(order) {
        const size_t total = mSamples.size() / channels;
        size_t start = 0;
        for (size_t k = 0; start < total; ++k) {
            const size_t frames = std::min(sizes[k % sizes.size()], total - start);
            mStarts.push_back(start);
            mFrames.push_back(frames);
            start += frames;
        }
        mAvailable = mStarts.size();
    }

    status_t getNextBuffer(Buffer* buffer) override {
        mCurrent.reset();
        if (mServed == mAvailable) {
            ++mDryCalls;
            buffer->raw = nullptr;
            buffer->frameCount = 0;
            return android::NOT_ENOUGH_DATA;
        }
        const size_t k = mOrder == Order::kForward ? mServed : mStarts.size() - 1 - mServed;
        ++mServed;
        const size_t count = mFrames[k] * mChannels;
        mCurrent.reset(new int16_t[count]);
        std::copy_n(mSamples.begin() + mStarts[k] * mChannels, count, mCurrent.get());
        buffer->i16 = mCurrent.get();
        buffer->frameCount = mFrames[k];
        return android::OK;
    }

    void releaseBuffer(Buffer*) override {}

    size_t bufferCount() const { return mStarts.size(); }
    size_t startOf(size_t k) const { return mStarts[k]; }
    size_t served() const { return mServed; }
    int dryCalls() const { return mDryCalls; }
    // Holds back all buffers after the first |count| until called again.
    void limitTo(size_t count) { mAvailable = std::min(count, mStarts.size()); }

private:
    std::vector<int16_t> mSamples;
    int mChannels;
    Order mOrder;
    std::vector<size_t> mStarts;
    std::vector<size_t> mFrames;
    size_t mAvailable = 0;
    size_t mServed = 0;
    int mDryCalls = 0;
    std::unique_ptr<int16_t[]> mCurrent;
};

// Sets the frame count a call that produces nothing must leave alone.
class Probe : public AudioResamplerOrder1 {
public:
    using AudioResamplerOrder1::AudioResamplerOrder1;
    void setOutputFrames(size_t frames) { mOutputFrames = frames; }
};

// Left = frame index, right = a distinct descending ramp, so every frame
// tells its own position on both channels.
std::vector<int16_t> ramp(size_t frames, int channels) {
    std::vector<int16_t> s;
    for (size_t k = 0; k < frames; ++k) {
        s.push_back(static_cast<int16_t>(k));
        if (channels == 2) s.push_back(static_cast<int16_t>(-1 - static_cast<int>(k)));
    }
    return s;
}

std::vector<int16_t> noise(size_t frames, int channels, uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> d(-32768, 32767);
    std::vector<int16_t> s(frames * channels);
    for (auto& v : s) v = static_cast<int16_t>(d(rng));
    return s;
}

// Calls the resampler in chunks until it delivers less than asked for.
std::vector<int16_t> drain(AudioResampler& r, SignalProvider& p, int channels, float step,
                           size_t chunkFrames, size_t maxFrames = 1u << 20) {
    std::vector<int16_t> out;
    std::vector<int16_t> chunk(chunkFrames * channels);
    while (out.size() / channels < maxFrames) {
        r.resample(chunk.data(), chunkFrames, &p, step);
        const size_t got = r.getOutputFrames();
        EXPECT_LE(got, chunkFrames);
        out.insert(out.end(), chunk.begin(), chunk.begin() + std::min(got, chunkFrames) * channels);
        if (got != chunkFrames) break;
    }
    return out;
}

const std::vector<size_t> kUnevenSizes = {1, 2, 3, 7, 64, 5, 1, 300, 1000, 13, 1, 1, 257};

class AudioResamplerChannels : public ::testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(MonoAndStereo, AudioResamplerChannels, ::testing::Values(1, 2),
                         [](const auto& info) { return info.param == 1 ? "Mono" : "Stereo"; });

// ---------------------------------------------------------------------------
// Construction and formats

// An unsupported format is reported, yet a resampler is built; it produces
// nothing and leaves the frame count of the last call alone.
TEST(AudioResamplerFormat, UnsupportedFormatsAreReportedAndProduceNothing) {
    LogCapture log;
    std::unique_ptr<AudioResampler> eightBit(AudioResampler::create(8, 2));
    ASSERT_NE(eightBit, nullptr);
    EXPECT_EQ(1, log.count(kTag, "Unsupported sample format, 8 bits, 2 channels",
                           ANDROID_LOG_ERROR));
    Probe r(16, 3);
    EXPECT_EQ(1, log.count(kTag, "Unsupported sample format, 16 bits, 3 channels",
                           ANDROID_LOG_ERROR));
    SignalProvider p(ramp(300, 1), 1, {100}, SignalProvider::Order::kForward);
    r.setOutputFrames(42);
    std::vector<int16_t> out(64 * 3, 0x5a5a);
    r.resample(out.data(), 64, &p, 1.0f);
    EXPECT_EQ(42u, r.getOutputFrames());
    EXPECT_EQ(0u, p.served());
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](int16_t v) { return v == 0x5a5a; }));
}

// ---------------------------------------------------------------------------
// Continuity across buffer joins, both directions

// Forward, the position moves before it is used, so the first frame is x[1]
// and the last would need a buffer after the end.  Backward, starting at
// phase 0 of the last buffer, the first step lands in the buffer before it:
// output runs from the frame just before the last buffer down to frame 0.
TEST_P(AudioResamplerChannels, UnitStepsReproduceTheInputAcrossJoins) {
    const int channels = GetParam();
    const size_t total = 20000;
    const auto signal = ramp(total, channels);
    for (float step : {1.0f, -1.0f}) {
        for (size_t chunk : {1, 37, 512}) {
            SCOPED_TRACE(::testing::Message() << "step " << step << " chunk " << chunk);
            SignalProvider p(signal, channels, kUnevenSizes,
                             step > 0 ? SignalProvider::Order::kForward
                                      : SignalProvider::Order::kReverse);
            std::unique_ptr<AudioResampler> r(AudioResampler::create(16, channels));
            const auto out = drain(*r, p, channels, step, chunk);
            const size_t lastStart = p.startOf(p.bufferCount() - 1);
            const size_t frames = step > 0 ? total - 2 : lastStart;
            std::vector<int16_t> expected;
            for (size_t k = 0; k < frames; ++k) {
                const size_t in = step > 0 ? k + 1 : lastStart - 1 - k;
                expected.insert(expected.end(), &signal[in * channels], &signal[(in + 1) * channels]);
            }
            ASSERT_EQ(expected, out);
            // One provider call per buffer, and a single call that found none.
            EXPECT_EQ(p.bufferCount(), p.served());
            EXPECT_EQ(1, p.dryCalls());
        }
    }
}

TEST_P(AudioResamplerChannels, FirstBackwardStepFetchesThePrecedingBufferAtOnce) {
    const int channels = GetParam();
    const auto signal = ramp(30, channels);
    SignalProvider p(signal, channels, {10}, SignalProvider::Order::kReverse);
    std::unique_ptr<AudioResampler> r(AudioResampler::create(16, channels));
    std::vector<int16_t> out(channels);
    r->resample(out.data(), 1, &p, -1.0f);
    ASSERT_EQ(1u, r->getOutputFrames());
    EXPECT_EQ(2u, p.served());
    EXPECT_EQ(signal[19 * channels], out[0]);
    EXPECT_EQ(9, r->getUnreleasedFrames());  // last frame of the buffer 10..19
}

// ---------------------------------------------------------------------------
// Interpolation values

TEST_P(AudioResamplerChannels, HalfStepAlternatesInputAndTruncatedMeans) {
    const int channels = GetParam();
    const size_t total = 5000;
    const auto signal = noise(total, channels, 7);
    SignalProvider p(signal, channels, kUnevenSizes, SignalProvider::Order::kForward);
    std::unique_ptr<AudioResampler> r(AudioResampler::create(16, channels));
    const auto out = drain(*r, p, channels, 0.5f, 101);
    // Positions 0.5, 1.0, ... up to the last one that still has a right
    // neighbour.
    ASSERT_EQ((2 * total - 3) * channels, out.size());
    for (size_t j = 0; j < out.size() / channels; ++j) {
        for (int c = 0; c < channels; ++c) {
            const int a = signal[(j / 2) * channels + c];
            const int b = signal[(j / 2 + 1) * channels + c];
            // Integer division truncates toward zero, like the kernel.
            const int expected = j % 2 == 0 ? (a + b) / 2 : b;
            ASSERT_EQ(expected, out[j * channels + c]) << "frame " << j << " channel " << c;
        }
    }
}

// Means truncate toward zero.  Each product is rounded to float before the
// sum: for the last three pairs the sum of the rounded products is an integer
// while the exact value (and a fused multiply-add, or double arithmetic) lies
// just above it and truncates one step closer to zero.
TEST(AudioResamplerValues, TruncatesTheSumOfRoundedProducts) {
    struct Case {
        float step;
        int16_t a, b, expected;
    };
    for (const Case& c : {Case{0.5f, 100, 201, 150}, Case{0.5f, -3, -4, -3}, Case{0.5f, 3, 4, 3},
                          Case{0.5f, -32768, 32767, 0}, Case{0.5f, 32767, 32766, 32766},
                          Case{0.5f, -32768, -32767, -32767}, Case{0.1f, -6786, 20194, -4088},
                          Case{0.3f, -25670, 32610, -8186}, Case{0.7f, -32765, 14665, 436}}) {
        SignalProvider p({c.a, c.b, 0, 0}, 1, {4}, SignalProvider::Order::kForward);
        AudioResamplerOrder1 r(16, 1);
        int16_t out = 0;
        r.resample(&out, 1, &p, c.step);
        ASSERT_EQ(1u, r.getOutputFrames());
        EXPECT_EQ(c.expected, out) << c.a << " and " << c.b << " at " << c.step;
    }
}

TEST_P(AudioResamplerChannels, ZeroStepIsSilenceAndDoesNotMove) {
    const int channels = GetParam();
    const auto signal = noise(400, channels, 3);
    SignalProvider p(signal, channels, {100}, SignalProvider::Order::kForward);
    std::unique_ptr<AudioResampler> r(AudioResampler::create(16, channels));
    std::vector<int16_t> out(300 * channels, 0x5a5a);
    r->resample(out.data(), 300, &p, 0.0f);
    EXPECT_EQ(300u, r->getOutputFrames());
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](int16_t v) { return v == 0; }));
    EXPECT_EQ(1u, p.served());

    r->resample(out.data(), 2, &p, 1.0f);
    ASSERT_EQ(2u, r->getOutputFrames());
    out.resize(2 * channels);
    EXPECT_EQ(std::vector<int16_t>(&signal[channels], &signal[3 * channels]), out);
}

// An interpolator written independently of the kernel: the buffers form one
// stream, the position is a double in stream frames.  The kernel works in
// float relative to its current buffer, so the two may disagree by the
// truncation of a rounding difference: at most one step of the output.  Its
// float position drifts from the exact one over a long walk (by design), so
// values are compared over the first stretch of each run and the rest of the
// run only for its length and its provider calls.
TEST_P(AudioResamplerChannels, AgreesWithDoublePrecisionReferenceWithinOneStep) {
    const int channels = GetParam();
    const size_t total = 24000;
    const size_t kCompared = 2000;
    std::vector<int16_t> signal;
    for (size_t k = 0; k < total; ++k) {
        for (int c = 0; c < channels; ++c) {
            const double period = c == 0 ? 2400.0 : 1700.0;
            signal.push_back(static_cast<int16_t>(
                    9000.0 * std::sin(2 * M_PI * k / period) +
                    3000.0 * std::sin(2 * M_PI * k / (period / 3.7) + c)));
        }
    }
    std::mt19937 rng(11);
    std::vector<float> steps = {7.3f, -2.25f, 0.37f, -1.7f, 3.0001f, -9.99f};
    std::uniform_real_distribution<float> anyStep(-10.0f, 10.0f);
    for (int k = 0; k < 6; ++k) steps.push_back(anyStep(rng));

    std::uniform_int_distribution<size_t> anySize(1, 300);
    for (float step : steps) {
        std::vector<size_t> sizes;
        for (int k = 0; k < 50; ++k) sizes.push_back(anySize(rng));
        const auto order = step > 0 ? SignalProvider::Order::kForward
                                    : SignalProvider::Order::kReverse;
        SignalProvider p(signal, channels, sizes, order);
        std::unique_ptr<AudioResampler> r(AudioResampler::create(16, channels));
        const auto out = drain(*r, p, channels, step, 97);

        const double start = step > 0 ? 0.0 : static_cast<double>(p.startOf(p.bufferCount() - 1));
        const size_t expectedFrames =
                step > 0 ? static_cast<size_t>((total - 1) / static_cast<double>(step))
                         : static_cast<size_t>(start / -static_cast<double>(step));
        const size_t produced = out.size() / channels;
        EXPECT_NEAR(static_cast<double>(expectedFrames), static_cast<double>(produced), 1.0)
                << "step " << step;
        double position = start;
        for (size_t k = 0; k < std::min<size_t>(produced, kCompared); ++k) {
            position += static_cast<double>(step);
            const double i = std::floor(position);
            const double f = position - i;
            const size_t i0 = static_cast<size_t>(std::max(0.0, i));
            const size_t i1 = std::min(i0 + 1, total - 1);
            for (int c = 0; c < channels; ++c) {
                const double v = (1.0 - f) * signal[i0 * channels + c] +
                                 f * signal[i1 * channels + c];
                const int expected = static_cast<int>(std::trunc(v));
                const int diff = std::abs(expected - out[k * channels + c]);
                ASSERT_LE(diff, 1) << "step " << step << " frame " << k << " channel " << c
                                   << " position " << position;
            }
        }
        // Every buffer is asked for once; the walk ends on the one empty answer.
        EXPECT_EQ(p.bufferCount(), p.served()) << "step " << step;
        EXPECT_EQ(1, p.dryCalls()) << "step " << step;
    }
}

// ---------------------------------------------------------------------------
// Running out of input, position queries, reset

TEST_P(AudioResamplerChannels, RunningDryIsLoggedAndCountsTheFramesWritten) {
    const int channels = GetParam();
    const auto signal = ramp(30, channels);
    SignalProvider p(signal, channels, {10}, SignalProvider::Order::kForward);
    p.limitTo(1);
    std::unique_ptr<AudioResampler> r(AudioResampler::create(16, channels));
    LogCapture log;

    std::vector<int16_t> out(100 * channels, 0x5a5a);
    r->resample(out.data(), 100, &p, 1.0f);
    EXPECT_EQ(1, log.count(kTag, "no more buffer", ANDROID_LOG_ERROR));
    ASSERT_EQ(8u, r->getOutputFrames());
    for (size_t k = 0; k < 8; ++k) EXPECT_EQ(signal[(k + 1) * channels], out[k * channels]);
    EXPECT_EQ(0x5a5a, out[8 * channels]);

    // Nothing in hand and nothing to get.
    r->resample(out.data(), 100, &p, 1.0f);
    EXPECT_EQ(1, log.count(kTag, "no buffer", ANDROID_LOG_ERROR));
    EXPECT_EQ(0u, r->getOutputFrames());

    // More input resumes at its first frame: the position moved on for the
    // frame that could not be made.
    p.limitTo(3);
    r->resample(out.data(), 5, &p, 1.0f);
    ASSERT_EQ(5u, r->getOutputFrames());
    for (size_t k = 0; k < 5; ++k) EXPECT_EQ(signal[(10 + k) * channels], out[k * channels]);
}

// The unreleased frames are -1 between the saved left frame and the first
// frame of the next buffer; a reset forgets buffer and position.
TEST(AudioResamplerState, UnreleasedFramesAndReset) {
    SignalProvider p(ramp(40, 1), 1, {4}, SignalProvider::Order::kForward);
    Probe r(16, 1);
    int16_t out[3];
    r.resample(out, 2, &p, 1.0f);
    EXPECT_EQ(2, r.getUnreleasedFrames());
    r.resample(out, 1, &p, 1.0f);
    EXPECT_EQ(3, out[0]);
    EXPECT_EQ(-1, r.getUnreleasedFrames());
    r.resample(out, 1, &p, 1.0f);
    EXPECT_EQ(4, out[0]);
    EXPECT_EQ(0, r.getUnreleasedFrames());
    r.reset();
    EXPECT_EQ(0u, r.getOutputFrames());
    EXPECT_EQ(0, r.getUnreleasedFrames());
    r.resample(out, 2, &p, 1.0f);
    EXPECT_EQ(3u, p.served());
    EXPECT_EQ((std::vector<int16_t>{9, 10}), std::vector<int16_t>(out, out + 2));
}

TEST(AudioResamplerState, VolumeIsStoredButNotApplied) {
    const auto signal = noise(100, 2, 9);
    SignalProvider p1(signal, 2, {50}, SignalProvider::Order::kForward);
    SignalProvider p2(signal, 2, {50}, SignalProvider::Order::kForward);
    AudioResamplerOrder1 plain(16, 2), loud(16, 2);
    loud.setVolume(4096, 0);
    std::vector<int16_t> a(2 * 60), b(2 * 60);
    plain.resample(a.data(), 60, &p1, 0.8f);
    loud.resample(b.data(), 60, &p2, 0.8f);
    EXPECT_EQ(a, b);
}

}  // namespace
