// The host AudioTrack with its null and WAV sinks: what initCheck refuses,
// that delivered audio reaches the file byte for byte, how underruns are
// counted on an injected clock, and the transport's threading rules.

#include <unistd.h>

#include <android/log.h>
#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <media/AudioTrack.h>
#include <media/HostAudioSink.h>

#include "LogCapture.h"
#include "TestSupport.h"
#include "WavReader.h"

#include <sndfile.h>

namespace android {
namespace {

using testing::Gate;
using testing::LogCapture;
using testing::RampSource;
using testing::makeTrack;

constexpr int64_t kNsPerMs = 1000000;

struct InitCase {
    const char* what;
    uint32_t rate;
    audio_format_t format;
    audio_channel_mask_t mask;
    bool withCallback;
    AudioTrack::transfer_type transfer;
    status_t expected;
    const char* logText;
};

TEST(AudioTrackInit, RefusesWhatTheHostCannotPlayWithALogLine) {
    HostAudioOptions options;
    options.sink = "null";
    HostAudioOptionsScope scope(options);
    const InitCase cases[] = {
        {"invalid format", 44100, (audio_format_t)0x9u, AUDIO_CHANNEL_OUT_STEREO, true,
         AudioTrack::TRANSFER_DEFAULT, BAD_VALUE, "Invalid format"},
        {"compressed format", 44100, AUDIO_FORMAT_MP3, AUDIO_CHANNEL_OUT_STEREO, true,
         AudioTrack::TRANSFER_DEFAULT, NO_INIT, "cannot play format"},
        {"24-bit packed", 44100, AUDIO_FORMAT_PCM_24_BIT_PACKED, AUDIO_CHANNEL_OUT_STEREO, true,
         AudioTrack::TRANSFER_DEFAULT, NO_INIT, "cannot play format"},
        {"invalid mask", 44100, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_INVALID, true,
         AudioTrack::TRANSFER_DEFAULT, BAD_VALUE, "Invalid channel mask"},
        {"empty mask", 44100, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_NONE, true,
         AudioTrack::TRANSFER_DEFAULT, BAD_VALUE, "Invalid channel mask"},
        {"nine positional channels", 44100, AUDIO_FORMAT_PCM_16_BIT, (audio_channel_mask_t)0x1FF,
         true, AudioTrack::TRANSFER_DEFAULT, BAD_VALUE, "Invalid channel mask"},
        {"too high a rate", 400000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, true,
         AudioTrack::TRANSFER_DEFAULT, BAD_VALUE, "Invalid sample rate"},
        {"callback transfer without callback", 44100, AUDIO_FORMAT_PCM_16_BIT,
         AUDIO_CHANNEL_OUT_STEREO, false, AudioTrack::TRANSFER_CALLBACK, BAD_VALUE, "cbf == NULL"},
        {"write mode", 44100, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, false,
         AudioTrack::TRANSFER_DEFAULT, NO_INIT, "callback mode only"},
    };
    for (const InitCase& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture log;
        RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
        sp<AudioTrack> track = new AudioTrack(
                AUDIO_STREAM_MUSIC, c.rate, c.format, c.mask, 0, AUDIO_OUTPUT_FLAG_FAST,
                c.withCallback ? &RampSource::callback : nullptr, &source, 0,
                AUDIO_SESSION_ALLOCATE, c.transfer);
        EXPECT_EQ(c.expected, track->initCheck());
        EXPECT_TRUE(log.contains("AudioTrack", c.logText, ANDROID_LOG_ERROR));
        EXPECT_NE(OK, track->start());
        track->pause();
        track->stop();
        uint32_t position = 0;
        EXPECT_NE(OK, track->getPosition(&position));
    }
}

TEST(AudioTrackInit, AcceptsLinearPcmLayouts) {
    HostAudioOptions options;
    options.sink = "null";
    HostAudioOptionsScope scope(options);
    struct {
        audio_format_t format;
        audio_channel_mask_t mask;
        uint32_t channels;
        size_t frameBytes;
    } cases[] = {
        {AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_MONO, 1, 2},
        {AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 2, 4},
        {AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_5POINT1, 6, 12},
        {AUDIO_FORMAT_PCM_8_BIT, AUDIO_CHANNEL_OUT_STEREO, 2, 2},
        {AUDIO_FORMAT_PCM_32_BIT, (audio_channel_mask_t)0x63F, 8, 32},
        {AUDIO_FORMAT_PCM_FLOAT, audio_channel_mask_for_index_assignment_from_count(3), 3, 12},
        {AUDIO_FORMAT_DEFAULT, AUDIO_CHANNEL_OUT_STEREO, 2, 4},  // means 16-bit
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "format " << c.format << " mask " << c.mask);
        RampSource source(c.format, c.channels);
        sp<AudioTrack> track = makeTrack(&source, 44100, c.format, c.mask);
        ASSERT_EQ(OK, track->initCheck());
        EXPECT_EQ(c.channels, track->channelCount());
        EXPECT_EQ(c.frameBytes, track->frameSize());
        EXPECT_EQ(44100u, track->getSampleRate());
        EXPECT_GE(track->frameCount(), 480u);
        EXPECT_GT(track->latency(), 0u);
        EXPECT_TRUE(track->stopped());
    }
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
    sp<AudioTrack> track = makeTrack(&source, 0, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO);
    EXPECT_EQ(48000u, track->getSampleRate()) << "rate 0 takes the output's";
}

TEST(AudioTrackInit, UnwritableWavPathGivesNoInitAndALogLine) {
    HostAudioOptions options;
    options.sink = "wav";
    options.wavPath = "/nonexistent-dir/for/sure/out.wav";
    HostAudioOptionsScope scope(options);
    LogCapture log;
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
    sp<AudioTrack> track = makeTrack(&source, 44100, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO);
    EXPECT_EQ(NO_INIT, track->initCheck());
    EXPECT_TRUE(log.contains("", "/nonexistent-dir/for/sure/out.wav", ANDROID_LOG_ERROR));
}

// Runs a freewheeling WAV track until the callback has delivered |frames|,
// then releases it; returns what the file holds.
testing::Wav renderWav(RampSource& source, uint32_t rate, audio_format_t format,
                           audio_channel_mask_t mask, int64_t frames, const std::string& path,
                           HostAudioStats* stats = nullptr) {
    HostAudioOptions options;
    options.sink = "wav";
    options.wavPath = path;
    options.freewheel = 1;
    Gate done;
    AudioTrack* raw = nullptr;  // set before start()
    options.periodHook = [&](const HostAudioPeriod& p) {
        if (p.deliveredFrames >= frames && !done.isOpen()) {
            raw->stop();  // from the hook: no callback follows this one
            done.open();
        }
    };
    auto userPolicy = source.policy;
    // Deliver exactly |frames| in total, shaped by the test's own policy.
    source.policy = [&, userPolicy](int call, size_t wanted) {
        size_t n = userPolicy ? userPolicy(call, wanted) : wanted;
        int64_t left = frames - source.framesWritten.load();
        return (size_t)std::max<int64_t>(0, std::min<int64_t>(left, (int64_t)n));
    };
    HostAudioOptionsScope scope(options);
    sp<AudioTrack> track = makeTrack(&source, rate, format, mask);
    raw = track.get();
    EXPECT_EQ(OK, track->initCheck());
    EXPECT_EQ(OK, track->start());
    EXPECT_TRUE(done.wait());
    if (stats != nullptr) *stats = hostAudioGetStats(track);
    track.clear();  // joins the thread and closes the file
    return testing::readWav(path);
}

TEST(AudioTrackWav, EveryFormatsRampArrivesIntactWithAValidHeader) {
    struct {
        audio_format_t format;
        audio_channel_mask_t mask;
        uint32_t channels;
        uint32_t rate;
        int sampleFormat;
        const char* codec;
    } cases[] = {
        {AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 2, 44100, SF_FORMAT_PCM_16, "pcm_s16le"},
        {AUDIO_FORMAT_PCM_FLOAT, AUDIO_CHANNEL_OUT_MONO, 1, 22050, SF_FORMAT_FLOAT, "pcm_f32le"},
        {AUDIO_FORMAT_PCM_8_BIT, AUDIO_CHANNEL_OUT_STEREO, 2, 8000, SF_FORMAT_PCM_U8, "pcm_u8"},
        {AUDIO_FORMAT_PCM_32_BIT, AUDIO_CHANNEL_OUT_5POINT1, 6, 48000, SF_FORMAT_PCM_32, "pcm_s32le"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.codec);
        const int64_t frames = 3 * (int64_t)c.rate + 17;  // three seconds and a partial period
        std::string path = testing::tempPath(std::string("ramp-") + c.codec + ".wav");
        RampSource source(c.format, c.channels);
        testing::Wav wav = renderWav(source, c.rate, c.format, c.mask, frames, path);
        ASSERT_TRUE(wav.ok) << wav.error;
        size_t sampleBytes = audio_bytes_per_sample(c.format);
        EXPECT_EQ(c.sampleFormat, wav.sampleFormat);
        EXPECT_EQ((int)c.channels, wav.channels);
        EXPECT_EQ((int)c.rate, wav.sampleRate);
        ASSERT_EQ((size_t)frames * c.channels * sampleBytes, wav.bytes.size());
        EXPECT_TRUE(wav.bytes == source.expected(frames)) << "the ramp was altered";

        std::string probe = testing::ffprobe(path);
        EXPECT_NE(std::string::npos, probe.find(std::string("codec_name=") + c.codec)) << probe;
        EXPECT_NE(std::string::npos, probe.find("sample_rate=" + std::to_string(c.rate))) << probe;
        EXPECT_NE(std::string::npos, probe.find("channels=" + std::to_string(c.channels))) << probe;
        EXPECT_NE(std::string::npos, probe.find("duration_ts=" + std::to_string(frames))) << probe;
        unlink(path.c_str());
    }
}

TEST(AudioTrackWav, ShortCallbacksLeaveNoGapInTheFileAndCountTheMissingFrames) {
    std::string path = testing::tempPath("short.wav");
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
    source.policy = [](int call, size_t wanted) -> size_t {
        if (call % 7 == 3) return 0;
        if (call % 3 == 1) return wanted / 2 + 1;
        return wanted;
    };
    const int64_t frames = 44100;
    HostAudioStats stats;
    testing::Wav wav = renderWav(source, 44100, AUDIO_FORMAT_PCM_16_BIT,
                                     AUDIO_CHANNEL_OUT_STEREO, frames, path, &stats);
    ASSERT_TRUE(wav.ok) << wav.error;
    ASSERT_EQ((size_t)frames * 4, wav.bytes.size());
    EXPECT_TRUE(wav.bytes == source.expected(frames));
    EXPECT_EQ(frames, stats.deliveredFrames);
    EXPECT_EQ(source.calls.load(), stats.callbacks);
    // Freewheeling is never late: every underrun frame is one the callback left out.
    EXPECT_EQ(source.framesMissing.load(), stats.underrunFrames);
    EXPECT_GT(stats.underrunFrames, 0);
    unlink(path.c_str());
}

// A null sink on a manual clock at 8 kHz: a 240-frame period lasts exactly
// 30 ms and a frame 125 us, so timing and gaps are exact.
class PacedTrack : public ::testing::Test {
protected:
    static constexpr uint32_t kRate = 8000;
    static constexpr int64_t kPeriodNs = 30 * kNsPerMs;

