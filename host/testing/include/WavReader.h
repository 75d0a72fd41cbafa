#pragma once

// The tests' one reader of WAV files, through libsndfile: an independent
// check of what the host's WAV sink and the tools write.

#include <stdint.h>

#include <string>
#include <vector>

namespace android {
namespace testing {

struct Wav {
    bool ok = false;
    std::string error;
    int channels = 0;
    int sampleRate = 0;
    int sampleFormat = 0;  // libsndfile's SF_FORMAT_PCM_16, SF_FORMAT_FLOAT, ...
    int64_t frames = 0;
    std::vector<uint8_t> bytes;  // the sample data exactly as stored

    // The samples of a 16-bit file, interleaved.
    std::vector<int16_t> pcm16() const;
};

Wav readWav(const std::string& path);

}  // namespace testing
}  // namespace android
