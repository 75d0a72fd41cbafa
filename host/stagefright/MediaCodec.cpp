//#define LOG_NDEBUG 0
#define LOG_TAG "MediaCodec"
#include <utils/Log.h>

#include <media/stagefright/MediaCodec.h>

#include <errno.h>
#include <string.h>

#include <deque>
#include <string>
#include <vector>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>

#include "FFmpegCodecs.h"
#include "MediaCodecBuffer.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace android {

namespace {

constexpr size_t kNumInputBuffers = 4;
constexpr size_t kNumOutputBuffers = 4;
constexpr size_t kMinInputBufferSize = 64 * 1024;
constexpr size_t kOutputBufferSize = 32 * 1024;
// Work done per pump message before the looper gets a chance to serve
// control requests (flush, stop) queued behind it.
constexpr int kPumpStepsPerMessage = 16;

// The encodings of the codec's PCM output ("pcm-encoding").
constexpr int32_t kEncodingPcm16 = 2;
constexpr int32_t kEncodingPcm8 = 3;
constexpr int32_t kEncodingPcm24 = 100;          // this system's 24-bit code
constexpr int32_t kEncodingPcm24Packed = 21;     // the platform's own 24-bit code
constexpr int32_t kEncodingPcm32 = 22;

std::string avError(int err) {
    char msg[AV_ERROR_MAX_STRING_SIZE];
    av_strerror(err, msg, sizeof(msg));
    return msg;
}

}  // namespace

struct MediaCodec::Decoder {
    struct Input {
        size_t mIndex;
        AVPacket *mPacket;  // null for an empty buffer
        uint32_t mFlags;
    };

    std::vector<AVCodecID> mCandidates;
    AVCodecContext *mContext = nullptr;
    SwrContext *mSwr = nullptr;
    AVFrame *mFrame = nullptr;

    // What the converter was built for.
    int mSwrInFormat = -1;
    int mSwrRate = 0;
    AVChannelLayout mSwrLayout = {};

    int32_t mEncoding = kEncodingPcm16;
    int mBytesPerSample = 2;   // delivered bytes per sample
    int mSampleRate = 0;
    int mChannels = 0;
    size_t mInputCapacity = kMinInputBufferSize;

    std::deque<Input> mInputs;     // taken over by the looper, not yet decoded
    // Queued by client threads, not yet taken over (guarded by the codec's
    // mLock, like mEosQueued).
    std::deque<Input> mHandoff;
    bool mEosQueued = false;       // the run's end-of-stream input was queued
    std::vector<uint8_t> mPending;  // converted PCM not yet in output buffers
    size_t mPendingOffset = 0;
    int64_t mPendingTimeUs = 0;    // time of mPending[mPendingOffset]
    int64_t mNextTimeUs = 0;       // time of the sample after the last one out
    bool mSentEos = false;         // the drain request went to the decoder
    bool mDrained = false;         // the decoder gave all it had
    bool mEosDelivered = false;

    // Encoder delay and padding of the stream, in frames: output before the
    // stream's start and its last mPaddingFrames frames are not delivered.
    int64_t mDelayFrames = 0;
    int64_t mPaddingFrames = 0;
    std::vector<uint8_t> mTail;    // the newest decoded frames, held back as padding
    int64_t mTailTimeUs = 0;

    ~Decoder() {
        clearInputs();
        clearHandoff_l();
        swr_free(&mSwr);
        av_channel_layout_uninit(&mSwrLayout);
        av_frame_free(&mFrame);
        avcodec_free_context(&mContext);
    }

    void clearInputs() {
        for (Input &in : mInputs) av_packet_free(&in.mPacket);
        mInputs.clear();
    }

    // With the codec's mLock held.
    void clearHandoff_l() {
        for (Input &in : mHandoff) av_packet_free(&in.mPacket);
        mHandoff.clear();
        mEosQueued = false;
    }

    void resetRun() {
        clearInputs();
        mPending.clear();
        mPendingOffset = 0;
        mSentEos = false;
        mDrained = false;
        mEosDelivered = false;
        mNextTimeUs = 0;
        mTail.clear();
        if (mContext != nullptr) {
            avcodec_flush_buffers(mContext);
        }
    }

