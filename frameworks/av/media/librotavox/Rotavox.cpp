//#define LOG_NDEBUG 0
#define LOG_TAG "Rotavox"
#define ATRACE_TAG ATRACE_TAG_VIDEO

#include "Rotavox.h"

#include <string.h>
#include <strings.h>
#include <sys/time.h>

#include <media/AudioResamplerPublic.h>
#include <media/AudioTrack.h>
#include <media/MediaHTTPService.h>
#include <media/MediaPlayerInterface.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/Utils.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Log.h>
#include <utils/Trace.h>

#include "AudioDecoder.h"
#include "RotavoxDebug.h"
#include "RotavoxEvent.h"
#include "RotavoxSource.h"

namespace android {

namespace {

// The platform's media event codes, as the application's MediaPlayer
// listener understands them.
enum {
    kMediaPrepared = 1,
    kMediaStarted = 6,
    kMediaPaused = 7,
    kMediaStopped = 8,
    kMediaError = 100,
    kMediaErrorUnknown = 1,
};

const int64_t kCheckStatusDelayUs = 500000;
const int kMaxPermille = 10000;

int clampPermille(int permille) {
    if (permille > kMaxPermille) return kMaxPermille;
    if (permille < -kMaxPermille) return -kMaxPermille;
    return permille;
}

}  // namespace

// static
int64_t Rotavox::wallClockNowUs() {
    struct timeval tv;
    gettimeofday(&tv, NULL);
    return (int64_t)tv.tv_sec * 1000000 + tv.tv_usec;
}

Rotavox::Rotavox()
    : mQueueStarted(false),
      mStartedGeneration(0),
      mPlayGeneration(0),
      mSeekPositionUs(-1),
      mStatus(NO_INIT),
      mAudioTrackIndex((size_t)-1),
      mInputBuffer(NULL),
      mAudioPaused(false),
      mAudioPauses(0),
      mDurationUs(-1),
      mFlags(0),
      mIsAsyncPrepare(false),
      mPrepareResult(OK),
      mLastCallTimeUs(INT64_MAX) {
    // android::Condition waits on CLOCK_MONOTONIC, so a wall-clock jump cannot
    // cut a preparation wait short.
    mCheckStatusEvent = new RotavoxEvent(this, &Rotavox::onCheckStatus);

    Mutex::Autolock autoLock(mLock);
    reset_l();
}

Rotavox::~Rotavox() {
    {
        // The queue stops below without running what is still queued; a
        // preparation dropped that way would leave reset_l waiting for it
        // forever.  Cancelled while the queue still runs, it ends at once.
        Mutex::Autolock autoLock(mLock);
        cancelPreparation_l();
    }
    if (mQueueStarted) {
        mQueue.stop(false);
    }
    {
        Mutex::Autolock autoLock(mLock);
        reset_l();
    }
    mCheckStatusEvent.clear();
    mExtractor.clear();
    mAsyncPrepareEvent.clear();
    mAudioTrack.clear();
    mSource.clear();
    mAudioSource.clear();
    mListener.clear();
}

void Rotavox::setListener(const wp<MediaPlayerBase>& listener) {
    Mutex::Autolock autoLock(mLock);
    wp<MediaPlayerBase> old = mListener;  // dropped after the new one is taken
    mListener = listener;
}

void Rotavox::modifyFlags(unsigned value, FlagMode mode) {
    switch (mode) {
        case SET:
            mFlags.fetch_or(value, std::memory_order_relaxed);
            break;
        case CLEAR:
            mFlags.fetch_and(~value, std::memory_order_relaxed);
            break;
        case ASSIGN:
            mFlags.store(value, std::memory_order_relaxed);
            break;
        default:
            RV_TRESPASS("Rotavox", 868);
    }
}

uint32_t Rotavox::flags() const {
    return 0;
}

void Rotavox::cancelPlayerEvents(bool /* keepNotifications */) {}

void Rotavox::postAudioEOS(int64_t /* delayUs */) {}

void Rotavox::notifyListener_l(int msg, int ext1, int ext2) {
    if (mListener.unsafe_get() == NULL) {
        return;
    }
    sp<MediaPlayerBase> player = mListener.promote();
    if (player == NULL) {
        return;
    }
    // sendEvent copies the listener under the player's notification lock and
    // calls it with the lock released.
    player->sendEvent(msg, ext1, ext2, NULL);
}

void Rotavox::postCheckStatusEvent_l(int64_t delayUs) {
    mQueue.postEventWithDelay(mCheckStatusEvent, delayUs);
}

void Rotavox::onCheckStatus() {
    Mutex::Autolock autoLock(mLock);
    if (!(mFlags & PLAYING)) {
        return;
    }
    // The initial INT64_MAX makes this negative, so a player whose
    // application never called a transport operation keeps watching.
    int64_t sinceLastCallUs = wallClockNowUs() - mLastCallTimeUs;
    if (sinceLastCallUs <= kCheckStatusDelayUs) {
        postCheckStatusEvent_l(kCheckStatusDelayUs);
    } else {
        ALOGW("no call from app in last 500ms since we start playing");
    }
}

void Rotavox::reset() {
    Mutex::Autolock autoLock(mLock);
    reset_l();
}

void Rotavox::cancelPreparation_l() {
    if (mFlags & PREPARING) {
        modifyFlags(PREPARE_CANCELLED, SET);
        if (mFlags & PREPARING_CONNECTED) {
            finishAsyncPrepare_l();
        }
    }
    // The prepare event sees PREPARE_CANCELLED on the queue thread, aborts
    // and signals.
    while (mFlags & PREPARING) {
        mPreparedCondition.wait(mLock);
    }
}

void Rotavox::pauseOutput_l() {
    // The track goes first: the source answers a read after its own pause
    // with no buffer, which the audio callback accepts only once the output
    // is paused.
    mAudioTrack->pause();
    // Raised before the source pauses: a callback already inside read()
    // when the track paused gets OK without a buffer from the paused
    // source, and must then see the output paused rather than abort.
    mAudioPaused = true;
    ++mAudioPauses;
    mSource->pause();
    // Once more after: a callback that took its count between the two
    // still sees it change.
    ++mAudioPauses;
}

void Rotavox::reset_l() {
    notifyListener_l(kMediaStopped);

    cancelPreparation_l();

    if ((mFlags & AUDIO_RUNNING) && mAudioTrack != NULL) {
        pauseOutput_l();
        mSource->stop();
        mAudioTrack->stop();
    }

    mAudioTrack.clear();
    mAudioSource.clear();
    mSource.clear();

    if (mInputBuffer != NULL) {
        mInputBuffer->release();
        mInputBuffer = NULL;
    }

    mExtractor.clear();

    modifyFlags(0, ASSIGN);
    mStartedGeneration = 0;
    mPlayGeneration = 0;
    mSeekPositionUs = -1;
    mStatus = NO_INIT;
    mDurationUs = -1;
    mAudioTrackIndex = (size_t)-1;
}

// --- Data source and preparation ------------------------------------------

status_t Rotavox::setDataSource(int fd, int64_t offset, int64_t length) {
    Mutex::Autolock autoLock(mLock);
    reset_l();

    sp<NuMediaExtractor> extractor = new NuMediaExtractor;
    status_t err = extractor->setDataSource(fd, offset, length);
    if (err != OK) {
        return err;
    }
    return setDataSource_l(extractor);
}

status_t Rotavox::setDataSource(const char* path) {
    if (path == NULL) {
        // Refused before the lock and without a reset; the status says why.
        return UNKNOWN_ERROR;
    }
    Mutex::Autolock autoLock(mLock);
    reset_l();

    sp<NuMediaExtractor> extractor = new NuMediaExtractor;
    status_t err = extractor->setDataSource(NULL /* httpService */, path, NULL /* headers */);
    if (err != OK) {
        return err;
    }
    return setDataSource_l(extractor);
}

status_t Rotavox::setDataSource_l(const sp<DataSource>& dataSource) {
    sp<NuMediaExtractor> extractor = new NuMediaExtractor;
    // An unreadable source simply yields no tracks below.
    (void)extractor->setDataSource(dataSource);
    return setDataSource_l(extractor);
}

status_t Rotavox::setDataSource_l(const sp<NuMediaExtractor>& extractor) {
    mExtractor = extractor;

    bool haveAudio = false;
    // Every audio track is selected; the last one that passes both steps is
    // the one kept.
    for (size_t i = 0; i < mExtractor->countTracks(); ++i) {
        sp<AMessage> format;
        status_t err = mExtractor->getTrackFormat(i, &format, 0);
        RV_CHECK_EQ("Rotavox", 258, err, (status_t)OK);

        AString mime;
        RV_CHECK("Rotavox", 261, format->findString("mime", &mime));

        if (!strncasecmp(mime.c_str(), "audio/", 6)) {
            if (mExtractor->selectTrack(i, -1ll, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC) != OK) {
                ALOGE("can't select audio track");
            } else {
                size_t sampleTrackIndex;
                if (mExtractor->getSampleTrackIndex(&sampleTrackIndex) != OK) {
                    ALOGE("can't get audio track index");
                } else {
                    mAudioTrackIndex = i;
                    haveAudio = true;
                }
            }
        }
    }

    if (haveAudio) {
        return OK;
    }
    ALOGE("no audio track or invalid!");
    mStatus = UNKNOWN_ERROR;
    return UNKNOWN_ERROR;
}

status_t Rotavox::initAudioDecoder() {
    ATRACE_CALL();

    sp<AMessage> format;
    status_t err = mExtractor->getTrackFormat(mAudioTrackIndex, &format, 0);
    if (err != OK) {
        return err;
    }

    int32_t channelCount = -1;
    bool haveChannelCount = format->findInt32("channel-count", &channelCount);
    if (!haveChannelCount || channelCount >= 3) {
        ALOGE("unsupported channels:%d", channelCount);
        return UNKNOWN_ERROR;
    }

    mAudioSource = new AudioDecoder(mExtractor);

    sp<MetaData> meta = new MetaData;
    convertMessageToMetaData(format, meta);
    int64_t durationUs = -1;
    if (!meta->findInt64(kKeyDuration, &durationUs)) {
        durationUs = -1;
    }
    const char* mime;
    RV_CHECK("Rotavox", 671, meta->findCString(kKeyMIMEType, &mime));

    // The longest known duration wins.
    if (durationUs >= 0 && (mDurationUs < 0 || mDurationUs < durationUs)) {
        mDurationUs = durationUs;
    }

    if (mAudioSource != NULL) {
        err = mAudioSource->start(nullptr);
        if (err != OK) {
            ALOGE("start failed %d", err);
            mAudioSource.clear();
            return err;
        }
    } else if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_QCELP)) {
        return OK;
    } else {
        return UNKNOWN_ERROR;
    }
    return OK;
}

