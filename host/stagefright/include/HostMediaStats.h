/*
 * HOST ONLY.  Figures the host extractor and codec keep for tools and
 * benchmarks; nothing on a device has these calls, and engine code must not
 * use them.
 */

#ifndef ANDROID_HOST_MEDIA_STATS_H
#define ANDROID_HOST_MEDIA_STATS_H

#include <stdint.h>

namespace android {

/* PCM frames handed out in this process so far: decoded by every MediaCodec
 * (output buffers given to the client) plus raw PCM read from every
 * NuMediaExtractor's raw tracks. */
int64_t hostMediaDecodedFrames();

}  // namespace android

#endif  // ANDROID_HOST_MEDIA_STATS_H
