#define LOG_TAG "rotavox-play"

#include "Renderer.h"

#include <stdio.h>
#include <strings.h>

#include <chrono>
#include <cmath>
#include <thread>

#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include "Rotavox.h"
#include "RotavoxSource.h"

using namespace android;

namespace rotavox {

namespace {

int64_t framesAt(double timeS, uint32_t rate) {
    return (int64_t)llround(timeS * rate);
}

}  // namespace

bool Renderer::probe(const std::string& file, RenderResult* result) {
    FILE* f = fopen(file.c_str(), "rb");
    if (f == nullptr) {
        result->error = "cannot open '" + file + "': " + strerror(errno);
        return false;
    }
    fclose(f);

    sp<NuMediaExtractor> extractor = new NuMediaExtractor;
    status_t err = extractor->setDataSource(nullptr, file.c_str(), nullptr);
    if (err != OK) {
        result->error = "'" + file + "' is not a playable media file (status " +
                        std::to_string(err) + ")";
        return false;
    }
    // The player keeps the last audio track; so does the report.
    bool found = false;
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        sp<AMessage> format;
        AString mime;
        if (extractor->getTrackFormat(i, &format, 0) != OK || !format->findString("mime", &mime) ||
            strncasecmp(mime.c_str(), "audio/", 6) != 0) {
            continue;
        }
        int32_t rate = 0, channels = -1;
        int64_t durationUs = -1;
        format->findInt32("sample-rate", &rate);
        if (format->findInt64("durationUs", &durationUs)) result->durationUs = durationUs;
        format->findInt32("channel-count", &channels);
        result->sampleRate = rate;
        result->channels = channels;
        found = true;
    }
    if (!found) {
        result->error = "'" + file + "' has no audio track";
        return false;
    }
    if (result->channels < 1 || result->channels > 2) {
        result->error = "'" + file + "' has " + std::to_string(result->channels) +
                        " channels; only mono and stereo are played";
        return false;
    }
    if (result->sampleRate <= 0) {
        result->error = "'" + file + "' does not tell its sample rate";
        return false;
    }
    // The audio output takes up to 192 kHz; above it the player would play
    // without a track and nothing would ever be rendered.
    if (result->sampleRate > 192000) {
        result->error = "'" + file + "' runs at " + std::to_string(result->sampleRate) +
                        " Hz; the audio output takes at most 192000 Hz";
        return false;
    }
    return true;
}

// A freewheeling reader is many times faster than real time, faster than the
// decoder behind it: at the tail of the cache the source hands out its last
// buffer again, as it must for a late decoder on a real device, and the
// render would depend on scheduling.  Waiting here for the decode chains to
// finish, and for a seek to be carried out, makes every freewheeling render
// the one a fast enough machine plays.
// The engine has nothing to wait on, so this polls.
constexpr std::chrono::seconds kStallTimeout(3);

