#include "PlayerDriver.h"

#include <stdlib.h>

#include <utils/Errors.h>

#include "Rotavox.h"

using namespace android;

namespace rotavox {

namespace {

// Below this a 16-bit block is taken as silence (dither, codec noise).
constexpr int kAudibleLevel = 64;

}  // namespace

PlayerDriver::PlayerDriver(std::string path) : mPath(std::move(path)) {
    mSinkOptions.sink = "null";
    if (const char* period = getenv("ROTAVOX_PERF_PERIOD_FRAMES")) mSinkOptions.periodFrames = atoi(period);
}

PlayerDriver::~PlayerDriver() {
    close();
}

bool PlayerDriver::open(std::string* error) {
    HostAudioOptions options = mSinkOptions;
    options.periodHook = [this](const HostAudioPeriod& period) { onPeriod(period); };
    // The track is created during prepare, under these options.
    HostAudioOptionsScope scope(options);
    mPlayer.reset(new Rotavox);
    mSetDataSourceAt = Clock::now();
    status_t err = mPlayer->setDataSource(mPath.c_str());
    mSetDataSourceDoneAt = Clock::now();
    if (err != OK) {
        *error = "setDataSource(" + mPath + ") failed: " + std::to_string(err);
        return false;
    }
    err = mPlayer->prepare();
    mPrepareDoneAt = Clock::now();
    if (err != OK) {
        *error = "prepare(" + mPath + ") failed: " + std::to_string(err);
        return false;
    }
    mPlayer->getDuration(&mDurationUs);
    return true;
}

void PlayerDriver::close() {
    if (!mPlayer) return;
    mPlayer->pause();
    mPlayer->reset();
    mPlayer.reset();
}

void PlayerDriver::setSpeed(int permille) {
    if (permille >= 0) {
        mPlayer->forward(permille);
    } else {
        mPlayer->rewind(-permille);
    }
}

void PlayerDriver::seek(int64_t positionMs) {
    mPlayer->setPosition(positionMs);
}

void PlayerDriver::armAudible(int64_t targetUs) {
    std::lock_guard<std::mutex> l(mLock);
    mArmed = true;
    mAudible = false;
    mTargetUs = targetUs;
}

bool PlayerDriver::waitAudible(std::chrono::milliseconds timeout, Clock::time_point* at) {
    std::unique_lock<std::mutex> l(mLock);
    if (!mCond.wait_for(l, timeout, [this] { return mAudible; })) {
        mArmed = false;
        return false;
    }
    *at = mAudibleAt;
    return true;
}

PlayerDriver::Totals PlayerDriver::totals() {
    std::lock_guard<std::mutex> l(mLock);
    return mTotals;
}

void PlayerDriver::recordJumps(bool on) {
    std::lock_guard<std::mutex> l(mLock);
    mRecordJumps = on;
    mHavePrevious = false;
}

std::vector<PlayerDriver::PeriodJump> PlayerDriver::jumps() {
    std::lock_guard<std::mutex> l(mLock);
    return mJumps;
}

void PlayerDriver::onPeriod(const HostAudioPeriod& period) {
    const Clock::time_point now = Clock::now();
    {
        std::lock_guard<std::mutex> l(mLock);
        mTotals.deliveredFrames = period.deliveredFrames;
        mTotals.streamFrames = period.streamFrames;
        // The engine plays 16-bit PCM with one or two channels.
        const int16_t* samples = static_cast<const int16_t*>(period.data);
        const size_t count = period.writtenFrames * mChannels;
        if (mArmed && count > 0) {
            bool loud = false;
            for (size_t i = 0; i < count && !loud; ++i) loud = abs(samples[i]) >= kAudibleLevel;
            if (loud) {
                // The position moves off the seek target only when a cache
                // buffer at the new place is taken, so a block that still
                // drains what was read before the seek does not count.
                const int64_t positionUs = mTargetUs < 0 ? -1 : mPlayer->getPosition();
                if (mTargetUs < 0 || (positionUs != mTargetUs && positionUs >= mTargetUs - 500000 &&
                                      positionUs <= mTargetUs + 1500000)) {
                    mArmed = false;
                    mAudible = true;
                    mAudibleAt = now;
                    mCond.notify_all();
                }
            }
        }
        if (mRecordJumps) {
            if (period.writtenFrames == 0) {
                mHavePrevious = false;
            } else {
                int maxJump = 0;
                for (size_t i = 0; i < count; ++i) {
                    const int c = (int)(i % mChannels);
                    if (i >= (size_t)mChannels || mHavePrevious) {
                        const int before = i >= (size_t)mChannels ? samples[i - mChannels] : mPrevious[c];
                        const int jump = abs(samples[i] - before);
                        if (jump > maxJump) maxJump = jump;
                    }
                }
                for (int c = 0; c < mChannels; ++c) mPrevious[c] = samples[count - mChannels + c];
                mHavePrevious = true;
                mJumps.push_back({period.streamFrames, maxJump});
            }
        }
    }
    if (mAction) mAction(*this, period);
}

}  // namespace rotavox
