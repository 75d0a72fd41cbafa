/*
 * Host build of the platform's file-backed DataSource without DRM; the
 * platform code creates its FileSource subclass.
 */

#ifndef CLEAR_FILE_SOURCE_H_

#define CLEAR_FILE_SOURCE_H_

#include <stdio.h>

#include <media/DataSource.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/threads.h>

namespace android {

class ClearFileSource : public DataSource {
public:
    ClearFileSource(const char *filename);
    // Takes ownership of |fd| (closed by the destructor) and exposes only the
    // |length| bytes that start at |offset|, cut down (with a warning) to the
    // part of the file the range covers.
    ClearFileSource(int fd, int64_t offset, int64_t length);

    virtual status_t initCheck() const;

    virtual ssize_t readAt(off64_t offset, void *data, size_t size);

    virtual status_t getSize(off64_t *size);

    virtual uint32_t flags() {
        return kIsLocalFileSource;
    }

    virtual String8 toString() {
        return mName;
    }

protected:
    virtual ~ClearFileSource();

private:
    // |wholeFile|: opened by path, where the range is the file itself.
    void init(int64_t offset, int64_t length, bool wholeFile);

    int mFd;
    int64_t mOffset;
    int64_t mLength;
    status_t mInitCheck;
    String8 mName;

    // Serialises readers, as the platform's does; pread itself would not
    // need it, but callers rely on one read at a time.
    Mutex mLock;

    ClearFileSource(const ClearFileSource &) = delete;
    ClearFileSource &operator=(const ClearFileSource &) = delete;
};

}  // namespace android

#endif  // CLEAR_FILE_SOURCE_H_
