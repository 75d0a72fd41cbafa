//#define LOG_NDEBUG 0
#define LOG_TAG "AudioDecoder"
#include <utils/Log.h>

#include "AudioDecoder.h"
#include "MediaCodecBuffer.h"
#include "RotavoxDebug.h"

#include <cutils/properties.h>
#include <gui/Surface.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaBufferBase.h>
#include <media/stagefright/MediaCodec.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/Utils.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <mediadrm/ICrypto.h>
#include <system/audio.h>
#include <utils/ThreadDefs.h>

#include <string.h>

namespace android {

// "pcm-encoding" values the codecs here understand.  100 is the agreed code
// for 24-bit output, deliberately not the platform's own 24-bit constant.
static const int32_t kPcmEncoding16Bit = 2;
static const int32_t kPcmEncoding8Bit = 3;
static const int32_t kPcmEncoding24Bit = 100;

// Mime strings of tracks that the platform's MediaDefs does not name; the
// values are the ones extractors that carry these formats hand out.
static const char* const kMimeAudioWmaPro = "audio/x-ms-wma-pro";
static const char* const kMimeAudioWmaLossless = "audio/x-ms-wma-lossless";
static const char* const kMimeAudioDsd = "audio/dsd";

AudioDecoder::AudioDecoder(sp<NuMediaExtractor> extractor)
    : mLooper(new ALooper),
      mReflector(new AHandlerReflector<AudioDecoder>(this)),
      mExtractor(extractor),
      mInitStatus(NO_INIT),
      mInputEOS(false),
      mOutputEOS(false),
      mTrackIndex((size_t)-1),
      mRawPCM(false),
      mCodecLooper(new ALooper),
      mSeeking(false) {
    mLooper->setName("RotavoxAudioDecoder");
    mLooper->start(false /* runOnCallingThread */, false /* canCallJava */,
                   ANDROID_PRIORITY_AUDIO);
    mLooper->registerHandler(mReflector);

    initDecoder();
}

AudioDecoder::~AudioDecoder() {
    releaseMediaBuffersByTimeUs(-1);
    if (mCodec != NULL) {
        mCodec->release();
    }
    mLooper->unregisterHandler(mReflector->id());
    mLooper->stop();
}

status_t AudioDecoder::initDecoder() {
    status_t err = mExtractor->getSampleTrackIndex(&mTrackIndex);
    if (err != OK) {
        ALOGE("can't get audio track!");
        return err;
    }

    sp<AMessage> format;
    err = mExtractor->getTrackFormat(mTrackIndex, &format, 0);
    if (err != OK) {
        ALOGE("can't get audio format!");
        return err;
    }

    AString mime;
    RV_CHECK("AudioDecoder", 74, format->findString("mime", &mime));

    if (!strcasecmp(mime.c_str(), MEDIA_MIMETYPE_AUDIO_RAW)) {
        mRawPCM = true;
        return OK;
    }

    mCodecLooper->setName("RotavoxDecoder-CL");
    mCodecLooper->start(false /* runOnCallingThread */, false /* canCallJava */,
                        ANDROID_PRIORITY_AUDIO);

    // Vendor components that the generic lookup by type would not pick;
    // matched exactly, as the extractors spell these mimes.
    const char *componentName = NULL;
    if (!strcmp(mime.c_str(), "audio/x-ape")) {
        componentName = "OMX.qcom.audio.decoder.ape";
    } else if (!strcmp(mime.c_str(), "audio/alac")) {
        componentName = "OMX.qcom.audio.decoder.alac";
    } else if (!strcmp(mime.c_str(), "audio/dsd")) {
        componentName = "OMX.qti.audio.decoder.dsd";
    }

    if (componentName != NULL) {
        mCodec = MediaCodec::CreateByComponentName(mCodecLooper, AString(componentName),
                                                   &mInitStatus, -1 /* pid */, -1 /* uid */);
    } else {
        mCodec = MediaCodec::CreateByType(mCodecLooper, mime, false /* encoder */,
                                          &mInitStatus, -1 /* pid */, -1 /* uid */);
    }

    if (mCodec != NULL && mInitStatus == OK) {
        setCodecOutputFormat(format);
        // A codec that refuses the format shows up as missing output; the
        // reader has nothing better to do with the status.
        (void)mCodec->configure(format, NULL /* surface */, NULL /* crypto */, 0 /* flags */);
        sp<AMessage> notify = new AMessage(kWhatCodecNotify, mReflector);
        (void)mCodec->setCallback(notify);
        return OK;
    }

    ALOGE("init decoder failed! %d", mInitStatus);
    return mInitStatus;
}

void AudioDecoder::setCodecOutputFormat(const sp<AMessage> &format) {
    AString mime;
    bool success = format->findString("mime", &mime);
    RV_CHECK("AudioDecoder", 112, success);

    int32_t pcmEncoding;
    if (format->findInt32("pcm-encoding", &pcmEncoding)) {
        return;
    }

    const char *m = mime.c_str();
    if (!strcasecmp(m, MEDIA_MIMETYPE_AUDIO_FLAC) &&
            !property_get_bool("flac.sw.decoder.24bit.support", false)) {
        pcmEncoding = kPcmEncoding16Bit;
    } else if (!strcasecmp(m, MEDIA_MIMETYPE_AUDIO_WMA) ||
               !strcasecmp(m, kMimeAudioWmaPro) ||
               !strcasecmp(m, kMimeAudioWmaLossless)) {
        pcmEncoding = kPcmEncoding16Bit;
    } else if (!strcasecmp(m, kMimeAudioDsd)) {
        pcmEncoding = kPcmEncoding24Bit;
    } else {
        int32_t bitsPerSample = 16;
        format->findInt32("bits-per-sample", &bitsPerSample);
        if (bitsPerSample == 24) {
            pcmEncoding = kPcmEncoding24Bit;
        } else if (bitsPerSample == 8) {
            pcmEncoding = kPcmEncoding8Bit;
        } else {
            pcmEncoding = kPcmEncoding16Bit;
        }
    }
    format->setInt32("pcm-encoding", pcmEncoding);
}

status_t AudioDecoder::start(MetaData * /* params */) {
    if (mCodec == NULL) {
        return mRawPCM ? OK : NO_INIT;
    }
    return mCodec->start();
}

status_t AudioDecoder::stop() {
    if (mCodec != NULL) {
        mCodec->stop();
    }
    return OK;
}

sp<MetaData> AudioDecoder::getFormat() {
    if (mFormat != NULL) {
        return mFormat;
    }
    if (mExtractor == NULL) {
        return NULL;
    }

    mExtractor->getSampleTrackIndex(&mTrackIndex);
    sp<AMessage> trackFormat;
    status_t err = mExtractor->getTrackFormat(mTrackIndex, &trackFormat, 0);
    RV_CHECK_EQ("AudioDecoder", 184, err, (status_t)OK);

    mFormat = new MetaData;
    convertMessageToMetaData(trackFormat, mFormat);
    mFormat->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_RAW);

