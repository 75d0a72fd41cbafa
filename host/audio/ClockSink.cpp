/*
 * The null and WAV sinks: a virtual device that plays track frames at the
 * track's rate on a clock (or, freewheeling, as fast as they come).
 *
 * The device's timeline is "frames written" W, which counts delivered frames
 * and the silence played in their place.  Once primed, the device has played
 * anchorFrames + (now - anchorNs) * rate frames; a period whose data arrives
 * after the device has played everything up to W came late, and the gap is
 * played as silence.  The track may run capacity frames ahead of the device.
 */

#define LOG_TAG "HostAudioSink"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <condition_variable>
#include <mutex>

#include <utils/HostMutex.h>

#include <log/log.h>
#include <sndfile.h>

#include "HostSink.h"

namespace android {

namespace {

// A WAV file (libsndfile) whose header is brought up to date on every
// finish(), so the file is valid whenever the track is not writing.
class WavWriter {
public:
    ~WavWriter() { close(); }

    bool open(const std::string& path, const HostSinkFormat& format) {
        SF_INFO info = {};
        info.samplerate = (int)format.sampleRate;
        info.channels = (int)format.channelCount;
        switch (format.format) {
            case AUDIO_FORMAT_PCM_8_BIT: info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_U8; break;
            case AUDIO_FORMAT_PCM_32_BIT: info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_32; break;
            case AUDIO_FORMAT_PCM_FLOAT: info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT; break;
            default: info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16; break;
        }
        mFile = sf_open(path.c_str(), SFM_WRITE, &info);
        if (mFile == nullptr) {
            ALOGE("cannot create WAV file '%s': %s", path.c_str(), sf_strerror(nullptr));
            return false;
        }
        // The bytes the callback delivered, nothing else: no peak chunk.
        sf_command(mFile, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
        mPath = path;
        finish();
        return true;
    }

    void append(const void* data, size_t bytes) {
        if (mFile == nullptr || bytes == 0) return;
        // Raw writes: the samples go in exactly as delivered.
        sf_count_t done = sf_write_raw(mFile, data, (sf_count_t)bytes);
        if (done != (sf_count_t)bytes && !mWriteFailed) {
            mWriteFailed = true;
            ALOGE("writing WAV file '%s' failed: %s", mPath.c_str(), sf_strerror(mFile));
        }
    }

    // Brings the header up to date and pushes everything to the file.
    void finish() {
        if (mFile == nullptr) return;
        sf_command(mFile, SFC_UPDATE_HEADER_NOW, nullptr, 0);
        sf_write_sync(mFile);
    }

    void close() {
        if (mFile == nullptr) return;
        if (sf_close(mFile) != 0) {
            ALOGE("closing WAV file '%s' failed", mPath.c_str());
        }
        mFile = nullptr;
    }

private:
    SNDFILE* mFile = nullptr;
    std::string mPath;
    bool mWriteFailed = false;
};

class ClockSink : public HostSink {
public:
    ClockSink(const HostSinkFormat& format, std::shared_ptr<HostAudioClock> clock,
              bool freewheel)
        : mFormat(format),
          mClock(std::move(clock)),
          mFreewheel(freewheel),
          mFramesPerSecond(format.sampleRate) {}

    ~ClockSink() override { close(); }

    bool openWav(const std::string& path) {
        mWav.reset(new WavWriter);
        return mWav->open(path, mFormat);
    }

    const char* name() const override { return mWav ? "wav" : "null"; }
    uint32_t outputSampleRate() const override { return mFormat.sampleRate; }
    uint32_t latencyMs() const override {
        return (uint32_t)(1000ull * mFormat.capacityFrames / mFormat.sampleRate);
    }
    size_t frameCount() const override { return mFormat.capacityFrames; }

    bool waitForRoom(size_t frames) override {
        HostLock lock(mLock);
        for (;;) {
            if (mWoken) {
                mWoken = false;
                return false;
            }
            if (mFreewheel || !mAnchored) return true;
            int64_t neededPlayed = mWrittenFrames + (int64_t)frames - (int64_t)mFormat.capacityFrames;
            int64_t nowNs = mClock->nowNs();
            if (playedAt_l(nowNs) >= neededPlayed) return true;
            double waitNs = (neededPlayed - mAnchorFrames) * 1e9 / mFramesPerSecond;
            mClock->waitUntil(lock.waitable(), mCond, mAnchorNs + (int64_t)ceil(waitNs));
        }
    }

    void wake() override {
        HostLock lock(mLock);
        mWoken = true;
        mCond.notify_all();
    }

    int64_t write(const void* data, size_t writtenFrames, size_t requestedFrames) override {
        HostLock lock(mLock);
        if (mClosed) return 0;
        int64_t silenceFrames = 0;
        int64_t nowNs = mClock->nowNs();
        if (mAnchored && !mFreewheel) {
            int64_t played = playedAt_l(nowNs);
            if (played > mWrittenFrames) {
                silenceFrames += played - mWrittenFrames;
                mWrittenFrames = played;
            }
        }
        if (mWav) mWav->append(data, writtenFrames * mFormat.frameSizeBytes);
        silenceFrames += (int64_t)(requestedFrames - writtenFrames);
        mWrittenFrames += (int64_t)requestedFrames;
        if (!mAnchored && mRunning) {
            // Primed: the device starts playing with this period.
            mAnchored = true;
            mAnchorNs = nowNs;
            mAnchorFrames = mWrittenFrames - (int64_t)requestedFrames;
        }
        return silenceFrames;
    }