void Renderer::waitForDecoders() {
    if (!mFreewheel || mDecoderWaitGivenUp) return;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (android::RotavoxSource::pendingCacheWork() > 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            fprintf(stderr, "\rrotavox-play: the decoder is still busy after 10 s; "
                            "rendering on without waiting for it\n");
            mDecoderWaitGivenUp = true;
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void Renderer::onPeriod(const HostAudioPeriod& period) {
    std::unique_lock<std::mutex> l(mLock);
    mLastPeriodAt = std::chrono::steady_clock::now();
    mDeliveredFrames = period.deliveredFrames;
    mStreamFrames = period.streamFrames;
    mSampleRate = period.sampleRate;
    const int64_t positionUs = mPlayer->getPosition();
    if (positionUs != mLastPositionUs) {
        mLastPositionUs = positionUs;
        mPositionSinceFrames = mDeliveredFrames;
    }
    const int64_t halfSecond = (int64_t)period.sampleRate / 2;
    if (period.writtenFrames > 0) {
        mLastDeliveryStreamFrames = period.streamFrames;
    } else if (period.streamFrames - mLastDeliveryStreamFrames >= halfSecond) {
        // Half a second of empty callbacks: the player failed, and renders
        // nothing more by itself.
        mEndOfData = true;
    }
    // At the end of the file the scratch source keeps handing out its last
    // buffer: the position stands still on it while output goes on.
    // A speed of zero holds the position on purpose, also near the end.
    const bool atEnd = !mHoldingStill && (mDurationUs < 0 || positionUs >= mDurationUs - 1000000);
    if (atEnd && mDeliveredFrames - mPositionSinceFrames >= (mDurationUs < 0 ? 2 : 1) * halfSecond) {
        mEndOfData = true;
    }
    mPositions.push_back({mDeliveredFrames, positionUs});
    mCond.notify_all();
    // Once the end is seen the output holds until the run reacts to it: a
    // freewheeling sink would otherwise go on writing the last buffer for as
    // long as the scheduler keeps the main thread away.
    mCond.wait(l, [&] { return mEnded || (!mEndOfData && mDeliveredFrames < mHoldAtFrames); });
    if (!mEnded) {
        l.unlock();
        waitForDecoders();
    }
}

void Renderer::apply(const TransportOp& op, RenderResult* result) {
    status_t err = OK;
    switch (op.kind) {
        case TransportOp::kForward: err = mPlayer->forward((int)op.arg); break;
        case TransportOp::kRewind: err = mPlayer->rewind((int)op.arg); break;
        case TransportOp::kRate: err = mPlayer->setPlaybackRatePermille((int)op.arg); break;
        case TransportOp::kSeek: err = mPlayer->setPosition(op.arg); break;
        case TransportOp::kPause: err = mPlayer->pause(); break;
        case TransportOp::kStop: break;
    }
    int64_t at;
    {
        std::lock_guard<std::mutex> l(mLock);
        at = mDeliveredFrames;
        if (op.kind == TransportOp::kForward || op.kind == TransportOp::kRewind) {
            mHoldingStill = op.arg == 0;
        }
    }
    result->applied.push_back({at, op.describe()});
    if (err != OK) {
        fprintf(stderr, "\rrotavox-play: %s: status %d\n", op.describe().c_str(), err);
    }
}

void Renderer::printProgress(const RenderResult& result, bool final) {
    if (!mProgress) return;
    // A freewheeling run wakes this loop on every period: ten lines a second
    // are what a reader can follow.
    const auto now = std::chrono::steady_clock::now();
    if (!final && now - mLastProgressAt < std::chrono::milliseconds(100)) return;
    mLastProgressAt = now;
    int64_t delivered;
    {
        std::lock_guard<std::mutex> l(mLock);
        delivered = mDeliveredFrames;
    }
    fprintf(stderr, "\r  output %8.2f s   position %8.3f s   %s", 
            result.sampleRate ? (double)delivered / result.sampleRate : 0.0,
            mPlayer->getPosition() / 1e6,
            mPlayer->isPlaying() ? "playing" : "paused ");
    if (final) fputc('\n', stderr);
    fflush(stderr);
}

bool Renderer::run(const RenderOptions& options, RenderResult* result) {
    if (!probe(options.file, result)) {
        return false;
    }
    mProgress = options.progress;
    mFreewheel = options.freewheel;
    mDurationUs = result->durationUs;
    const uint32_t rate = result->sampleRate;

    HostAudioOptions audio;
    if (!options.outPath.empty()) {
        audio.sink = "wav";
        audio.wavPath = options.outPath;
        audio.freewheel = options.freewheel ? 1 : 0;
    } else if (options.freewheel) {
        // Nothing to hear: render into the null sink on a clock that jumps.
        audio.sink = "null";
        audio.clock = std::make_shared<HostManualClock>();
    }
    audio.periodHook = [this](const HostAudioPeriod& period) { onPeriod(period); };
    HostAudioOptionsScope audioScope(audio);

    Rotavox player;
    mPlayer = &player;
    status_t err = player.setDataSource(options.file.c_str());
    if (err != OK) {
        result->error = "the player cannot open '" + options.file + "' (status " +
                        std::to_string(err) + ")";
        return false;
    }
    err = player.prepare();
    if (err != OK) {
        result->error = "the player cannot prepare '" + options.file + "' (status " +
                        std::to_string(err) + ")";
        return false;
    }

    std::vector<TransportOp> ops = options.ops;
    if (ops.empty()) {
        TransportOp play;
        play.kind = TransportOp::kForward;
        play.arg = 1000;
        ops.push_back(play);
    }
    const int64_t endFrames = options.durationS >= 0 ? framesAt(options.durationS, rate) : INT64_MAX;

    // Where the output stood when it last stopped, for real-time runs that
    // wait out a pause by the wall clock.
    auto stoppedAtWall = std::chrono::steady_clock::now();
    double stoppedAtS = 0;
    bool wasRunning = false;

    {
        std::lock_guard<std::mutex> l(mLock);
        mLastPeriodAt = std::chrono::steady_clock::now();
    }
    std::string stalled;

    size_t next = 0;
    for (;;) {
        const int64_t dueFrames = next < ops.size() ? framesAt(ops[next].timeS, rate) : INT64_MAX;
        const int64_t holdFrames = std::min(dueFrames, endFrames);
        bool reachedHold = false, endOfData = false;
        {
            std::unique_lock<std::mutex> l(mLock);
            mHoldAtFrames = holdFrames;
            mCond.notify_all();
            // Output moves only while the player plays; otherwise the next
            // operation is applied below.
            while (player.isPlaying() && !mEndOfData && mDeliveredFrames < holdFrames) {
                mCond.wait_for(l, std::chrono::milliseconds(100));
                // The callback waits in the engine for data that no decoder
                // is making: a file that opened but does not decode.
                if (std::chrono::steady_clock::now() - mLastPeriodAt > kStallTimeout &&
                        android::RotavoxSource::pendingCacheWork() == 0) {
                    stalled = "no audio has come from '" + options.file + "' for " +
                              std::to_string(kStallTimeout.count()) +
                              " s and nothing is left to decode: it does not decode";
                    break;
                }
                l.unlock();
                printProgress(*result, false);
                l.lock();
            }
            reachedHold = mDeliveredFrames >= holdFrames;
            endOfData = mEndOfData;
            if (wasRunning && (!player.isPlaying() || endOfData)) {
                stoppedAtWall = std::chrono::steady_clock::now();
                stoppedAtS = (double)mDeliveredFrames / rate;
            }
            wasRunning = player.isPlaying() && !endOfData;
        }

        if (!stalled.empty()) {
            break;
        }
        if (reachedHold && holdFrames == endFrames) {
            break;  // --duration reached
        }
        if (next >= ops.size()) {
            if (!reachedHold) break;  // paused or at the end with nothing left to do
            continue;
        }
        if (!reachedHold) {
            // Paused, or out of data: no output will reach the operation's
            // time.  A freewheeling run goes straight on; a real-time run
            // waits for it by the wall clock.
            if (!options.freewheel && ops[next].timeS > stoppedAtS) {
                auto wakeAt = stoppedAtWall + std::chrono::microseconds(
                                                      (int64_t)((ops[next].timeS - stoppedAtS) * 1e6));
                std::unique_lock<std::mutex> l(mLock);
                while (std::chrono::steady_clock::now() < wakeAt) {
                    mCond.wait_until(l, std::min(wakeAt, std::chrono::steady_clock::now() +
                                                                 std::chrono::milliseconds(100)));
                    l.unlock();
                    printProgress(*result, false);
                    l.lock();
                }
            }
        }
        const TransportOp op = ops[next++];
        // An operation may start the output (its first period comes before
        // any hook) or follow a seek still on its way to the cache.
        waitForDecoders();
        apply(op, result);
        {
            std::lock_guard<std::mutex> l(mLock);
            mEndOfData = false;
            mLastDeliveryStreamFrames = mStreamFrames;
            mPositionSinceFrames = mDeliveredFrames;
        }
        if (op.kind == TransportOp::kStop) {
            break;
        }
    }

    // Stop the output while the track still waits in its hook, so that the
    // WAV ends exactly where the run did.
    player.pause();
    {
        std::lock_guard<std::mutex> l(mLock);
        mEnded = true;
        mCond.notify_all();
    }
    printProgress(*result, true);
    result->finalPositionUs = player.getPosition();
    player.reset();  // the track goes: the WAV is complete

    HostAudioStats totals = hostAudioGetTotals();
    result->framesWritten = totals.deliveredFrames;
    result->underrunFrames = totals.underrunFrames;
    {
        std::lock_guard<std::mutex> l(mLock);
        result->positions = mPositions;
    }
    mPlayer = nullptr;
    if (!stalled.empty()) {
        result->error = stalled;
        return false;
    }
    return true;
}

}  // namespace rotavox
