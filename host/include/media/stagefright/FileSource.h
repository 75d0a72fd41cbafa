/*
 * Host build of the platform's FileSource: a ClearFileSource (the host has
 * no DRM to add).
 */

#ifndef FILE_SOURCE_H_

#define FILE_SOURCE_H_

#include <stdio.h>

#include <media/stagefright/ClearFileSource.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/threads.h>

namespace android {

class FileSource : public ClearFileSource {
public:
    FileSource(const char *filename);
    // Takes ownership of |fd| (closed by the destructor) and exposes only the
    // |length| bytes that start at |offset|, cut down to the part of the
    // file the range covers.
    FileSource(int fd, int64_t offset, int64_t length);

protected:
    virtual ~FileSource();

private:
    FileSource(const FileSource &) = delete;
    FileSource &operator=(const FileSource &) = delete;
};

}  // namespace android

#endif  // FILE_SOURCE_H_
