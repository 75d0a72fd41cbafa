#include "MemoryDataSource.h"

#include <string.h>

#include <algorithm>

#include <media/stagefright/MediaErrors.h>

namespace android {

MemoryDataSource::MemoryDataSource(const uint8_t* data, size_t sizeBytes)
    : mBytes(data, data + sizeBytes) {}

status_t MemoryDataSource::initCheck() const {
    return OK;
}

ssize_t MemoryDataSource::readAt(off64_t offset, void* data, size_t sizeBytes) {
    if (offset < 0) {
        return ERROR_IO;
    }
    if ((uint64_t)offset >= mBytes.size()) {
        return 0;
    }
    const size_t n = std::min(sizeBytes, mBytes.size() - (size_t)offset);
    memcpy(data, mBytes.data() + offset, n);
    return n;
}

status_t MemoryDataSource::getSize(off64_t* sizeBytes) {
    *sizeBytes = mBytes.size();
    return OK;
}

}  // namespace android
