#define LOG_TAG "MediaBuffer"

#include <media/stagefright/MediaBuffer.h>

#include <stdlib.h>

#include <log/log.h>
#include <media/stagefright/MetaDataBase.h>

// The platform's CHECK text: "<file>:<line> CHECK(<condition>) failed.".
#define MB_STRINGIFY_(x) #x
#define MB_STRINGIFY(x) MB_STRINGIFY_(x)
#define MB_CHECK(condition, text)                                                         \
    LOG_ALWAYS_FATAL_IF(!(condition), "%s",                                               \
                        "frameworks/av/media/libstagefright/MediaBuffer.cpp:" MB_STRINGIFY( \
                                __LINE__) " CHECK(" text ") failed.")

namespace android {

MediaBufferBase* MediaBufferBase::Create(size_t size) {
    return new MediaBuffer(size);
}

MediaBuffer::MediaBuffer(void* data, size_t size)
    : mObserver(nullptr),
      mRefCount(0),
      mData(data),
      mSize(size),
      mRangeOffset(0),
      mRangeLength(size),
      mOwnsData(false),
      mMetaData(new MetaDataBase) {}

MediaBuffer::MediaBuffer(size_t size)
    : mObserver(nullptr),
      mRefCount(0),
      mData(size > 0 ? malloc(size) : nullptr),
      mSize(size),
      mRangeOffset(0),
      mRangeLength(size),
      mOwnsData(true),
      mMetaData(new MetaDataBase) {
    if (size > 0 && mData == nullptr) {
        ALOGE("cannot allocate a media buffer of %zu bytes", size);
        mSize = 0;
        mRangeLength = 0;
    }
}

MediaBuffer::~MediaBuffer() {
    if (mOwnsData) free(mData);
    delete mMetaData;
}

void MediaBuffer::release() {
    if (mObserver == nullptr) {
        // Buffers without an observer: a count above 0 stands for references
        // taken with add_ref() besides the owner's; the owner's own release
        // at 0 destroys the buffer.
        int count = mRefCount.load();
        while (count > 0) {
            if (mRefCount.compare_exchange_weak(count, count - 1)) return;
        }
        delete this;
        return;
    }

    const int prevCount = mRefCount.fetch_sub(1);
    if (prevCount == 1) {
        mObserver->signalBufferReturned(this);
        return;
    }
    MB_CHECK(prevCount > 0, "prevCount > 0");
}

void MediaBuffer::add_ref() {
    mRefCount.fetch_add(1);
}

void* MediaBuffer::data() const {
    return mData;
}

size_t MediaBuffer::size() const {
    return mSize;
}

size_t MediaBuffer::range_offset() const {
    return mRangeOffset;
}

size_t MediaBuffer::range_length() const {
    return mRangeLength;
}

void MediaBuffer::set_range(size_t offset, size_t length) {
    // Written so that a huge offset or length cannot wrap around.
    const bool inside = offset <= mSize && length <= mSize - offset;
    if (!inside) {
        ALOGE("offset = %zu, length = %zu, mSize = %zu", offset, length, mSize);
    }
    MB_CHECK(inside, "offset + length <= mSize");
    mRangeOffset = offset;
    mRangeLength = length;
}

MetaDataBase& MediaBuffer::meta_data() {
    return *mMetaData;
}

void MediaBuffer::reset() {
    mMetaData->clear();
    set_range(0, mSize);
}

void MediaBuffer::setObserver(MediaBufferObserver* observer) {
    MB_CHECK(observer == nullptr || mObserver == nullptr,
             "observer == NULL || mObserver == NULL");
    mObserver = observer;
}

}  // namespace android
