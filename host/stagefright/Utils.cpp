//#define LOG_NDEBUG 0
#define LOG_TAG "Utils"
#include <utils/Log.h>

#include <media/stagefright/Utils.h>

#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AMessage.h>

namespace android {

namespace {

struct Int32Key {
    const char *name;
    uint32_t key;
};

const Int32Key kInt32Keys[] = {
    {"sample-rate", kKeySampleRate},
    {"channel-count", kKeyChannelCount},
    {"channel-mask", kKeyChannelMask},
    {"bits-per-sample", kKeyBitsPerSample},
    {"pcm-encoding", kKeyPcmEncoding},
    {"max-input-size", kKeyMaxInputSize},
    {"encoder-delay", kKeyEncoderDelay},
    {"encoder-padding", kKeyEncoderPadding},
    {"bitrate", kKeyBitRate},
};

}  // namespace

void convertMessageToMetaData(const sp<AMessage> &msg, sp<MetaData> &meta) {
    if (msg == NULL) {
        return;
    }
    if (meta == NULL) {
        meta = new MetaData;
    }
    AString mime;
    if (msg->findString("mime", &mime)) {
        meta->setCString(kKeyMIMEType, mime.c_str());
    } else {
        ALOGW("did not find mime type");
    }
    int64_t durationUs;
    if (msg->findInt64("durationUs", &durationUs)) {
        meta->setInt64(kKeyDuration, durationUs);
    }
    for (const Int32Key &k : kInt32Keys) {
        int32_t value;
        if (msg->findInt32(k.name, &value)) {
            meta->setInt32(k.key, value);
        }
    }
}

status_t convertMetaDataToMessage(const sp<MetaData> &meta, sp<AMessage> *format) {
    format->clear();
    if (meta == NULL) {
        return BAD_VALUE;
    }
    const char *mime;
    if (!meta->findCString(kKeyMIMEType, &mime)) {
        return BAD_VALUE;
    }
    sp<AMessage> msg = new AMessage;
    msg->setString("mime", mime);
    int64_t durationUs;
    if (meta->findInt64(kKeyDuration, &durationUs)) {
        msg->setInt64("durationUs", durationUs);
    }
    for (const Int32Key &k : kInt32Keys) {
        int32_t value;
        if (meta->findInt32(k.key, &value)) {
            msg->setInt32(k.name, value);
        }
    }
    *format = msg;
    return OK;
}

}  // namespace android