status_t Rotavox::prepare() {
    ATRACE_CALL();
    Mutex::Autolock autoLock(mLock);
    return prepare_l();
}

status_t Rotavox::prepare_l() {
    if (mFlags & PREPARED) {
        return OK;
    }
    if (mFlags & PREPARING) {
        return UNKNOWN_ERROR;
    }

    mIsAsyncPrepare = false;
    status_t err = prepareAsync_l();
    if (err != OK) {
        return err;
    }

    while (mFlags & PREPARING) {
        mPreparedCondition.wait(mLock);
    }
    return mPrepareResult;
}

status_t Rotavox::prepareAsync() {
    ATRACE_CALL();
    Mutex::Autolock autoLock(mLock);
    if (mFlags & PREPARING) {
        return UNKNOWN_ERROR;
    }
    mIsAsyncPrepare = true;
    return prepareAsync_l();
}

status_t Rotavox::prepareAsync_l() {
    if (mFlags & PREPARING) {
        return UNKNOWN_ERROR;
    }

    if (!mQueueStarted) {
        mQueue.start();
        mQueueStarted = true;
    }

    // After a successful set-up a second preparation is answered at once;
    // after a failed data source it repeats the failure.
    if (mStatus != NO_INIT) {
        return mStatus;
    }

    modifyFlags(PREPARING, SET);
    mAsyncPrepareEvent = new RotavoxEvent(this, &Rotavox::onPrepareAsyncEvent);
    mQueue.postEvent(mAsyncPrepareEvent);
    return OK;
}