    void SetUp() override {
        mClock = std::make_shared<HostManualClock>(1000 * kNsPerMs);
        mOptions.sink = "null";
        mOptions.clock = mClock;
        mOptions.periodFrames = 240;
    }

    // Stops the stream inside the hook after |periods| periods, so figures
    // read then are exact; returns with the thread parked in the hook.
    sp<AudioTrack> runPeriods(RampSource& source, int periods,
                              audio_output_flags_t flags = AUDIO_OUTPUT_FLAG_NONE) {
        mOptions.periodHook = [this, periods](const HostAudioPeriod& p) {
            if (++mPeriods == periods) {
                mLastPeriod = p;
                mParked.open();
                mRelease.wait();
            }
        };
        HostAudioOptionsScope scope(mOptions);
        sp<AudioTrack> track =
                makeTrack(&source, kRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_MONO, flags);
        EXPECT_EQ(OK, track->initCheck());
        return track;
    }

    void finish(sp<AudioTrack>& track) {
        mRelease.open();
        track.clear();
    }

    std::shared_ptr<HostManualClock> mClock;
    HostAudioOptions mOptions;
    Gate mParked;
    Gate mRelease;
    HostAudioPeriod mLastPeriod{};
    int mPeriods = 0;  // track thread until mParked opens
};

TEST_F(PacedTrack, NullSinkPullsOnePeriodPerPeriodOfItsClock) {
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 1);
    std::vector<int64_t> callNs;
    source.onCall = [&](int) { callNs.push_back(mClock->nowNs()); };
    sp<AudioTrack> track = runPeriods(source, 40);
    const int64_t t0 = mClock->nowNs();
    ASSERT_EQ(OK, track->start());
    ASSERT_TRUE(mParked.wait());
    ASSERT_EQ(40u, callNs.size());
    // Two periods fill the buffer at once; then one per period.
    EXPECT_EQ(t0, callNs[0]);
    EXPECT_EQ(t0, callNs[1]);
    for (size_t k = 2; k < callNs.size(); ++k) {
        EXPECT_EQ(t0 + (int64_t)(k - 1) * kPeriodNs, callNs[k]) << "call " << k;
    }
    EXPECT_EQ(0u, track->getUnderrunFrames());
    EXPECT_EQ(0, source.underrunEvents.load());
    EXPECT_EQ(40 * 240, mLastPeriod.streamFrames);
    uint32_t position = 0;
    ASSERT_EQ(OK, track->getPosition(&position));
    EXPECT_EQ(38u * 240u, position) << "two periods are still buffered";
    finish(track);
}

