#pragma once

#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <sndfile.h>

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
    std::string outPath;           // WAV output; empty: the sink
    std::string sink;              // "auto", "sdl", "null"; empty: the property
    bool freewheel = false;        // render as fast as the engine delivers
    bool progress = false;         // live progress line on stderr
};

struct PositionSample {
    int64_t outputFrames;  // rendered frames when the sample was taken
    int64_t positionUs;    // the player's position then
};

struct AppliedOp {
    int64_t outputFrames;
    std::string label;  // the operation as written, e.g. "seek 500"
    std::string note;   // what came of it when that was not the plain effect
    int speed = 0;      // permille in force afterwards, 0 while paused
};

struct RenderResult {
    uint32_t sampleRate = 0;
    int64_t durationUs = -1;
    int channels = 0;
    int64_t framesWritten = 0;  // output frames kept (the WAV's length)
    int64_t underrunFrames = 0;
    int64_t stalledCallbacks = 0;
    int64_t finalPositionUs = -1;
    bool endOfMusic = false;  // the run stopped where the file's audio ends
    std::vector<PositionSample> positions;
    std::vector<AppliedOp> applied;
    std::string error;  // why the run failed; empty on success
};

// Plays one file through the engine's player under a transport script,
// applying each operation when the rendered output reaches its time.  The
// audio track's period hook holds the track between periods while an
// operation is due, so operations land at the same output frame on every
// freewheeling run.  Like an application, it repeats the current speed at
// least every quarter second of output while playing.
class Renderer {
public:
    bool run(const RenderOptions& options, RenderResult* result);

private:
    struct Step {
        double timeS;
        bool keepAlive;  // a repeat of the current speed, not a script step
        TransportOp op;
    };

    void onPeriod(const android::HostAudioPeriod& period);
    bool probe(const std::string& file, RenderResult* result);
    void apply(const TransportOp& op, bool keepAlive, RenderResult* result);
    void showProgress(bool force);
    void waitForDecoders();
    bool openOutput(const std::string& path, RenderResult* result);
    void closeOutput(int64_t keepFrames);

    android::Rotavox* mPlayer = nullptr;
    uint32_t mRate = 0;
    int mChannels = 0;
    std::chrono::steady_clock::time_point mLastProgressAt;  // main thread only
    // Offline renders wait for the engine's decoder before each period, so
    // that a reader faster than real time never meets the cache's tail.
    bool mFreewheel = false;
    bool mDecoderWaitGivenUp = false;
    SNDFILE* mOut = nullptr;  // written from the track's thread only

    std::mutex mLock;  // guards everything below
    std::condition_variable mCond;
    int64_t mDeliveredFrames = 0;
    int64_t mStreamFrames = 0;
    int64_t mLastDeliveryStreamFrames = 0;
    int64_t mHoldAtFrames = 0;  // the track waits in its hook from this frame on
    bool mFailed = false;       // the output went silent: the player failed
    int64_t mDurationUs = -1;   // of the file, -1 when unknown
    int64_t mLastPositionUs = -1;
    int64_t mPositionSinceFrames = 0;  // rendered frames when the position last moved
    int64_t mLongestStepUs = 0;        // the largest forward move of the position
    int mSpeed = 1000;                 // the speed last asked for, signed
    bool mEnded = false;
    int64_t mMusicEndFrames = -1;  // where the file's audio ended in the output
    std::chrono::steady_clock::time_point mLastPeriodAt;
    std::vector<PositionSample> mPositions;
};

}  // namespace rotavox