void Rotavox::onPrepareAsyncEvent() {
    Mutex::Autolock autoLock(mLock);
    beginPrepareAsync_l();
}

void Rotavox::beginPrepareAsync_l() {
    if (mFlags & PREPARE_CANCELLED) {
        ALOGI("prepare was cancelled before doing anything");
        abortPrepare(UNKNOWN_ERROR);
        return;
    }

    if (mAudioSource != NULL || mExtractor == NULL) {
        finishAsyncPrepare_l();
        return;
    }

    mStatus = initAudioDecoder();
    if (mStatus == OK) {
        finishAsyncPrepare_l();
    } else {
        ALOGE("init audio decoder failed! %d", (status_t)mStatus);
        abortPrepare(mStatus);
    }
}

void Rotavox::finishAsyncPrepare_l() {
    if (mIsAsyncPrepare) {
        notifyListener_l(kMediaPrepared);
    }
    mPrepareResult = OK;
    modifyFlags(PREPARING | PREPARE_CANCELLED | PREPARING_CONNECTED, CLEAR);
    modifyFlags(PREPARED, SET);
    mAsyncPrepareEvent.clear();
    ready_l();
    mPreparedCondition.broadcast();
}

void Rotavox::abortPrepare(status_t err) {
    RV_CHECK("Rotavox", 797, err != OK);

    if (mIsAsyncPrepare) {
        notifyListener_l(kMediaError, kMediaErrorUnknown, err);
    }
    mPrepareResult = err;
    modifyFlags(PREPARING | PREPARE_CANCELLED | PREPARING_CONNECTED, CLEAR);
    mAsyncPrepareEvent.clear();
    mPreparedCondition.broadcast();
}

