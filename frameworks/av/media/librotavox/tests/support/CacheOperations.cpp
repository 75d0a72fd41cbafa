#include "CacheOperations.h"

#include <algorithm>
#include <vector>

#include <media/stagefright/MediaBuffer.h>

#include "ScratchInspectors.h"

namespace android {
namespace testing {
MediaBuffer* makeTimedBuffer(int64_t timeUs, size_t samples) {
    MediaBuffer* buffer = new MediaBuffer(samples * 2);
    int16_t* s = (int16_t*)buffer->data();
    std::fill(s, s + samples, (int16_t)(timeUs / 1000));
    buffer->meta_data().setInt64(kKeyTime, timeUs);
    return buffer;
}

std::string timedBufferIntact(MediaBuffer* buffer, int64_t timeUs) {
    if (buffer == NULL) return "";
    const int16_t* s = (const int16_t*)buffer->data();
    for (size_t i = 0; i < buffer->range_length() / 2; ++i) {
        if (s[i] != (int16_t)(timeUs / 1000)) {
            return "buffer in play (" + std::to_string(timeUs) + " us) overwritten at " +
                   std::to_string(i);
        }
    }
    return "";
}

std::string runCacheOperations(MediaBufferCache* cache, const sp<RotavoxSource>& owner,
                               int sampleRate, int channels, int steps, const Pick& pick,
                               const std::function<bool()>& more) {
    MediaBufferCacheInspector view(cache);
    MediaBuffer* inPlay = NULL;      // kept until the next read, as the stage keeps it
    int64_t inPlayUs = -1;
    int64_t refillNextUs = -1;       // next time of the backward refill in progress
    for (int step = 0; step < steps && (!more || more()); ++step) {
        const std::vector<int64_t> times = view.times();
        const int op = (int)pick(0, 10);
        const size_t frames = (size_t)pick(1, 4096);
        const bool appendAborts = !times.empty() && view.continuousIndex() < 0;
        const char* what = "";
        int64_t stamped = -1;
        switch (op) {
            case 0: case 1: {  // the decoder runs on at the tail, or repeats
                if (appendAborts) break;
                const int64_t endUs = times.empty() ? 0 : times.back();
                const int64_t t = endUs + pick(0, 400000);
                MediaBuffer* b = makeTimedBuffer(t, frames * channels);
                cache->append(b, stamped);
                b->release();
                if (stamped != t) return "step " + std::to_string(step) + ": stamped time differs";
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
                    t = std::max<int64_t>(0, times[cont] - pick(1, 2000000));
                }
                MediaBuffer* b = makeTimedBuffer(t, frames * channels);
                cache->append(b, stamped);
                b->release();
                refillNextUs = t + (int64_t)frames * 1000000 / sampleRate;
                what = "append earlier";
                break;
            }
            case 3: case 4:
                cache->read(&inPlay, pick(0, 1) != 0);
                if (inPlay != NULL && !inPlay->meta_data().findInt64(kKeyTime, &inPlayUs)) {
                    return "step " + std::to_string(step) + ": buffer in play without a time";
                }
                what = "read";
                break;
            case 5:
                if (pick(0, 1)) owner->forward(0); else owner->rewind(0);
                what = "direction";
                break;
            case 6:
                cache->setNextReadPosUs(pick(-1000000, 60000000));
                what = "seek";
                break;
            case 7: {
                const int64_t t = pick(-1000, 60000000);
                switch (pick(0, 2)) {
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
                const size_t bytes = frames * channels * 2;
                MediaBuffer* b = cache->acquireBuffer((int)bytes, 0);
                if (b == NULL || b->size() < bytes) return "step " + std::to_string(step) + ": short buffer";
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
        std::string broken = view.checkInvariants() + timedBufferIntact(inPlay, inPlayUs);
        if (!cache->isReadBufferInvalid() && view.readIndex() < 0) {
            broken += "valid reader outside the list; ";
        }
        if (view.activeCount() > 0 && view.continuousIndex() >= 0) {
            const std::vector<int64_t> now = view.times();
            if (cache->getCacheEndTimeUs() != now.back()) broken += "end bound; ";
            if (cache->getCacheStartTimeUs() != now[view.continuousIndex()]) {
                broken += "start bound; ";
            }
        }
        if (!broken.empty()) {
            return "step " + std::to_string(step) + " (" + what + "): " + broken;
        }
    }
    return "";
}

}  // namespace testing
}  // namespace android
