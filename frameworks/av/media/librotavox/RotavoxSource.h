/*
 * Scratch source of the Rotavox engine: a media source that keeps a window of
 * decoded PCM around the play position and hands it out forward or backward,
 * at any playback rate, through a linear resampler.
 */

#ifndef ROTAVOX_SOURCE_H_
#define ROTAVOX_SOURCE_H_

#include <stdint.h>
#include <sys/time.h>

#include <atomic>

#include <media/AudioBufferProvider.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AHandlerReflector.h>
#include <media/stagefright/foundation/ALooper.h>
#include <system/audio.h>
#include <utils/Condition.h>
#include <utils/List.h>
#include <utils/Mutex.h>

class AudioResampler;

namespace android {

struct AMessage;
class RotavoxSource;

// Time-ordered list of 16-bit PCM buffers around the play position.  It has no
// lock of its own: every call is made with the owning RotavoxSource's mLock.
class MediaBufferCache {
public:
    explicit MediaBufferCache(RotavoxSource* owner);
    ~MediaBufferCache();

    void setPcmFormat(audio_format_t format);

    // Copies |inputBuffer| (converted to 16-bit PCM) into the cache; the caller
    // keeps ownership of |inputBuffer|.
    bool append(MediaBufferBase* inputBuffer, int64_t& timeStampUs);

    MediaBuffer* acquireBuffer(int size, int64_t timeUs);
    void releaseBuffer(MediaBuffer* buffer);

    // Returns the read buffer (still owned by the cache) and moves the cursor.
    // The buffer stays valid and unchanged until the next read(), whatever
    // the cache does with it meanwhile.
    void read(MediaBuffer** buffer, bool forward);
    bool isReadBufferInvalid();

    bool isBufferHitTimeus(int64_t timeUs, int64_t targetUs, size_t bytes);
    void updateReadPosition();
    int64_t setNextReadPosUs(int64_t posUs);

    int64_t releaseFromStart(int64_t timeUs);
    int64_t releaseToEnd(int64_t timeUs);
    int64_t releaseAll();
    void freeBuffers(List<MediaBuffer*>* list);

    int64_t getCacheStartTimeUs();
    int64_t getCacheEndTimeUs();

    static const int64_t kCacheSeekGridUs = 300000;
    static const int64_t kCacheHitMarginUs = 100000;
    static const uint32_t kCacheMemoryLimitBytes = 62914560;  // 15 x 4 MiB

private:
    friend class RotavoxSource;
    friend class MediaBufferCacheInspector;  // tests look at the list itself

    typedef List<MediaBuffer*>::iterator Node;

    static bool isPendingTarget(int64_t posUs) { return posUs % kCacheSeekGridUs == 0; }
    // Gives up |buffer|, which the reader still holds: whether it goes to
    // the free list or is destroyed is decided now, and done at the next
    // read().
    void retireBufferInPlay(MediaBuffer* buffer, bool toFreeList);
    void leaveBufferInPlay();
    static bool overMemoryLimit(uint32_t bytes) { return (bytes >> 22) > 14; }

    List<MediaBuffer*> mActiveBuffers;
    List<MediaBuffer*> mFreeBuffers;
    Node mNodeContinuousFrom;
    Node mReadNode;
    int64_t mReadPosUs;
    int64_t mCacheStartUs;
    int64_t mCacheEndUs;
    int64_t mFreeBufferCount;
    RotavoxSource* mOwner;
    uint32_t mCachedBytes;
    int32_t mFrameSize;
    float mUsPerFrame;
    audio_format_t mPcmFormat;
    uint32_t mSampleSize;
    // The buffer read() handed out last.  Its reader (the resampling stage)
    // keeps a raw pointer into its data until the next read(), so the cache
    // may unlink it from its list but must not reuse or destroy it earlier:
    // a join, a trim, a restart or recycling at the memory limit would
    // otherwise let the next append overwrite audio that is being played,
    // or free it under the reader.
    MediaBuffer* mBufferInPlay;
    // mBufferInPlay once the cache has let go of it: at the next read() it
    // joins mFreeBuffers (mRetiredToFreeList, still counted in mCachedBytes)
    // or is destroyed (already uncounted).
    MediaBuffer* mRetiredBuffer;
    bool mRetiredToFreeList;

    MediaBufferCache(const MediaBufferCache&) = delete;
    MediaBufferCache& operator=(const MediaBufferCache&) = delete;
};

class RotavoxSource : public MediaSource, public AudioBufferProvider {
public:
    RotavoxSource(const sp<MediaSource>& source, const char* cacheParams);

    virtual status_t start(MetaData* params = NULL);
    virtual status_t stop();
    virtual sp<MetaData> getFormat();
    // The real-time path: called on the audio output's callback thread for
    // each block of at most 2048 bytes.  It holds mLock throughout, so it
    // waits for the looper's short locked sections (a position change, a
    // cache append; never an upstream read, which runs under mSourceLock
    // alone) and for forward() and rewind().  While the cache has no readable
    // buffer it waits in 50 ms steps, letting go of mLock meanwhile, until a
    // buffer arrives, pause() is called or decoding has failed; nothing else
    // bounds that wait.  Every call allocates its 2048-byte output buffer,
    // which the caller owns and releases; the first call also makes the
    // resampler, and a call that finds the cache in need of filling posts a
    // decode request (a new message) and, when it restarts the cache, gives
    // back the buffers it held.
    virtual status_t read(MediaBufferBase** buffer, const ReadOptions* options = NULL)
            EXCLUDES(mLock);
    virtual status_t pause();

