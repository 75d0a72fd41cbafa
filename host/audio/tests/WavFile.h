#pragma once

// An independent reader of RIFF/WAVE files for the tests: walks the chunks
// instead of assuming the writer's 44-byte layout.

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

namespace android {
namespace testing {

struct WavFile {
    bool ok = false;
    std::string error;
    uint16_t formatTag = 0;
    uint16_t channels = 0;
    uint32_t sampleRate = 0;
    uint32_t byteRate = 0;
    uint16_t blockAlign = 0;
    uint16_t bitsPerSample = 0;
    uint32_t riffSize = 0;
    uint64_t fileSize = 0;
    std::vector<uint8_t> data;
};

inline uint32_t readLe(const uint8_t* p, int bytes) {
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | p[i];
    return v;
}

inline WavFile readWav(const std::string& path) {
    WavFile wav;
    FILE* f = fopen(path.c_str(), "rb");
    if (f == nullptr) {
        wav.error = "cannot open " + path;
        return wav;
    }
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    size_t n;
    while ((n = fread(chunk, 1, sizeof(chunk), f)) > 0) bytes.insert(bytes.end(), chunk, chunk + n);
    fclose(f);
    wav.fileSize = bytes.size();
    if (bytes.size() < 12 || memcmp(bytes.data(), "RIFF", 4) != 0 ||
            memcmp(bytes.data() + 8, "WAVE", 4) != 0) {
        wav.error = "not a RIFF/WAVE file";
        return wav;
    }
    wav.riffSize = readLe(bytes.data() + 4, 4);
    size_t pos = 12;
    bool haveFmt = false;
    while (pos + 8 <= bytes.size()) {
        uint32_t size = readLe(bytes.data() + pos + 4, 4);
        const uint8_t* body = bytes.data() + pos + 8;
        if (pos + 8 + (uint64_t)size > bytes.size()) {
            wav.error = "chunk runs past the end of the file";
            return wav;
        }
        if (memcmp(bytes.data() + pos, "fmt ", 4) == 0 && size >= 16) {
            wav.formatTag = readLe(body, 2);
            wav.channels = readLe(body + 2, 2);
            wav.sampleRate = readLe(body + 4, 4);
            wav.byteRate = readLe(body + 8, 4);
            wav.blockAlign = readLe(body + 12, 2);
            wav.bitsPerSample = readLe(body + 14, 2);
            haveFmt = true;
        } else if (memcmp(bytes.data() + pos, "data", 4) == 0) {
            wav.data.assign(body, body + size);
            wav.ok = haveFmt;
            if (!haveFmt) wav.error = "data before fmt";
            return wav;
        }
        pos += 8 + size + (size & 1);
    }
    wav.error = "no data chunk";
    return wav;
}

}  // namespace testing
}  // namespace android