status_t Rotavox::ready_l() {
    if (!(mFlags & PREPARED)) {
        if (mFlags & PREPARING) {
            return UNKNOWN_ERROR;
        }
        mIsAsyncPrepare = false;
        status_t err = prepareAsync_l();
        if (err != OK) {
            return err;
        }
        while (mFlags & PREPARING) {
            mPreparedCondition.wait(mLock);
        }
        if (mPrepareResult != OK) {
            return mPrepareResult;
        }
    }

    if (mAudioSource == NULL) {
        return OK;
    }
    if (mSource == NULL) {
        createRotavoxSource_l();
    }
    if (mAudioTrack == NULL) {
        createAudioPlayer_l();
    }
    return OK;
}

void Rotavox::createRotavoxSource_l() {
    mSource = new RotavoxSource(mAudioSource, nullptr);
}

// --- Audio output -----------------------------------------------------------

void Rotavox::createAudioPlayer_l() {
    sp<MetaData> format = mSource->getFormat();

    const char* mime;
    bool success = format->findCString(kKeyMIMEType, &mime);
    RV_CHECK("Rotavox", 506, success && !strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_RAW));

    int32_t sampleRate;
    success = format->findInt32(kKeySampleRate, &sampleRate);
    RV_CHECK("Rotavox", 510, success);

    int32_t numChannels;
    success = format->findInt32(kKeyChannelCount, &numChannels);
    RV_CHECK("Rotavox", 514, success);

    int32_t channelMask = 0;
    if (!format->findInt32(kKeyChannelMask, &channelMask)) {
        if (numChannels > 2) {
            ALOGI("source format didn't specify channel mask, using (%d) channel order",
                  numChannels);
        }
        channelMask = 0;
    }
    if (channelMask == 0) {
        switch (numChannels) {
            case 0:
                return;
            case 1: channelMask = 0x1; break;
            case 2: channelMask = 0x3; break;
            case 3: channelMask = 0xb; break;
            case 4: channelMask = 0x33; break;
            case 5: channelMask = 0x37; break;
            case 6: channelMask = 0x3f; break;
            case 7: channelMask = 0x13f; break;
            case 8: channelMask = 0x63f; break;
            default: channelMask = (int32_t)0xc0000000; break;
        }
    }

    mAudioTrack = new AudioTrack(
            AUDIO_STREAM_MUSIC, sampleRate, AUDIO_FORMAT_PCM_16_BIT,
            (audio_channel_mask_t)channelMask, 0 /* frameCount */, AUDIO_OUTPUT_FLAG_FAST,
            &Rotavox::AudioCallback, this, 0 /* notificationFrames */, AUDIO_SESSION_ALLOCATE,
            AudioTrack::TRANSFER_DEFAULT, NULL /* offloadInfo */, (uid_t)-1, (pid_t)-1,
            NULL /* pAttributes */, false /* doNotReconnect */, 1.0f /* maxRequiredSpeed */,
            AUDIO_PORT_HANDLE_NONE);
    if (mAudioTrack->initCheck() != OK) {
        mAudioTrack.clear();
    }
}

