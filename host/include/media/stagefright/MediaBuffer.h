// The platform's plain media buffer: either owns a heap block or wraps memory
// that stays the caller's.

#ifndef MEDIA_BUFFER_H_
#define MEDIA_BUFFER_H_

#include <atomic>

#include <media/stagefright/MediaBufferBase.h>

namespace android {

class MetaDataBase;

class MediaBuffer : public MediaBufferBase {
public:
    // The platform moves allocations of this size or more into shared memory;
    // the host keeps every buffer on the heap.
    static const size_t kSharedMemThreshold = 64 * 1024;

    // The underlying data remain the responsibility of the caller.
    MediaBuffer(void* data, size_t size);

    explicit MediaBuffer(size_t size);

    virtual void release() override;
    virtual void add_ref() override;

    virtual void* data() const override;
    virtual size_t size() const override;

    virtual size_t range_offset() const override;
    virtual size_t range_length() const override;

    virtual void set_range(size_t offset, size_t length) override;

    virtual MetaDataBase& meta_data() override;

    virtual void reset() override;

    virtual void setObserver(MediaBufferObserver* group) override;

    virtual int localRefcount() const override { return mRefCount.load(); }
    virtual int remoteRefcount() const override { return 0; }

protected:
    // Destroyed through release(), never directly.
    virtual ~MediaBuffer();

private:
    MediaBufferObserver* mObserver;
    std::atomic<int> mRefCount;

    void* mData;
    size_t mSize, mRangeOffset, mRangeLength;
    bool mOwnsData;

    MetaDataBase* mMetaData;

    MediaBuffer(const MediaBuffer&);
    MediaBuffer& operator=(const MediaBuffer&);
};

}  // namespace android

#endif  // MEDIA_BUFFER_H_
