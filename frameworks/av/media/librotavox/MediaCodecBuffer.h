/*
 * Buffer through which MediaCodec hands input and output memory to its
 * client: the memory with its current range, a meta message of its own and
 * the format of the codec port the buffer belongs to.
 */

#ifndef MEDIA_CODEC_BUFFER_H_

#define MEDIA_CODEC_BUFFER_H_

#include <media/stagefright/foundation/ABase.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

struct ABuffer;
struct AMessage;

class MediaCodecBuffer : public RefBase {
public:
    MediaCodecBuffer(const sp<AMessage> &format, const sp<ABuffer> &buffer);

    // MediaCodec drops its references when it is done with the buffer, so the
    // destructor is where the memory goes.
    virtual ~MediaCodecBuffer() = default;

    // Buffer of the memory as a whole.
    uint8_t *base();
    // Buffer of the memory at the range offset.
    uint8_t *data();
    size_t capacity() const;
    size_t size() const;
    size_t offset() const;
    // The bounds are enforced by ABuffer::setRange, which aborts on a range
    // that does not fit the capacity.
    virtual status_t setRange(size_t offset, size_t size);

    sp<AMessage> meta();
    sp<AMessage> format();
    // Meta entries belong to the format they were written under, so a new
    // format wipes them.
    void setFormat(const sp<AMessage> &format);

private:
    MediaCodecBuffer() = delete;

    const sp<AMessage> mMeta;
    sp<AMessage> mFormat;
    const sp<ABuffer> mBuffer;

    DISALLOW_EVIL_CONSTRUCTORS(MediaCodecBuffer);
};

}  // namespace android

#endif  // MEDIA_CODEC_BUFFER_H_
