// The host AudioTrack with its null and WAV sinks: what initCheck refuses,
// that delivered audio reaches the file byte for byte, how underruns are
// counted on an injected clock, and the transport's threading rules.

#include <unistd.h>

#include <android/log.h>
#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <media/AudioTrack.h>
#include <media/HostAudioSink.h>

#include "Fixtures.h"
#include "LogCapture.h"
#include "TestSupport.h"
#include "WavReader.h"

namespace android {
namespace {

using testing::Gate;
using testing::LogCapture;
using testing::RampSource;
using testing::makeTrack;

constexpr int64_t kNsPerMs = 1000000;

struct InitCase {
    uint32_t rate;
    audio_format_t format;
    audio_channel_mask_t mask;
    bool withCallback;
    AudioTrack::transfer_type transfer;
    status_t expected;
    const char* logText;
    const char* wavPath = nullptr;  // a WAV sink writing here instead of the null sink
};

TEST(AudioTrackInit, RefusesWhatTheHostCannotPlayWithALogLine) {
    constexpr auto k16 = AUDIO_FORMAT_PCM_16_BIT;
    constexpr auto kStereo = AUDIO_CHANNEL_OUT_STEREO;
    constexpr auto kDefault = AudioTrack::TRANSFER_DEFAULT;
    const char* kBadPath = "/nonexistent/out.wav";
    const InitCase cases[] = {
        {44100, (audio_format_t)0x9u, kStereo, true, kDefault, BAD_VALUE, "Invalid format"},
        {44100, AUDIO_FORMAT_PCM_24_BIT_PACKED, kStereo, true, kDefault, NO_INIT, "cannot play"},
        {44100, k16, AUDIO_CHANNEL_INVALID, true, kDefault, BAD_VALUE, "Invalid channel mask"},
        {44100, k16, (audio_channel_mask_t)0x1FF, true, kDefault, BAD_VALUE, "Invalid channel"},
        {400000, k16, kStereo, true, kDefault, BAD_VALUE, "Invalid sample rate"},
        {44100, k16, kStereo, false, AudioTrack::TRANSFER_CALLBACK, BAD_VALUE, "cbf == NULL"},
        {44100, k16, kStereo, false, kDefault, NO_INIT, "callback mode only"},
        {44100, k16, kStereo, true, kDefault, NO_INIT, kBadPath, kBadPath},
    };
    for (const InitCase& c : cases) {
        SCOPED_TRACE(c.logText);
        HostAudioOptions options;
        options.sink = c.wavPath != nullptr ? "wav" : "null";
        options.wavPath = c.wavPath != nullptr ? c.wavPath : "";
        HostAudioOptionsScope scope(options);
        LogCapture log;
        RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
        sp<AudioTrack> track = new AudioTrack(
                AUDIO_STREAM_MUSIC, c.rate, c.format, c.mask, 0, AUDIO_OUTPUT_FLAG_FAST,
                c.withCallback ? &RampSource::callback : nullptr, &source, 0,
                AUDIO_SESSION_ALLOCATE, c.transfer);
        EXPECT_EQ(c.expected, track->initCheck());
        EXPECT_TRUE(log.contains("", c.logText, ANDROID_LOG_ERROR));
        EXPECT_NE(OK, track->start());
        uint32_t position = 0;
        EXPECT_NE(OK, track->getPosition(&position));
    }
}

// A freewheeling WAV track delivers exactly three seconds and a partial period
// through short and empty callbacks, pausing itself from its hook on the way
// as the renderer does; the file must hold the ramp whole, as ffmpeg reads it.
TEST(AudioTrackWav, EveryFormatsRampArrivesIntactAcrossShortCallbacksAndAPause) {
    struct {
        audio_format_t format;
        audio_channel_mask_t mask;
        uint32_t channels;
        uint32_t rate;
        const char* ffmpegFormat;
    } cases[] = {
        {AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_STEREO, 2, 44100, "s16le"},
        {AUDIO_FORMAT_PCM_FLOAT, audio_channel_mask_for_index_assignment_from_count(3), 3, 22050,
         "f32le"},
        {AUDIO_FORMAT_PCM_8_BIT, AUDIO_CHANNEL_OUT_MONO, 1, 8000, "u8"},
        {AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_5POINT1, 6, 32000, "s16le"},
        {AUDIO_FORMAT_PCM_32_BIT, (audio_channel_mask_t)0x63F, 8, 48000, "s32le"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.ffmpegFormat << " x" << c.channels);
        const int64_t frames = 3 * (int64_t)c.rate + 17, pauseAt = c.rate / 2;
        const std::string path = testing::tempPath("ramp.wav");
        HostAudioOptions options;
        options.sink = "wav";
        options.wavPath = path;
        options.freewheel = 1;
        Gate done, paused;
        sp<AudioTrack> track;
        options.periodHook = [&](const HostAudioPeriod& p) {
            if (p.deliveredFrames >= pauseAt && !paused.isOpen()) {
                track->pause();
                paused.open();
            }
            if (p.deliveredFrames >= frames && !done.isOpen()) {
                track->stop();  // from the hook: no callback follows this one
                done.open();
            }
        };
        RampSource source(c.format, c.channels);
        source.policy = [&](int call, size_t wanted) {
            size_t n = call % 7 == 3 ? 0 : call % 3 == 1 ? wanted / 2 + 1 : wanted;
            return (size_t)std::min<int64_t>(n, frames - source.framesWritten.load());
        };
        {
            HostAudioOptionsScope scope(options);
            track = makeTrack(&source, c.rate, c.format, c.mask);
        }
        ASSERT_EQ(c.channels * audio_bytes_per_sample(c.format), track->frameSize());
        ASSERT_EQ(OK, track->start());
        ASSERT_TRUE(paused.wait());
        EXPECT_TRUE(track->stopped());
        testing::Wav partial = testing::readWav(path);  // a valid header already
        EXPECT_EQ(hostAudioGetStats(track).deliveredFrames * (int64_t)track->frameSize(),
                  (int64_t)partial.bytes.size());
        ASSERT_EQ(OK, track->start());
        ASSERT_TRUE(done.wait());
        HostAudioStats stats = hostAudioGetStats(track);
        track.clear();  // joins the thread and closes the file

        testing::Wav wav = testing::readWav(path);
        ASSERT_TRUE(wav.ok) << wav.error;
        EXPECT_EQ((int)c.channels, wav.channels);
        EXPECT_EQ((int)c.rate, wav.sampleRate);
        EXPECT_TRUE(testing::referenceDecode(path, c.ffmpegFormat) == source.expected(frames));
        EXPECT_EQ((std::pair<int64_t, int64_t>(frames, source.calls.load())),
                  std::make_pair(stats.deliveredFrames, stats.callbacks));
        // Freewheeling is never late: every underrun frame is one the callback left out.
        EXPECT_EQ(source.framesMissing.load(), stats.underrunFrames);
        EXPECT_GT(stats.underrunFrames, 0);
        unlink(path.c_str());
    }
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

    void TearDown() override {
        mRelease.open();
        mTrack.clear();
    }

    // Starts a track at |speed| from mStartNs and stops the stream inside the
    // hook after |periods| periods, so figures read then are exact; returns
    // with the thread parked in the hook.
    void runPeriods(int periods, float speed = 1.0f) {
        mOptions.periodHook = [this, periods](const HostAudioPeriod& p) {
            if (++mPeriods == periods) {
                mLastPeriod = p;
                mParked.open();
                mRelease.wait();
            }
        };
        HostAudioOptionsScope scope(mOptions);
        mTrack = makeTrack(&mSource, kRate, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_OUT_MONO);
        AudioPlaybackRate rate = AUDIO_PLAYBACK_RATE_DEFAULT;
        rate.mSpeed = rate.mPitch = speed;
        ASSERT_EQ(NO_ERROR, mTrack->setPlaybackRate(rate));
        mStartNs = mClock->nowNs();
        ASSERT_EQ(OK, mTrack->start());
        ASSERT_TRUE(mParked.wait());
    }

    std::shared_ptr<HostManualClock> mClock;
    int64_t mStartNs = 0;
    // What the track's thread may still touch until TearDown has joined it.
    RampSource mSource{AUDIO_FORMAT_PCM_16_BIT, 1};
    std::vector<int64_t> mCallNs;
    sp<AudioTrack> mTrack;
    HostAudioOptions mOptions;
    Gate mParked;
    Gate mRelease;
    HostAudioPeriod mLastPeriod{};
    int mPeriods = 0;  // track thread until mParked opens
};

// Two periods fill the buffer at once; then one per period of the clock,
// shortened by the playback speed.
class PacedTrackAtSpeed : public PacedTrack, public ::testing::WithParamInterface<float> {};

TEST_P(PacedTrackAtSpeed, NullSinkPullsOnePeriodPerPeriodOfItsClockOverTheSpeed) {
    const float speed = GetParam();
    mSource.onCall = [this](int) { mCallNs.push_back(mClock->nowNs()); };
    ASSERT_NO_FATAL_FAILURE(runPeriods(40, speed));
    ASSERT_EQ(40u, mCallNs.size());
    EXPECT_EQ(mStartNs, mCallNs[0]);
    for (size_t k = 1; k < mCallNs.size(); ++k) {
        EXPECT_EQ(mStartNs + (int64_t)((k - 1) * kPeriodNs / speed), mCallNs[k]) << "call " << k;
    }
    EXPECT_EQ(0u, mTrack->getUnderrunFrames());
    EXPECT_EQ(0, mSource.underrunEvents.load());
    uint32_t position = 0;
    ASSERT_EQ(OK, mTrack->getPosition(&position));
    EXPECT_EQ(38u * 240u, position) << "two periods are still buffered";
}

INSTANTIATE_TEST_SUITE_P(Speeds, PacedTrackAtSpeed, ::testing::Values(1.0f, 2.0f));

TEST_F(PacedTrack, LateAndShortCallbacksAreCountedAsMissingFrames) {
    mSource.policy = [](int call, size_t wanted) -> size_t {
        return call == 30 ? 100 : call == 31 ? 0 : wanted;
    };
    mSource.onCall = [this](int call) {
        // 75 ms is 600 frames: with one 240-frame period left in the buffer
        // when the call began, the device starved for 360 frames.
        if (call == 10) mClock->advanceNs(75 * kNsPerMs);
        // 20 ms is 160 frames: late for nothing, the buffer still held 240.
        if (call == 20) mClock->advanceNs(20 * kNsPerMs);
    };
    ASSERT_NO_FATAL_FAILURE(runPeriods(40));
    EXPECT_EQ(360u + (240 - 100) + 240, mTrack->getUnderrunFrames());
    HostAudioStats stats = hostAudioGetStats(mTrack);
    EXPECT_EQ((std::pair<int64_t, int64_t>(40 * 240 - (240 - 100) - 240, 40)),
              std::make_pair(stats.deliveredFrames, stats.callbacks));
    EXPECT_EQ(40 * 240 + 360, mLastPeriod.streamFrames) << "the late gap is stream time too";
    // One notice per starving episode: call 10, then calls 30-31.
    EXPECT_EQ(2, mSource.underrunEvents.load());

    // The thread is parked in its hook: each of these would hang if it
    // needed the hook to return.
    AudioPlaybackRate rate = AUDIO_PLAYBACK_RATE_DEFAULT;
    rate.mSpeed = rate.mPitch = 1.5f;
    EXPECT_EQ(NO_ERROR, mTrack->setPlaybackRate(rate));
    EXPECT_EQ(INVALID_OPERATION, mTrack->start()) << "already active";
    mTrack->pause();
    EXPECT_EQ(OK, mTrack->start());
    mTrack->stop();
    mTrack->flush();
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
        useStop ? track->stop() : track->pause();
        EXPECT_TRUE(source.inside.load());
        EXPECT_TRUE(track->stopped());
        EXPECT_FALSE(track->isPlaying());
        release.open();
        track.clear();  // joins: no callback may have started after pause/stop returned
        EXPECT_EQ(3, source.calls.load());
        EXPECT_FALSE(source.inside.load());
    }
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

TEST(AudioTrackRate, AFastTrackTakesOnlyTheDefaultRate) {
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
    ASSERT_EQ(0, property_set("host.audio.wav.path", path.c_str()));
    ASSERT_EQ(0, property_set("host.audio.wav.freewheel", "true"));
    const struct {
        const char* value;
        const char* sinks;  // the ones it may choose
        bool warns;
    } cases[] = {{"wav", "wav", false}, {"NULL", "null", false}, {"speakers", "null,sdl", true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        ASSERT_EQ(0, property_set("host.audio.sink", c.value));
        LogCapture log;
        RampSource source(AUDIO_FORMAT_PCM_16_BIT, 1);
        sp<AudioTrack> track = makeTrack(&source, 16000, AUDIO_FORMAT_PCM_16_BIT,
                                         AUDIO_CHANNEL_OUT_MONO);
        ASSERT_EQ(OK, track->initCheck());
        const std::string sink = hostAudioGetStats(track).sink;
        ASSERT_FALSE(sink.empty());
        EXPECT_NE(std::string::npos, std::string(c.sinks).find(sink)) << sink;
        EXPECT_EQ(c.warns, log.contains("AudioTrack", std::string("unknown audio sink '") + c.value,
                                        ANDROID_LOG_WARN));
    }
    EXPECT_EQ(16000, testing::readWav(path).sampleRate) << "written where the property said";
    unlink(path.c_str());
}

}  // namespace
}  // namespace android