    int32_t bitsPerSample = 16;
    trackFormat->findInt32("bits-per-sample", &bitsPerSample);
    sp<AMessage> outputFormat;
    if (mCodec != NULL && mCodec->getOutputFormat(&outputFormat) == OK) {
        int32_t bitWidth;
        int32_t pcmEncoding;
        if (outputFormat->findInt32("bit-width", &bitWidth)) {
            bitsPerSample = bitWidth;
        } else if (outputFormat->findInt32("pcm-encoding", &pcmEncoding)) {
            if (pcmEncoding == kPcmEncoding24Bit) {
                bitsPerSample = 24;
            } else if (pcmEncoding == kPcmEncoding8Bit) {
                bitsPerSample = 8;
            } else {
                bitsPerSample = 16;
            }
        }
    }

    audio_format_t pcmFormat;
    switch (bitsPerSample) {
        case 8:
            pcmFormat = AUDIO_FORMAT_PCM_8_BIT;
            break;
        case 24:
            pcmFormat = AUDIO_FORMAT_PCM_24_BIT_PACKED;
            break;
        case 32:
            pcmFormat = AUDIO_FORMAT_PCM_32_BIT;
            break;
        default:
            pcmFormat = AUDIO_FORMAT_PCM_16_BIT;
            break;
    }
    mFormat->setInt32(kKeyPcmFormat, (int32_t)pcmFormat);
    return mFormat;
}

