#pragma once

// A DataSource over bytes held in memory, for the fuzzers (arbitrary input
// without a file) and the extractor's tests (a source that fails on cue).

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include <media/DataSource.h>
#include <media/stagefright/MediaErrors.h>

namespace android {
namespace testing {

class MemoryDataSource : public DataSource {
public:
    // Reads reaching past |failAfter| bytes fail (never when it is < 0).
    explicit MemoryDataSource(std::vector<uint8_t> bytes, off64_t failAfter = -1)
        : mBytes(std::move(bytes)), mFailAfter(failAfter) {}
    MemoryDataSource(const uint8_t* data, size_t sizeBytes)
        : MemoryDataSource(std::vector<uint8_t>(data, data + sizeBytes)) {}

    status_t initCheck() const override { return OK; }
    ssize_t readAt(off64_t offset, void* data, size_t sizeBytes) override {
        if (offset < 0 || (mFailAfter >= 0 && offset + (off64_t)sizeBytes > mFailAfter)) {
            return ERROR_IO;
        }
        if ((uint64_t)offset >= mBytes.size()) return 0;
        const size_t n = std::min(sizeBytes, mBytes.size() - (size_t)offset);
        memcpy(data, mBytes.data() + offset, n);
        return n;
    }
    status_t getSize(off64_t* sizeBytes) override {
        *sizeBytes = mBytes.size();
        return OK;
    }

private:
    const std::vector<uint8_t> mBytes;
    const off64_t mFailAfter;
};

}  // namespace testing
}  // namespace android
