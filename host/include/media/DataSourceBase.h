/*
 * Host stand-in for the platform's media/DataSourceBase.h (API 29): the
 * random-access byte source under DataSource.
 */

#ifndef DATA_SOURCE_BASE_H_
#define DATA_SOURCE_BASE_H_

#include <sys/types.h>
#include <stdint.h>

#include <utils/Errors.h>

namespace android {

class String8;

class DataSourceBase {
public:
    enum Flags {
        kWantsPrefetching      = 1,
        kStreamedFromLocalHost = 2,
        kIsCachingDataSource   = 4,
        kIsHTTPBasedSource     = 8,
        kIsLocalFileSource     = 16,
    };

    DataSourceBase() {}

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

    virtual void close() {};

protected:
    virtual ~DataSourceBase() {}

private:
    DataSourceBase(const DataSourceBase &);
    DataSourceBase &operator=(const DataSourceBase &);
};

}  // namespace android

#endif  // DATA_SOURCE_BASE_H_
