// Interface of a media buffer: a block of memory with a valid range, meta
// data and a reference count.  Mirrors the platform's MediaBufferBase.

#ifndef MEDIA_BUFFER_BASE_H_
#define MEDIA_BUFFER_BASE_H_

#include <stddef.h>

namespace android {

class MediaBufferBase;
class MetaDataBase;

class MediaBufferObserver {
public:
    MediaBufferObserver() {}
    virtual ~MediaBufferObserver() {}

    virtual void signalBufferReturned(MediaBufferBase* buffer) = 0;

private:
    MediaBufferObserver(const MediaBufferObserver&);
    MediaBufferObserver& operator=(const MediaBufferObserver&);
};

class MediaBufferBase {
public:
    // A new MediaBuffer of |size| bytes that owns its memory.
    static MediaBufferBase* Create(size_t size);

    // With an observer: drops one reference and returns the buffer to the
    // observer when none is left.  Without one (the legacy contract): drops
    // one reference when the count is above 0, and destroys the buffer when
    // the count is 0.
    virtual void release() = 0;

    // Takes one more reference.
    virtual void add_ref() = 0;

    virtual void* data() const = 0;
    virtual size_t size() const = 0;

    virtual size_t range_offset() const = 0;
    virtual size_t range_length() const = 0;

    // Aborts when the range leaves the buffer.
    virtual void set_range(size_t offset, size_t length) = 0;

    virtual MetaDataBase& meta_data() = 0;

    // Clears the meta data and restores the full range.
    virtual void reset() = 0;

    virtual void setObserver(MediaBufferObserver* group) = 0;

    // Approximate unless nothing else can reach the buffer.
    virtual int refcount() const { return localRefcount() + remoteRefcount(); }

    virtual int localRefcount() const = 0;
    virtual int remoteRefcount() const = 0;

    virtual ~MediaBufferBase() {}

protected:
    MediaBufferBase() {}

private:
    MediaBufferBase(const MediaBufferBase&);
    MediaBufferBase& operator=(const MediaBufferBase&);
};

}  // namespace android

#endif  // MEDIA_BUFFER_BASE_H_