    // Called by the resampler inside read(), with mLock held.
    virtual status_t getNextBuffer(AudioBufferProvider::Buffer* buffer) REQUIRES(mLock);
    virtual void releaseBuffer(AudioBufferProvider::Buffer* buffer);

    status_t setPosition(int64_t positionUs);
    status_t forward(int unused);
    status_t rewind(int unused);
    bool isForward();
    status_t setPlaybackRatePermille(int permille);
    int64_t getPosition();

    void updateCacheParamsFromSystemProperty();
    void updateCacheParamsFromString(const char* s);

    void onMessageReceived(const sp<AMessage>& msg) EXCLUDES(mLock, mSourceLock);
    status_t updateCacheIfNecessary_l(int64_t positionUs) REQUIRES(mLock);

    // Read-only views for tests and diagnostics.
    int64_t getCacheLowWaterUs() const { return mCacheLowWaterUs; }
    int64_t getCacheHighWaterUs() const { return mCacheHighWaterUs; }
    int64_t getCachePrerollUs() const { return mCachePrerollUs; }
    int32_t getPlaybackRatePermille() const { return mPlaybackRatePermille.load(kRelaxed); }
    int32_t getTargetPlaybackRatePermille() const {
        return mTargetPlaybackRatePermille.load(kRelaxed);
    }
    int32_t getPrevPlaybackRatePermille() const {
        return mPrevPlaybackRatePermille.load(kRelaxed);
    }

    enum {
        kWhatPosition = 'posi',
        kWhatDecode = 'deco',
    };
    // Private format key stamped on the upstream format by this source.
    static const uint32_t kKeyRotavoxSourceMarker = 0x123465;
    static const uint32_t kKeyPcmFormat = 'pfmt';

    static const int64_t kDefaultCacheLowWaterUs = 1500000;
    static const int64_t kDefaultCacheHighWaterUs = 15000000;
    static const int64_t kDefaultCachePrerollUs = 4000000;

protected:
    virtual ~RotavoxSource();

private:
    friend class RotavoxSourceInspector;  // tests look at the bookkeeping

    static constexpr std::memory_order kRelaxed = std::memory_order_relaxed;
    static const size_t kOutputBufferBytes = 2048;
    static const int kMaxResampleCallsPerRead = 64;
    static const nsecs_t kDataWaitNs = 50000000;

    void resample(MediaBufferBase* buffer) REQUIRES(mLock);
    void restartCache_l(int64_t positionUs) REQUIRES(mLock);
    void postDecode_l() REQUIRES(mLock);

    sp<MediaSource> mSource;
    sp<AHandlerReflector<RotavoxSource> > mReflector;
    sp<ALooper> mLooper;

    // Guards the cache and the fields marked GUARDED_BY(mLock) below.  Never
    // held across an upstream read.
    Mutex mLock ACQUIRED_AFTER(mSourceLock);
    // The resampling stage waits on it in bounded steps while the cache has no
    // readable buffer; nothing signals it.
    Condition mCondition;
    // Guards calls into mSource (read, stop), mInputBuffer and mSourceStarted.
    // Taken before mLock, never after it.
    Mutex mSourceLock;
    bool mSourceStarted GUARDED_BY(mSourceLock);

    // The cache has no lock of its own: every call into it needs mLock.
    MediaBufferCache* mCache PT_GUARDED_BY(mLock);
    // Written under mLock, read by the decode loop without it.
    std::atomic<status_t> mFinalStatus;
    // Written under mLock, read by getPosition() without it.
    std::atomic<int64_t> mLastAccessPosUs;
    int64_t mCacheStartTimeUs GUARDED_BY(mLock);
    int64_t mCacheEndTimeUs GUARDED_BY(mLock);
    MediaBufferBase* mInputBuffer GUARDED_BY(mSourceLock);
    MediaBuffer* mOutputBuffer GUARDED_BY(mLock);
    // Decode-loop state; the loop reads it between its locked sections.
    std::atomic<bool> mDecoding;
    // Flags and rates that the player writes without any lock.
    std::atomic<bool> mPaused;
    std::atomic<bool> mForward;
    std::atomic<bool> mStarted;
    // Fixed by the constructor.
    int32_t mSampleRate;
    int32_t mChannelCount;
    // Sent with each decode request but never compared on arrival.
    std::atomic<int32_t> mDecodeGeneration;
    int64_t mSeekTimeUs GUARDED_BY(mLock);
    int64_t mLastDecodedUs GUARDED_BY(mLock);
    int64_t mLastBackfillRequestTime GUARDED_BY(mLock);
    int64_t mLastBackfillRequestPosUs GUARDED_BY(mLock);
    // Wall clock behind the backfill throttle's stamp; tests put in their own.
    int (*mGetTimeOfDay)(struct timeval*, void*);
    // Set by the constructor and by updateCacheParams*, which callers run
    // before the source is read; read-only afterwards.
    int64_t mCachePrerollUs;
    int64_t mCacheHighWaterUs;
    int64_t mCacheLowWaterUs;
    std::atomic<int32_t> mPlaybackRatePermille;
    std::atomic<int32_t> mTargetPlaybackRatePermille;
    std::atomic<int32_t> mPrevPlaybackRatePermille;
    AudioResampler* mResampler GUARDED_BY(mLock);

    RotavoxSource(const RotavoxSource&) = delete;
    RotavoxSource& operator=(const RotavoxSource&) = delete;
};

}  // namespace android

#endif  // ROTAVOX_SOURCE_H_