    // Applies the encoder delay and padding to the frame just converted into
    // mPending, which starts at mPendingTimeUs: on the input's time line when
    // |inputTime|, else where the previous output ended.
    void trimDecoded(bool inputTime) {
        const size_t fb = frameBytes();
        if (mSampleRate <= 0) {
            return;
        }
        if (mDelayFrames > 0 && inputTime) {
            // Times move back by the delay; what falls before 0 is dropped.
            const int64_t frames = (int64_t)(mPending.size() / fb);
            const int64_t first = av_rescale(mPendingTimeUs, mSampleRate, 1000000) - mDelayFrames;
            const int64_t drop = first < 0 ? std::min(-first, frames) : 0;
            mPending.erase(mPending.begin(), mPending.begin() + drop * fb);
            mPendingTimeUs = av_rescale(first + drop, 1000000, mSampleRate);
        }
        if (mPaddingFrames > 0) {
            // Only frames known not to be among the last mPaddingFrames go
            // out; the rest wait for more output or are dropped at the end.
            if (!mTail.empty()) {
                mPending.insert(mPending.begin(), mTail.begin(), mTail.end());
                mPendingTimeUs = mTailTimeUs;
                mTail.clear();
            }
            const size_t hold = std::min(mPending.size(), (size_t)mPaddingFrames * fb);
            const size_t keep = mPending.size() - hold;
            mTail.assign(mPending.begin() + keep, mPending.end());
            mTailTimeUs = mPendingTimeUs + av_rescale(keep / fb, 1000000, mSampleRate);
            mPending.resize(keep);
        }
    }

    int frameBytes() const {
        return mBytesPerSample * std::max(mChannels, 1);
    }

    // Converts one decoded frame into mPending; false when it cannot.
    bool convertFrame(const AVFrame *frame, std::string *error) {
        // Zeroed first: av_channel_layout_copy frees what the destination
        // holds, and stack garbage that reads as a custom layout is a wild
        // pointer (the media fuzzer found it).
        AVChannelLayout layout = {};
        if (frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || frame->ch_layout.nb_channels <= 0) {
            av_channel_layout_default(&layout, frame->ch_layout.nb_channels > 0
                                               ? frame->ch_layout.nb_channels : mChannels);
        } else if (av_channel_layout_copy(&layout, &frame->ch_layout) < 0) {
            *error = "cannot copy channel layout";
            return false;
        }
        const bool rebuild = mSwr == nullptr || mSwrInFormat != frame->format
                || mSwrRate != frame->sample_rate
                || av_channel_layout_compare(&mSwrLayout, &layout) != 0;
        if (rebuild) {
            swr_free(&mSwr);
            av_channel_layout_uninit(&mSwrLayout);
            const AVSampleFormat outFormat = mEncoding == kEncodingPcm8 ? AV_SAMPLE_FMT_U8
                    : mEncoding == kEncodingPcm16 ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_S32;
            int ret = swr_alloc_set_opts2(&mSwr, &layout, outFormat, frame->sample_rate,
                                          &layout, (AVSampleFormat)frame->format,
                                          frame->sample_rate, 0, nullptr);
            if (ret >= 0) ret = swr_init(mSwr);
            if (ret < 0) {
                swr_free(&mSwr);
                av_channel_layout_uninit(&layout);
                *error = "cannot set up the sample converter: " + avError(ret);
                return false;
            }
            mSwrInFormat = frame->format;
            mSwrRate = frame->sample_rate;
            av_channel_layout_copy(&mSwrLayout, &layout);
        }
        const int channels = layout.nb_channels;
        av_channel_layout_uninit(&layout);

        const int wideBytes = mEncoding == kEncodingPcm8 ? 1 : mEncoding == kEncodingPcm16 ? 2 : 4;
        std::vector<uint8_t> wide((size_t)frame->nb_samples * channels * wideBytes);
        uint8_t *out[1] = {wide.data()};
        int n = swr_convert(mSwr, out, frame->nb_samples,
                            (const uint8_t **)frame->extended_data, frame->nb_samples);
        if (n < 0) {
            *error = "sample conversion failed: " + avError(n);
            return false;
        }
        const size_t samples = (size_t)n * channels;
        mPending.clear();
        mPendingOffset = 0;
        if (mEncoding == kEncodingPcm24 || mEncoding == kEncodingPcm24Packed) {
            // Keep the top three bytes of each little-endian 32-bit sample.
            mPending.resize(samples * 3);
            for (size_t i = 0; i < samples; ++i) {
                memcpy(&mPending[i * 3], &wide[i * 4 + 1], 3);
            }
        } else {
            wide.resize(samples * wideBytes);
            mPending.swap(wide);
        }
        return true;
    }
};

// static
sp<MediaCodec> MediaCodec::Create(const sp<ALooper> &looper, const AString &componentName,
                                  const void *candidatesPtr, status_t *err) {
    const std::vector<AVCodecID> &candidates =
            *static_cast<const std::vector<AVCodecID> *>(candidatesPtr);
    std::vector<AVCodecID> available;
    for (AVCodecID id : candidates) {
        if (avcodec_find_decoder(id) != nullptr) available.push_back(id);
    }
    if (available.empty()) {
        ALOGE("no FFmpeg decoder for component '%s'", componentName.c_str());
        if (err != NULL) *err = NAME_NOT_FOUND;
        return NULL;
    }
    if (looper == NULL) {
        ALOGE("component '%s': no looper", componentName.c_str());
        if (err != NULL) *err = BAD_VALUE;
        return NULL;
    }
    sp<MediaCodec> codec = new MediaCodec(looper, componentName);
    codec->mDecoder->mCandidates = available;
    looper->registerHandler(codec);
    if (err != NULL) *err = OK;
    return codec;
}