    int64_t bufferedFrames() override {
        HostLock lock(mLock);
        if (mFreewheel) return 0;
        int64_t played = mAnchored ? playedAt_l(mClock->nowNs()) : mAnchorFrames;
        return played >= mWrittenFrames ? 0 : mWrittenFrames - played;
    }

    void start() override {
        HostLock lock(mLock);
        mRunning = true;
        // With data still buffered from before a pause the device resumes at
        // once; otherwise it waits for the first period.
        if (!mAnchored && mWrittenFrames > mAnchorFrames) {
            mAnchored = true;
            mAnchorNs = mClock->nowNs();
        }
        mCond.notify_all();
    }

    void pause() override {
        HostLock lock(mLock);
        freeze_l();
        if (mWav) mWav->finish();
    }

    void stop() override {
        HostLock lock(mLock);
        freeze_l();
        mWrittenFrames = mAnchorFrames;
        if (mWav) mWav->finish();
    }

    void flush() override {
        HostLock lock(mLock);
        if (!mAnchored) mWrittenFrames = mAnchorFrames;
    }

    void close() override {
        HostLock lock(mLock);
        freeze_l();
        mClosed = true;
        if (mWav) mWav->close();
    }

    void setSpeed(float speed) override {
        HostLock lock(mLock);
        if (mAnchored) {
            int64_t nowNs = mClock->nowNs();
            mAnchorFrames = playedAt_l(nowNs);
            mAnchorNs = nowNs;
        }
        mFramesPerSecond = (double)mFormat.sampleRate * speed;
        mCond.notify_all();
    }

    void setVolume(float, float) override {}  // the file keeps the delivered bytes

private:
    int64_t playedAt_l(int64_t nowNs) const REQUIRES(mLock) {
        if (!mAnchored) return mAnchorFrames;
        int64_t elapsedNs = nowNs > mAnchorNs ? nowNs - mAnchorNs : 0;
        return mAnchorFrames + (int64_t)floor(elapsedNs * mFramesPerSecond / 1e9);
    }

    void freeze_l() REQUIRES(mLock) {
        int64_t played = playedAt_l(mClock->nowNs());
        mAnchorFrames = played < mWrittenFrames ? played : mWrittenFrames;
        mAnchored = false;
        mRunning = false;
        mWoken = true;
        mCond.notify_all();
    }

    const HostSinkFormat mFormat;
    const std::shared_ptr<HostAudioClock> mClock;
    const bool mFreewheel;
    std::unique_ptr<WavWriter> mWav;  // set before use; its file is guarded by mLock

    HostMutex mLock;  // also guards mWav's file
    std::condition_variable mCond;
    double mFramesPerSecond;
    bool mRunning GUARDED_BY(mLock) = false;
    bool mAnchored GUARDED_BY(mLock) = false;
    int64_t mAnchorNs GUARDED_BY(mLock) = 0;
    int64_t mAnchorFrames GUARDED_BY(mLock) = 0;
    int64_t mWrittenFrames GUARDED_BY(mLock) = 0;
    bool mWoken GUARDED_BY(mLock) = false;
    bool mClosed GUARDED_BY(mLock) = false;
};

class MonotonicClock : public HostAudioClock {
public:
    int64_t nowNs() override {
        struct timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return ts.tv_sec * 1000000000LL + ts.tv_nsec;
    }

    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& cond,
                   int64_t deadlineNs) override {
        // steady_clock is CLOCK_MONOTONIC on Linux.
        int64_t delayNs = deadlineNs - nowNs();
        if (delayNs <= 0) return;
        cond.wait_for(lock, std::chrono::nanoseconds(delayNs));
    }
};

}  // namespace

std::shared_ptr<HostAudioClock> hostAudioMonotonicClock() {
    static std::shared_ptr<HostAudioClock> clock = std::make_shared<MonotonicClock>();
    return clock;
}

int64_t HostManualClock::nowNs() {
    HostLock lock(mLock);
    return mNowNs;
}

void HostManualClock::waitUntil(std::unique_lock<std::mutex>&, std::condition_variable&,
                                int64_t deadlineNs) {
    HostLock lock(mLock);
    if (deadlineNs > mNowNs) mNowNs = deadlineNs;
}

void HostManualClock::advanceNs(int64_t deltaNs) {
    HostLock lock(mLock);
    mNowNs += deltaNs;
}

std::unique_ptr<HostSink> createClockSink(const HostSinkFormat& format,
                                          std::shared_ptr<HostAudioClock> clock,
                                          const std::string& wavPath, bool freewheel) {
    std::unique_ptr<ClockSink> sink(
            new ClockSink(format, clock ? clock : hostAudioMonotonicClock(),
                          freewheel && !wavPath.empty()));
    if (!wavPath.empty() && !sink->openWav(wavPath)) return nullptr;
    return sink;
}

}  // namespace android
