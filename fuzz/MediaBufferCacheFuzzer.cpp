// The cache's random-operation run (CacheOperations.h) with the operations
// drawn from the fuzzer's input instead of a seeded generator.

#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <string>
#include <utility>

#include <fuzzer/FuzzedDataProvider.h>

#include "CacheOperations.h"
#include "LogCapture.h"
#include "RotavoxSource.h"
#include "SyntheticPcmSource.h"

using namespace android;

namespace {

// The cache asks its owning source for the format and the direction.  One
// owner per format for the whole run: building one starts a looper thread,
// which would cost more than the operations themselves.
sp<RotavoxSource> ownerFor(const testing::SyntheticPcmConfig& config) {
    static std::map<std::pair<int32_t, int32_t>, sp<RotavoxSource>>* sOwners =
            new std::map<std::pair<int32_t, int32_t>, sp<RotavoxSource>>;
    sp<RotavoxSource>& owner = (*sOwners)[{config.sampleRate, config.channelCount}];
    if (owner == NULL) {
        owner = new RotavoxSource(new testing::SyntheticPcmSource(config), NULL);
    }
    return owner;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The engine's log lines of the last input only: kept lines would read
    // as a leak to the fuzzer and slow every run.
    android::testing::LogCapture log;
    FuzzedDataProvider in(data, size);
    testing::SyntheticPcmConfig config;
    config.sampleRate = in.PickValueInArray({8000, 22050, 44100, 48000, 96000});
    config.channelCount = in.ConsumeIntegralInRange(1, 2);
    sp<RotavoxSource> owner = ownerFor(config);
    owner->forward(0);  // every input starts playing forward
    MediaBufferCache* cache = new MediaBufferCache(owner.get());
    const std::string broken = testing::runCacheOperations(
            cache, owner, config.sampleRate, config.channelCount, 2000,
            [&](int64_t lo, int64_t hi) { return in.ConsumeIntegralInRange<int64_t>(lo, hi); },
            [&] { return in.remaining_bytes() > 0; });
    if (!broken.empty()) {
        fprintf(stderr, "MediaBufferCacheFuzzer: %s\n", broken.c_str());
        abort();
    }
    delete cache;
    return 0;
}