// static
sp<MediaCodec> MediaCodec::CreateByType(const sp<ALooper> &looper, const AString &mime,
                                        bool encoder, status_t *err, pid_t, uid_t) {
    if (encoder) {
        ALOGE("no encoder for '%s' on the host", mime.c_str());
        if (err != NULL) *err = NAME_NOT_FOUND;
        return NULL;
    }
    std::vector<AVCodecID> ids = ffmpeg::codecsForMime(mime.c_str());
    if (ids.empty()) {
        ALOGE("no decoder for mime '%s'", mime.c_str());
        if (err != NULL) *err = NAME_NOT_FOUND;
        return NULL;
    }
    AString name = "c2.ffmpeg.";
    name.append(avcodec_get_name(ids[0]));
    name.append(".decoder");
    return Create(looper, name, &ids, err);
}

// static
sp<MediaCodec> MediaCodec::CreateByComponentName(const sp<ALooper> &looper, const AString &name,
                                                 status_t *err, pid_t, uid_t) {
    std::vector<AVCodecID> ids = ffmpeg::codecsForComponent(name.c_str());
    if (ids.empty() && !strncmp(name.c_str(), "c2.ffmpeg.", 10)) {
        // Our own names, as CreateByType reports them.
        std::string codecName(name.c_str() + 10);
        size_t dot = codecName.find('.');
        const AVCodec *codec = avcodec_find_decoder_by_name(codecName.substr(0, dot).c_str());
        if (codec != nullptr) ids.push_back(codec->id);
    }
    if (ids.empty()) {
        ALOGE("unknown component name '%s'", name.c_str());
        if (err != NULL) *err = NAME_NOT_FOUND;
        return NULL;
    }
    return Create(looper, name, &ids, err);
}

MediaCodec::MediaCodec(const sp<ALooper> &looper, const AString &componentName)
    : mLooper(looper),
      mComponentName(componentName),
      mState(UNINITIALIZED),
      mInputBase(0),
      mOutputBase(0),
      mGeneration(0),
      mPumpPending(false),
      mDecoder(new Decoder) {
}

MediaCodec::~MediaCodec() {
    sp<ALooper> looper = mLooper.promote();
    if (looper != NULL && id() != 0) {
        looper->unregisterHandler(id());
    }
}

status_t MediaCodec::postAndAwait(const sp<AMessage> &msg, sp<AMessage> *response) {
    sp<AMessage> reply;
    status_t err = msg->postAndAwaitResponse(&reply);
    if (err != OK) {
        return err;
    }
    if (response != NULL) {
        *response = reply;
    }
    if (reply == NULL || !reply->findInt32("err", &err)) {
        err = OK;
    }
    return err;
}

void MediaCodec::replyStatus(const sp<AMessage> &msg, status_t err) {
    sp<AReplyToken> replyID;
    if (!msg->senderAwaitsResponse(&replyID)) {
        return;
    }
    sp<AMessage> reply = new AMessage;
    reply->setInt32("err", err);
    reply->postReply(replyID);
}

status_t MediaCodec::configure(const sp<AMessage> &format, const sp<Surface> &,
                               const sp<ICrypto> &, uint32_t flags) {
    if (flags & CONFIGURE_FLAG_ENCODE) {
        ALOGE("%s: encoding is not supported", mComponentName.c_str());
        return INVALID_OPERATION;
    }
    if (format == NULL) {
        return BAD_VALUE;
    }
    sp<AMessage> msg = new AMessage(kWhatConfigure, this);
    msg->setMessage("format", format->dup());
    return postAndAwait(msg);
}

status_t MediaCodec::setCallback(const sp<AMessage> &callback) {
    sp<AMessage> msg = new AMessage(kWhatSetCallback, this);
    msg->setMessage("callback", callback);
    return postAndAwait(msg);
}

status_t MediaCodec::start() {
    return postAndAwait(new AMessage(kWhatStart, this));
}

status_t MediaCodec::stop() {
    return postAndAwait(new AMessage(kWhatStop, this));
}

status_t MediaCodec::reset() {
    return stop();
}

status_t MediaCodec::release() {
    // The handler stays registered until the destructor: a client still
    // answering callbacks gets INVALID_OPERATION rather than a request that
    // no one will ever answer.
    return postAndAwait(new AMessage(kWhatRelease, this));
}

status_t MediaCodec::flush() {
    return postAndAwait(new AMessage(kWhatFlush, this));
}