status_t Rotavox::startAudioPlayer_l(bool sendErrorNotification) {
    RV_CHECK("Rotavox", 547, !(mFlags & AUDIO_RUNNING));

    if (mAudioSource == NULL || mAudioTrack == NULL) {
        return OK;
    }

    (void)mSource->start(nullptr);

    status_t err = mAudioTrack->start();
    if (err == OK) {
        mAudioPaused = false;
        notifyIfMediaStarted_l();
        modifyFlags(AUDIO_RUNNING, SET);
        return OK;
    }

    if (sendErrorNotification) {
        notifyListener_l(kMediaError, kMediaErrorUnknown, err);
    }
    return err;
}

void Rotavox::notifyIfMediaStarted_l() {
    if (mStartedGeneration == mPlayGeneration) {
        mStartedGeneration = -1;
        notifyListener_l(kMediaStarted);
    }
}

// static
void Rotavox::AudioCallback(int event, void* user, void* info) {
    static_cast<Rotavox*>(user)->AudioCallback(event, info);
}

void Rotavox::AudioCallback(int event, void* info) {
    if (event != AudioTrack::EVENT_MORE_DATA) {
        return;
    }
    AudioTrack::Buffer* buffer = static_cast<AudioTrack::Buffer*>(info);
    buffer->size = fillBuffer(buffer->raw, buffer->size);
}

