#define LOG_TAG "ABuffer"

#include <media/stagefright/foundation/ABuffer.h>

#include <stdlib.h>
#include <string.h>

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AMessage.h>

namespace android {

ABuffer::ABuffer(size_t capacity)
    : mData(malloc(capacity)),
      mCapacity(capacity),
      mRangeOffset(0),
      mRangeLength(capacity),
      mInt32Data(0),
      mOwnsData(true) {
    if (mData == NULL) {
        ALOGE("could not allocate %zu bytes", capacity);
        mCapacity = 0;
        mRangeLength = 0;
    }
}

ABuffer::ABuffer(void *data, size_t capacity)
    : mData(data),
      mCapacity(capacity),
      mRangeOffset(0),
      mRangeLength(capacity),
      mInt32Data(0),
      mOwnsData(false) {
}

// static
sp<ABuffer> ABuffer::CreateAsCopy(const void *data, size_t capacity) {
    sp<ABuffer> res = new ABuffer(capacity);
    if (res->base() == NULL) {
        return NULL;
    }
    if (capacity > 0) {
        memcpy(res->data(), data, capacity);
    }
    return res;
}

ABuffer::~ABuffer() {
    if (mOwnsData) {
        free(mData);
        mData = NULL;
    }
}

void ABuffer::setRange(size_t offset, size_t size) {
    CHECK_LE(offset, mCapacity);
    // Written as a subtraction so that a huge |size| cannot wrap past the check.
    CHECK_LE(size, mCapacity - offset);

    mRangeOffset = offset;
    mRangeLength = size;
}

sp<AMessage> ABuffer::meta() {
    if (mMeta == NULL) {
        mMeta = new AMessage;
    }
    return mMeta;
}

}  // namespace android
