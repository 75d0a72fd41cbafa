#pragma once

// Arbitrary sequences of the operations the scratch source makes on its PCM
// cache, with the cache's structural invariants checked after every step:
// iterators inside the list, the reader never in front of the continuous
// stretch, the stretch ascending in time, every byte accounted for, no buffer
// owned twice, the cached bounds matching the list, and the buffer in play
// keeping its audio until the next read.  The unit test draws the operations
// from a seeded generator, the fuzzer from its input.
//
// Operations whose preconditions the cache aborts on by contract (an append
// after a trim has taken the whole stretch; an earlier buffer while playing
// backward with no reader and no pending target) are skipped: the source
// never makes them, and the abort is the cache's documented answer.

#include <cstdint>
#include <functional>
#include <string>

#include "RotavoxSource.h"

namespace android {
namespace testing {

// A 16-bit buffer of |samples| samples, every one telling |timeUs| in ms, so
// that audio changed under a reader shows.
MediaBuffer* makeTimedBuffer(int64_t timeUs, size_t samples);
// "" while |buffer| (NULL: none) still holds what makeTimedBuffer gave it for
// |timeUs|, else what changed.  Every sample is looked at, so that memory
// given back under the reader shows under ASan.
std::string timedBufferIntact(MediaBuffer* buffer, int64_t timeUs);

// A number in [lo, hi]; false from |more| ends the run early.
using Pick = std::function<int64_t(int64_t lo, int64_t hi)>;

// Runs up to |steps| operations on |cache|, whose owner |owner| plays 16-bit
// PCM of |channels| channels at |sampleRate|.  Returns "" or, for the first
// broken invariant, the step, the operation and what broke.
std::string runCacheOperations(MediaBufferCache* cache, const sp<RotavoxSource>& owner,
                               int sampleRate, int channels, int steps, const Pick& pick,
                               const std::function<bool()>& more = nullptr);

}  // namespace testing
}  // namespace android