// Reads mSource without mLock: the output runs only between a play that
// made the source and a reset that stops the output before it drops it.
size_t Rotavox::fillBuffer(void* data, size_t size) NO_THREAD_SAFETY_ANALYSIS {
    if (size == 0) {
        return 0;
    }

    size_t written = 0;
    size_t remaining = size;
    MediaSource::ReadOptions options;
    const uint32_t pausesAtEntry = mAudioPauses.load();

    for (;;) {
        if (mInputBuffer == NULL) {
            // The output was paused while this fill was under way.  The
            // source's pause ends only one wait for data, and a read since
            // then may have used it up; a further read would then wait for
            // data that may never come (a file cut short, a seek past what
            // is left), and the reset that paused us would join this thread
            // for ever.  Hand over what was copied instead.
            if (written > 0 && mAudioPaused && mAudioPauses.load() != pausesAtEntry) {
                return written;
            }
            MediaBufferBase* buffer = NULL;
            const uint32_t pausesBefore = mAudioPauses.load();
            status_t err = mSource->read(&buffer, &options);
            mInputBuffer = static_cast<MediaBuffer*>(buffer);
            // Paused now, or paused at some point during the read and
            // already playing again.  A pause ends the source's wait for data
            // with OK and no buffer; taken for a running output, that read
            // would abort on the line-447 check below.
            const bool pausedDuringRead = mAudioPaused || mAudioPauses.load() != pausesBefore;

            if (err == WOULD_BLOCK) {
                if (mAudioPaused) {
                    return written;
                }
                continue;
            }
            if (err == OK && mInputBuffer != NULL) {
                // go on copying
            } else if (err != OK && mInputBuffer == NULL) {
                // The end of the data, or a failure: a fill that meets it
                // reports nothing, even what it had copied.
                return 0;
            } else if (err == OK && mInputBuffer == NULL && pausedDuringRead) {
                return 0;
            } else {
                RV_CHECK("Rotavox", 447,
                         (err == OK && mInputBuffer != NULL) ||
                                 (err != OK && mInputBuffer == NULL));
            }
        }

        if (mInputBuffer->range_length() == 0) {
            mInputBuffer->release();
            mInputBuffer = NULL;
            continue;
        }

        size_t offset = mInputBuffer->range_offset();
        size_t length = mInputBuffer->range_length();
        size_t n = remaining < length ? remaining : length;
        memcpy(static_cast<uint8_t*>(data) + written,
               static_cast<const uint8_t*>(mInputBuffer->data()) + offset, n);
        mInputBuffer->set_range(offset + n, length - n);
        written += n;
        remaining -= n;

        if (remaining == 0) {
            return written;
        }
    }
}

// --- Transport ----------------------------------------------------------------

status_t Rotavox::play() {
    ATRACE_CALL();
    Mutex::Autolock autoLock(mLock);
    return play_l();
}

status_t Rotavox::play_l() {
    if (mFlags & PLAYING) {
        return OK;
    }

    ++mPlayGeneration;
    mStartedGeneration = mPlayGeneration.load();

    if (!(mFlags & PREPARED)) {
        if (mFlags & PREPARING) {
            return UNKNOWN_ERROR;
        }
        mIsAsyncPrepare = false;
        status_t err = prepareAsync_l();
        if (err != OK) {
            return err;
        }
        while (mFlags & PREPARING) {
            mPreparedCondition.wait(mLock);
        }
        if (mPrepareResult != OK) {
            return mPrepareResult;
        }
        // The wait let go of the lock: another thread may have started
        // playback in the meantime.  Going on would start the output a
        // second time, which the AUDIO_RUNNING check below answers with an
        // abort.
        if (mFlags & PLAYING) {
            return OK;
        }
    }

    if (mSeekPositionUs == -1) {
        setPosition_l(0);
    }

    modifyFlags(PLAYING, SET);
    postCheckStatusEvent_l(kCheckStatusDelayUs);

    if (mAudioSource == NULL) {
        return OK;
    }
    if (mSource == NULL) {
        createRotavoxSource_l();
    }
    if (mAudioTrack == NULL) {
        createAudioPlayer_l();
    }

    RV_CHECK("Rotavox", 401, !(mFlags & AUDIO_RUNNING));

    mStatus = startAudioPlayer_l(false);
    if (mStatus != OK) {
        mAudioTrack.clear();
    }
    return mStatus;
}

status_t Rotavox::pause() {
    ATRACE_CALL();
    Mutex::Autolock autoLock(mLock);
    return pause_l();
}

status_t Rotavox::pause_l() {
    if (mStatus != OK) {
        return mStatus;
    }
    if (!(mFlags & PLAYING)) {
        return OK;
    }

    notifyListener_l(kMediaPaused);

    ++mPlayGeneration;
    mStartedGeneration = mPlayGeneration.load();

    if (mAudioTrack != NULL && (mFlags & AUDIO_RUNNING)) {
        pauseOutput_l();
        modifyFlags(AUDIO_RUNNING, CLEAR);
    }

    modifyFlags(PLAYING, CLEAR);
    return OK;
}