// Queueing and releasing are done on the caller's thread under mLock rather
// than as a round trip through the codec's looper: the result is the same
// (ownership changes before the call returns, the status is synchronous),
// and a decoded buffer costs four context switches fewer.
status_t MediaCodec::queueInputBuffer(size_t index, size_t offset, size_t size,
                                      int64_t presentationTimeUs, uint32_t flags,
                                      AString *errorDetailMsg) {
    if (errorDetailMsg != NULL) {
        errorDetailMsg->clear();
    }
    status_t err = OK;
    {
        Mutex::Autolock autoLock(mLock);
        if (mState != STARTED) {
            err = INVALID_OPERATION;
        } else if (index >= mInputSlots.size() || !mInputSlots[index].mOwnedByClient) {
            // The platform's answers: no such buffer, or not the client's.
            ALOGE("%s: queueInputBuffer of a buffer the client does not own (%zu)",
                  mComponentName.c_str(), index);
            err = index >= mInputSlots.size() ? -ERANGE : -EACCES;
        } else if (offset > mInputSlots[index].mBuffer->capacity()
                || size > mInputSlots[index].mBuffer->capacity() - offset) {
            ALOGE("%s: queueInputBuffer range [%zu, +%zu) beyond capacity %zu",
                  mComponentName.c_str(), offset, size, mInputSlots[index].mBuffer->capacity());
            err = -EINVAL;
        } else if (mDecoder->mEosQueued) {
            ALOGE("%s: input after end of stream", mComponentName.c_str());
            err = INVALID_OPERATION;
        } else {
            AVPacket *packet = nullptr;
            if (size > 0 && !(flags & BUFFER_FLAG_CODECCONFIG)) {
                packet = av_packet_alloc();
                if (packet == nullptr || av_new_packet(packet, (int)size) < 0) {
                    av_packet_free(&packet);
                    err = NO_MEMORY;
                } else {
                    memcpy(packet->data, mInputSlots[index].mBuffer->base() + offset, size);
                    packet->pts = presentationTimeUs;
                    packet->dts = presentationTimeUs;
                }
            }
            if (err == OK) {
                mInputSlots[index].mOwnedByClient = false;
                mDecoder->mHandoff.push_back({index, packet, flags});
                if (flags & BUFFER_FLAG_EOS) {
                    mDecoder->mEosQueued = true;
                }
            }
        }
    }
    if (err == OK) {
        schedulePump();
    }
    return err;
}

status_t MediaCodec::signalEndOfInputStream() {
    // Only for encoders fed from a surface.
    return INVALID_OPERATION;
}

status_t MediaCodec::releaseOutputBuffer(size_t index) {
    status_t err = OK;
    {
        Mutex::Autolock autoLock(mLock);
        if (mState != STARTED && mState != FLUSHED) {
            err = INVALID_OPERATION;
        } else if (index >= mOutputSlots.size() || !mOutputSlots[index].mOwnedByClient) {
            ALOGE("%s: releaseOutputBuffer of a buffer the client does not own (%zu)",
                  mComponentName.c_str(), index);
            err = index >= mOutputSlots.size() ? -ERANGE : -EACCES;
        } else {
            mOutputSlots[index].mOwnedByClient = false;
        }
    }
    if (err == OK) {
        schedulePump();
    }
    return err;
}

status_t MediaCodec::getOutputFormat(sp<AMessage> *format) const {
    Mutex::Autolock autoLock(mLock);
    if (mState == UNINITIALIZED || mState == RELEASED || mOutputFormat == NULL) {
        return INVALID_OPERATION;
    }
    *format = mOutputFormat->dup();
    return OK;
}

status_t MediaCodec::getInputFormat(sp<AMessage> *format) const {
    Mutex::Autolock autoLock(mLock);
    if (mState == UNINITIALIZED || mState == RELEASED || mInputFormat == NULL) {
        return INVALID_OPERATION;
    }
    *format = mInputFormat->dup();
    return OK;
}

status_t MediaCodec::getInputBuffers(Vector<sp<MediaCodecBuffer> > *buffers) const {
    Mutex::Autolock autoLock(mLock);
    if (mState != STARTED) {
        return INVALID_OPERATION;
    }
    buffers->clear();
    for (const BufferSlot &slot : mInputSlots) buffers->push_back(slot.mBuffer);
    return OK;
}

status_t MediaCodec::getOutputBuffers(Vector<sp<MediaCodecBuffer> > *buffers) const {
    Mutex::Autolock autoLock(mLock);
    if (mState != STARTED) {
        return INVALID_OPERATION;
    }
    buffers->clear();
    for (const BufferSlot &slot : mOutputSlots) buffers->push_back(slot.mBuffer);
    return OK;
}

