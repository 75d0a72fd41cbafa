/*
 * HOST ONLY.  What the host ALooper lets tools and tests observe; nothing on
 * a device has these calls, and engine code must not use them.
 */

#ifndef ANDROID_HOST_LOOPER_STATS_H
#define ANDROID_HOST_LOOPER_STATS_H

#include <stdint.h>

#include <chrono>

namespace android {

/* Messages posted to the loopers named |name| (all of them, in this process)
 * that are not yet handled: queued ones plus the one being delivered.  A
 * looper that is idle and has nothing queued counts 0. */
int64_t hostLooperPendingMessages(const char *name);

/* Waits until hostLooperPendingMessages(name) is 0; false when |deadline|
 * passes first. */
bool hostLooperWaitIdle(const char *name, std::chrono::steady_clock::time_point deadline);

}  // namespace android

#endif  // ANDROID_HOST_LOOPER_STATS_H
