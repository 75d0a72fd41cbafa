#pragma once

#include <atomic>
#include <stdint.h>

#include <utils/Condition.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include "TimedEventQueue.h"

namespace android {

class AudioTrack;
class DataSource;
class MediaBuffer;
class MediaPlayerBase;
class RotavoxSource;
struct MediaSource;
struct NuMediaExtractor;

// The player behind one Java Rotavox object: it owns the extractor, the
// decoder, the scratch source that plays PCM forward and backward, and the
// audio output, and runs its preparation and status watchdog on a private
// event queue.  Not reference counted: the Java binding creates and deletes
// it.
//
// Threads: Java callers (public operations, which take mLock), the queue's
// thread (prepare event, watchdog) and the AudioTrack callback thread, which
// takes no lock and touches only mSource, mInputBuffer, mAudioPaused and mAudioPauses.
//
// Caller contract: calls into one player are serialised by the caller, one
// at a time, as the Java class does for its object.  mLock orders them with
// the player's own threads, not with each other: setPlaybackRatePermille(0)
// pauses before it takes the lock, and a zero rate beside a play or a reset
// on another thread can leave the output running while the player thinks it
// paused, which the next play takes for a broken invariant and aborts.
class Rotavox {
public:
    enum {
        PLAYING = 0x0001,
        PREPARING = 0x0008,
        PREPARED = 0x0010,
        PREPARE_CANCELLED = 0x0040,
        PREPARING_CONNECTED = 0x0800,
        AUDIO_RUNNING = 0x2000,
    };

    enum FlagMode {
        SET,
        CLEAR,
        ASSIGN,
    };

    Rotavox();
    ~Rotavox();

    void setListener(const wp<MediaPlayerBase>& listener) EXCLUDES(mLock);

    status_t setDataSource(int fd, int64_t offset, int64_t length) EXCLUDES(mLock);
    status_t setDataSource(const char* path) EXCLUDES(mLock);
    status_t setDataSource_l(const sp<DataSource>& dataSource) REQUIRES(mLock);

    status_t prepare() EXCLUDES(mLock);
    status_t prepare_l() REQUIRES(mLock);
    status_t prepareAsync() EXCLUDES(mLock);
    status_t prepareAsync_l() REQUIRES(mLock);

    status_t play() EXCLUDES(mLock);
    status_t play_l() REQUIRES(mLock);
    status_t pause() EXCLUDES(mLock);
    status_t pause_l() REQUIRES(mLock);

    // Positions go in as milliseconds; getPosition answers in microseconds.
    status_t setPosition(int64_t positionMs) EXCLUDES(mLock);
    status_t setPosition_l(int64_t positionMs) REQUIRES(mLock);

    // Signed speeds in thousandths of normal speed, clamped to +-10000.
    status_t forward(int permille) EXCLUDES(mLock);
    status_t rewind(int permille) EXCLUDES(mLock);
    // Pauses before it takes mLock on purpose (see the definition), which
    // the analysis cannot express.
    status_t setPlaybackRatePermille(int permille) EXCLUDES(mLock) NO_THREAD_SAFETY_ANALYSIS;
    status_t setPlaybackRatePermille_l(int permille) REQUIRES(mLock);

    int64_t getPosition();
    status_t getDuration(int64_t* durationUs);
    bool isPlaying() const;

    void reset() EXCLUDES(mLock);
    void reset_l() REQUIRES(mLock);
    // Cancels a preparation under way and waits until it has ended.
    void cancelPreparation_l() REQUIRES(mLock);
    // Pauses the running output and its source so that a callback in flight
    // ends its fill quietly.
    void pauseOutput_l() REQUIRES(mLock);

    void modifyFlags(unsigned value, FlagMode mode);
    // The flag word is deliberately not exposed.
    uint32_t flags() const;

    void cancelPlayerEvents(bool keepNotifications = false);
    void postAudioEOS(int64_t delayUs = 0);

    static void AudioCallback(int event, void* user, void* info);

    // The binding takes the player's lock itself around setPosition_l and
    // reset_l, and stamps the last-call time before it does.
    Mutex mLock;

private:
    friend struct RotavoxEvent;
    friend struct RotavoxTestPeer;

