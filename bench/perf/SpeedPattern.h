#pragma once

#include <stdint.h>

#include <random>
#include <string>
#include <vector>

namespace rotavox {

// How a benchmark moves the record: a speed that is a function of time, or
// normal speed with a jump to a random place every few seconds.  The driver
// samples it every few milliseconds and calls the player's public speed and
// seek operations the way an application's scratch gesture would.
class SpeedPattern {
public:
    enum Kind { kConstant, kSine, kRandomSeeks };

    // "1x", "-1x", "10x", "-10x", "sine4" (a +-4x sine at 2 Hz), "sine10"
    // (+-10x at 3 Hz), "seeks" (1x with a random seek every 2 s).  False for
    // any other name.
    static bool byName(const std::string& name, SpeedPattern* pattern);
    static std::vector<std::string> names();

    const std::string& name() const { return mName; }
    Kind kind() const { return mKind; }

    // Where the run starts, given the track length: near the end it moves
    // away from, or in the middle.
    int64_t startPositionMs(int64_t durationMs) const;

    // Signed thousandths of normal speed at |timeS| into the run.
    int speedPermilleAt(double timeS) const;

    // Media seconds the pattern passes over per second of output (the mean
    // absolute speed).
    double meanAbsSpeed() const;

    double seekIntervalS() const { return mSeekIntervalS; }

private:
    std::string mName;
    Kind mKind = kConstant;
    int mPermille = 1000;    // constant speed, or the sine's amplitude
    double mFrequencyHz = 0;
    double mSeekIntervalS = 0;
};

}  // namespace rotavox
