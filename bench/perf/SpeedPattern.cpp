#include "SpeedPattern.h"

#include <algorithm>
#include <cmath>

namespace rotavox {

bool SpeedPattern::byName(const std::string& name, SpeedPattern* pattern) {
    SpeedPattern p;
    p.mName = name;
    if (name == "1x") {
        p.mPermille = 1000;
    } else if (name == "-1x") {
        p.mPermille = -1000;
    } else if (name == "10x") {
        p.mPermille = 10000;
    } else if (name == "-10x") {
        p.mPermille = -10000;
    } else if (name == "sine4") {
        p.mKind = kSine;
        p.mPermille = 4000;
        p.mFrequencyHz = 2;
    } else if (name == "sine10") {
        p.mKind = kSine;
        p.mPermille = 10000;
        p.mFrequencyHz = 3;
    } else if (name == "seeks") {
        p.mKind = kRandomSeeks;
        p.mPermille = 1000;
        p.mSeekIntervalS = 2;
    } else {
        return false;
    }
    *pattern = p;
    return true;
}

std::vector<std::string> SpeedPattern::names() {
    return {"1x", "-1x", "10x", "-10x", "sine4", "sine10", "seeks"};
}

int64_t SpeedPattern::startPositionMs(int64_t durationMs) const {
    if (mKind == kConstant) {
        // 5 s in from the end it starts from, so the preroll of the first
        // fill is a full one.
        if (mPermille < 0) return std::max<int64_t>(0, durationMs - 5000);
        return std::min<int64_t>(5000, durationMs / 2);
    }
    // Sines swing around where they start; seeks go anywhere.
    return durationMs / 2;
}

int SpeedPattern::speedPermilleAt(double timeS) const {
    if (mKind != kSine) return mPermille;
    return (int)std::lround(mPermille * std::sin(2 * M_PI * mFrequencyHz * timeS));
}

double SpeedPattern::meanAbsSpeed() const {
    if (mKind == kSine) return std::abs(mPermille) / 1000.0 * 2 / M_PI;
    return std::abs(mPermille) / 1000.0;
}

}  // namespace rotavox