TEST_F(PacedTrack, SpeedTwoPullsTwiceAsOften) {
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 1);
    std::vector<int64_t> callNs;
    source.onCall = [&](int) { callNs.push_back(mClock->nowNs()); };
    sp<AudioTrack> track = runPeriods(source, 20);
    AudioPlaybackRate rate = AUDIO_PLAYBACK_RATE_DEFAULT;
    rate.mSpeed = rate.mPitch = 2.0f;
    ASSERT_EQ(NO_ERROR, track->setPlaybackRate(rate));
    EXPECT_TRUE(isAudioPlaybackRateEqual(rate, track->getPlaybackRate()));
    const int64_t t0 = mClock->nowNs();
    ASSERT_EQ(OK, track->start());
    ASSERT_TRUE(mParked.wait());
    for (size_t k = 2; k < callNs.size(); ++k) {
        EXPECT_EQ(t0 + (int64_t)(k - 1) * kPeriodNs / 2, callNs[k]) << "call " << k;
    }
    finish(track);
}

TEST_F(PacedTrack, LateAndShortCallbacksAreCountedAsMissingFrames) {
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 1);
    source.policy = [](int call, size_t wanted) -> size_t {
        return call == 30 ? 100 : call == 31 ? 0 : wanted;
    };
    source.onCall = [&](int call) {
        // 75 ms is 600 frames: with one 240-frame period left in the buffer
        // when the call began, the device starved for 360 frames.
        if (call == 10) mClock->advanceNs(75 * kNsPerMs);
        // 20 ms is 160 frames: late for nothing, the buffer still held 240.
        if (call == 20) mClock->advanceNs(20 * kNsPerMs);
    };
    sp<AudioTrack> track = runPeriods(source, 40);
    ASSERT_EQ(OK, track->start());
    ASSERT_TRUE(mParked.wait());
    const uint32_t expected = 360 + (240 - 100) + 240;
    EXPECT_EQ(expected, track->getUnderrunFrames());
    HostAudioStats stats = hostAudioGetStats(track);
    EXPECT_EQ((int64_t)expected, stats.underrunFrames);
    EXPECT_EQ(40 * 240 - (240 - 100) - 240, stats.deliveredFrames);
    EXPECT_EQ(40, stats.callbacks);
    EXPECT_EQ("null", stats.sink);
    EXPECT_EQ(40 * 240 + 360, mLastPeriod.streamFrames) << "the late gap is stream time too";
    // One notice per starving episode: call 10, then calls 30-31.
    EXPECT_EQ(2, source.underrunEvents.load());
    EXPECT_EQ(0, source.otherEvents.load());
    finish(track);
}

