#define LOG_TAG "rotavox-play"

#include "Renderer.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>

#include <HostLooperStats.h>
#include <cutils/properties.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include "Console.h"
#include "Rotavox.h"

using namespace android;

namespace rotavox {

namespace {

// The engine's scratch source serves position changes and decode requests
// on a looper of this name.
const char kSourceLooper[] = "RotavoxSource";
// The player's own limit on speeds.
constexpr int kMaxSpeed = 10000;
// An application repeats its speed at least every 500 ms, or the player
// logs that it heard nothing; this does it twice as often.
constexpr double kKeepAliveS = 0.25;
// The time a file may keep the output waiting while nothing is decoded.
constexpr std::chrono::seconds kStallTimeout(3);

int64_t framesAt(double timeS, uint32_t rate) {
    return (int64_t)llround(timeS * rate);
}

std::string formatTime(int64_t us) {
    if (us < 0) return "--:--";
    char buf[32];
    const double s = us / 1e6;
    const int minutes = (int)(s / 60);
    snprintf(buf, sizeof(buf), "%d:%05.2f", minutes, s - 60 * minutes);
    return buf;
}

std::string seconds(int64_t us) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%.3f s", us / 1e6);
    return buf;
}

// The rate the player gives the source for a speed operation.
int effectiveRate(const TransportOp& op) {
    const int64_t p = op.arg;
    if (op.kind == TransportOp::kRewind) {
        return p > kMaxSpeed ? -kMaxSpeed : p < -kMaxSpeed ? kMaxSpeed : (int)-p;
    }
    return (int)std::clamp<int64_t>(p, -kMaxSpeed, kMaxSpeed);
}

bool isSpeed(const TransportOp& op) {
    return op.kind == TransportOp::kForward || op.kind == TransportOp::kRewind ||
           op.kind == TransportOp::kRate;
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
        result->error = "'" + file + "' is not a playable media file: " + statusName(err);
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

bool Renderer::openOutput(const std::string& path, RenderResult* result) {
    SF_INFO info = {};
    info.samplerate = (int)mRate;
    info.channels = mChannels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    // Read-write, so that the end can be cut off once it is known; a file
    // that is there already would be opened with its own format.
    unlink(path.c_str());
    mOut = sf_open(path.c_str(), SFM_RDWR, &info);
    if (mOut == nullptr) {
        result->error = "cannot write '" + path + "': " + sf_strerror(nullptr);
        return false;
    }
    return true;
}

void Renderer::closeOutput(int64_t keepFrames) {
    if (mOut == nullptr) return;
    sf_count_t frames = keepFrames;
    if (sf_command(mOut, SFC_FILE_TRUNCATE, &frames, sizeof(frames)) != 0) {
        console::error("cannot cut the output at frame %lld: %s", (long long)keepFrames,
                       sf_strerror(mOut));
    }
    sf_close(mOut);
    mOut = nullptr;
}

// A freewheeling reader is many times faster than real time, faster than the
// decoder behind it: at the tail of the cache the source hands out its last
// buffer again, as it must for a late decoder on a real device, and the
// render would depend on scheduling.  Waiting here for the source's looper
// to go quiet (decode chains finished, position changes carried out) makes
// every freewheeling render the one a fast enough machine plays.
void Renderer::waitForDecoders() {
    if (!mFreewheel || mDecoderWaitGivenUp) return;
    if (!hostLooperWaitIdle(kSourceLooper, std::chrono::steady_clock::now() + std::chrono::seconds(10))) {
        console::error("the decoder is still busy after 10 s; rendering on without waiting for it");
        mDecoderWaitGivenUp = true;
    }
}

void Renderer::onPeriod(const HostAudioPeriod& period) {
    if (mOut != nullptr && period.writtenFrames > 0) {
        sf_write_raw(mOut, period.data, (sf_count_t)(period.writtenFrames * mChannels * 2));
    }
    std::unique_lock<std::mutex> l(mLock);
    mLastPeriodAt = std::chrono::steady_clock::now();
    const int64_t periodStart = mDeliveredFrames;
    mDeliveredFrames = period.deliveredFrames;
    mStreamFrames = period.streamFrames;
    const int64_t positionUs = mPlayer->getPosition();
    if (positionUs != mLastPositionUs) {
        const int64_t step = positionUs - mLastPositionUs;
        // Steps of the play position are the decoded buffers; a seek is no step.
        if (mLastPositionUs >= 0 && step > 0 && step < 500000) {
            mLongestStepUs = std::max(mLongestStepUs, step);
        }
        mLastPositionUs = positionUs;
        mPositionSinceFrames = periodStart;
    }
    const int64_t halfSecond = (int64_t)period.sampleRate / 2;
    if (period.writtenFrames > 0) {
        mLastDeliveryStreamFrames = period.streamFrames;
    } else if (period.streamFrames - mLastDeliveryStreamFrames >= halfSecond) {
        // Half a second of empty callbacks: the player failed, and renders
        // nothing more by itself.
        mFailed = true;
    }
    // At the end of the file the scratch source keeps handing out its last
    // buffer: the position stands still on it while output goes on.  It is
    // the end once the position has stood still for longer than what is
    // left of the file takes at this speed; the music ended when that
    // last buffer had been played once.
    if (mSpeed > 0 && mMusicEndFrames < 0) {
        const int64_t leftUs = mDurationUs >= 0 ? std::max<int64_t>(0, mDurationUs - positionUs) : -1;
        const bool lastBuffer = mLongestStepUs > 0 && leftUs >= 0 && leftUs <= mLongestStepUs + 1000;
        const int64_t bufferUs = lastBuffer ? leftUs : mLongestStepUs > 0 ? mLongestStepUs : 500000;
        const int64_t bufferFrames = (int64_t)((double)bufferUs * period.sampleRate / 1e6 * 1000 / mSpeed);
        const int64_t stillFrames = mDeliveredFrames - mPositionSinceFrames;
        // Without a duration (or a buffer length) a longer stand-still is
        // needed before it counts.
        const int64_t needFrames = lastBuffer ? bufferFrames + 2 * (int64_t)period.requestedFrames
                                              : 2 * bufferFrames + halfSecond;
        if ((lastBuffer || mDurationUs < 0 || positionUs >= mDurationUs - 1000000) &&
            stillFrames > needFrames) {
            mMusicEndFrames = std::min(mDeliveredFrames, mPositionSinceFrames + bufferFrames);
        }
    }
    mPositions.push_back({mDeliveredFrames, positionUs});
    mCond.notify_all();
    // Once the end is seen the output holds until the run reacts to it: a
    // freewheeling sink would otherwise go on writing the last buffer for as
    // long as the scheduler keeps the main thread away.
    mCond.wait(l, [&] {
        return mEnded || (!mFailed && mMusicEndFrames < 0 && mDeliveredFrames < mHoldAtFrames);
    });
    if (!mEnded) {
        l.unlock();
        waitForDecoders();
    }
}

void Renderer::apply(const TransportOp& op, bool keepAlive, RenderResult* result) {
    const int64_t beforeUs = mPlayer->getPosition();
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
        if (isSpeed(op)) mSpeed = effectiveRate(op);
        if (!keepAlive) {
            mMusicEndFrames = -1;
            mFailed = false;
            mLastDeliveryStreamFrames = mStreamFrames;
            mPositionSinceFrames = mDeliveredFrames;
        }
    }
    if (keepAlive) return;

    // What came of it, in the words of the player's rules.
    std::string note;
    if (err != OK) {
        note = "failed: " + statusName(err);
    } else if (isSpeed(op) && std::llabs(op.arg) > kMaxSpeed) {
        const int rate = effectiveRate(op);
        note = "clamped to the limit of " + std::to_string(kMaxSpeed) + ": plays at " +
               std::to_string(rate) + (rate < 0 ? " (backward)" : "");
    } else if (op.kind == TransportOp::kSeek) {
        const int64_t targetUs = std::max<int64_t>(0, op.arg) * 1000;
        if (mDurationUs >= 1 && targetUs >= mDurationUs) {
            note = "ignored: at or past the end (" + seconds(mDurationUs) +
                   "); play goes on from " + seconds(beforeUs);
        } else {
            // The source carries out a position change on its looper.
            hostLooperWaitIdle(kSourceLooper, std::chrono::steady_clock::now() + std::chrono::seconds(10));
            const int64_t afterUs = mPlayer->getPosition();
            if (afterUs == beforeUs && targetUs != beforeUs) {
                note = "did not move: within the engine's 300 ms of the position " + seconds(afterUs);
            } else {
                note = "now at " + seconds(afterUs) + ", paused";
            }
        }
    }
    int speedAfter;
    {
        std::lock_guard<std::mutex> l(mLock);
        speedAfter = mPlayer->isPlaying() ? mSpeed : 0;
    }
    result->applied.push_back({at, op.describe(), note, speedAfter});
    const std::string when = seconds(at * 1000000 / std::max<uint32_t>(mRate, 1));
    if (err != OK) {
        console::error("%s  %s: %s", when.c_str(), op.describe().c_str(), note.c_str());
    } else {
        console::info("%s  %s%s%s", when.c_str(), op.describe().c_str(), note.empty() ? "" : ": ",
                      note.c_str());
    }
}

void Renderer::showProgress(bool force) {
    // A freewheeling run wakes this loop on every period: ten lines a second
    // are what a reader can follow.
    const auto now = std::chrono::steady_clock::now();
    if (!force && now - mLastProgressAt < std::chrono::milliseconds(100)) return;
    mLastProgressAt = now;
    int64_t delivered, durationUs;
    int speed;
    {
        std::lock_guard<std::mutex> l(mLock);
        delivered = mDeliveredFrames;
        durationUs = mDurationUs;
        speed = mSpeed;
    }
    const int64_t positionUs = mPlayer->getPosition();
    char line[160];
    snprintf(line, sizeof(line), "%s %s / %s", mPlayer->isPlaying() ? "Playing" : "Paused ",
             formatTime(positionUs).c_str(), formatTime(durationUs).c_str());
    std::string text = line;
    if (durationUs > 0 && positionUs >= 0) {
        snprintf(line, sizeof(line), " (%d%%)", (int)(100 * std::min(positionUs, durationUs) / durationUs));
        text += line;
    }
    snprintf(line, sizeof(line), "  speed %+.3fx  output %s", speed / 1000.0,
             formatTime(delivered * 1000000 / std::max<uint32_t>(mRate, 1)).c_str());
    console::progress(text + line);
}

bool Renderer::run(const RenderOptions& options, RenderResult* result) {
    if (!probe(options.file, result)) {
        return false;
    }
    mFreewheel = options.freewheel;
    mDurationUs = result->durationUs;
    mRate = result->sampleRate;
    mChannels = result->channels;
    const uint32_t rate = mRate;

    // The WAV is written here from the delivered periods, so that it can end
    // where the music does; the track itself plays into the null sink.
    HostAudioOptions audio;
    if (!options.outPath.empty()) {
        if (!openOutput(options.outPath, result)) return false;
        audio.sink = "null";
    } else {
        audio.sink = options.sink;
    }
    if (options.freewheel) {
        // Paced by a clock that jumps: as fast as the engine delivers.
        audio.sink = "null";
        audio.clock = std::make_shared<HostManualClock>();
    }
    std::string askedSink = audio.sink;
    if (askedSink.empty()) {
        char value[PROPERTY_VALUE_MAX];
        property_get("host.audio.sink", value, "auto");
        askedSink = value;
    }
    audio.periodHook = [this](const HostAudioPeriod& period) { onPeriod(period); };
    HostAudioOptionsScope audioScope(audio);

    Rotavox player;
    mPlayer = &player;
    auto fail = [&](const std::string& error) {
        result->error = error;
        mPlayer = nullptr;
        closeOutput(0);
        return false;
    };
    status_t err = player.setDataSource(options.file.c_str());
    if (err != OK) {
        return fail("the player cannot open '" + options.file + "': " + statusName(err));
    }
    err = player.prepare();
    if (err != OK) {
        return fail("the player cannot prepare '" + options.file + "': " + statusName(err));
    }

    if (mFreewheel) {
        // The first play positions the source at 0 (a message to its looper)
        // and starts the track at once: the first reads would race that
        // message.  Asked for here, before the track exists, the position is
        // in place when the first period is read.
        player.setPosition(0);
    }

    std::vector<TransportOp> ops = options.ops;
    if (ops.empty()) {
        TransportOp play;
        play.kind = TransportOp::kForward;
        play.arg = 1000;
        ops.push_back(play);
    }
    const int64_t endFrames = options.durationS >= 0 ? framesAt(options.durationS, rate) : INT64_MAX;
    const int64_t keepAliveFrames = framesAt(kKeepAliveS, rate);

    // Where the output stood when it last stopped, for real-time runs that
    // wait out a pause by the wall clock.
    auto stoppedAtWall = std::chrono::steady_clock::now();
    double stoppedAtS = 0;
    bool wasRunning = false;
    bool sinkChecked = false;
    TransportOp lastSpeed;
    bool haveSpeed = false;
    int64_t lastSpeedCallFrames = 0;

    {
        std::lock_guard<std::mutex> l(mLock);
        mLastPeriodAt = std::chrono::steady_clock::now();
    }
    std::string failure;

    size_t next = 0;
    for (;;) {
        const int64_t dueFrames = next < ops.size() ? framesAt(ops[next].timeS, rate) : INT64_MAX;
        const int64_t keepAliveDue =
                haveSpeed && player.isPlaying() ? lastSpeedCallFrames + keepAliveFrames : INT64_MAX;
        const int64_t holdFrames = std::min({dueFrames, endFrames, keepAliveDue});
        bool reachedHold = false, musicEnded = false, failed = false;
        {
            std::unique_lock<std::mutex> l(mLock);
            mHoldAtFrames = holdFrames;
            mCond.notify_all();
            // Output moves only while the player plays; otherwise the next
            // operation is applied below.
            while (player.isPlaying() && !mFailed && mMusicEndFrames < 0 &&
                   mDeliveredFrames < holdFrames) {
                mCond.wait_for(l, std::chrono::milliseconds(100));
                // The callback waits in the engine for data that no decoder
                // is making: a file that opened but does not decode.
                if (std::chrono::steady_clock::now() - mLastPeriodAt > kStallTimeout &&
                    hostLooperPendingMessages(kSourceLooper) == 0) {
                    failure = "no audio has come from '" + options.file + "' for " +
                              std::to_string(kStallTimeout.count()) +
                              " s and nothing is left to decode: it does not decode";
                    break;
                }
                l.unlock();
                showProgress(false);
                l.lock();
            }
            reachedHold = mDeliveredFrames >= holdFrames;
            musicEnded = mMusicEndFrames >= 0;
            failed = mFailed;
            if (wasRunning && (!player.isPlaying() || musicEnded || failed)) {
                stoppedAtWall = std::chrono::steady_clock::now();
                stoppedAtS = (double)mDeliveredFrames / rate;
            }
            wasRunning = player.isPlaying() && !musicEnded && !failed;
        }

        if (!failure.empty()) break;
        if (musicEnded && next >= ops.size()) break;  // nothing left to do
        if (reachedHold && holdFrames == endFrames) break;  // --duration reached
        if (reachedHold && holdFrames == keepAliveDue && holdFrames < dueFrames) {
            apply(lastSpeed, true, result);
            lastSpeedCallFrames = holdFrames;
            continue;
        }
        if (next >= ops.size()) {
            if (!reachedHold) break;  // paused or failed with nothing left to do
            continue;
        }
        if (!reachedHold && !options.freewheel && ops[next].timeS > stoppedAtS) {
            // Paused, or out of data: no output will reach the operation's
            // time, so a real-time run waits for it by the wall clock.
            auto wakeAt = stoppedAtWall +
                          std::chrono::microseconds((int64_t)((ops[next].timeS - stoppedAtS) * 1e6));
            std::unique_lock<std::mutex> l(mLock);
            while (std::chrono::steady_clock::now() < wakeAt) {
                mCond.wait_until(l, std::min(wakeAt, std::chrono::steady_clock::now() +
                                                             std::chrono::milliseconds(100)));
                l.unlock();
                showProgress(false);
                l.lock();
            }
        }
        const TransportOp op = ops[next++];
        // An operation may start the output (its first period comes before
        // any hook) or follow a seek still on its way to the cache.
        waitForDecoders();
        apply(op, false, result);
        if (isSpeed(op)) {
            lastSpeed = op;
            haveSpeed = true;
            std::lock_guard<std::mutex> l(mLock);
            lastSpeedCallFrames = mDeliveredFrames;
        }
        if (op.kind == TransportOp::kStop) break;
        // A player that found no device plays into the null sink, and the
        // user would hear nothing without being told.
        if (!sinkChecked && player.isPlaying() && options.outPath.empty() && !options.freewheel) {
            sinkChecked = true;
            const std::string used = hostAudioGetTotals().sink;
            if (used == "null" && askedSink != "null") {
                failure = "no audio device could be opened (see the warning above); play with "
                          "--sink null to hear nothing, or render to a file with --out FILE";
                break;
            }
        }
    }

    // Stop the output while the track still waits in its hook, so that the
    // output ends exactly where the run did.
    player.pause();
    {
        std::lock_guard<std::mutex> l(mLock);
        mEnded = true;
        mCond.notify_all();
    }
    showProgress(true);
    console::endProgress();
    result->finalPositionUs = player.getPosition();
    player.reset();  // the track goes: no more periods

    HostAudioStats totals = hostAudioGetTotals();
    result->underrunFrames = totals.underrunFrames;
    result->stalledCallbacks = totals.stalledCallbacks;
    {
        std::lock_guard<std::mutex> l(mLock);
        result->endOfMusic = mMusicEndFrames >= 0;
        result->framesWritten = result->endOfMusic ? mMusicEndFrames : mDeliveredFrames;
        for (const PositionSample& s : mPositions) {
            if (s.outputFrames > result->framesWritten) break;
            result->positions.push_back(s);
        }
    }
    closeOutput(result->framesWritten);
    mPlayer = nullptr;
    if (!failure.empty()) {
        result->error = failure;
        return false;
    }
    return true;
}

}  // namespace rotavox
