#include <media/stagefright/FileSource.h>

namespace android {

FileSource::FileSource(const char *filename) : ClearFileSource(filename) {}

FileSource::FileSource(int fd, int64_t offset, int64_t length)
    : ClearFileSource(fd, offset, length) {}

FileSource::~FileSource() {}

}  // namespace android