TEST(AudioTrackTransport, PauseAndStopReturnWhileTheCallbackIsBlocked) {
    for (bool useStop : {false, true}) {
        SCOPED_TRACE(useStop ? "stop" : "pause");
        HostAudioOptions options;
        options.sink = "null";
        options.clock = std::make_shared<HostManualClock>();
        HostAudioOptionsScope scope(options);
        RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
        Gate entered, release;
        source.onCall = [&](int call) {
            if (call == 2) {
                entered.open();
                release.wait();
            }
        };
        sp<AudioTrack> track = makeTrack(&source, 44100, AUDIO_FORMAT_PCM_16_BIT,
                                         AUDIO_CHANNEL_OUT_STEREO, AUDIO_OUTPUT_FLAG_FAST);
        ASSERT_EQ(OK, track->start());
        ASSERT_TRUE(entered.wait());
        // Would hang here if these waited for the callback to return.
        if (useStop) {
            track->stop();
        } else {
            track->pause();
        }
        EXPECT_TRUE(source.inside.load());
        EXPECT_TRUE(track->stopped());
        EXPECT_FALSE(track->isPlaying());
        release.open();
        track.clear();  // joins: no callback may have started after pause/stop returned
        EXPECT_EQ(3, source.calls.load());
        EXPECT_FALSE(source.inside.load());
    }
}