status_t AudioDecoder::readRAW(MediaBufferBase **buffer) {
    sp<ABuffer> readBuffer = new ABuffer(kRawReadBufferSize);
    status_t err;
    for (;;) {
        err = mExtractor->readSampleData(readBuffer);
        if (err == OK) {
            break;
        }
        if (err == WOULD_BLOCK) {
            continue;
        }
        if (err == NO_MEMORY) {
            // The sample does not fit: grow for this call only, so one odd
            // sample does not pin a large buffer for the rest of the stream.
            readBuffer = new ABuffer(readBuffer->capacity() * 2);
            continue;
        }
        if (err == ERROR_END_OF_STREAM) {
            mInputEOS = true;
        }
        return err;
    }

    int64_t timeUs;
    RV_CHECK_EQ("AudioDecoder", 257, mExtractor->getSampleTime(&timeUs), (status_t)OK);

    MediaBufferBase *mediaBuffer = MediaBufferBase::Create(readBuffer->size());
    mediaBuffer->meta_data().clear();
    mediaBuffer->meta_data().setInt64(kKeyTime, timeUs);
    if (readBuffer->size() > 0) {
        memcpy(mediaBuffer->data(), readBuffer->data(), readBuffer->size());
    }
    mediaBuffer->set_range(0, readBuffer->size());

    *buffer = mediaBuffer;
    err = mExtractor->advance();
    if (err == ERROR_END_OF_STREAM) {
        // The sample just read is given up with the end of the stream.
        (*buffer)->release();
        *buffer = NULL;
        mInputEOS = true;
        ALOGW("Extractor advance reach end of stream!");
        return ERROR_END_OF_STREAM;
    }
    RV_CHECK_EQ("AudioDecoder", 274, err, (status_t)OK);
    return OK;
}

status_t AudioDecoder::read(MediaBufferBase **buffer, const ReadOptions *options) {
    *buffer = NULL;

    if (mInitStatus != OK && !mRawPCM) {
        return mInitStatus;
    }

    int64_t seekTimeUs;
    ReadOptions::SeekMode mode;
    if (options != NULL && options->getSeekTo(&seekTimeUs, &mode)) {
        // From here on the codec's buffer callbacks name buffers of the old
        // position; the seek handler clears this once the codec is flushed.
        mSeeking = true;
        sp<AMessage> msg = new AMessage(kWhatSeek, mReflector);
        msg->setInt64("seekToUs", seekTimeUs);
        msg->setInt32("seekMode", mode);
        sp<AMessage> response;
        status_t err = msg->postAndAwaitResponse(&response);
        if (err == OK && response != NULL) {
            RV_CHECK("AudioDecoder", 299, response->findInt32("err", &err));
            if (err != OK) {
                return err;
            }
        }
    }

    if (mRawPCM) {
        return readRAW(buffer);
    }

    Mutex::Autolock autoLock(mLock);
    for (;;) {
        // Input put aside while the queue was full gets another chance now
        // that a buffer is about to leave it.
        while (!mPendingInputMessages.empty()) {
            List<sp<AMessage>>::iterator it = mPendingInputMessages.begin();
            (*it)->post();
            mPendingInputMessages.erase(it);
        }

        if (!mOutputBuffers.empty()) {
            List<MediaBufferBase *>::iterator it = mOutputBuffers.begin();
            *buffer = *it;
            mOutputBuffers.erase(it);
            break;
        }
        if (mOutputEOS) {
            break;
        }

        mCondition.wait(mLock);
        // The end is reported as soon as it is known, even when the final
        // buffer came with it; the caller reads again to get that buffer.
        if (mOutputEOS) {
            break;
        }
    }

    return *buffer != NULL ? (status_t)OK : (status_t)ERROR_END_OF_STREAM;
}