status_t MediaCodec::getInputBuffer(size_t index, sp<MediaCodecBuffer> *buffer) {
    Mutex::Autolock autoLock(mLock);
    *buffer = NULL;
    if (mState != STARTED) {
        return INVALID_OPERATION;
    }
    if (index < mInputBase || index >= mInputSlots.size()
            || !mInputSlots[index].mOwnedByClient) {
        ALOGE("%s: input buffer %zu is not available to the client", mComponentName.c_str(),
              index);
        return INVALID_OPERATION;
    }
    *buffer = mInputSlots[index].mBuffer;
    return OK;
}

status_t MediaCodec::getOutputBuffer(size_t index, sp<MediaCodecBuffer> *buffer) {
    Mutex::Autolock autoLock(mLock);
    *buffer = NULL;
    if (mState != STARTED) {
        return INVALID_OPERATION;
    }
    if (index < mOutputBase || index >= mOutputSlots.size()
            || !mOutputSlots[index].mOwnedByClient) {
        ALOGE("%s: output buffer %zu is not available to the client", mComponentName.c_str(),
              index);
        return INVALID_OPERATION;
    }
    *buffer = mOutputSlots[index].mBuffer;
    return OK;
}

status_t MediaCodec::getName(AString *componentName) const {
    *componentName = mComponentName;
    return OK;
}

// ---- Everything below runs on the codec's looper. ----

void MediaCodec::onMessageReceived(const sp<AMessage> &msg) {
    switch (msg->what()) {
        case kWhatConfigure: {
            sp<AMessage> format;
            msg->findMessage("format", &format);
            replyStatus(msg, onConfigure(format));
            break;
        }
        case kWhatSetCallback: {
            sp<AMessage> callback;
            msg->findMessage("callback", &callback);
            Mutex::Autolock autoLock(mLock);
            status_t err = OK;
            if (mState == STARTED) {
                err = INVALID_OPERATION;  // as on the platform: only before start
            } else {
                mCallback = callback;
            }
            replyStatus(msg, err);
            break;
        }
        case kWhatStart:
            replyStatus(msg, onStart());
            break;
        case kWhatStop: {
            status_t err = OK;
            {
                Mutex::Autolock autoLock(mLock);
                if (mState == UNINITIALIZED || mState == RELEASED) err = INVALID_OPERATION;
            }
            if (err == OK) onStop();
            replyStatus(msg, err);
            break;
        }
        case kWhatFlush: {
            status_t err = OK;
            {
                Mutex::Autolock autoLock(mLock);
                if (mState != STARTED && mState != FLUSHED) err = INVALID_OPERATION;
            }
            if (err == OK) onFlush();
            replyStatus(msg, err);
            break;
        }
        case kWhatRelease: {
            dropDecoderState();
            {
                Mutex::Autolock autoLock(mLock);
                ++mGeneration;
                mState = RELEASED;
                mInputSlots.clear();
                mOutputSlots.clear();
                mInputBase = 0;
                mOutputBase = 0;
                mCallback.clear();
                mDecoder.reset(new Decoder);
            }
            replyStatus(msg, OK);
            break;
        }
        case kWhatPump: {
            int32_t generation = 0;
            msg->findInt32("generation", &generation);
            {
                Mutex::Autolock autoLock(mLock);
                if (generation != mGeneration) break;
                mPumpPending = false;
            }
            onPump();
            break;
        }
        default:
            ALOGW("%s: unexpected message 0x%x", mComponentName.c_str(), msg->what());
            break;
    }
}

