// Tests of the scratch source over a synthetic upstream whose samples tell
// their own frame index: direction, rate, cache filling and the source's
// parameters.  Waits on the looper are bounded polls of observable state.

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaErrors.h>

#include "AudioDecoder.h"
#include "DecoderTestSupport.h"
#include "LogCapture.h"
#include "RotavoxSource.h"
#include "ScratchInspectors.h"
#include "SyntheticPcmSource.h"
#include "TestTime.h"

namespace android {
namespace {

using testing::LogCapture;
using testing::SyntheticPcmConfig;
using testing::SyntheticPcmSource;
using testing::waitUntil;

const char* kTag = "RotavoxSource";
const char* kProperty = "media.rotavox.cache-params";

// Upstream PCM at |rate| Hz in buffers of |framesPerBuffer|, |totalFrames| long.
SyntheticPcmConfig pcm(int32_t rate, int64_t framesPerBuffer, int64_t totalFrames) {
    SyntheticPcmConfig config;
    config.sampleRate = rate;
    config.framesPerBuffer = framesPerBuffer;
    config.totalFrames = totalFrames;
    return config;
}

class RotavoxSourceTest : public ::testing::Test {
protected:
    void TearDown() override {
        if (mUpstream != NULL) mUpstream->openGate();
        mSource.clear();
        mUpstream.clear();
        property_set(kProperty, "");
    }

    void make(const SyntheticPcmConfig& config, const char* params) {
        mUpstream = new SyntheticPcmSource(config);
        mSource = new RotavoxSource(mUpstream, params);
        mSource->start(NULL);
    }
    RotavoxSourceInspector in() { return RotavoxSourceInspector(mSource); }
    int readsEntered() { return (int)mUpstream->records().size(); }

    // Waits until the decode loop has nothing left to do.
    void settle() {
        ASSERT_TRUE(waitUntil([&] { return !in().decoding(); })) << "decoder never settled";
    }
    // Moves to a position that restarts the cache and waits for the fill.
    void positionAndFill(int64_t positionUs) {
        const int before = readsEntered();
        mSource->setPosition(positionUs);
        ASSERT_TRUE(waitUntil([&] { return readsEntered() > before; }));
        settle();
    }
    // One read of the source, paced so that the decoder is idle before the
    // next one; appends the left channel (or the only one) to |left| and
    // the whole frames to |frames|.
    status_t readOnce(std::vector<int>* left, std::vector<int16_t>* frames = NULL,
                      bool pace = true) {
        MediaBufferBase* buffer = NULL;
        status_t err = mSource->read(&buffer, NULL);
        if (buffer != NULL) {
            const int channels = mUpstream->config().channelCount;
            const int16_t* s = (const int16_t*)buffer->data();
            const size_t n = buffer->range_length() / 2;
            for (size_t i = 0; i < n; i += channels) {
                if (left != NULL) left->push_back(s[i]);
            }
            if (frames != NULL) frames->insert(frames->end(), s, s + n);
            buffer->release();
        }
        if (pace) settle();
        return err;
    }

