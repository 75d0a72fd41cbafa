#pragma once

// First-order (linear interpolation) resampler for 16-bit mono and stereo PCM
// with a signed step: a negative step walks the input backward, which is how
// the engine plays audio in reverse.  The arithmetic is single-precision float
// and the output is truncated toward zero; both are part of the sound of the
// engine and must not be "improved".
//
// These two classes live in the global namespace on purpose: the scratch
// source names them without qualification.

#include <stddef.h>
#include <stdint.h>

#include <media/AudioBufferProvider.h>

class AudioResampler {
public:
    // Always an AudioResamplerOrder1.  The caller owns the object and deletes
    // it through this base.
    static AudioResampler* create(int bitDepth, int channelCount);

    virtual ~AudioResampler();

    // Stored only; the interpolation does not apply it.
    virtual void setVolume(int16_t left, int16_t right);

    // Writes up to |outFrameCount| interleaved frames to |out|, pulling input
    // from |provider| in the direction of |step|.  getOutputFrames() tells how
    // many were written.
    virtual void resample(int16_t* out, size_t outFrameCount,
                          android::AudioBufferProvider* provider, float step) = 0;

    // Forgets the current buffer and read position (the next resample() asks
    // the provider for a new buffer); the saved frame survives.
    virtual void reset();

    // Integer part of the read position of the last output frame, -1 when
    // that frame lay between the saved frame and the buffer's first frame.
    virtual int64_t getUnreleasedFrames() const;

    virtual size_t getOutputFrames() const;

protected:
    AudioResampler(int bitDepth, int channelCount);

    const int32_t mBitDepth;
    const int32_t mChannelCount;
    android::AudioBufferProvider::Buffer mBuffer;
    int16_t mVolume[2];
    int32_t mInputIndex;
    float mPhase;
    size_t mOutputFrames;

private:
    AudioResampler(const AudioResampler&) = delete;
    AudioResampler& operator=(const AudioResampler&) = delete;
};

class AudioResamplerOrder1 : public AudioResampler {
public:
    AudioResamplerOrder1(int bitDepth, int channelCount);
    ~AudioResamplerOrder1() override;

    void resample(int16_t* out, size_t outFrameCount, android::AudioBufferProvider* provider,
                  float step) override;

private:
    void resampleMono16(int16_t* out, size_t outFrameCount,
                        android::AudioBufferProvider* provider, float step);
    void resampleStereo16(int16_t* out, size_t outFrameCount,
                          android::AudioBufferProvider* provider, float step);

    template <int kChannels>
    void resample16(int16_t* out, size_t outFrameCount, android::AudioBufferProvider* provider,
                    float step);
    template <int kChannels>
    size_t walkForward(int16_t* out, size_t outFrameCount,
                       android::AudioBufferProvider* provider, float step);
    template <int kChannels>
    size_t walkBackward(int16_t* out, size_t outFrameCount,
                        android::AudioBufferProvider* provider, float step);
    template <int kChannels>
    bool enterNextBuffer(android::AudioBufferProvider* provider, bool forward);

    // The frame of the buffer left behind at the last buffer change: its last
    // frame going forward, its first frame going backward.  It is the missing
    // neighbour at the new buffer's edge.
    int32_t mX0L;
    int32_t mX0R;
};
