/*
 * The state and thread behind one host AudioTrack.  Internal to host_audio.
 *
 * AudioTrack holds this object by shared_ptr and so does the track's thread,
 * so the application may drop its last reference from inside the callback
 * (the thread then finishes on its own copy and exits).
 */

#ifndef HOST_AUDIO_HOST_AUDIO_TRACK_H
#define HOST_AUDIO_HOST_AUDIO_TRACK_H

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <media/AudioTrack.h>
#include <media/HostAudioSink.h>

#include "HostSink.h"

namespace android {

/* Frames per callback when neither the options nor notificationFrames say:
 * the fast mixer's period for a fast track at the output's rate, the normal
 * mixer's otherwise. */
size_t defaultPeriodFrames(audio_output_flags_t flags, uint32_t sampleRate);

class HostAudioTrack : public std::enable_shared_from_this<HostAudioTrack> {
public:
    struct Params {
        audio_stream_type_t streamType;
        uint32_t sampleRate;
        audio_format_t format;
        audio_channel_mask_t channelMask;
        size_t frameCount;
        audio_output_flags_t flags;
        AudioTrack::callback_t cbf;
        void* user;
        int32_t notificationFrames;
        audio_session_t sessionId;
        AudioTrack::transfer_type transferType;
        bool hasOffloadInfo;
    };

    explicit HostAudioTrack(const Params& params);
    ~HostAudioTrack();

    /* Validates the parameters, opens the sink and starts the thread (which
     * waits, paused, for start()). */
    status_t init();
    /* Stops, joins the thread (unless called on it) and closes the sink. */
    void shutdown();

    status_t status() const { return mStatus; }
    const Params& params() const { return mParams; }
    uint32_t channelCount() const { return mChannelCount; }
    size_t frameSizeBytes() const { return mFrameSizeBytes; }
    size_t frameCount() const { return mSink ? mSink->frameCount() : 0; }
    uint32_t latencyMs() const { return mSink ? mSink->latencyMs() : 0; }

    status_t start();
    void stop();
    bool stopped() const;
    void flush();
    void pause();
    bool isPlaying() const;
    status_t setVolume(float left, float right);
    status_t setSampleRate(uint32_t sampleRate);
    uint32_t sampleRate() const;
    status_t setPlaybackRate(const AudioPlaybackRate& rate);
    const AudioPlaybackRate& playbackRate() const;
    uint32_t underrunFrames() const { return (uint32_t)mUnderrunFrames.load(); }
    status_t getPosition(uint32_t* position);

    HostAudioStats stats() const;
    void setPeriodHook(HostAudioPeriodHook hook);

private:
    enum State { kStopped, kActive, kPaused };

    status_t validate_l() REQUIRES(mLock);
    void threadLoop();
    void bumpPeriod(size_t requestedFrames, size_t writtenFrames, int64_t silenceFrames);

    const Params mParams;
    status_t mStatus = NO_INIT;
    uint32_t mChannelCount = 0;
    size_t mFrameSizeBytes = 0;
    size_t mPeriodFrames = 0;
    std::string mSinkName;
    std::unique_ptr<HostSink> mSink;  // set by init(), closed by shutdown()
    std::vector<uint8_t> mBuffer;     // the callback's buffer; track thread only

    mutable HostMutex mLock;
    std::condition_variable mCond;
    State mState GUARDED_BY(mLock) = kStopped;
    bool mExitPending GUARDED_BY(mLock) = false;
    bool mResetPositionOnStart GUARDED_BY(mLock) = false;
    bool mInUnderrun GUARDED_BY(mLock) = false;
    uint32_t mSampleRate GUARDED_BY(mLock) = 0;
    AudioPlaybackRate mPlaybackRate GUARDED_BY(mLock) = AUDIO_PLAYBACK_RATE_DEFAULT;
    // copied per period without allocating
    std::shared_ptr<const HostAudioPeriodHook> mHook GUARDED_BY(mLock);
    // Started by init() and joined by shutdown(), on the owner's side only.
    std::thread mThread;

    // Read by observers at any time; written by the track's thread.
    std::atomic<int64_t> mDeliveredFrames{0};
    std::atomic<int64_t> mUnderrunFrames{0};
    std::atomic<int64_t> mCallbacks{0};
    std::atomic<int64_t> mStalledCallbacks{0};
    std::atomic<int64_t> mStreamFrames{0};
    std::atomic<int64_t> mPositionBaseFrames{0};  // delivered frames at the last reset
};

}  // namespace android

#endif  // HOST_AUDIO_HOST_AUDIO_TRACK_H