    sp<SyntheticPcmSource> mUpstream;
    sp<RotavoxSource> mSource;
};

// ---------------------------------------------------------------------------
// Construction and parameters

TEST_F(RotavoxSourceTest, CacheParametersFromPropertyAndString) {
    const int64_t d[] = {1500000, 15000000, 4000000};  // the defaults
    const struct {
        const char* property;  // NULL: the one in effect
        const char* params;    // NULL: a new source without a string
        int64_t low, high, preroll;
        const char* error;     // the value whose parse failure is logged
    } cases[] = {
            {"", NULL, d[0], d[1], d[2], NULL},
            {"2000000/20000000/5000000", NULL, 2000000, 20000000, 5000000, NULL},
            // The caller's string wins over a valid property.
            {NULL, "100000/200000/300000", 100000, 200000, 300000, NULL},
            {"-1/-1/-1", NULL, d[0], d[1], d[2], NULL},
            {"1/2", NULL, d[0], d[1], d[2], "1/2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.params != NULL ? c.params : c.property);
        if (c.property != NULL) {
            ASSERT_EQ(0, property_set(kProperty, c.property));
        }
        LogCapture log;
        make(SyntheticPcmConfig(), c.params);
        EXPECT_EQ(c.low, mSource->getCacheLowWaterUs());
        EXPECT_EQ(c.high, mSource->getCacheHighWaterUs());
        EXPECT_EQ(c.preroll, mSource->getCachePrerollUs());
        EXPECT_EQ(c.error != NULL ? 1 : 0, log.count(kTag, "Failed to parse", ANDROID_LOG_ERROR));
        if (c.error != NULL) {
            EXPECT_TRUE(log.contains(kTag, std::string("Failed to parse cache parameters from '") +
                                                   c.error + "'."));
        }
    }
    // Negative parts mean the default, not the value in effect; a bad
    // string keeps what is in effect.
    mSource->updateCacheParamsFromString("100/-5/7");
    mSource->updateCacheParamsFromString("garbage");
    EXPECT_EQ(100, mSource->getCacheLowWaterUs());
    EXPECT_EQ(d[1], mSource->getCacheHighWaterUs());
    EXPECT_EQ(7, mSource->getCachePrerollUs());
}

TEST_F(RotavoxSourceTest, FormatCarriesTheMarkerAndAMissingPcmFormatIsReported) {
    SyntheticPcmConfig config;
    make(config, NULL);
    sp<MetaData> format = mSource->getFormat();
    ASSERT_TRUE(format == mUpstream->getFormat());
    int32_t marker = 0;
    EXPECT_TRUE(format->findInt32(RotavoxSource::kKeyRotavoxSourceMarker, &marker));
    EXPECT_EQ(0x123465, marker);

    LogCapture log;
    config.announceFormat = false;
    make(config, NULL);
    EXPECT_EQ(1, log.count(kTag, "can't find pcm format, using the default!", ANDROID_LOG_WARN));
}

// ---------------------------------------------------------------------------
// Direction and continuity

// At 1000 permille the output is the input shifted by one frame, for every
// decoder format and both channel counts, across many cache buffers and
// several low-water resumes.
TEST_F(RotavoxSourceTest, ForwardAtNormalSpeedIsTheInputShiftedByOneFrame) {
    const audio_format_t formats[] = {AUDIO_FORMAT_PCM_16_BIT, AUDIO_FORMAT_PCM_8_BIT,
                                      AUDIO_FORMAT_PCM_24_BIT_PACKED, AUDIO_FORMAT_PCM_32_BIT};
    for (int channels = 1; channels <= 2; ++channels) {
        for (audio_format_t format : formats) {
            SCOPED_TRACE(::testing::Message() << "format " << format << " channels " << channels);
            SyntheticPcmConfig config;
            config.channelCount = channels;
            config.format = format;
            config.framesPerBuffer = 1000;
            make(config, "200000/600000/300000");
            positionAndFill(0);
            std::vector<int16_t> frames;
            while (frames.size() / channels < 48000u * 2) {
                ASSERT_EQ(OK, readOnce(NULL, &frames));
            }
            const int64_t modulus = format == AUDIO_FORMAT_PCM_8_BIT ? 256 : 65536;
            for (size_t k = 0; k < frames.size() / channels; ++k) {
                const int64_t got =
                        SyntheticPcmSource::frameOf(format, &frames[k * channels], channels);
                ASSERT_EQ((int64_t)((k + 1) % modulus), got) << "output frame " << k;
            }
            // The decoder resumed several times without a seek.
            int resumes = 0;
            for (const auto& r : mUpstream->records()) resumes += r.seekUs < 0 ? 0 : 1;
            EXPECT_EQ(1, resumes);
            EXPECT_GT(mUpstream->records().size(), 96u);
            EXPECT_GT(mSource->getPosition(), 1900000);
        }
    }
}

// Checks a backward output of frame indices: each frame one below the last,
// except where a backward refill joins the cache.  There the buffer just
// played comes again (the cache hands out the joined copy of the buffer at
// the read position), with one interpolated frame between its first frame
// and the copy's last.  Returns the number of joins.
int checkBackward(const std::vector<int>& v, int framesPerBuffer, std::string* error) {
    int joins = 0;
    for (size_t k = 0; k + 1 < v.size(); ++k) {
        if (v[k + 1] == v[k] - 1) continue;
        if (k + 2 < v.size() && v[k] % framesPerBuffer == 0 &&
                v[k + 2] == v[k] + framesPerBuffer - 2 && v[k + 1] >= v[k] &&
                v[k + 1] <= v[k] + framesPerBuffer - 1) {
            ++joins;
            ++k;
            continue;
        }
        *error = "break at " + std::to_string(k) + ": " + std::to_string(v[k]) + " -> " +
                 std::to_string(v[k + 1]);
        return joins;
    }
    return joins;
}

TEST_F(RotavoxSourceTest, BackwardAtNormalSpeedIsTheInputReversedAcrossRefills) {
    // 8 kHz: frame indices stay positive 16-bit values.
    make(pcm(8000, 160, 32000), "300000/1000000/500000");
    mSource->rewind(0);
    mSource->setPlaybackRatePermille(-1000);
    positionAndFill(3000000);
    EXPECT_EQ(2500000, mUpstream->records().front().seekUs);

    std::vector<int> ramp;
    for (int i = 0; i < 20 && mSource->getPlaybackRatePermille() != -1000; ++i) {
        ASSERT_EQ(OK, readOnce(&ramp));
    }
    ASSERT_EQ(-1000, mSource->getPlaybackRatePermille());
    ASSERT_EQ(OK, readOnce(&ramp));  // the read that landed on the target

    std::vector<int> left;
    while (mSource->getPosition() > 400000) {
        ASSERT_EQ(OK, readOnce(&left));
        ASSERT_LT(left.size(), 40000u);
    }
    std::string error;
    const int joins = checkBackward(left, 160, &error);
    EXPECT_EQ("", error);
    // Refills from 2.0, 1.5, 1.0, 0.5 and 0 s before the reader got there.
    EXPECT_GE(joins, 4);
    EXPECT_LT(left.back(), 400000 / 125);
    int refills = 0;
    for (const auto& r : mUpstream->records()) refills += r.seekUs >= 0 ? 1 : 0;
    EXPECT_GE(refills, 5);
    EXPECT_EQ("", in().cacheInvariants());
}

// ---------------------------------------------------------------------------
// Rates and ramps

// The rate moves towards its target in steps per output buffer, then the
// left channel (the frame index) steps at the target rate.  A zero target
// hovers around zero: neither silence nor a jump.
TEST_F(RotavoxSourceTest, RampsToTheTargetRateThenStepsAtIt) {
    struct Phase {
        int target;
        std::vector<int> ramp;  // rate after each read
        int steadyReads;
        // |d1| and |d2|: two successive steps of the left channel.
        std::function<bool(int v, int d1, int d2)> steady;
    };
    const struct {
        SyntheticPcmConfig config;
        const char* params;
        int64_t positionUs;
        std::vector<Phase> phases;  // the later ones play backward
    } cases[] = {
            {pcm(8000, 160, 32000), "1000000/3000000/500000", 0,
             {{2000, {1250, 1500, 1750, 2000}, 6, [](int, int, int d) { return d == 2; }}}},
            // 125 permille per stereo output buffer: every frame comes twice.
            {pcm(8000, 160, 32000), "1000000/3000000/500000", 0,
             {{500, {875, 750, 625, 500}, 6,
               [](int, int d1, int d2) { return (d1 == 0 && d2 == 1) || (d1 == 1 && d2 == 0); }}}},
            // 1000 -> 0 takes 256 steps of 3.90625: four stereo output buffers.
            {pcm(8000, 160, 32000), "1000000/3000000/500000", 2000000,
             {{0, {750, 500, 250, 1}, 6, [](int v, int, int d) { return v != 0 && abs(d) <= 1; }}}},
            // Ten times either way over short buffers: the resampler crosses a
            // cache buffer every eight output frames.  4 kHz keeps 8 s of frame
            // indices inside int16; a cache from 0 s never needs a backward
            // refill.  Up at 35.15625 permille per call, three steady buffers
            // past 5 s, then turning round at 78.125 per call, landing exactly
            // on zero (replaced by +1) and overshooting -10000 once.
            {pcm(4000, 80, 32000), "2000000/4000000/500000", 0,
             {{10000, {3250, 5500, 7750, 10000}, 3, [](int, int, int d) { return d == 10; }},
              {-10000, {5000, 1, -4999, -9999, -10000}, 1,
               [](int, int, int d) { return d == -10; }}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.phases[0].target);
        make(c.config, c.params);
        positionAndFill(c.positionUs);
        std::vector<int> left;
        for (size_t p = 0; p < c.phases.size(); ++p) {
            const Phase& phase = c.phases[p];
            if (p > 0) mSource->rewind(0);
            mSource->setPlaybackRatePermille(phase.target);
            for (int rate : phase.ramp) {
                ASSERT_EQ(OK, readOnce(&left));
                EXPECT_EQ(rate, mSource->getPlaybackRatePermille());
            }
            for (int i = 0; i < phase.steadyReads; ++i) {
                left.clear();
                ASSERT_EQ(OK, readOnce(&left));
                ASSERT_EQ(512u, left.size());
                const int rate = mSource->getPlaybackRatePermille();
                EXPECT_TRUE(phase.target != 0 ? rate == phase.target : rate != 0 && abs(rate) <= 3)
                        << rate;
                for (size_t k = 2; k < left.size(); ++k) {
                    ASSERT_TRUE(phase.steady(left[k], left[k - 1] - left[k - 2],
                                             left[k] - left[k - 1]))
                            << "read " << i << " frame " << k;
                }
            }
        }
    }
}

// ---------------------------------------------------------------------------
// Cache filling decisions

TEST_F(RotavoxSourceTest, FirstPositionSeeksPrerollBeforeAndJumpRestarts) {
    // 20 ms buffers: buffer times land on the grid.
    make(pcm(48000, 960, 48000 * 60), "1500000/3000000/4000000");
    mUpstream->closeGate();
    mSource->setPosition(6000000);
    ASSERT_TRUE(mUpstream->waitForReadsEntered(1));
    EXPECT_EQ(2000000, mUpstream->records()[0].seekUs);
    EXPECT_TRUE(in().decoding());
    mUpstream->openGate();
    settle();
    std::vector<int64_t> times = in().cacheTimes();
    ASSERT_FALSE(times.empty());
    EXPECT_LE(times.front(), 2000000);
    EXPECT_GT(times.back(), 9000000);

    // Within the cache: nothing is decoded.
    const int reads = readsEntered();
    mSource->setPosition(7000000);
    ASSERT_TRUE(waitUntil([&] { return mSource->getPosition() == 7000000; }));
    EXPECT_EQ(reads, readsEntered());

    // Far outside: everything goes, decoding restarts 4 s before.
    mSource->setPosition(40000000);
    ASSERT_TRUE(waitUntil([&] { return readsEntered() > reads; }));
    settle();
    // Decisions use the read target on the 300 ms grid: 39.9 s - 4 s.
    EXPECT_EQ(35900000, mUpstream->records()[reads].seekUs);
    times = in().cacheTimes();
    EXPECT_EQ(35900000, times.front());
    EXPECT_EQ("", in().cacheInvariants());

    // A move of less than 300 ms is ignored altogether: had 40.2 s been
    // taken, 40.35 s would be the small move and the position would stay.
    mSource->setPosition(40200000);
    mSource->setPosition(40350000);
    ASSERT_TRUE(waitUntil([&] { return mSource->getPosition() == 40350000; }));
}

TEST_F(RotavoxSourceTest, LowWaterResumesWithoutSeekAndCacheFullStops) {
    make(pcm(8000, 160, 8000 * 30), "500000/1000000/200000");
    LogCapture log;
    positionAndFill(1000000);
    EXPECT_TRUE(log.contains(kTag, "Cache full, done decoding for now", ANDROID_LOG_INFO));
    const int64_t end = in().cacheEndTimeUs();
    EXPECT_GT(end, 2000000);
    EXPECT_LT(end, 2100000);

    size_t recordsBefore = mUpstream->records().size();
    std::vector<int> left;
    // Play until the cache end is within 500 ms.
    while (mSource->getPosition() < end - 500000) {
        ASSERT_EQ(OK, readOnce(&left, NULL, false));
        ASSERT_LT(left.size(), 100000u);
    }
    settle();
    const std::vector<testing::SyntheticReadRecord> records = mUpstream->records();
    ASSERT_GT(records.size(), recordsBefore);
    EXPECT_EQ(-1, records[recordsBefore].seekUs);
    EXPECT_EQ(end + 20000, records[recordsBefore].timeUs);
    EXPECT_GT(in().cacheEndTimeUs(), mSource->getPosition() + 1000000);
}

// The backfill throttle reads the wall clock; these tests set it by hand.
uint64_t gFakeWallClockUs = 0;
int fakeTimeOfDay(struct timeval* tv, void*) {
    tv->tv_sec = gFakeWallClockUs / 1000000;
    tv->tv_usec = gFakeWallClockUs % 1000000;
    return 0;
}

TEST_F(RotavoxSourceTest, BackwardRefillIsRequestedNearTheStartAndThrottled) {
    make(pcm(48000, 960, 48000 * 60), "1500000/3000000/4000000");
    in().setTimeOfDay(&fakeTimeOfDay);
    gFakeWallClockUs = 1000000;  // a stamp of 16960: 1e6 mod 65536
    positionAndFill(10000000);
    const int64_t start = in().cacheStartTimeUs();
    ASSERT_EQ(5900000, start);  // grid 9.9 s minus the 4 s preroll

    mUpstream->closeGate();
    const int reads = readsEntered();
    // Forward nothing is needed near the start...
    mSource->forward(0);
    {
        Mutex::Autolock lock(in().lock());
        in().updateCacheIfNecessary_l(start + 1000000);
        EXPECT_FALSE(in().decoding());
    }
    mSource->rewind(0);
    {
        Mutex::Autolock lock(in().lock());
        // ... backward, 1.5 s or closer to the start asks for a refill 4 s
        // before the start.
        in().updateCacheIfNecessary_l(start + 1600000);
        EXPECT_FALSE(in().decoding());
        in().updateCacheIfNecessary_l(start + 1000000);
        EXPECT_TRUE(in().decoding());
    }
    ASSERT_TRUE(mUpstream->waitForReadsEntered(reads + 1));
    EXPECT_EQ(1900000, mUpstream->records()[reads].seekUs);

    Mutex::Autolock lock(in().lock());
    const struct {
        uint64_t clockUs;
        int64_t aboveStartUs;
        bool requested;
    } steps[] = {
            // Within 50 ms and less than 500 ms below the last request.
            {1040000, 700000, false},
            // Further down than 500 ms below it (a stamp of -30000).
            {20 * 65536 + 35536, 400000, true},
            // The stamp wraps every 65536 us: ten wraps later is no time at all,
            {20 * 65536 + 35536 + 10 * 65536, 300000, false},
            // while 50 ms of stamp difference lets the same position through.
            {30 * 65536 + 35536 + 50000, 300000, true},
    };
    for (const auto& step : steps) {
        const int32_t generation = in().generation();
        gFakeWallClockUs = step.clockUs;
        in().updateCacheIfNecessary_l(start + step.aboveStartUs);
        EXPECT_EQ(generation + (step.requested ? 1 : 0), in().generation()) << step.clockUs;
    }
    // From a stamp above -17232 no later stamp is 50000 higher: near the
    // last request the throttle then holds whatever the clock says.
    for (int i = 0; i < 70; ++i) {
        gFakeWallClockUs += 1000;
        const int32_t held = in().generation();
        in().updateCacheIfNecessary_l(start + 200000);
        ASSERT_EQ(held, in().generation()) << "stamp step " << i;
    }
}

TEST_F(RotavoxSourceTest, NoRefillWhenTheCacheStartsWithin300ms) {
    make(pcm(48000, 960, 48000 * 10), "1500000/3000000/4000000");
    positionAndFill(4300000);  // grid 4.2 s, decoded from 200 ms
    ASSERT_EQ(200000, in().cacheStartTimeUs());
    mSource->rewind(0);
    Mutex::Autolock lock(in().lock());
    in().updateCacheIfNecessary_l(400000);
    EXPECT_FALSE(in().decoding());
}

TEST_F(RotavoxSourceTest, EndOfStreamKeepsPlayingTheTail) {
    SyntheticPcmConfig config = pcm(8000, 160, 8000);
    config.formatChangesAfterSeek = 2;
    make(config, "300000/5000000/500000");
    positionAndFill(0);
    const std::vector<testing::SyntheticReadRecord> records = mUpstream->records();
    EXPECT_EQ(INFO_FORMAT_CHANGED, records[0].result);
    EXPECT_EQ(INFO_FORMAT_CHANGED, records[1].result);
    EXPECT_EQ(ERROR_END_OF_STREAM, records.back().result);
    std::vector<int> left;
    for (int i = 0; i < 20; ++i) ASSERT_EQ(OK, readOnce(&left));
    // Up to the last frame, then the tail buffer over and over.
    for (size_t k = 0; k < 7999; ++k) ASSERT_EQ((int)k + 1, left[k]);
}

// The decoder reports the end of the stream early when it reaches it while a
// reader waits: its final buffers are still queued, and the reader is to read
// again.  The cache filler takes every end of stream as final and decoding
// starts again only at a new position or after a read that produced audio.
// When the early report answers the very first read after a seek, as it can
// for a file shorter than a decoder's burst, nothing reads again: the cache
// stays empty and the source produces nothing until the next position.
TEST_F(RotavoxSourceTest, AnEarlyEndOfStreamAtTheFirstReadLeavesTheCacheEmpty) {
    SyntheticPcmConfig config = pcm(8000, 800, 1600);  // 0.2 s
    config.failAtRead = 1;      // the early report; the audio follows it
    config.failStatus = ERROR_END_OF_STREAM;
    make(config, NULL);
    LogCapture log;
    positionAndFill(0);
    EXPECT_EQ(1, readsEntered());

    // The output waits for audio that no request will fetch; a pause ends
    // that wait with nothing.
    mSource->pause();
    std::vector<int> left;
    EXPECT_EQ(OK, readOnce(&left));
    EXPECT_TRUE(left.empty());
    EXPECT_EQ(1, log.count("AudioResampler", "no buffer", ANDROID_LOG_ERROR));
    EXPECT_EQ(1, readsEntered());
    EXPECT_EQ(0, mSource->getPosition());

    // The next position restarts decoding, and the audio comes.
    positionAndFill(100000);
    EXPECT_GE(readsEntered(), 3);
    ASSERT_EQ(OK, readOnce(&left));
    ASSERT_FALSE(left.empty());
    EXPECT_EQ(1, left.front());
}

TEST_F(RotavoxSourceTest, DecoderFailureBecomesUnknownErrorOnceDrained) {
    SyntheticPcmConfig config = pcm(8000, 160, 48000 * 10);
    config.failAtRead = 4;
    make(config, "300000/5000000/500000");
    LogCapture log;
    positionAndFill(0);
    EXPECT_EQ(4, readsEntered());
    std::vector<int> left;
    status_t err = OK;
    for (int i = 0; i < 5 && err == OK; ++i) err = readOnce(&left);
    // The three buffers are played; the forward reader then stays on the
    // tail buffer, so the error shows only where the cache has nothing.
    EXPECT_EQ(OK, err);
    EXPECT_GE(left.size(), 479u);

    // Nothing readable: the error comes out with a null buffer.
    config.failAtRead = 1;
    make(config, "300000/5000000/500000");
    positionAndFill(0);
    MediaBufferBase* buffer = reinterpret_cast<MediaBufferBase*>(1);
    EXPECT_EQ(UNKNOWN_ERROR, mSource->read(&buffer, NULL));
    EXPECT_EQ(NULL, buffer);
}

TEST_F(RotavoxSourceTest, PauseEndsOneWaitWithAnEmptyReadAndStopEndsTheDecodeLoop) {
    make(SyntheticPcmConfig(), NULL);
    // Never positioned: nothing is readable, nothing is decoded.
    mSource->pause();
    MediaBufferBase* buffer = reinterpret_cast<MediaBufferBase*>(1);
    EXPECT_EQ(OK, mSource->read(&buffer, NULL));
    EXPECT_EQ(NULL, buffer);
    EXPECT_EQ(0, readsEntered());

    // Stopped, a position decodes nothing.
    EXPECT_EQ(OK, mSource->stop());
    EXPECT_EQ(1, mUpstream->stopCount());
    mSource->setPosition(1000000);
    ASSERT_TRUE(waitUntil([&] { return mSource->getPosition() == 1000000; }));
    settle();
    EXPECT_EQ(0, readsEntered());
}

TEST_F(RotavoxSourceTest, SeekDuringAReadDiscardsItsBuffer) {
    make(pcm(48000, 960, 48000 * 60), "1500000/2000000/500000");
    mUpstream->closeGate();
    mSource->setPosition(1000000);
    ASSERT_TRUE(mUpstream->waitForReadsEntered(1));
    {
        // The reader jumps away while the first upstream read is running,
        // as a read() on the audio thread would.
        Mutex::Autolock lock(in().lock());
        in().updateCacheIfNecessary_l(30000000);
    }
    mUpstream->openGate();
    ASSERT_TRUE(waitUntil([&] { return mUpstream->records().size() >= 2; }));
    settle();
    const std::vector<testing::SyntheticReadRecord> records = mUpstream->records();
    EXPECT_EQ(400000, records[0].seekUs);
    EXPECT_EQ(400000, records[0].timeUs);
    EXPECT_EQ(29500000, records[1].seekUs);
    const std::vector<int64_t> times = in().cacheTimes();
    ASSERT_FALSE(times.empty());
    EXPECT_EQ(29500000, times.front());
    EXPECT_EQ("", in().cacheInvariants());
}

// ---------------------------------------------------------------------------
// What comes out of a real file: every frame from where the play has been

// A 44.1 kHz stereo WAV whose frames carry their own index: the left sample
// the low 16 bits, the right the bits above them.
class PlayedAudioTest : public ::testing::Test {
protected:
    static const int kRate = 44100;
    static const size_t kBlockFrames = 512;  // one read of the source

    // Written by the ffmpeg tool: k/32768 - 1 becomes the 16-bit k - 32768.
    static std::string writePositionCodedWav(const std::string& name, int seconds) {
        const std::string path = ::testing::TempDir() + name;
        const std::string cmd =
                "ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i \"aevalsrc=exprs="
                "'mod(n,65536)/32768-1|floor(n/65536)/32768-1':s=44100:d=" +
                std::to_string(seconds) + "\" -c:a pcm_s16le '" + path + "'";
        EXPECT_EQ(0, system(cmd.c_str()));
        return path;
    }
    static int64_t indexOf(const int16_t* frame) {
        return (int64_t)(frame[0] + 32768) + ((int64_t)(frame[1] + 32768) << 16);
    }

    void open(const std::string& path, const char* params) {
        mDecoder = new AudioDecoder(decodertest::openExtractor(path));
        ASSERT_EQ(OK, mDecoder->start(nullptr));
        mSource = new RotavoxSource(mDecoder, params);
        mSource->start(NULL);
        mHistory.clear();
        mAwayRun = 0;
    }
    void TearDown() override {
        mSource.clear();
        if (mDecoder != NULL) mDecoder->stop();
        mDecoder.clear();
    }
    // A fill of seven minutes takes a while under a sanitizer; the limit
    // only guards against a hang.
    void settle() {
        RotavoxSourceInspector in(mSource);
        ASSERT_TRUE(waitUntil([&] { return !in.decoding(); }, std::chrono::minutes(5)))
                << "decoder never settled";
    }

    struct Step {
        int64_t seekMs;  // < 0: no seek
        bool forward;
        int rate;
        double seconds;  // of output
        bool pace = true;  // the decoder idle before each read
    };
    // Plays |steps| and returns the first run of frames that lie away from
    // every position the source reported around them (the last 16 reads),
    // "" when there is none.  The margin covers a buffer's length and the
    // wrap of the left sample in frames interpolated at a changing rate.
    // Where the play jumps (a seek), the frames between the old place's
    // last frame and the new place's first are interpolated from both: a
    // short run lies in between.  Audio from a reused or freed buffer is a
    // whole buffer from elsewhere.
    std::string play(const std::vector<Step>& steps) {
        const int64_t kMarginFrames = 70000;
        const int kLongestJump = 64;  // frames between two far places
        auto note = [&](int64_t us) {
            mHistory.push_back(us * kRate / 1000000);
            if (mHistory.size() > 32) mHistory.erase(mHistory.begin());
        };
        int64_t output = 0;
        for (const Step& step : steps) {
            if (step.seekMs >= 0) {
                mSource->setPosition(step.seekMs * 1000);
                if (!waitUntil([&] { return mSource->getPosition() == step.seekMs * 1000; })) {
                    return "seek to " + std::to_string(step.seekMs) + " ms not taken";
                }
                settle();
            }
            if (step.forward) mSource->forward(0); else mSource->rewind(0);
            mSource->setPlaybackRatePermille(step.rate);
            const int64_t end = output + (int64_t)(step.seconds * kRate);
            while (output < end) {
                note(mSource->getPosition());
                MediaBufferBase* buffer = NULL;
                if (mSource->read(&buffer, NULL) != OK || buffer == NULL) {
                    return "no audio at output frame " + std::to_string(output);
                }
                note(mSource->getPosition());
                const int16_t* s = (const int16_t*)buffer->data();
                const size_t frames = buffer->range_length() / 4;
                std::string outside;
                for (size_t k = 0; k < frames && outside.empty(); ++k) {
                    const int64_t index = indexOf(s + 2 * k);
                    bool near = false;
                    for (int64_t p : mHistory) near |= std::abs(index - p) <= kMarginFrames;
                    mAwayRun = near ? 0 : mAwayRun + 1;
                    if (mAwayRun > kLongestJump) {
                        outside = "output frames up to " + std::to_string(output + k) +
                                  " come from around frame " + std::to_string(index) +
                                  ", the play was at " + std::to_string(mHistory.front()) +
                                  ".." + std::to_string(mHistory.back());
                    }
                }
                output += frames;
                buffer->release();
                if (!outside.empty()) return outside;
                if (step.pace) settle();
            }
        }
        return "";
    }

    sp<AudioDecoder> mDecoder;
    sp<RotavoxSource> mSource;
    // Positions of the last reads, in frames: after a seek the stage still
    // finishes the buffer it was in.
    std::vector<int64_t> mHistory;
    int mAwayRun = 0;  // frames in a row away from every position
};

// Backward within the cache's reach of the end (the joins of backward
// refills), forward over the end, and seeks that throw the cache away while
// the stage still plays one of its buffers.  Last, twelve minutes with a
// high-water mark of seven: the cache runs into its memory limit, where
// buffers given back are destroyed and recycled from the far end; under ASan
// this is where a buffer freed under the reader shows.  There each seek and
// each join of a backward refill decodes up to seven minutes again, so a few
// are enough, and then the reader plays unpaced while the cache fills.
TEST_F(PlayedAudioTest, EveryFrameComesFromWhereThePlayHasBeen) {
    const struct {
        int seconds;
        const char* params;
        std::vector<Step> steps;
    } cases[] = {
            {40, NULL, {{30000, false, -1000, 9}}},
            {40, NULL, {{37000, true, 1000, 5}}},
            {40, NULL,
             {{30000, true, 1000, 2}, {38000, false, -1000, 3}, {10000, true, 2000, 2},
              {-1, false, -3000, 2}, {35000, true, -1000, 2}}},
            {720, "1500000/420000000/4000000",
             {{300000, false, -1000, 5}, {-1, true, 2000, 1}, {100000, true, 1000, 4, false}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.seconds << " s from " << c.steps[0].seekMs << " ms");
        const std::string path = writePositionCodedWav("rotavox-pos.wav", c.seconds);
        open(path, c.params);
        EXPECT_EQ("", play(c.steps));
        EXPECT_EQ("", RotavoxSourceInspector(mSource).cacheInvariants());
        TearDown();
        unlink(path.c_str());
    }
}

// ---------------------------------------------------------------------------
// Contract violations

using RotavoxSourceDeathTest = RotavoxSourceTest;

TEST_F(RotavoxSourceDeathTest, AbortsOnBrokenContracts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    SyntheticPcmConfig okWithoutBuffer;
    okWithoutBuffer.okWithoutBufferAtRead = 1;
    const struct {
        SyntheticPcmConfig config;
        uint32_t post;  // 0: a position instead
        const char* abort;
    } cases[] = {
            {okWithoutBuffer, 0,
             "RotavoxSource:772 CHECK\\(\\(result == OK && mInputBuffer != NULL\\) \\|\\| "
             "\\(result != OK && mInputBuffer == NULL\\)\\) failed\\."},
            {SyntheticPcmConfig(), RotavoxSource::kWhatPosition,
             "RotavoxSource:854 CHECK\\(.*\"position\".*\\) failed\\."},
            {SyntheticPcmConfig(), 'what', "RotavoxSource:865 Should not be here\\. "},
    };
    for (const auto& c : cases) {
        EXPECT_DEATH(
                {
                    make(c.config, NULL);
                    if (c.post != 0) {
                        in().post(c.post);
                    } else {
                        mSource->setPosition(0);
                    }
                    waitUntil([] { return false; }, std::chrono::seconds(5));
                },
                std::string("frameworks/av/media/librotavox/") + c.abort);
    }
}

}  // namespace
}  // namespace android