TEST(AudioTrackTransport, PausedFromItsOwnHookTheStreamResumesWithoutLossOrRepeat) {
    std::string path = testing::tempPath("resume.wav");
    HostAudioOptions options;
    options.sink = "wav";
    options.wavPath = path;
    options.freewheel = 1;
    sp<AudioTrack> track;
    Gate paused, done;
    const int64_t frames = 20000;
    options.periodHook = [&](const HostAudioPeriod& p) {
        if (p.deliveredFrames >= 4800 && !paused.isOpen()) {
            track->pause();  // the renderer's way: a transport call at a stream time
            paused.open();
        }
        if (p.deliveredFrames >= frames) done.open();
    };
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
    source.policy = [&](int, size_t wanted) {
        return (size_t)std::min<int64_t>(wanted, frames - source.framesWritten.load());
    };
    {
        HostAudioOptionsScope scope(options);
        track = makeTrack(&source, 48000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO);
    }
    ASSERT_EQ(OK, track->start());
    ASSERT_TRUE(paused.wait());
    EXPECT_TRUE(track->stopped());
    EXPECT_EQ(4800, hostAudioGetStats(track).deliveredFrames);
    // The paused file already has a valid header.
    testing::Wav partial = testing::readWav(path);
    ASSERT_TRUE(partial.ok) << partial.error;
    EXPECT_EQ(4800u * 4, partial.bytes.size());
    ASSERT_EQ(OK, track->start());
    ASSERT_TRUE(done.wait());
    track->stop();
    uint32_t position = 1;
    ASSERT_EQ(OK, track->getPosition(&position));
    EXPECT_EQ(0u, position) << "stopped";
    track.clear();
    testing::Wav wav = testing::readWav(path);
    ASSERT_TRUE(wav.ok) << wav.error;
    ASSERT_EQ((size_t)frames * 4, wav.bytes.size());
    EXPECT_TRUE(wav.bytes == source.expected(frames));
    unlink(path.c_str());
}

TEST(AudioTrackTransport, ABlockedHookDoesNotBlockOtherThreadsCalls) {
    HostAudioOptions options;
    options.sink = "null";
    options.clock = std::make_shared<HostManualClock>();
    Gate parked, release;
    options.periodHook = [&](const HostAudioPeriod& p) {
        if (p.deliveredFrames == 5 * 240) {
            parked.open();
            release.wait();
        }
    };
    options.periodFrames = 240;
    HostAudioOptionsScope scope(options);
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
    sp<AudioTrack> track = makeTrack(&source, 44100, AUDIO_FORMAT_PCM_16_BIT,
                                     AUDIO_CHANNEL_OUT_STEREO);
    ASSERT_EQ(OK, track->start());
    ASSERT_TRUE(parked.wait());
    // Each of these would hang if it needed the hook to return.
    AudioPlaybackRate rate = AUDIO_PLAYBACK_RATE_DEFAULT;
    rate.mSpeed = rate.mPitch = 1.5f;
    EXPECT_EQ(NO_ERROR, track->setPlaybackRate(rate));
    uint32_t position;
    EXPECT_EQ(OK, track->getPosition(&position));
    EXPECT_EQ(INVALID_OPERATION, track->start()) << "already active";
    track->pause();
    EXPECT_EQ(OK, track->start());
    track->stop();
    track->flush();
    EXPECT_FALSE(release.isOpen());
    release.open();
    track.clear();
}

TEST(AudioTrackTransport, LastReferenceDroppedInsideTheHook) {
    HostAudioOptions options;
    options.sink = "null";
    options.clock = std::make_shared<HostManualClock>();
    sp<AudioTrack> track;
    Gate dropped;
    options.periodHook = [&](const HostAudioPeriod&) {
        if (track != nullptr) {
            track.clear();  // runs the destructor on the track's own thread
            dropped.open();
        }
    };
    LogCapture log;
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
    {
        HostAudioOptionsScope scope(options);
        track = makeTrack(&source, 44100, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO);
    }
    ASSERT_EQ(OK, track->start());
    ASSERT_TRUE(dropped.wait());
    EXPECT_TRUE(log.contains("AudioTrack", "released on its own callback thread"));
    EXPECT_TRUE(log.waitFor("AudioTrack", "callback thread done", std::chrono::seconds(20)));
    EXPECT_EQ(1, source.calls.load());
}

