/*
 * The device sink: an SDL2 audio device in pull mode.
 *
 * SDL's audio thread must never wait for the engine, so the track's thread
 * converts each period to the device's rate (libswresample) and puts it in
 * a FIFO; SDL's callback only copies from the FIFO and plays silence, counted
 * as underrun, when the FIFO runs dry while the track is playing.
 */

#define LOG_TAG "HostAudioSink"

#include <math.h>
#include <string.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <vector>

#include <SDL.h>
extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <log/log.h>

#include "HostSink.h"

namespace android {

namespace {

HostMutex gSdlInitLock;  // serialises SDL audio subsystem init and quit

bool sdlFormatFor(audio_format_t format, SDL_AudioFormat* sdlFormat, AVSampleFormat* avFormat) {
    switch (format) {
        case AUDIO_FORMAT_PCM_16_BIT: *sdlFormat = AUDIO_S16SYS; *avFormat = AV_SAMPLE_FMT_S16; return true;
        case AUDIO_FORMAT_PCM_8_BIT: *sdlFormat = AUDIO_U8; *avFormat = AV_SAMPLE_FMT_U8; return true;
        case AUDIO_FORMAT_PCM_32_BIT: *sdlFormat = AUDIO_S32SYS; *avFormat = AV_SAMPLE_FMT_S32; return true;
        case AUDIO_FORMAT_PCM_FLOAT: *sdlFormat = AUDIO_F32SYS; *avFormat = AV_SAMPLE_FMT_FLT; return true;
        default: return false;
    }
}

template <typename T>
void scale(T* samples, size_t count, uint32_t channels, const float gain[2]) {
    for (size_t i = 0; i < count; ++i) {
        float g = gain[channels >= 2 ? (i % channels) & 1 : 0];
        double v = samples[i] * (double)g;
        if (std::is_floating_point<T>::value) {
            samples[i] = (T)v;
        } else {
            double lo = (double)std::numeric_limits<T>::min();
            double hi = (double)std::numeric_limits<T>::max();
            samples[i] = (T)std::min(hi, std::max(lo, v));
        }
    }
}

class SdlSink : public HostSink {
public:
    SdlSink(const HostSinkFormat& format) : mFormat(format) {}

    ~SdlSink() override { close(); }

    // Fills the FIFO and builds the converter without mLock: the device
    // opens paused, so its callback cannot run before open() returns.
    bool open(uint32_t deviceSampleRate, std::string* why) NO_THREAD_SAFETY_ANALYSIS {
        if (!sdlFormatFor(mFormat.format, &mSdlFormat, &mAvFormat)) {
            *why = "sample format not supported";
            return false;
        }
        {
            HostLock lock(gSdlInitLock);
            if (SDL_InitSubSystem(SDL_INIT_AUDIO) != 0) {
                *why = SDL_GetError();
                return false;
            }
            mSdlInitialised = true;
        }
        SDL_AudioSpec want, have;
        SDL_zero(want);
        want.freq = deviceSampleRate != 0 ? deviceSampleRate : mFormat.sampleRate;
        want.format = mSdlFormat;
        want.channels = mFormat.channelCount;
        want.samples = 512;
        want.callback = &SdlSink::audioCallback;
        want.userdata = this;
        mDevice = SDL_OpenAudioDevice(nullptr, 0, &want, &have,
                                      deviceSampleRate != 0 ? 0 : SDL_AUDIO_ALLOW_FREQUENCY_CHANGE);
        if (mDevice == 0) {
            *why = SDL_GetError();
            quitSdl();
            return false;
        }
        mDeviceRate = have.freq;
        mDeviceBufferFrames = have.samples;
        mSilenceByte = have.silence;
        mDriver = SDL_GetCurrentAudioDriver() ? SDL_GetCurrentAudioDriver() : "?";
        size_t periodOut = outFramesFor(mFormat.periodFrames, 1.0f);
        mFifoFrames = std::max<size_t>(2 * mDeviceBufferFrames + 2 * periodOut,
                                       mFormat.capacityFrames * (uint64_t)mDeviceRate / mFormat.sampleRate);
        mFifo.assign(mFifoFrames * mFormat.frameSizeBytes, 0);
        mIn.assign(mFormat.periodFrames * mFormat.frameSizeBytes, 0);
        if (!configureConverter_l(1.0f)) {
            *why = "cannot set up sample rate conversion";
            close();
            return false;
        }
        ALOGI("SDL audio device open: driver '%s', %d Hz (track %u Hz), %u channels, %d-frame buffer",
              mDriver.c_str(), mDeviceRate, mFormat.sampleRate, mFormat.channelCount,
              mDeviceBufferFrames);
        return true;
    }

