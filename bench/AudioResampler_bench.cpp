// Throughput of the linear resampler kernels: output frames per second for
// mono and stereo at the steps the engine plays most (normal speed both ways,
// half speed, and a fast scratch).  The provider cycles over a block of
// noise in buffers the size the scratch source hands out, so its own cost is
// one pointer per buffer and the figure is the kernel's.

#include "AudioResampler.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using android::AudioBufferProvider;

class CyclingProvider : public AudioBufferProvider {
public:
    CyclingProvider(int channels, size_t bufferFrames, size_t bufferCount, bool forward)
        : mChannels(channels), mBufferFrames(bufferFrames), mBufferCount(bufferCount),
          mForward(forward), mSamples(bufferFrames * bufferCount * channels) {
        std::mt19937 rng(1);
        std::uniform_int_distribution<int> d(-32768, 32767);
        for (auto& s : mSamples) s = static_cast<int16_t>(d(rng));
    }

    android::status_t getNextBuffer(Buffer* buffer) override {
        mNext = mForward ? (mNext + 1) % mBufferCount
                         : (mNext + mBufferCount - 1) % mBufferCount;
        buffer->i16 = mSamples.data() + mNext * mBufferFrames * mChannels;
        buffer->frameCount = mBufferFrames;
        return android::OK;
    }

    void releaseBuffer(Buffer* buffer) override { buffer->frameCount = 0; }

private:
    const int mChannels;
    const size_t mBufferFrames;
    const size_t mBufferCount;
    const bool mForward;
    std::vector<int16_t> mSamples;
    size_t mNext = 0;
};

// The scratch source's cache buffers hold a few thousand frames; 4096 is
// typical for a decoded MP3/AAC access unit group.
constexpr size_t kBufferFrames = 4096;
constexpr size_t kBufferCount = 16;

void resampleThroughput(benchmark::State& state, int channels, float step, size_t callFrames) {
    CyclingProvider provider(channels, kBufferFrames, kBufferCount, step >= 0.0f);
    std::unique_ptr<AudioResampler> resampler(AudioResampler::create(16, channels));
    std::vector<int16_t> out(callFrames * channels);
    size_t frames = 0;
    for (auto _ : state) {
        resampler->resample(out.data(), callFrames, &provider, step);
        frames += resampler->getOutputFrames();
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    if (frames != state.iterations() * callFrames) {
        state.SkipWithError("resampler delivered fewer frames than asked for");
    }
    state.counters["frames/s"] =
            benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}

// 512 frames per call measures the kernel; 8 stereo / 16 mono frames per
// call is how the source's resampling stage drives it (64 calls per 2048-byte
// block), so that figure includes the per-call overhead the engine pays.
const int kRegistered = [] {
    for (int channels : {1, 2}) {
        for (float step : {1.0f, -1.0f, 0.5f, 7.3f}) {
            for (size_t callFrames : {size_t{512}, size_t(channels == 2 ? 8 : 16)}) {
                char name[96];
                snprintf(name, sizeof(name), "AudioResampler/%s/step:%g/call:%zu",
                         channels == 1 ? "mono" : "stereo", step, callFrames);
                benchmark::RegisterBenchmark(name, resampleThroughput, channels, step,
                                             callFrames);
            }
        }
    }
    return 0;
}();

}  // namespace
