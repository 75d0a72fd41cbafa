#pragma once

#include <string>

namespace rotavox {

// The floor every engine figure is compared with: FFmpeg decoding the audio
// track of a file on one thread, demuxing included, nothing else (no sample
// format conversion, no copies beyond the decoder's own).
class DecodeFloor {
public:
    struct Result {
        double cpuS = 0;     // CPU time of the decoding thread
        double mediaS = 0;   // audio decoded, by its sample count
        long frames = 0;     // samples per channel
        std::string codec;
        std::string error;   // empty on success
    };

    static Result measure(const std::string& path);
};

}  // namespace rotavox
