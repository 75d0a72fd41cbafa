#define LOG_TAG "AudioResampler"

#include "AudioResampler.h"

#include <math.h>
#include <string.h>

#include <log/log.h>

// The output must be the two rounded products added last.  A fused
// multiply-add rounds once and shifts some samples by one step after the
// truncation, so contraction stays off whatever the toolchain's default.
#if defined(__clang__)
#pragma STDC FP_CONTRACT OFF
#elif defined(__GNUC__) && defined(__FP_FAST_FMAF)
#pragma GCC optimize("fp-contract=off")
#endif

using android::AudioBufferProvider;

namespace {

// Going forward a position is usable while (double)n - 1.0 > phase, with n the
// frame count as a float.  The kernel compares floats only, so it gets the
// smallest float at or above that bound: for every float phase,
// phase < limit exactly when (double)phase < bound.
inline float forwardLimit(size_t frameCount) {
    const double bound = static_cast<double>(static_cast<float>(frameCount)) - 1.0;
    float limit = static_cast<float>(bound);
    if (static_cast<double>(limit) < bound) {
        limit = nextafterf(limit, INFINITY);
    }
    return limit;
}

template <int kChannels>
inline void interpolate(int16_t* out, const int16_t* a, const int16_t* b, float f) {
    const float g = 1.0f - f;
    for (int c = 0; c < kChannels; ++c) {
        const float fromA = g * static_cast<float>(a[c]);
        const float fromB = f * static_cast<float>(b[c]);
        // Truncation toward zero, no clamping: two int16 samples cannot
        // interpolate outside the int16 range.
        out[c] = static_cast<int16_t>(static_cast<int32_t>(fromA + fromB));
    }
}

}  // namespace

// ---------------------------------------------------------------------------

AudioResampler* AudioResampler::create(int bitDepth, int channelCount) {
    return new AudioResamplerOrder1(bitDepth, channelCount);
}

AudioResampler::AudioResampler(int bitDepth, int channelCount)
    : mBitDepth(bitDepth),
      mChannelCount(channelCount),
      mVolume{0, 0},
      mInputIndex(0),
      mPhase(0.0f),
      mOutputFrames(0) {
    mBuffer.raw = nullptr;
    mBuffer.frameCount = 0;
    if (bitDepth != 16 || (channelCount != 1 && channelCount != 2)) {
        ALOGE("Unsupported sample format, %d bits, %d channels", bitDepth, channelCount);
    }
}

AudioResampler::~AudioResampler() {}

void AudioResampler::setVolume(int16_t left, int16_t right) {
    mVolume[0] = left;
    mVolume[1] = right;
}

void AudioResampler::reset() {
    mInputIndex = 0;
    mPhase = 0.0f;
    mOutputFrames = 0;
    mBuffer.frameCount = 0;
}

int64_t AudioResampler::getUnreleasedFrames() const {
    return mInputIndex;
}

size_t AudioResampler::getOutputFrames() const {
    return mOutputFrames;
}

// ---------------------------------------------------------------------------

AudioResamplerOrder1::AudioResamplerOrder1(int bitDepth, int channelCount)
    : AudioResampler(bitDepth, channelCount), mX0L(0), mX0R(0) {}

AudioResamplerOrder1::~AudioResamplerOrder1() {}

void AudioResamplerOrder1::resample(int16_t* out, size_t outFrameCount,
                                    AudioBufferProvider* provider, float step) {
    switch (mChannelCount) {
        case 2:
            resampleStereo16(out, outFrameCount, provider, step);
            break;
        case 1:
            resampleMono16(out, outFrameCount, provider, step);
            break;
        default:
            // Unsupported layout, already reported at construction: no
            // output, and the frame count of the last call stays.
            break;
    }
}

void AudioResamplerOrder1::resampleMono16(int16_t* out, size_t outFrameCount,
                                          AudioBufferProvider* provider, float step) {
    resample16<1>(out, outFrameCount, provider, step);
}

void AudioResamplerOrder1::resampleStereo16(int16_t* out, size_t outFrameCount,
                                            AudioBufferProvider* provider, float step) {
    resample16<2>(out, outFrameCount, provider, step);
}

template <int kChannels>
void AudioResamplerOrder1::resample16(int16_t* out, size_t outFrameCount,
                                      AudioBufferProvider* provider, float step) {
    if (mBuffer.frameCount == 0) {
        provider->getNextBuffer(&mBuffer);
        if (mBuffer.frameCount == 0) {
            ALOGE("no buffer");
            mOutputFrames = 0;
            return;
        }
    }
    mOutputFrames = 0;
    if (outFrameCount == 0) {
        return;
    }
    if (step > 0.0f) {
        mOutputFrames = walkForward<kChannels>(out, outFrameCount, provider, step);
    } else if (step < 0.0f) {
        mOutputFrames = walkBackward<kChannels>(out, outFrameCount, provider, step);
    } else if (step == 0.0f) {
        // Standing still is silence, and the position does not move (adding
        // zero only normalises a negative zero).
        mPhase += step;
        memset(out, 0, outFrameCount * kChannels * sizeof(int16_t));
        mOutputFrames = outFrameCount;
    } else {
        // A NaN step has no direction and no usable position: walked as
        // written it would keep asking the provider for buffers, and the
        // cache hands its end buffer out again and again, so that would
        // never end.  Nothing moves and nothing comes out.
    }
}

