/*
 * Host build of the platform's format conversion helpers.
 */

#ifndef UTILS_H_

#define UTILS_H_

#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

// Copies the audio-relevant entries of a codec/extractor format message into
// |meta|: "mime", "sample-rate", "channel-count", "channel-mask",
// "durationUs", "bits-per-sample", "pcm-encoding", "max-input-size",
// "encoder-delay", "encoder-padding", "bitrate".
void convertMessageToMetaData(const sp<AMessage> &format, sp<MetaData> &meta);

// The reverse direction for the same keys.
status_t convertMetaDataToMessage(const sp<MetaData> &meta, sp<AMessage> *format);

}  // namespace android

#endif  // UTILS_H_