status_t MediaCodec::onConfigure(const sp<AMessage> &format) {
    {
        Mutex::Autolock autoLock(mLock);
        if (mState != UNINITIALIZED) {
            ALOGE("%s: configure in state %d", mComponentName.c_str(), mState);
            return INVALID_OPERATION;
        }
    }
    Decoder *d = mDecoder.get();
    if (format == NULL) {
        return BAD_VALUE;
    }

    // Pick the decoder: the extractor's hint when it is one of ours.
    AVCodecID id = d->mCandidates[0];
    AString hint;
    if (format->findString("dsd-format", &hint) || format->findString("ffmpeg-codec", &hint)) {
        const AVCodecDescriptor *desc = avcodec_descriptor_get_by_name(hint.c_str());
        if (desc != nullptr) {
            for (AVCodecID c : d->mCandidates) {
                if (c == desc->id) id = c;
            }
        }
    }
    const AVCodec *codec = avcodec_find_decoder(id);
    if (codec == nullptr) {
        return NAME_NOT_FOUND;
    }

    int32_t sampleRate = 0, channels = 0, bits = 0, blockAlign = 0, bitrate = 0;
    format->findInt32("sample-rate", &sampleRate);
    format->findInt32("channel-count", &channels);
    format->findInt32("bits-per-sample", &bits);
    format->findInt32("block-align", &blockAlign);
    format->findInt32("bitrate", &bitrate);

    int32_t encoding = kEncodingPcm16;
    if (format->findInt32("pcm-encoding", &encoding)) {
        if (encoding != kEncodingPcm16 && encoding != kEncodingPcm8
                && encoding != kEncodingPcm24 && encoding != kEncodingPcm24Packed
                && encoding != kEncodingPcm32) {
            ALOGW("%s: unsupported pcm-encoding %d, delivering 16-bit PCM",
                  mComponentName.c_str(), encoding);
            encoding = kEncodingPcm16;
        }
    }

    AVCodecContext *ctx = avcodec_alloc_context3(codec);
    if (ctx == nullptr) {
        return NO_MEMORY;
    }
    ctx->pkt_timebase = AVRational{1, 1000000};
    if (sampleRate > 0) ctx->sample_rate = sampleRate;
    if (channels > 0) av_channel_layout_default(&ctx->ch_layout, channels);
    if (bits > 0) ctx->bits_per_coded_sample = bits;
    if (blockAlign > 0) ctx->block_align = blockAlign;
    if (bitrate > 0) ctx->bit_rate = bitrate;
    sp<ABuffer> csd;
    if (format->findBuffer("csd-0", &csd) && csd != NULL && csd->size() > 0) {
        ctx->extradata = (uint8_t *)av_mallocz(csd->size() + AV_INPUT_BUFFER_PADDING_SIZE);
        if (ctx->extradata == nullptr) {
            avcodec_free_context(&ctx);
            return NO_MEMORY;
        }
        memcpy(ctx->extradata, csd->data(), csd->size());
        ctx->extradata_size = (int)csd->size();
    }
    int ret = avcodec_open2(ctx, codec, nullptr);
    if (ret < 0) {
        ALOGE("%s: cannot open FFmpeg decoder %s: %s", mComponentName.c_str(), codec->name,
              avError(ret).c_str());
        avcodec_free_context(&ctx);
        return ERROR_UNSUPPORTED;
    }
    avcodec_free_context(&d->mContext);
    d->mContext = ctx;
    d->mFrame = d->mFrame != nullptr ? d->mFrame : av_frame_alloc();
    d->mEncoding = encoding;
    d->mBytesPerSample = encoding == kEncodingPcm8 ? 1 : encoding == kEncodingPcm16 ? 2
            : encoding == kEncodingPcm32 ? 4 : 3;
    d->mSampleRate = ctx->sample_rate > 0 ? ctx->sample_rate : sampleRate;
    d->mChannels = ctx->ch_layout.nb_channels > 0 ? ctx->ch_layout.nb_channels : channels;
    int32_t delay = 0, padding = 0;
    format->findInt32("encoder-delay", &delay);
    format->findInt32("encoder-padding", &padding);
    d->mDelayFrames = std::max(delay, 0);
    d->mPaddingFrames = std::max(padding, 0);

    int32_t maxInputSize = 0;
    format->findInt32("max-input-size", &maxInputSize);
    const size_t inputCapacity = std::max<size_t>(kMinInputBufferSize,
                                                  maxInputSize > 0 ? maxInputSize : 0);

    sp<AMessage> outputFormat = new AMessage;
    outputFormat->setString("mime", MEDIA_MIMETYPE_AUDIO_RAW);
    outputFormat->setInt32("sample-rate", d->mSampleRate);
    outputFormat->setInt32("channel-count", d->mChannels);
    outputFormat->setInt32("pcm-encoding", encoding);
    outputFormat->setInt32("bit-width", d->mBytesPerSample * 8);

    Mutex::Autolock autoLock(mLock);
    mInputFormat = format;
    mOutputFormat = outputFormat;
    mInputSlots.clear();
    mOutputSlots.clear();
    d->mInputCapacity = inputCapacity;
    addSlots_l();
    mState = CONFIGURED;
    ALOGV("%s configured: %s, %d Hz, %d channels, encoding %d", mComponentName.c_str(),
          codec->name, d->mSampleRate, d->mChannels, encoding);
    return OK;
}

void MediaCodec::resetSlots_l() {
    // A new run gets new buffer indices, so that callbacks of the old run
    // still on their way to the client name buffers that no longer exist
    // instead of buffers of the new run.
    for (BufferSlot &slot : mInputSlots) {
        slot.mBuffer.clear();
        slot.mOwnedByClient = false;
    }
    for (BufferSlot &slot : mOutputSlots) {
        slot.mBuffer.clear();
        slot.mOwnedByClient = false;
    }
    addSlots_l();
}

void MediaCodec::addSlots_l() {
    mInputBase = mInputSlots.size();
    mOutputBase = mOutputSlots.size();
    for (size_t i = 0; i < kNumInputBuffers; ++i) {
        mInputSlots.push_back({new MediaCodecBuffer(mInputFormat,
                                                    new ABuffer(mDecoder->mInputCapacity)),
                               false});
    }
    for (size_t i = 0; i < kNumOutputBuffers; ++i) {
        mOutputSlots.push_back({new MediaCodecBuffer(mOutputFormat,
                                                     new ABuffer(kOutputBufferSize)),
                                false});
    }
}

