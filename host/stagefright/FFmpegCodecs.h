/*
 * The host's table between the platform's mime types and component names and
 * FFmpeg's codecs.  Private to host_stagefright.
 */

#ifndef HOST_FFMPEG_CODECS_H_
#define HOST_FFMPEG_CODECS_H_

#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace android {
namespace ffmpeg {

// The platform mime of a stream; codecs the platform has no name for get
// "<type>/x-ffmpeg-<codec name>".
std::string mimeForCodec(AVMediaType type, AVCodecID id);

// The container mime for getFileFormat.
std::string mimeForContainer(const char *formatName);

bool isDsd(AVCodecID id);

// The FFmpeg codecs that may serve a decoder mime, preferred first; empty
// when there is none.
std::vector<AVCodecID> codecsForMime(const char *mime);

// The codecs a vendor component name stands for; empty for unknown names.
std::vector<AVCodecID> codecsForComponent(const char *name);

// Adds to the count behind hostMediaDecodedFrames().
void countDecodedFrames(int64_t frames);

}  // namespace ffmpeg
}  // namespace android

#endif  // HOST_FFMPEG_CODECS_H_