    const char* name() const override { return "sdl"; }
    uint32_t outputSampleRate() const override { return mDeviceRate; }
    uint32_t latencyMs() const override {
        return (uint32_t)(1000ull * (mFifoFrames + mDeviceBufferFrames) / mDeviceRate);
    }
    size_t frameCount() const override {
        return (size_t)((uint64_t)mFifoFrames * mFormat.sampleRate / mDeviceRate);
    }

    bool waitForRoom(size_t frames) override {
        HostLock lock(mLock);
        for (;;) {
            if (mWoken) {
                mWoken = false;
                return false;
            }
            size_t needed = outFramesFor(frames, mSpeed);
            if (mFifoFrames - mFillFrames >= needed || !mDeviceRunning) return true;
            // The device's callback signals; the timeout only guards a device
            // that stopped calling back.
            mCond.wait_for(lock.waitable(), std::chrono::milliseconds(200));
        }
    }

    void wake() override {
        HostLock lock(mLock);
        mWoken = true;
        mCond.notify_all();
    }

    int64_t write(const void* data, size_t writtenFrames, size_t requestedFrames) override {
        const size_t frameBytes = mFormat.frameSizeBytes;
        if (mIn.size() < requestedFrames * frameBytes) mIn.resize(requestedFrames * frameBytes);
        memcpy(mIn.data(), data, writtenFrames * frameBytes);
        memset(mIn.data() + writtenFrames * frameBytes, mSilenceByte,
               (requestedFrames - writtenFrames) * frameBytes);
        int64_t silenceFrames = (int64_t)(requestedFrames - writtenFrames);
        {
            HostLock lock(mLock);
            if (mClosed) return 0;
            const uint8_t* out = mIn.data();
            size_t outFrames = requestedFrames;
            if (mSwr != nullptr) {
                int maxOut = swr_get_out_samples(mSwr, (int)requestedFrames);
                if (maxOut < 0) maxOut = 0;
                if (mConverted.size() < (size_t)maxOut * frameBytes) {
                    mConverted.resize((size_t)maxOut * frameBytes);
                }
                uint8_t* outPlanes[1] = {mConverted.data()};
                const uint8_t* inPlanes[1] = {mIn.data()};
                int got = swr_convert(mSwr, outPlanes, maxOut, inPlanes, (int)requestedFrames);
                outFrames = got > 0 ? (size_t)got : 0;
                out = mConverted.data();
            }
            if (mGain[0] != 1.0f || mGain[1] != 1.0f) {
                applyGain(const_cast<uint8_t*>(out), outFrames);
            }
            pushFifo_l(out, outFrames);
            silenceFrames += takeLateFrames_l();
        }
        startDeviceIfDue();
        return silenceFrames;
    }

    int64_t bufferedFrames() override {
        HostLock lock(mLock);
        return (int64_t)((uint64_t)mFillFrames * mFormat.sampleRate / mDeviceRate);
    }

    void start() override {
        bool primed;
        {
            HostLock lock(mLock);
            mRunning = true;
            primed = mFillFrames > 0;
        }
        if (primed) startDeviceIfDue();
    }

    void pause() override { halt(false); }
    void stop() override { halt(true); }

    void flush() override {
        HostLock lock(mLock);
        if (!mDeviceRunning) {
            mFillFrames = 0;
            mReadFrame = 0;
        }
    }

    void close() override {
        {
            HostLock lock(mLock);
            if (mClosed) return;
            mClosed = true;
            mWoken = true;
            mCond.notify_all();
        }
        if (mDevice != 0) {
            SDL_CloseAudioDevice(mDevice);  // waits for a callback in progress
            mDevice = 0;
        }
        quitSdl();
        swr_free(&mSwr);
    }