status_t Rotavox::setPosition(int64_t positionMs) {
    mLastCallTimeUs = wallClockNowUs();
    Mutex::Autolock autoLock(mLock);
    return setPosition_l(positionMs < 0 ? 0 : positionMs);
}

status_t Rotavox::setPosition_l(int64_t positionMs) {
    int64_t positionUs = positionMs * 1000;

    // A seek to or past the end is ignored.
    if (mDurationUs >= 1 && positionUs >= mDurationUs) {
        return OK;
    }

    mSeekPositionUs = positionUs;

    if (mStatus != OK) {
        return mStatus;
    }

    if (mAudioTrack != NULL && (mFlags & AUDIO_RUNNING)) {
        AudioPlaybackRate rate;
        rate.mSpeed = 1.0f;
        rate.mPitch = 1.0f;
        rate.mStretchMode = AUDIO_TIMESTRETCH_STRETCH_DEFAULT;
        rate.mFallbackMode = AUDIO_TIMESTRETCH_FALLBACK_DEFAULT;
        mAudioTrack->setPlaybackRate(rate);
    }

    // Every seek pauses; the application resumes with a speed operation.
    (void)pause_l();

    if (mSource != NULL) {
        mSource->setPosition(positionUs);
    }
    return OK;
}

status_t Rotavox::forward(int permille) {
    Mutex::Autolock autoLock(mLock);
    if (mSource != NULL) {
        mSource->forward(permille);
    }
    status_t status = mStatus;
    if (status != OK) {
        return status;
    }

    int rate = clampPermille(permille);
    if (permille != 0) {
        (void)play_l();
    }
    if (mSource != NULL) {
        mSource->setPlaybackRatePermille(rate);
    }
    mLastCallTimeUs = wallClockNowUs();
    return status;
}

status_t Rotavox::rewind(int permille) {
    Mutex::Autolock autoLock(mLock);
    if (mSource != NULL) {
        mSource->rewind(permille);
    }
    status_t status = mStatus;
    if (status != OK) {
        return status;
    }

    int rate;
    if (permille > kMaxPermille) {
        rate = -kMaxPermille;
    } else if (permille < -kMaxPermille) {
        rate = kMaxPermille;
    } else {
        rate = -permille;
    }
    if (permille != 0) {
        (void)play_l();
    }
    if (mSource != NULL) {
        mSource->setPlaybackRatePermille(rate);
    }
    mLastCallTimeUs = wallClockNowUs();
    return status;
}

status_t Rotavox::setPlaybackRatePermille(int permille) {
    if (permille == 0) {
        // Before the lock, deliberately: callers serialise their transport
        // calls (see Rotavox.h), so only the queue's events and the audio
        // callback run beside it, and what they share with a pause is atomic.
        (void)pause_l();
    }
    Mutex::Autolock autoLock(mLock);
    return setPlaybackRatePermille_l(permille);
}

status_t Rotavox::setPlaybackRatePermille_l(int permille) {
    status_t status = mStatus;
    if (status != OK) {
        return status;
    }

    int rate = clampPermille(permille);
    if (permille != 0) {
        (void)play_l();
    }
    if (mSource != NULL) {
        mSource->setPlaybackRatePermille(rate);
    }
    mLastCallTimeUs = wallClockNowUs();
    return status;
}

// Deliberately without mLock, like getDuration and isPlaying: mSource is
// read as it stands.
int64_t Rotavox::getPosition() NO_THREAD_SAFETY_ANALYSIS {
    if (mSource != NULL) {
        return mSource->getPosition();
    }
    return mSeekPositionUs;
}

status_t Rotavox::getDuration(int64_t* durationUs) {
    status_t status = mStatus;
    if (status != OK) {
        return status;
    }
    int64_t duration = mDurationUs;
    if (duration < 0) {
        return UNKNOWN_ERROR;
    }
    *durationUs = duration;
    return OK;
}

bool Rotavox::isPlaying() const {
    return (mFlags & PLAYING) != 0;
}

}  // namespace android
