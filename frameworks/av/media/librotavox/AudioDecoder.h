/*
 * Media source that decodes the selected audio track of a NuMediaExtractor
 * to PCM: through a MediaCodec in asynchronous mode for compressed tracks,
 * straight from the extractor for raw PCM.
 */

#ifndef AUDIO_DECODER_H_

#define AUDIO_DECODER_H_

#include <media/stagefright/MediaSource.h>
#include <media/stagefright/foundation/AHandlerReflector.h>
#include <utils/Condition.h>
#include <utils/List.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <atomic>

namespace android {

struct ALooper;
struct AMessage;
struct MediaCodec;
class MediaBufferBase;
class MetaData;
struct NuMediaExtractor;

struct AudioDecoder : public MediaSource {
    explicit AudioDecoder(sp<NuMediaExtractor> extractor);

    virtual status_t start(MetaData *params = NULL);
    virtual status_t stop();
    virtual sp<MetaData> getFormat();
    virtual status_t read(MediaBufferBase **buffer, const ReadOptions *options = NULL);

    // Called through mReflector on the thread of mLooper.
    void onMessageReceived(const sp<AMessage> &msg);

    // Sample format of the decoded PCM in getFormat(): an audio_format_t.
    static constexpr uint32_t kKeyPcmFormat = 0x70666d74;  // 'pfmt'
    // Above this many decoded buffers waiting for read(), input is deferred.
    static constexpr size_t kMaxQueuedOutputBuffers = 20;
    // Starting size of the read buffer on the raw path; doubled per sample
    // that does not fit.
    static constexpr size_t kRawReadBufferSize = 32768;

    enum {
        kWhatCodecNotify = 0x636f6463,  // 'codc'
        kWhatSeek = 0x7365656b,         // 'seek'
    };

protected:
    virtual ~AudioDecoder();

private:
    status_t initDecoder();
    void setCodecOutputFormat(const sp<AMessage> &format);

    status_t readRAW(MediaBufferBase **buffer);

    status_t handleAnInputBuffer(size_t index);
    status_t handleAnOutputBuffer(size_t index, size_t offset, size_t size, int64_t timeUs,
                                  int32_t flags);
    status_t handleSeekTo(const sp<AMessage> &msg);
    void releaseMediaBuffersByTimeUs(int64_t timeUs) REQUIRES(mLock);

    sp<ALooper> mLooper;
    sp<AHandlerReflector<AudioDecoder>> mReflector;
    sp<NuMediaExtractor> mExtractor;
    sp<MediaCodec> mCodec;
    sp<MetaData> mFormat;
    status_t mInitStatus;
    List<sp<AMessage>> mPendingInputMessages GUARDED_BY(mLock);
    List<MediaBufferBase *> mOutputBuffers GUARDED_BY(mLock);
    // Written on the looper (and by raw reads) without mLock; the reader
    // looks at mOutputEOS under mLock after a wake-up, which orders it.
    std::atomic<bool> mInputEOS;
    std::atomic<bool> mOutputEOS;
    size_t mTrackIndex;
    bool mRawPCM;
    // Guards mOutputBuffers and mPendingInputMessages, and with mCondition
    // the hand-off of decoded buffers and of the end of stream to read().
    Mutex mLock;
    Condition mCondition;
    sp<ALooper> mCodecLooper;
    // Set by read() before it posts a seek, cleared by the seek handler once
    // the codec is flushed; buffer callbacks in between name stale buffers.
    std::atomic<bool> mSeeking;

    // Lets tests reach the handlers and queues that real files cannot drive.
    friend struct AudioDecoderTestPeer;

    AudioDecoder(const AudioDecoder &) = delete;
    AudioDecoder &operator=(const AudioDecoder &) = delete;
};

}  // namespace android

#endif  // AUDIO_DECODER_H_