status_t MediaCodec::onStart() {
    {
        Mutex::Autolock autoLock(mLock);
        if (mState == STARTED) {
            return OK;
        }
        if (mState != CONFIGURED && mState != FLUSHED) {
            ALOGE("%s: start in state %d", mComponentName.c_str(), mState);
            return INVALID_OPERATION;
        }
        if (mCallback == NULL) {
            // Only the asynchronous mode exists on the host.
            ALOGE("%s: start without a callback", mComponentName.c_str());
            return INVALID_OPERATION;
        }
        mState = STARTED;
    }
    announceInputBuffers();
    return OK;
}

void MediaCodec::dropDecoderState() {
    mDecoder->resetRun();
}

void MediaCodec::onStop() {
    dropDecoderState();
    Mutex::Autolock autoLock(mLock);
    mDecoder->clearHandoff_l();
    ++mGeneration;
    mPumpPending = false;
    resetSlots_l();
    // As on a device: a stopped codec is unconfigured and forgets its
    // callback; it runs again only after configure() and setCallback().
    mCallback.clear();
    mState = UNINITIALIZED;
}

void MediaCodec::onFlush() {
    dropDecoderState();
    Mutex::Autolock autoLock(mLock);
    mDecoder->clearHandoff_l();
    ++mGeneration;
    mPumpPending = false;
    resetSlots_l();
    mState = FLUSHED;
}

void MediaCodec::announceInputBuffers() {
    Mutex::Autolock autoLock(mLock);
    for (size_t i = mInputBase; i < mInputSlots.size(); ++i) {
        mInputSlots[i].mOwnedByClient = true;
        mInputSlots[i].mBuffer->setRange(0, 0);
        sp<AMessage> cb = mCallback->dup();
        cb->setInt32("callbackID", CB_INPUT_AVAILABLE);
        cb->setInt32("index", (int32_t)i);
        cb->post();
    }
}

void MediaCodec::schedulePump() {
    Mutex::Autolock autoLock(mLock);
    if (mPumpPending || mState != STARTED) {
        return;
    }
    mPumpPending = true;
    sp<AMessage> msg = new AMessage(kWhatPump, this);
    msg->setInt32("generation", mGeneration);
    msg->post();
}

void MediaCodec::onPump() {
    for (int i = 0; i < kPumpStepsPerMessage; ++i) {
        if (!pumpOnce()) {
            return;
        }
    }
    schedulePump();
}

void MediaCodec::postError(status_t err) {
    Mutex::Autolock autoLock(mLock);
    if (mCallback == NULL) {
        return;
    }
    sp<AMessage> cb = mCallback->dup();
    cb->setInt32("callbackID", CB_ERROR);
    cb->setInt32("err", err);
    cb->setInt32("actionCode", 0);
    cb->post();
}

void MediaCodec::postFormatChanged() {
    sp<AMessage> cb = mCallback->dup();
    cb->setInt32("callbackID", CB_OUTPUT_FORMAT_CHANGED);
    cb->setMessage("format", mOutputFormat->dup());
    cb->post();
}

bool MediaCodec::emitPendingOutput() {
    Decoder *d = mDecoder.get();
    Mutex::Autolock autoLock(mLock);
    for (size_t i = mOutputBase; i < mOutputSlots.size(); ++i) {
        BufferSlot &slot = mOutputSlots[i];
        if (slot.mOwnedByClient) {
            continue;
        }
        const size_t frameBytes = d->frameBytes();
        size_t n = d->mPending.size() - d->mPendingOffset;
        const size_t room = slot.mBuffer->capacity() / frameBytes * frameBytes;
        if (n > room) n = room;
        memcpy(slot.mBuffer->base(), d->mPending.data() + d->mPendingOffset, n);
        slot.mBuffer->setRange(0, n);
        slot.mOwnedByClient = true;
        const int64_t timeUs = d->mPendingTimeUs;
        d->mPendingOffset += n;
        const int64_t frames = n / frameBytes;
        ffmpeg::countDecodedFrames(frames);
        d->mPendingTimeUs += d->mSampleRate > 0 ? frames * 1000000 / d->mSampleRate : 0;
        d->mNextTimeUs = d->mPendingTimeUs;
        if (d->mPendingOffset >= d->mPending.size()) {
            d->mPending.clear();
            d->mPendingOffset = 0;
        }
        sp<AMessage> cb = mCallback->dup();
        cb->setInt32("callbackID", CB_OUTPUT_AVAILABLE);
        cb->setInt32("index", (int32_t)i);
        cb->setSize("offset", 0);
        cb->setSize("size", n);
        cb->setInt64("timeUs", timeUs);
        cb->setInt32("flags", 0);
        cb->post();
        return true;
    }
    return false;
}

