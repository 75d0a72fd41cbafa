//#define LOG_NDEBUG 0
// The log tag and the names say FileSource: that is the class the platform
// code creates, and what a log reader looks for.
#define LOG_TAG "FileSource"
#include <utils/Log.h>

#include <media/stagefright/ClearFileSource.h>

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <stdint.h>
#include <sys/stat.h>
#include <unistd.h>

namespace android {

ClearFileSource::ClearFileSource(const char *filename)
    : mFd(-1),
      mOffset(0),
      mLength(-1),
      mInitCheck(NO_INIT),
      mName("<null>") {
    if (filename == NULL) {
        ALOGE("Failed to open file: null path");
        return;
    }
    mName = String8::format("FileSource(%s)", filename);
    mFd = open(filename, O_RDONLY | O_CLOEXEC);
    if (mFd < 0) {
        ALOGE("Failed to open file '%s'. (%s)", filename, strerror(errno));
        mInitCheck = -errno;
        return;
    }
    init(0, INT64_MAX, /* wholeFile */ true);
}

ClearFileSource::ClearFileSource(int fd, int64_t offset, int64_t length)
    : mFd(fd),
      mOffset(offset),
      mLength(length),
      mInitCheck(NO_INIT),
      mName("<null>") {
    mName = String8::format("FileSource(fd(%d), %lld, %lld)", fd, (long long)offset,
                            (long long)length);
    if (mFd < 0) {
        ALOGE("FileSource: invalid descriptor %d", fd);
        mInitCheck = BAD_VALUE;
        return;
    }
    init(offset, length, /* wholeFile */ false);
}

void ClearFileSource::init(int64_t offset, int64_t length, bool wholeFile) {
    struct stat st;
    if (fstat(mFd, &st) != 0) {
        ALOGE("%s: fstat failed (%s)", mName.c_str(), strerror(errno));
        mInitCheck = -errno;
        return;
    }
    if (S_ISDIR(st.st_mode)) {
        ALOGE("%s: is a directory", mName.c_str());
        mInitCheck = BAD_VALUE;
        return;
    }
    if (!S_ISREG(st.st_mode)) {
        // Pipes and devices cannot be read at random offsets.
        ALOGE("%s: not a regular file", mName.c_str());
        mInitCheck = ERROR_UNSUPPORTED;
        return;
    }
    const int64_t fileSize = st.st_size;
    // As on the platform, a range that does not fit is cut down to the part
    // of the file it covers, with a warning: a negative offset or length
    // counts as 0, and a range past the end stops at the end.
    int64_t fitOffset = offset < 0 ? 0 : offset;
    int64_t fitLength = length < 0 ? 0 : length;
    if (fitLength > INT64_MAX - fitOffset) {
        fitLength = INT64_MAX - fitOffset;
    }
    if (fitOffset > fileSize) {
        fitOffset = fileSize;
        fitLength = 0;
    }
    if (fitOffset + fitLength > fileSize) {
        fitLength = fileSize - fitOffset;
    }
    if (!wholeFile && (fitOffset != offset || fitLength != length)) {
        ALOGW("%s: offset/length adjusted from %lld/%lld to %lld/%lld in a file of %lld bytes",
              mName.c_str(), (long long)offset, (long long)length, (long long)fitOffset,
              (long long)fitLength, (long long)fileSize);
    }
    offset = fitOffset;
    length = fitLength;
    mOffset = offset;
    mLength = length;
    mInitCheck = OK;
}

ClearFileSource::~ClearFileSource() {
    if (mFd >= 0) {
        ::close(mFd);
        mFd = -1;
    }
}

status_t ClearFileSource::initCheck() const {
    return mInitCheck;
}

ssize_t ClearFileSource::readAt(off64_t offset, void *data, size_t size) {
    if (mInitCheck != OK) {
        return NO_INIT;
    }
    Mutex::Autolock autoLock(mLock);
    if (offset < 0) {
        return UNKNOWN_ERROR;
    }
    if (offset >= mLength) {
        return 0;
    }
    const int64_t numAvailable = mLength - offset;
    if ((int64_t)size > numAvailable) {
        size = numAvailable;
    }
    size_t done = 0;
    while (done < size) {
        ssize_t n = pread(mFd, (uint8_t *)data + done, size - done, mOffset + offset + done);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            ALOGE("%s: read at %lld failed (%s)", mName.c_str(), (long long)offset,
                  strerror(errno));
            return done > 0 ? (ssize_t)done : (ssize_t)-errno;
        }
        if (n == 0) {
            break;  // the file shrank under us
        }
        done += n;
    }
    return done;
}

status_t ClearFileSource::getSize(off64_t *size) {
    if (mInitCheck != OK) {
        return NO_INIT;
    }
    *size = mLength;
    return OK;
}

// Big-endian helpers of the DataSource base class.

bool DataSourceBase::getUInt16(off64_t offset, uint16_t *x) {
    uint8_t b[2];
    if (readAt(offset, b, 2) != 2) {
        return false;
    }
    *x = (uint16_t)((b[0] << 8) | b[1]);
    return true;
}

bool DataSourceBase::getUInt24(off64_t offset, uint32_t *x) {
    uint8_t b[3];
    if (readAt(offset, b, 3) != 3) {
        return false;
    }
    *x = ((uint32_t)b[0] << 16) | ((uint32_t)b[1] << 8) | b[2];
    return true;
}

bool DataSourceBase::getUInt32(off64_t offset, uint32_t *x) {
    uint8_t b[4];
    if (readAt(offset, b, 4) != 4) {
        return false;
    }
    *x = ((uint32_t)b[0] << 24) | ((uint32_t)b[1] << 16) | ((uint32_t)b[2] << 8) | b[3];
    return true;
}

bool DataSourceBase::getUInt64(off64_t offset, uint64_t *x) {
    uint32_t hi, lo;
    if (!getUInt32(offset, &hi) || !getUInt32(offset + 4, &lo)) {
        return false;
    }
    *x = ((uint64_t)hi << 32) | lo;
    return true;
}

status_t DataSourceBase::getSize(off64_t *size) {
    *size = 0;
    return ERROR_UNSUPPORTED;
}

}  // namespace android
