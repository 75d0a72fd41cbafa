#pragma once

#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <media/HostAudioSink.h>

#include "TransportScript.h"

namespace android {
class Rotavox;
}

namespace rotavox {

struct RenderOptions {
    std::string file;
    std::vector<TransportOp> ops;  // empty: forward at normal speed to the end
    double durationS = -1;         // < 0: no limit
    std::string outPath;           // WAV output; empty: the configured sink
    bool freewheel = false;        // render as fast as the engine delivers
    bool progress = false;         // live progress line on stderr
};

struct PositionSample {
    int64_t outputFrames;  // rendered frames when the sample was taken
    int64_t positionUs;    // the player's position then
};

struct AppliedOp {
    int64_t outputFrames;
    std::string label;
};

struct RenderResult {
    uint32_t sampleRate = 0;
    int64_t durationUs = -1;
    int channels = 0;
    int64_t framesWritten = 0;
    int64_t underrunFrames = 0;
    int64_t finalPositionUs = -1;
    std::vector<PositionSample> positions;
    std::vector<AppliedOp> applied;
    std::string error;  // why the run could not start; empty on success
};

// Plays one file through the engine's player under a transport script,
// applying each operation when the rendered output reaches its time.  The
// audio track's period hook holds the track between periods while an
// operation is due, so operations land at the same output frame on every
// freewheeling run.
class Renderer {
public:
    bool run(const RenderOptions& options, RenderResult* result);

private:
    void onPeriod(const android::HostAudioPeriod& period);
    bool probe(const std::string& file, RenderResult* result);
    void apply(const TransportOp& op, RenderResult* result);
    void printProgress(const RenderResult& result, bool final);
    void waitForDecoders();

    android::Rotavox* mPlayer = nullptr;
    bool mProgress = false;
    std::chrono::steady_clock::time_point mLastProgressAt;  // main thread only
    // Offline renders wait for the engine's decoder before each period, so
    // that a reader faster than real time never meets the cache's tail.
    bool mFreewheel = false;
    bool mDecoderWaitGivenUp = false;

    std::mutex mLock;  // guards everything below
    std::condition_variable mCond;
    int64_t mDeliveredFrames = 0;
    int64_t mStreamFrames = 0;
    int64_t mLastDeliveryStreamFrames = 0;
    int64_t mHoldAtFrames = 0;  // the track waits in its hook from this frame on
    uint32_t mSampleRate = 0;
    bool mEndOfData = false;
    int64_t mDurationUs = -1;          // of the file, -1 when unknown
    int64_t mLastPositionUs = -1;
    int64_t mPositionSinceFrames = 0;  // rendered frames when the position last moved
    bool mEnded = false;
    bool mHoldingStill = false;  // the last speed asked for was 0 while playing
    // When the track last called its hook: a callback that never comes back
    // while nothing is being decoded is a file that plays as silence.
    std::chrono::steady_clock::time_point mLastPeriodAt;
    std::vector<PositionSample> mPositions;
};

}  // namespace rotavox
