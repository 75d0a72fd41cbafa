#pragma once

// A DataSource over bytes held in memory: how a fuzzer hands arbitrary input
// to the extractor without a file.

#include <stdint.h>

#include <vector>

#include <media/DataSource.h>

namespace android {

class MemoryDataSource : public DataSource {
public:
    MemoryDataSource(const uint8_t* data, size_t sizeBytes);

    status_t initCheck() const override;
    ssize_t readAt(off64_t offset, void* data, size_t sizeBytes) override;
    status_t getSize(off64_t* sizeBytes) override;

private:
    const std::vector<uint8_t> mBytes;
};

}  // namespace android
