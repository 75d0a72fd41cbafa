/*
 * Host build of the platform's MediaCodec, audio decoders only, backed by
 * FFmpeg's libavcodec.  Asynchronous (callback) mode: every callback is a
 * copy of the message given to setCallback().  The decoding work and the
 * callbacks run on the looper the codec was created with.
 */

#ifndef MEDIA_CODEC_H_

#define MEDIA_CODEC_H_

#include <memory>
#include <vector>

#include <gui/Surface.h>
#include <mediadrm/ICrypto.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/Vector.h>
#include <utils/threads.h>

namespace android {

struct ABuffer;
struct ALooper;
struct AMessage;
class MediaCodecBuffer;

struct MediaCodec : public AHandler {
    enum ConfigureFlags {
        CONFIGURE_FLAG_ENCODE   = 1,
    };

    enum BufferFlags {
        BUFFER_FLAG_SYNCFRAME     = 1,
        BUFFER_FLAG_CODECCONFIG   = 2,
        BUFFER_FLAG_EOS           = 4,
        BUFFER_FLAG_PARTIAL_FRAME = 8,
        BUFFER_FLAG_MUXER_DATA    = 16,
    };

    enum {
        CB_INPUT_AVAILABLE = 1,
        CB_OUTPUT_AVAILABLE = 2,
        CB_ERROR = 3,
        CB_OUTPUT_FORMAT_CHANGED = 4,
        CB_RESOURCE_RECLAIMED = 5,
    };

    static const pid_t kNoPid = -1;
    static const uid_t kNoUid = -1;

    static sp<MediaCodec> CreateByType(
            const sp<ALooper> &looper, const AString &mime, bool encoder, status_t *err = NULL,
            pid_t pid = kNoPid, uid_t uid = kNoUid);

    // The vendor component names for APE, ALAC and DSD map onto FFmpeg's
    // decoders; any other name fails with NAME_NOT_FOUND.
    static sp<MediaCodec> CreateByComponentName(
            const sp<ALooper> &looper, const AString &name, status_t *err = NULL,
            pid_t pid = kNoPid, uid_t uid = kNoUid);

    status_t configure(
            const sp<AMessage> &format,
            const sp<Surface> &nativeWindow,
            const sp<ICrypto> &crypto,
            uint32_t flags);

    status_t setCallback(const sp<AMessage> &callback);

    status_t start();

    // Returns to the configured state; a later start() decodes afresh.
    status_t stop();

    status_t reset();

    status_t release();

    status_t flush();

    status_t queueInputBuffer(
            size_t index,
            size_t offset,
            size_t size,
            int64_t presentationTimeUs,
            uint32_t flags,
            AString *errorDetailMsg = NULL);

    status_t signalEndOfInputStream();

    status_t releaseOutputBuffer(size_t index);

    status_t getOutputFormat(sp<AMessage> *format) const;
    status_t getInputFormat(sp<AMessage> *format) const;

    status_t getInputBuffers(Vector<sp<MediaCodecBuffer> > *buffers) const;
    status_t getOutputBuffers(Vector<sp<MediaCodecBuffer> > *buffers) const;

    status_t getOutputBuffer(size_t index, sp<MediaCodecBuffer> *buffer);
    status_t getInputBuffer(size_t index, sp<MediaCodecBuffer> *buffer);

    status_t getName(AString *componentName) const;

    // Opaque decoder state, defined next to the implementation.
    struct Decoder;

protected:
    virtual ~MediaCodec();
    virtual void onMessageReceived(const sp<AMessage> &msg);

private:
    enum {
        kWhatConfigure          = 'conf',
        kWhatSetCallback        = 'setC',
        kWhatStart              = 'strt',
        kWhatStop               = 'stop',
        kWhatRelease            = 'rele',
        kWhatFlush              = 'flus',
        kWhatPump               = 'pump',
    };

    enum State {
        UNINITIALIZED,
        CONFIGURED,
        STARTED,
        FLUSHED,
        RELEASED,
    };

    struct BufferSlot {
        sp<MediaCodecBuffer> mBuffer;  // null once its run is over
        // True while the client owns the slot (announced and not yet
        // queued or released).
        bool mOwnedByClient;
    };

    MediaCodec(const sp<ALooper> &looper, const AString &componentName);

    static sp<MediaCodec> Create(const sp<ALooper> &looper, const AString &componentName,
                                 const void *candidates, status_t *err);
    status_t postAndAwait(const sp<AMessage> &msg, sp<AMessage> *response = NULL);
    void replyStatus(const sp<AMessage> &msg, status_t err);

    status_t onConfigure(const sp<AMessage> &format);
    status_t onStart();
    void onStop();
    void onFlush();
    void schedulePump();
    void onPump();
    bool pumpOnce();
    void announceInputBuffers();
    void postError(status_t err);
    void postFormatChanged() REQUIRES(mLock);
    bool emitPendingOutput();
    bool emitEndOfStream();
    void dropDecoderState();
    void resetSlots_l() REQUIRES(mLock);
    void addSlots_l() REQUIRES(mLock);

    wp<ALooper> mLooper;
    AString mComponentName;

    // Guards the state, the formats, the buffer slots, the callback message
    // and everything the looper shares with client threads.
    mutable Mutex mLock;
    State mState GUARDED_BY(mLock);
    sp<AMessage> mCallback GUARDED_BY(mLock);
    sp<AMessage> mInputFormat GUARDED_BY(mLock);
    sp<AMessage> mOutputFormat GUARDED_BY(mLock);
    // Indexed by buffer index; each run (start after flush or stop) adds a
    // fresh set and retires the old one, so indices are never reused.
    std::vector<BufferSlot> mInputSlots GUARDED_BY(mLock);
    std::vector<BufferSlot> mOutputSlots GUARDED_BY(mLock);
    size_t mInputBase GUARDED_BY(mLock);   // first index of the current run
    size_t mOutputBase GUARDED_BY(mLock);
    // Bumped by flush/stop so that queued pump messages of the old run die.
    int32_t mGeneration GUARDED_BY(mLock);
    bool mPumpPending GUARDED_BY(mLock);

    std::unique_ptr<Decoder> mDecoder;

    DISALLOW_EVIL_CONSTRUCTORS(MediaCodec);
};

}  // namespace android

#endif  // MEDIA_CODEC_H_