void AudioDecoder::onMessageReceived(const sp<AMessage> &msg) {
    switch (msg->what()) {
        case kWhatCodecNotify: {
            int32_t cbID;
            RV_CHECK("AudioDecoder", 487, msg->findInt32("callbackID", &cbID));

            switch (cbID) {
                case MediaCodec::CB_INPUT_AVAILABLE: {
                    if (mSeeking) {
                        break;
                    }
                    int32_t index;
                    RV_CHECK("AudioDecoder", 498, msg->findInt32("index", &index));
                    handleAnInputBuffer(index);
                    break;
                }

                case MediaCodec::CB_OUTPUT_AVAILABLE: {
                    if (mSeeking) {
                        break;
                    }
                    int32_t index;
                    size_t offset;
                    size_t size;
                    int64_t timeUs;
                    int32_t flags;
                    RV_CHECK("AudioDecoder", 515, msg->findInt32("index", &index));
                    RV_CHECK("AudioDecoder", 516, msg->findSize("offset", &offset));
                    RV_CHECK("AudioDecoder", 517, msg->findSize("size", &size));
                    RV_CHECK("AudioDecoder", 518, msg->findInt64("timeUs", &timeUs));
                    RV_CHECK("AudioDecoder", 519, msg->findInt32("flags", &flags));
                    handleAnOutputBuffer(index, offset, size, timeUs, flags);
                    break;
                }

                case MediaCodec::CB_OUTPUT_FORMAT_CHANGED: {
                    // The output format was fixed at configure time; the
                    // readers of getFormat() never see a change.
                    sp<AMessage> format;
                    RV_CHECK("AudioDecoder", 528, msg->findMessage("format", &format));
                    break;
                }

                case MediaCodec::CB_ERROR: {
                    status_t err;
                    RV_CHECK("AudioDecoder", 538, msg->findInt32("err", &err));
                    ALOGE("Decoder reported error : 0x%x", err);
                    break;
                }

                default:
                    break;
            }
            break;
        }

        case kWhatSeek: {
            sp<AReplyToken> replyID;
            RV_CHECK("AudioDecoder", 477, msg->senderAwaitsResponse(&replyID));

            status_t err = handleSeekTo(msg);

            sp<AMessage> response = new AMessage;
            response->setInt32("err", err);
            response->postReply(replyID);
            break;
        }

        default:
            break;
    }
}

status_t AudioDecoder::handleAnInputBuffer(size_t index) {
    if (mInputEOS) {
        return ERROR_END_OF_STREAM;
    }

    {
        Mutex::Autolock autoLock(mLock);
        if (mOutputBuffers.size() > kMaxQueuedOutputBuffers) {
            // Enough decoded audio is waiting; read() re-posts this once it
            // has taken a buffer.
            sp<AMessage> pending = new AMessage(kWhatCodecNotify, mReflector);
            pending->setInt32("index", (int32_t)index);
            pending->setInt32("callbackID", MediaCodec::CB_INPUT_AVAILABLE);
            pending->setInt32("fromPending", 1);
            mPendingInputMessages.push_back(pending);
            return WOULD_BLOCK;
        }
    }

    sp<MediaCodecBuffer> codecBuffer;
    status_t err = mCodec->getInputBuffer(index, &codecBuffer);
    if (err != OK || codecBuffer == NULL) {
        return err;
    }

    // The sample goes straight into the codec's memory.
    sp<ABuffer> abuffer = new ABuffer(codecBuffer->base(), codecBuffer->capacity());
    do {
        err = mExtractor->readSampleData(abuffer);
    } while (err == WOULD_BLOCK);

    if (err == ERROR_END_OF_STREAM) {
        mInputEOS = true;
        return mCodec->queueInputBuffer(index, 0, 0, 0, MediaCodec::BUFFER_FLAG_EOS);
    }
    if (err != OK) {
        // An unreadable sample is skipped; the next notification carries on.
        return mCodec->queueInputBuffer(index, 0, 0, 0, 0);
    }

    codecBuffer->setRange(abuffer->offset(), abuffer->size());
    int64_t timeUs;
    RV_CHECK_EQ("AudioDecoder", 385, mExtractor->getSampleTime(&timeUs), (status_t)OK);
    err = mCodec->queueInputBuffer(index, codecBuffer->offset(), codecBuffer->size(), timeUs, 0);
    if (err == OK) {
        err = mExtractor->advance();
    }
    return err;
}

