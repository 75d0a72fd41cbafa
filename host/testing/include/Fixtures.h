#pragma once

// Test fixtures generated at build time (tests/fixtures/make-fixtures.sh)
// and reference decodes made by the ffmpeg command-line tool, an oracle
// independent of the code under test.

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace android {
namespace testing {

// $ROTAVOX_FIXTURES/<name>; empty when the variable is not set.
inline std::string fixturePath(const std::string& name) {
    const char* dir = getenv("ROTAVOX_FIXTURES");
    if (dir == nullptr || *dir == '\0') {
        return std::string();
    }
    return std::string(dir) + "/" + name;
}

inline bool fixtureExists(const std::string& name) {
    struct stat st;
    const std::string path = fixturePath(name);
    return !path.empty() && stat(path.c_str(), &st) == 0;
}

// Decodes audio stream |audioStream| (0 = first audio stream) of |path| with
// the ffmpeg tool into interleaved raw PCM of |pcmFormat|, one of ffmpeg's
// raw formats: "u8", "s16le", "s24le", "s32le", "f32le"...  |extraArgs| go
// before the output (e.g. "-ss 1.5").  Empty on failure.
inline std::vector<uint8_t> referenceDecode(const std::string& path, const std::string& pcmFormat,
                                            int audioStream = 0,
                                            const std::string& extraArgs = std::string()) {
    std::string quoted = "'";
    for (char c : path) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    quoted += "'";
    const std::string cmd = "ffmpeg -nostdin -hide_banner -loglevel error -i " + quoted +
            " -map 0:a:" + std::to_string(audioStream) + " " + extraArgs + " -f " + pcmFormat +
            " - 2>/dev/null";
    std::vector<uint8_t> out;
    FILE* pipe = popen(cmd.c_str(), "r");
    if (pipe == nullptr) {
        return out;
    }
    uint8_t buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), pipe)) > 0) {
        out.insert(out.end(), buf, buf + n);
    }
    if (pclose(pipe) != 0) {
        out.clear();
    }
    return out;
}

// The best normalised correlation of |a| against |b| shifted by up to
// |maxLag| samples either way: how a lossy decode is compared with the
// reference, which may start a few samples apart.
inline double bestCorrelation(const std::vector<double>& a, const std::vector<double>& b,
                              int maxLag, int* bestLag = nullptr) {
    double best = -2;
    for (int lag = -maxLag; lag <= maxLag; ++lag) {
        double ab = 0, aa = 0, bb = 0;
        for (size_t i = 0; i < a.size(); ++i) {
            const long j = (long)i + lag;
            if (j < 0 || j >= (long)b.size()) continue;
            ab += a[i] * b[j];
            aa += a[i] * a[i];
            bb += b[j] * b[j];
        }
        if (aa == 0 || bb == 0) continue;
        const double c = ab / std::sqrt(aa * bb);
        if (c > best) {
            best = c;
            if (bestLag != nullptr) *bestLag = lag;
        }
    }
    return best;
}

}  // namespace testing
}  // namespace android