TEST(AudioTrackRate, PlaybackRateFollowsThePlatformsRules) {
    HostAudioOptions options;
    options.sink = "null";
    HostAudioOptionsScope scope(options);
    RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
    sp<AudioTrack> fast = makeTrack(&source, 44100, AUDIO_FORMAT_PCM_16_BIT,
                                    AUDIO_CHANNEL_OUT_STEREO, AUDIO_OUTPUT_FLAG_FAST);
    AudioPlaybackRate rate = AUDIO_PLAYBACK_RATE_DEFAULT;
    EXPECT_EQ(NO_ERROR, fast->setPlaybackRate(rate)) << "the default is always accepted";
    rate.mSpeed = rate.mPitch = 2.0f;
    EXPECT_EQ(INVALID_OPERATION, fast->setPlaybackRate(rate)) << "fast tracks do not stretch";
    EXPECT_TRUE(isAudioPlaybackRateEqual(AUDIO_PLAYBACK_RATE_DEFAULT, fast->getPlaybackRate()));

    sp<AudioTrack> mixed = makeTrack(&source, 44100, AUDIO_FORMAT_PCM_16_BIT,
                                     AUDIO_CHANNEL_OUT_STEREO);
    rate.mSpeed = rate.mPitch = 0.001f;
    EXPECT_EQ(BAD_VALUE, mixed->setPlaybackRate(rate));
    rate.mSpeed = 2.0f;
    rate.mPitch = 1.0f;
    LogCapture log;
    EXPECT_EQ(INVALID_OPERATION, mixed->setPlaybackRate(rate));
    EXPECT_TRUE(log.contains("AudioTrack", "no time stretcher"));
}

// The engine's track has no options: the properties choose its sink.
TEST(AudioTrackSinkProperty, ChoosesTheSinkAndFallsBackFromABadValue) {
    hostAudioClearOptions();
    std::string path = testing::tempPath("property.wav");
    struct Restore {
        ~Restore() {
            property_set("host.audio.sink", "null");
            property_set("host.audio.wav.path", "");
            property_set("host.audio.wav.freewheel", "");
        }
    } restore;

    ASSERT_EQ(0, property_set("host.audio.sink", "wav"));
    ASSERT_EQ(0, property_set("host.audio.wav.path", path.c_str()));
    ASSERT_EQ(0, property_set("host.audio.wav.freewheel", "true"));
    {
        RampSource source(AUDIO_FORMAT_PCM_16_BIT, 1);
        sp<AudioTrack> track = makeTrack(&source, 16000, AUDIO_FORMAT_PCM_16_BIT,
                                         AUDIO_CHANNEL_OUT_MONO);
        ASSERT_EQ(OK, track->initCheck());
        EXPECT_EQ("wav", hostAudioGetStats(track).sink);
        EXPECT_EQ("wav", hostAudioGetTotals().sink);
        testing::Wav wav = testing::readWav(path);
        ASSERT_TRUE(wav.ok) << wav.error;
        EXPECT_EQ(16000, wav.sampleRate);
        EXPECT_EQ(0u, wav.bytes.size());
    }
    unlink(path.c_str());

    ASSERT_EQ(0, property_set("host.audio.sink", "NULL"));
    {
        RampSource source(AUDIO_FORMAT_PCM_16_BIT, 1);
        sp<AudioTrack> track = makeTrack(&source, 16000, AUDIO_FORMAT_PCM_16_BIT,
                                         AUDIO_CHANNEL_OUT_MONO);
        EXPECT_EQ("null", hostAudioGetStats(track).sink);
    }

    ASSERT_EQ(0, property_set("host.audio.sink", "speakers"));
    {
        LogCapture log;
        RampSource source(AUDIO_FORMAT_PCM_16_BIT, 1);
        sp<AudioTrack> track = makeTrack(&source, 16000, AUDIO_FORMAT_PCM_16_BIT,
                                         AUDIO_CHANNEL_OUT_MONO);
        EXPECT_EQ(OK, track->initCheck());
        EXPECT_TRUE(log.contains("AudioTrack", "unknown audio sink 'speakers'", ANDROID_LOG_WARN));
        std::string sink = hostAudioGetStats(track).sink;
        EXPECT_TRUE(sink == "null" || sink == "sdl") << sink;
    }
}

}  // namespace
}  // namespace android