status_t AudioDecoder::handleAnOutputBuffer(size_t index, size_t /* offset */, size_t size,
                                            int64_t timeUs, int32_t flags) {
    if (mOutputEOS) {
        return ERROR_END_OF_STREAM;
    }

    sp<MediaCodecBuffer> codecBuffer;
    status_t err = mCodec->getOutputBuffer(index, &codecBuffer);
    if (err != OK || codecBuffer == NULL) {
        return err;
    }

    if (flags & MediaCodec::BUFFER_FLAG_EOS) {
        mOutputEOS = true;
    }

    // Copied out so the codec gets its buffer back at once.
    MediaBufferBase *mediaBuffer = new MediaBuffer(size);
    mediaBuffer->meta_data().setInt64(kKeyTime, timeUs);
    if (size > 0) {
        // The final buffer may be empty, and an empty MediaBuffer has no memory.
        memcpy(mediaBuffer->data(), codecBuffer->data(), size);
    }

    err = mCodec->releaseOutputBuffer(index);
    mediaBuffer->set_range(0, size);

    Mutex::Autolock autoLock(mLock);
    mOutputBuffers.push_back(mediaBuffer);
    if (mOutputBuffers.size() == 1) {
        mCondition.signal();
    }
    return err;
}

status_t AudioDecoder::handleSeekTo(const sp<AMessage> &msg) {
    int64_t seekUs;
    MediaSource::ReadOptions::SeekMode mode;
    RV_CHECK("AudioDecoder", 438, msg->findInt64("seekToUs", &seekUs));
    RV_CHECK("AudioDecoder", 439, msg->findInt32("seekMode", (int32_t*)&mode));

    status_t err = mExtractor->seekTo(seekUs, mode);
    if (err != OK) {
        if (err == ERROR_END_OF_STREAM) {
            // Nothing is left to decode (past the end, or a source that can
            // no longer be read).  mSeeking stays set, so the codec's
            // callbacks are ignored from here on and a later read without a
            // seek would wait for output that can never be queued; it ends
            // the stream at once instead.
            mOutputEOS = true;
        }
        return err;
    }

    mInputEOS = false;
    mOutputEOS = false;

    if (mCodec == NULL) {
        return OK;
    }

    err = mCodec->flush();
    if (err != OK) {
        return err;
    }
    mSeeking = false;

    Mutex::Autolock autoLock(mLock);
    releaseMediaBuffersByTimeUs(seekUs);
    // Their indices belong to the codec state the flush ended.
    mPendingInputMessages.clear();
    // A flushed codec in asynchronous mode resumes only after start().
    return mCodec->start();
}

void AudioDecoder::releaseMediaBuffersByTimeUs(int64_t /* timeUs */) {
    // Every queued buffer goes: after a seek nothing decoded before it is
    // wanted, whatever its time.
    for (List<MediaBufferBase *>::iterator it = mOutputBuffers.begin();
         it != mOutputBuffers.end(); ++it) {
        (*it)->release();
    }
    mOutputBuffers.clear();
}

}  // namespace android