    TimedEventQueue mQueue;  // guarded by its own lock
    bool mQueueStarted GUARDED_BY(mLock);

    // Guarded by mLock unless noted.  Fields that are read without the lock
    // by design (getPosition, getDuration, isPlaying, the unguarded pause of
    // setPlaybackRatePermille(0), the audio callback) are atomics, relaxed:
    // the behaviour is the plain one, minus the data race that a plain field
    // would be (undefined behaviour, and what TSan reports).
    wp<MediaPlayerBase> mListener GUARDED_BY(mLock);
    std::atomic<int32_t> mStartedGeneration;
    std::atomic<int32_t> mPlayGeneration;
    std::atomic<int64_t> mSeekPositionUs;
    std::atomic<status_t> mStatus;
    size_t mAudioTrackIndex GUARDED_BY(mLock);
    sp<MediaSource> mAudioSource GUARDED_BY(mLock);
    // Also read without the lock by getPosition and by the audio callback,
    // which runs only while the output does; the output stops before a
    // reset drops the source.
    sp<RotavoxSource> mSource GUARDED_BY(mLock);
    sp<AudioTrack> mAudioTrack GUARDED_BY(mLock);
    MediaBuffer* mInputBuffer;  // audio callback thread only, until reset
    std::atomic<bool> mAudioPaused;
    // Counts the times the output was paused.  The callback compares it
    // around each read: a read that a pause ended may come back after a new
    // play has already cleared mAudioPaused.
    std::atomic<uint32_t> mAudioPauses;
    std::atomic<int64_t> mDurationUs;
    std::atomic<uint32_t> mFlags;
    sp<TimedEventQueue::Event> mAsyncPrepareEvent GUARDED_BY(mLock);
    Condition mPreparedCondition;  // waits with mLock, monotonic clock
    bool mIsAsyncPrepare GUARDED_BY(mLock);
    status_t mPrepareResult GUARDED_BY(mLock);
    sp<NuMediaExtractor> mExtractor GUARDED_BY(mLock);

public:
    // Wall-clock time of the application's last transport call; written
    // without the lock by setPosition and the binding.
    std::atomic<int64_t> mLastCallTimeUs;

private:
    sp<TimedEventQueue::Event> mCheckStatusEvent GUARDED_BY(mLock);

    status_t setDataSource_l(const sp<NuMediaExtractor>& extractor) REQUIRES(mLock);
    status_t initAudioDecoder() REQUIRES(mLock);

    void onPrepareAsyncEvent();
    void beginPrepareAsync_l() REQUIRES(mLock);
    void finishAsyncPrepare_l() REQUIRES(mLock);
    void abortPrepare(status_t err) REQUIRES(mLock);
    status_t ready_l() REQUIRES(mLock);
    void createRotavoxSource_l() REQUIRES(mLock);

    void createAudioPlayer_l() REQUIRES(mLock);
    status_t startAudioPlayer_l(bool sendErrorNotification = true) REQUIRES(mLock);
    void notifyIfMediaStarted_l() REQUIRES(mLock);

    // The real-time path: both run on the output's callback thread, without
    // mLock, and touch only mSource, mInputBuffer, mAudioPaused and
    // mAudioPauses; the player pauses or stops the track before it changes
    // them.  fillBuffer allocates nothing of its own: it copies from the
    // source's buffers, keeps the rest of one for the next call and releases
    // (frees) each one it has emptied.  For every block it still needs it
    // calls RotavoxSource::read, which allocates that block's 2048-byte
    // buffer and may wait (see there); a WOULD_BLOCK answer is asked again at
    // once while the output runs.
    void AudioCallback(int event, void* info);
    size_t fillBuffer(void* data, size_t size);

    void notifyListener_l(int msg, int ext1 = 0, int ext2 = 0) REQUIRES(mLock);
    void postCheckStatusEvent_l(int64_t delayUs) REQUIRES(mLock);
    void onCheckStatus();

    static int64_t wallClockNowUs();

    Rotavox(const Rotavox&) = delete;
    Rotavox& operator=(const Rotavox&) = delete;
};

}  // namespace android
