/*
 * Host build of the platform's random-access byte source.
 */

#ifndef DATA_SOURCE_H_
#define DATA_SOURCE_H_

#include <sys/types.h>
#include <stdint.h>

#include <media/stagefright/MediaErrors.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class DataSource : public virtual RefBase {
public:
    enum Flags {
        kWantsPrefetching      = 1,
        kStreamedFromLocalHost = 2,
        kIsCachingDataSource   = 4,
        kIsHTTPBasedSource     = 8,
        kIsLocalFileSource     = 16,
    };

    DataSource() {}

    virtual status_t initCheck() const = 0;

    // Returns the number of bytes read, 0 at the end, or a negative status.
    virtual ssize_t readAt(off64_t offset, void *data, size_t size) = 0;

    // Convenience methods: big-endian reads.
    bool getUInt16(off64_t offset, uint16_t *x);
    bool getUInt24(off64_t offset, uint32_t *x);  // 3 byte int, returned as a 32-bit int
    bool getUInt32(off64_t offset, uint32_t *x);
    bool getUInt64(off64_t offset, uint64_t *x);

    // May return ERROR_UNSUPPORTED.
    virtual status_t getSize(off64_t *size);

    virtual uint32_t flags() {
        return 0;
    }

    virtual String8 toString() {
        return String8("<unspecified>");
    }

    virtual String8 getMIMEType() const {
        return String8("application/octet-stream");
    }

    virtual void close() {}

protected:
    virtual ~DataSource() {}

private:
    DataSource(const DataSource &) = delete;
    DataSource &operator=(const DataSource &) = delete;
};

}  // namespace android

#endif  // DATA_SOURCE_H_