bool MediaCodec::emitEndOfStream() {
    Decoder *d = mDecoder.get();
    Mutex::Autolock autoLock(mLock);
    for (size_t i = mOutputBase; i < mOutputSlots.size(); ++i) {
        BufferSlot &slot = mOutputSlots[i];
        if (slot.mOwnedByClient) {
            continue;
        }
        slot.mBuffer->setRange(0, 0);
        slot.mOwnedByClient = true;
        d->mEosDelivered = true;
        sp<AMessage> cb = mCallback->dup();
        cb->setInt32("callbackID", CB_OUTPUT_AVAILABLE);
        cb->setInt32("index", (int32_t)i);
        cb->setSize("offset", 0);
        cb->setSize("size", 0);
        cb->setInt64("timeUs", d->mNextTimeUs);
        cb->setInt32("flags", BUFFER_FLAG_EOS);
        cb->post();
        return true;
    }
    return false;
}

// One step of decoding; false when nothing can move until the client acts.
bool MediaCodec::pumpOnce() {
    Decoder *d = mDecoder.get();
    {
        Mutex::Autolock autoLock(mLock);
        if (mState != STARTED || mCallback == NULL) {
            return false;
        }
        if (d->mInputs.empty()) {
            d->mInputs.swap(d->mHandoff);
        }
    }
    if (d->mPendingOffset < d->mPending.size()) {
        return emitPendingOutput();
    }
    if (d->mEosDelivered) {
        return false;
    }
    if (d->mDrained) {
        return emitEndOfStream();
    }

    int ret = avcodec_receive_frame(d->mContext, d->mFrame);
    if (ret == 0) {
        std::string error;
        const AVFrame *f = d->mFrame;
        bool ok = f->nb_samples > 0 && d->convertFrame(f, &error);
        if (ok) {
            if (f->pts != AV_NOPTS_VALUE) {
                d->mPendingTimeUs = f->pts;
            } else {
                d->mPendingTimeUs = d->mNextTimeUs;
            }
            if (f->sample_rate != d->mSampleRate || f->ch_layout.nb_channels != d->mChannels) {
                // The stream tells more than the container did (HE-AAC,
                // a mid-stream change): re-announce the output format.
                Mutex::Autolock autoLock(mLock);
                d->mSampleRate = f->sample_rate;
                d->mChannels = f->ch_layout.nb_channels;
                sp<AMessage> format = mOutputFormat->dup();
                format->setInt32("sample-rate", d->mSampleRate);
                format->setInt32("channel-count", d->mChannels);
                mOutputFormat = format;
                postFormatChanged();
            }
            d->trimDecoded(f->pts != AV_NOPTS_VALUE);
        } else if (!error.empty()) {
            ALOGE("%s: %s", mComponentName.c_str(), error.c_str());
            postError(ERROR_MALFORMED);
        }
        av_frame_unref(d->mFrame);
        return true;
    }
    if (ret == AVERROR_EOF) {
        d->mDrained = true;
        return true;
    }
    if (ret != AVERROR(EAGAIN)) {
        ALOGW("%s: decoding failed: %s", mComponentName.c_str(), avError(ret).c_str());
        postError(ERROR_MALFORMED);
        if (d->mSentEos) {
            d->mDrained = true;  // nothing more will come out
        }
        return true;
    }
    if (d->mInputs.empty() || d->mSentEos) {
        return false;
    }

    Decoder::Input in = d->mInputs.front();
    d->mInputs.pop_front();
    if (in.mPacket != nullptr) {
        ret = avcodec_send_packet(d->mContext, in.mPacket);
        if (ret == AVERROR(EAGAIN)) {
            // The decoder still holds output; feed this packet again later.
            d->mInputs.push_front(in);
            return true;
        }
        if (ret < 0) {
            ALOGW("%s: bad input at %lld us: %s", mComponentName.c_str(),
                  (long long)in.mPacket->pts, avError(ret).c_str());
            postError(ERROR_MALFORMED);
        }
        av_packet_free(&in.mPacket);
    }
    if (in.mFlags & BUFFER_FLAG_EOS) {
        avcodec_send_packet(d->mContext, nullptr);
        d->mSentEos = true;
        return true;
    }
    // The buffer's content is consumed: hand it back to the client.
    Mutex::Autolock autoLock(mLock);
    if (in.mIndex >= mInputBase && in.mIndex < mInputSlots.size()) {
        mInputSlots[in.mIndex].mOwnedByClient = true;
        mInputSlots[in.mIndex].mBuffer->setRange(0, 0);
        sp<AMessage> cb = mCallback->dup();
        cb->setInt32("callbackID", CB_INPUT_AVAILABLE);
        cb->setInt32("index", (int32_t)in.mIndex);
        cb->post();
    }
    return true;
}

}  // namespace android
