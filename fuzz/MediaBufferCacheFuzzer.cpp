// Arbitrary sequences of the operations the scratch source makes on its PCM
// cache, with the cache's structural invariants checked after every step:
// iterators inside the list, the reader never in front of the continuous
// stretch, the stretch ascending in time, every byte accounted for, no
// buffer owned twice, and the cached bounds matching the list.
//
// Operations whose preconditions the cache aborts on by contract (an append
// after a trim has taken the whole stretch; an earlier buffer while playing
// backward with no reader and no pending target) are skipped: the source
// never makes them, and the abort is the cache's documented answer.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <utility>
#include <string>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include <media/stagefright/MediaBuffer.h>

#include "LogCapture.h"
#include "RotavoxSource.h"
#include "ScratchInspectors.h"
#include "SyntheticPcmSource.h"

using namespace android;

namespace {

void fail(int step, const char* what, const std::string& detail) {
    fprintf(stderr, "MediaBufferCacheFuzzer: step %d (%s): %s\n", step, what, detail.c_str());
    abort();
}

MediaBuffer* makeBuffer(int64_t timeUs, size_t bytes) {
    MediaBuffer* buffer = new MediaBuffer(bytes);
    memset(buffer->data(), (int)(timeUs / 1000) & 0xff, bytes);
    buffer->meta_data().setInt64(kKeyTime, timeUs);
    return buffer;
}

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
    MediaBufferCacheInspector view(cache);
    const size_t frameBytes = config.channelCount * 2;

    int64_t refillNextUs = -1;  // next time of the backward refill in progress
    for (int step = 0; in.remaining_bytes() > 0 && step < 2000; ++step) {
        const std::vector<int64_t> times = view.times();
        const uint8_t op = in.ConsumeIntegralInRange<uint8_t>(0, 10);
        const size_t bytes = frameBytes * in.ConsumeIntegralInRange<size_t>(1, 4096);
        const bool appendAborts = !times.empty() && view.continuousIndex() < 0;
        const char* what = "";
        int64_t stamped = -1;
        switch (op) {
            case 0: case 1: {  // the decoder runs on at the tail, or repeats
                if (appendAborts) break;
                const int64_t endUs = times.empty() ? 0 : times.back();
                const int64_t t = endUs + in.ConsumeIntegralInRange<int64_t>(0, 400000);
                MediaBuffer* b = makeBuffer(t, bytes);
                cache->append(b, stamped);
                b->release();
                if (stamped != t) fail(step, "append", "stamped time differs");
                what = "append later";
                break;
            }
            case 2: {  // a backward refill, one ascending run at a time
                if (times.empty() || appendAborts) break;
                if (!owner->isForward() && cache->isReadBufferInvalid() &&
                        view.readPosUs() % MediaBufferCache::kCacheSeekGridUs != 0) {
                    break;
                }
                const int cont = view.continuousIndex();
                int64_t t;
                if (cont > 0) {
                    if (refillNextUs < 0 || refillNextUs >= times[cont]) break;
                    t = refillNextUs;
                } else {
                    t = std::max<int64_t>(
                            0, times[cont] - in.ConsumeIntegralInRange<int64_t>(1, 2000000));
                }
                MediaBuffer* b = makeBuffer(t, bytes);
                cache->append(b, stamped);
                b->release();
                refillNextUs = t + (int64_t)(bytes / frameBytes) * 1000000 / config.sampleRate;
                what = "append earlier";
                break;
            }
            case 3: case 4: {
                MediaBuffer* b = NULL;
                cache->read(&b, in.ConsumeBool());
                if (b != NULL) {
                    int64_t t;
                    if (!b->meta_data().findInt64(kKeyTime, &t)) fail(step, "read", "no time");
                }
                what = "read";
                break;
            }
            case 5:
                if (in.ConsumeBool()) owner->forward(0); else owner->rewind(0);
                what = "direction";
                break;
            case 6:
                cache->setNextReadPosUs(in.ConsumeIntegralInRange<int64_t>(-1000000, 60000000));
                what = "seek";
                break;
            case 7: {
                const int64_t t = in.ConsumeIntegralInRange<int64_t>(-1000, 60000000);
                switch (in.ConsumeIntegralInRange(0, 2)) {
                    case 0: cache->releaseAll(); refillNextUs = -1; break;
                    case 1: cache->releaseFromStart(t); break;
                    case 2:
                        // Callers never trim past the start of the stretch.
                        if (!times.empty() && view.continuousIndex() >= 0 &&
                                t > times[view.continuousIndex()]) {
                            cache->releaseToEnd(t);
                        }
                        break;
                }
                what = "trim";
                break;
            }
            case 8: {
                MediaBuffer* b = cache->acquireBuffer((int)bytes, 0);
                if (b == NULL || b->size() < bytes) fail(step, "acquire", "short buffer");
                cache->releaseBuffer(b);
                what = "acquire+release";
                break;
            }
            case 9:
                cache->updateReadPosition();
                what = "update read position";
                break;
            case 10:
                cache->setPcmFormat(AUDIO_FORMAT_PCM_16_BIT);
                what = "format";
                break;
        }
        const std::string broken = view.checkInvariants();
        if (!broken.empty()) fail(step, what, broken);
        if (!cache->isReadBufferInvalid() && view.readIndex() < 0) {
            fail(step, what, "valid reader outside the list");
        }
        if (view.activeCount() > 0 && view.continuousIndex() >= 0) {
            const std::vector<int64_t> now = view.times();
            if (cache->getCacheEndTimeUs() != now.back()) fail(step, what, "end bound");
            if (cache->getCacheStartTimeUs() != now[view.continuousIndex()]) {
                fail(step, what, "start bound");
            }
        }
    }
    delete cache;
    return 0;
}
