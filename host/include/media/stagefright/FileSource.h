/*
 * Host build of the platform's file-backed DataSource.
 */

#ifndef FILE_SOURCE_H_

#define FILE_SOURCE_H_

#include <stdio.h>

#include <media/DataSource.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/threads.h>

namespace android {

class FileSource : public DataSource {
public:
    FileSource(const char *filename);
    // Takes ownership of |fd| (closed by the destructor) and exposes only the
    // |length| bytes that start at |offset|.  A range that does not lie
    // inside the file fails initCheck().
    FileSource(int fd, int64_t offset, int64_t length);

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
    virtual ~FileSource();

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

    FileSource(const FileSource &) = delete;
    FileSource &operator=(const FileSource &) = delete;
};

}  // namespace android

#endif  // FILE_SOURCE_H_