    void setSpeed(float speed) override {
        HostLock lock(mLock);
        if (!configureConverter_l(speed)) {
            ALOGE("cannot convert %u Hz at speed %.3f to %d Hz; keeping the previous speed",
                  mFormat.sampleRate, speed, mDeviceRate);
            return;
        }
        mSpeed = speed;
    }

    void setVolume(float left, float right) override {
        HostLock lock(mLock);
        mGain[0] = left;
        mGain[1] = right;
    }

private:
    size_t outFramesFor(size_t inFrames, float speed) const {
        double ratio = mDeviceRate / (mFormat.sampleRate * (double)speed);
        return (size_t)ceil(inFrames * ratio) + 32;
    }

    bool configureConverter_l(float speed) REQUIRES(mLock) {
        int inRate = (int)lround(mFormat.sampleRate * (double)speed);
        swr_free(&mSwr);
        if (inRate == mDeviceRate) return true;
        AVChannelLayout layout;
        av_channel_layout_default(&layout, mFormat.channelCount);
        int err = swr_alloc_set_opts2(&mSwr, &layout, mAvFormat, mDeviceRate, &layout, mAvFormat,
                                      inRate, 0, nullptr);
        av_channel_layout_uninit(&layout);
        if (err < 0 || swr_init(mSwr) < 0) {
            swr_free(&mSwr);
            return false;
        }
        return true;
    }

    void applyGain(uint8_t* samples, size_t frames) REQUIRES(mLock) {
        size_t count = frames * mFormat.channelCount;
        switch (mFormat.format) {
            case AUDIO_FORMAT_PCM_16_BIT:
                scale((int16_t*)samples, count, mFormat.channelCount, mGain);
                break;
            case AUDIO_FORMAT_PCM_32_BIT:
                scale((int32_t*)samples, count, mFormat.channelCount, mGain);
                break;
            case AUDIO_FORMAT_PCM_FLOAT:
                scale((float*)samples, count, mFormat.channelCount, mGain);
                break;
            default:  // unsigned 8-bit: around 128
                for (size_t i = 0; i < count; ++i) {
                    float g = mGain[mFormat.channelCount >= 2 ? (i % mFormat.channelCount) & 1 : 0];
                    float v = 128.0f + (samples[i] - 128.0f) * g;
                    samples[i] = (uint8_t)std::min(255.0f, std::max(0.0f, v));
                }
        }
    }

    void pushFifo_l(const uint8_t* data, size_t frames) REQUIRES(mLock) {
        size_t room = mFifoFrames - mFillFrames;
        if (frames > room) {
            mDroppedFrames += frames - room;
            if (!mOverflowLogged) {
                mOverflowLogged = true;
                ALOGW("device FIFO full: dropping %zu frames", frames - room);
            }
            frames = room;
        }
        const size_t frameBytes = mFormat.frameSizeBytes;
        size_t writeFrame = (mReadFrame + mFillFrames) % mFifoFrames;
        size_t first = std::min(frames, mFifoFrames - writeFrame);
        memcpy(mFifo.data() + writeFrame * frameBytes, data, first * frameBytes);
        memcpy(mFifo.data(), data + first * frameBytes, (frames - first) * frameBytes);
        mFillFrames += frames;
    }

    // Device frames the callback had to play as silence, in track frames.
    int64_t takeLateFrames_l() REQUIRES(mLock) {
        if (mLateDeviceFrames == 0) return 0;
        double trackPerDevice = mFormat.sampleRate * (double)mSpeed / mDeviceRate;
        int64_t frames = (int64_t)floor(mLateDeviceFrames * trackPerDevice);
        mLateDeviceFrames -= (int64_t)ceil(frames / trackPerDevice);
        if (mLateDeviceFrames < 0) mLateDeviceFrames = 0;
        return frames;
    }

    void startDeviceIfDue() {
        HostLock deviceLock(mDeviceLock);
        {
            HostLock lock(mLock);
            if (!mRunning || mDeviceRunning || mClosed) return;
            mDeviceRunning = true;
        }
        SDL_PauseAudioDevice(mDevice, 0);
    }