// Moves from the current buffer to the one that holds mPhase, asking the
// provider once per buffer crossed and saving the neighbour frame of the
// buffer left behind.  False when the provider ran dry.
template <int kChannels>
bool AudioResamplerOrder1::enterNextBuffer(AudioBufferProvider* provider, bool forward) {
    for (;;) {
        const size_t frameCount = mBuffer.frameCount;
        const float n = static_cast<float>(frameCount);
        if (forward) {
            if (mPhase >= -1.0f &&
                static_cast<double>(n) - 1.0 > static_cast<double>(mPhase)) {
                return true;
            }
            if (mPhase >= n - 1.0f) {
                mPhase -= n;
            }
            if (frameCount > 0) {
                const int16_t* last = mBuffer.i16 + (frameCount - 1) * kChannels;
                mX0L = last[0];
                if (kChannels == 2) {
                    mX0R = last[1];
                }
            }
        } else {
            if (mPhase >= 0.0f && mPhase < n) {
                return true;
            }
            if (mPhase >= n) {
                mPhase -= n;
            }
            if (frameCount > 0) {
                mX0L = mBuffer.i16[0];
                if (kChannels == 2) {
                    mX0R = mBuffer.i16[1];
                }
            }
        }
        provider->getNextBuffer(&mBuffer);
        if (mBuffer.frameCount == 0) {
            ALOGE("no more buffer");
            return false;
        }
        if (forward ? mPhase < -1.0f : mPhase < 0.0f) {
            mPhase += static_cast<float>(mBuffer.frameCount);
        }
    }
}

// The two walks are the audio path.  The position, the buffer and the
// neighbour frame live in locals and go back to the members only around a
// buffer change and at the end; each direction has its own loop so the
// common case is a single range test and two adjacent frames.

template <int kChannels>
size_t AudioResamplerOrder1::walkForward(int16_t* out, size_t outFrameCount,
                                         AudioBufferProvider* provider, float step) {
    float phase = mPhase;
    int32_t index = mInputIndex;
    const int16_t* x = mBuffer.i16;
    size_t last = mBuffer.frameCount - 1;
    float limit = forwardLimit(mBuffer.frameCount);
    int16_t saved[2] = {static_cast<int16_t>(mX0L), static_cast<int16_t>(mX0R)};

    size_t produced = 0;
    while (produced < outFrameCount) {
        phase += step;
        if (__builtin_expect(!(phase >= -1.0f && phase < limit), 0)) {
            mPhase = phase;
            mInputIndex = index;
            if (!enterNextBuffer<kChannels>(provider, true)) {
                return produced;
            }
            phase = mPhase;
            x = mBuffer.i16;
            last = mBuffer.frameCount - 1;
            limit = forwardLimit(mBuffer.frameCount);
            saved[0] = static_cast<int16_t>(mX0L);
            saved[1] = static_cast<int16_t>(mX0R);
        }
        // Truncation toward zero, but everything in [-1, 0) belongs to the
        // pair (saved frame, first frame).
        index = phase < 0.0f ? -1 : static_cast<int32_t>(phase);
        const float f = phase - static_cast<float>(index);
        const int16_t* a;
        const int16_t* b;
        if (__builtin_expect(static_cast<size_t>(static_cast<int64_t>(index)) < last, 1)) {
            a = x + static_cast<size_t>(index) * kChannels;
            b = a + kChannels;
        } else if (index < 0) {
            a = saved;
            b = x;
        } else {
            // Only reachable when the frame count is too large to be exact
            // as a float; the last frame pairs with the saved one.
            a = x + last * kChannels;
            b = saved;
        }
        interpolate<kChannels>(out, a, b, f);
        out += kChannels;
        ++produced;
    }
    mPhase = phase;
    mInputIndex = index;
    return produced;
}

template <int kChannels>
size_t AudioResamplerOrder1::walkBackward(int16_t* out, size_t outFrameCount,
                                          AudioBufferProvider* provider, float step) {
    float phase = mPhase;
    int32_t index = mInputIndex;
    const int16_t* x = mBuffer.i16;
    size_t last = mBuffer.frameCount - 1;
    float n = static_cast<float>(mBuffer.frameCount);
    int16_t saved[2] = {static_cast<int16_t>(mX0L), static_cast<int16_t>(mX0R)};

    size_t produced = 0;
    while (produced < outFrameCount) {
        phase += step;
        if (__builtin_expect(!(phase >= 0.0f && phase < n), 0)) {
            mPhase = phase;
            mInputIndex = index;
            if (!enterNextBuffer<kChannels>(provider, false)) {
                return produced;
            }
            phase = mPhase;
            x = mBuffer.i16;
            last = mBuffer.frameCount - 1;
            n = static_cast<float>(mBuffer.frameCount);
            saved[0] = static_cast<int16_t>(mX0L);
            saved[1] = static_cast<int16_t>(mX0R);
        }
        index = static_cast<int32_t>(phase);
        const float f = phase - static_cast<float>(index);
        const int16_t* a;
        const int16_t* b;
        if (__builtin_expect(static_cast<size_t>(index) < last, 1)) {
            a = x + static_cast<size_t>(index) * kChannels;
            b = a + kChannels;
        } else {
            // The last frame's right neighbour is the first frame of the
            // buffer just left, which comes later in time.
            a = x + last * kChannels;
            b = saved;
        }
        interpolate<kChannels>(out, a, b, f);
        out += kChannels;
        ++produced;
    }
    mPhase = phase;
    mInputIndex = index;
    return produced;
}
