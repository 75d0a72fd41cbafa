#pragma once

#include <stdint.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <media/HostAudioSink.h>

namespace android {
class Rotavox;
}

namespace rotavox {

// One engine player on a host audio sink, driven only through the player's
// public operations, with what a benchmark needs to see of its output: the
// moment the first audible block reaches the sink, underrun frames, and the
// largest step between neighbouring output samples.
class PlayerDriver {
public:
    using Clock = std::chrono::steady_clock;

    // A period hook of the caller's, run on the track's thread after the
    // driver's own bookkeeping (e.g. to apply speed changes at exact output
    // frames when the sink freewheels).
    using PeriodAction = std::function<void(PlayerDriver&, const android::HostAudioPeriod&)>;

    explicit PlayerDriver(std::string path);
    ~PlayerDriver();

    // Chooses the sink for the track the player creates; call before open().
    // Default: the real-time null sink.
    void useSink(const android::HostAudioOptions& options) { mSinkOptions = options; }
    void setPeriodAction(PeriodAction action) { mAction = std::move(action); }

    // setDataSource and prepare; false (with |error| set) when either fails.
    bool open(std::string* error);
    // Stops the output and tears the player down (the track goes with it).
    void close();

    android::Rotavox& player() { return *mPlayer; }
    // When open() called setDataSource.
    Clock::time_point setDataSourceAt() const { return mSetDataSourceAt; }
    // When setDataSource and prepare returned.
    Clock::time_point setDataSourceDoneAt() const { return mSetDataSourceDoneAt; }
    Clock::time_point prepareDoneAt() const { return mPrepareDoneAt; }
    int64_t durationUs() const { return mDurationUs; }

    // A signed speed the way an application's gesture gives it: forward(p)
    // for p >= 0, rewind(-p) below.
    void setSpeed(int permille);
    void seek(int64_t positionMs);

    // The next period that carries audible sound (and, for a target >= 0,
    // sound read from the cache near that position rather than what was in
    // flight before it) stamps the time; waitAudible() returns it.
    void armAudible(int64_t targetUs);
    bool waitAudible(std::chrono::milliseconds timeout, Clock::time_point* at);

    struct Totals {
        int64_t deliveredFrames = 0;
        int64_t streamFrames = 0;  // delivered plus silence played for underruns
        int64_t underrunFrames() const { return streamFrames - deliveredFrames; }
    };
    Totals totals();

    // Largest absolute difference between neighbouring samples of one
    // channel, per period, with the stream frame the period ended at.
    struct PeriodJump {
        int64_t streamFrames;
        int maxJump;
    };
    void recordJumps(bool on);
    std::vector<PeriodJump> jumps();

private:
    void onPeriod(const android::HostAudioPeriod& period);

    const std::string mPath;
    std::unique_ptr<android::Rotavox> mPlayer;
    android::HostAudioOptions mSinkOptions;
    PeriodAction mAction;
    int64_t mDurationUs = -1;
    Clock::time_point mSetDataSourceAt;
    Clock::time_point mSetDataSourceDoneAt;
    Clock::time_point mPrepareDoneAt;
    const int mChannels = 2;  // the benchmark's tracks are stereo

    std::mutex mLock;  // guards everything below
    std::condition_variable mCond;
    Totals mTotals;
    bool mArmed = false;
    int64_t mTargetUs = -1;
    bool mAudible = false;
    Clock::time_point mAudibleAt;
    bool mRecordJumps = false;
    bool mHavePrevious = false;
    int16_t mPrevious[2] = {0, 0};
    std::vector<PeriodJump> mJumps;
};

}  // namespace rotavox