    void halt(bool drop) {
        HostLock deviceLock(mDeviceLock);
        bool wasRunning;
        {
            HostLock lock(mLock);
            wasRunning = mDeviceRunning;
            mRunning = false;
            mDeviceRunning = false;
            mWoken = true;
            mCond.notify_all();
        }
        // Never under mLock: SDL waits here for its callback, which takes it.
        if (wasRunning && mDevice != 0) SDL_PauseAudioDevice(mDevice, 1);
        HostLock lock(mLock);
        mLateDeviceFrames = 0;
        if (drop) {
            mFillFrames = 0;
            mReadFrame = 0;
            if (mSwr != nullptr) configureConverter_l(mSpeed);
        }
    }

    static void audioCallback(void* userdata, Uint8* stream, int len) {
        static_cast<SdlSink*>(userdata)->pull(stream, (size_t)len);
    }

    void pull(uint8_t* stream, size_t bytes) {
        const size_t frameBytes = mFormat.frameSizeBytes;
        size_t wanted = bytes / frameBytes;
        HostLock lock(mLock);
        size_t frames = std::min(wanted, mFillFrames);
        size_t first = std::min(frames, mFifoFrames - mReadFrame);
        memcpy(stream, mFifo.data() + mReadFrame * frameBytes, first * frameBytes);
        memcpy(stream + first * frameBytes, mFifo.data(), (frames - first) * frameBytes);
        mReadFrame = (mReadFrame + frames) % mFifoFrames;
        mFillFrames -= frames;
        memset(stream + frames * frameBytes, mSilenceByte, bytes - frames * frameBytes);
        if (frames < wanted && mDeviceRunning) mLateDeviceFrames += (int64_t)(wanted - frames);
        mCond.notify_all();
    }

    void quitSdl() {
        HostLock lock(gSdlInitLock);
        if (mSdlInitialised) SDL_QuitSubSystem(SDL_INIT_AUDIO);
        mSdlInitialised = false;
    }

    const HostSinkFormat mFormat;
    SDL_AudioFormat mSdlFormat = AUDIO_S16SYS;
    AVSampleFormat mAvFormat = AV_SAMPLE_FMT_S16;
    bool mSdlInitialised GUARDED_BY(gSdlInitLock) = false;
    SDL_AudioDeviceID mDevice = 0;
    int mDeviceRate = 0;
    int mDeviceBufferFrames = 0;
    uint8_t mSilenceByte = 0;
    std::string mDriver;
    size_t mFifoFrames = 0;
    std::vector<uint8_t> mIn;  // track thread only

    HostMutex mDeviceLock;  // orders device pause/resume decisions
    HostMutex mLock ACQUIRED_AFTER(mDeviceLock);
    std::condition_variable mCond;
    std::vector<uint8_t> mFifo GUARDED_BY(mLock);
    size_t mReadFrame GUARDED_BY(mLock) = 0;
    size_t mFillFrames GUARDED_BY(mLock) = 0;
    std::vector<uint8_t> mConverted GUARDED_BY(mLock);
    SwrContext* mSwr GUARDED_BY(mLock) = nullptr;
    float mSpeed GUARDED_BY(mLock) = 1.0f;
    float mGain[2] GUARDED_BY(mLock) = {1.0f, 1.0f};
    bool mRunning GUARDED_BY(mLock) = false;
    bool mDeviceRunning GUARDED_BY(mLock) = false;
    bool mWoken GUARDED_BY(mLock) = false;
    bool mClosed GUARDED_BY(mLock) = false;
    bool mOverflowLogged GUARDED_BY(mLock) = false;
    int64_t mLateDeviceFrames GUARDED_BY(mLock) = 0;
    int64_t mDroppedFrames GUARDED_BY(mLock) = 0;
};

}  // namespace

std::unique_ptr<HostSink> createSdlSink(const HostSinkFormat& format, uint32_t deviceSampleRate) {
    std::unique_ptr<SdlSink> sink(new SdlSink(format));
    std::string why;
    if (!sink->open(deviceSampleRate, &why)) {
        ALOGW("no SDL audio device: %s", why.c_str());
        return nullptr;
    }
    return sink;
}

}  // namespace android
