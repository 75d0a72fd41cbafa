#include "WavReader.h"

#include <string.h>

#include <algorithm>

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
    int sampleBytes = 2;
    switch (wav.sampleFormat) {
        case SF_FORMAT_PCM_S8: case SF_FORMAT_PCM_U8: sampleBytes = 1; break;
        case SF_FORMAT_PCM_24: sampleBytes = 3; break;
        case SF_FORMAT_PCM_32: case SF_FORMAT_FLOAT: sampleBytes = 4; break;
        case SF_FORMAT_DOUBLE: sampleBytes = 8; break;
        default: break;
    }
    // Raw reads come in whole frames.
    const size_t frameBytes = (size_t)sampleBytes * std::max(1, info.channels);
    std::vector<uint8_t> chunk(65536 / frameBytes * frameBytes);
    sf_count_t n;
    while ((n = sf_read_raw(f, chunk.data(), (sf_count_t)chunk.size())) > 0) {
        wav.bytes.insert(wav.bytes.end(), chunk.begin(), chunk.begin() + n);
    }
    sf_close(f);
    wav.ok = true;
    return wav;
}

}  // namespace testing
}  // namespace android
