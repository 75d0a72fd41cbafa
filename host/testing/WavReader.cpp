#include "WavReader.h"

#include <string.h>

#include <sndfile.h>

namespace android {
namespace testing {

std::vector<int16_t> Wav::pcm16() const {
    std::vector<int16_t> pcm(bytes.size() / 2);
    if (!pcm.empty()) memcpy(pcm.data(), bytes.data(), pcm.size() * 2);
    return pcm;
}

Wav readWav(const std::string& path) {
    Wav wav;
    SF_INFO info = {};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
    if (f == nullptr) {
        wav.error = path + ": " + sf_strerror(nullptr);
        return wav;
    }
    wav.channels = info.channels;
    wav.sampleRate = info.samplerate;
    wav.sampleFormat = info.format & SF_FORMAT_SUBMASK;
    wav.frames = info.frames;
    uint8_t chunk[65536];
    sf_count_t n;
    while ((n = sf_read_raw(f, chunk, sizeof(chunk))) > 0) {
        wav.bytes.insert(wav.bytes.end(), chunk, chunk + n);
    }
    sf_close(f);
    wav.ok = true;
    return wav;
}

}  // namespace testing
}  // namespace android
