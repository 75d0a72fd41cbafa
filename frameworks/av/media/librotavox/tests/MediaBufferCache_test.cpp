// Tests of the PCM cache that lets the scratch source play in both directions.

#include <stdio.h>
#include <stdlib.h>

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaBuffer.h>
#include "LogCapture.h"

#include "RotavoxSource.h"
#include "CacheOperations.h"
#include "ScratchInspectors.h"
#include "SyntheticPcmSource.h"

namespace android {
namespace {

using testing::LogCapture;
using testing::SyntheticPcmConfig;
using testing::SyntheticPcmSource;

const char* kTag = "RotavoxSource";
// 960 frames of 48 kHz audio last exactly 20 ms.
const size_t kFrames = 960;
const int64_t kBufferUs = 20000;

typedef std::vector<int64_t> Times;

class MediaBufferCacheTest : public ::testing::Test {
protected:
    void SetUp() override {
        SyntheticPcmConfig config;
        config.sampleRate = 48000;
        config.channelCount = 2;
        mUpstream = new SyntheticPcmSource(config);
        mOwner = new RotavoxSource(mUpstream, NULL);
        mCache = new MediaBufferCache(mOwner.get());
    }
    void TearDown() override {
        delete mCache;
        mOwner.clear();
    }

    // A stereo buffer whose samples tell its time in ms.
    int64_t append(int64_t timeUs, size_t frames = kFrames) {
        MediaBuffer* input = testing::makeTimedBuffer(timeUs, frames * 2);
        int64_t stamped = -1;
        EXPECT_TRUE(mCache->append(input, stamped));
        input->release();
        return stamped;
    }
    // Time of the buffer that read() hands out, -1 for none.  The buffer is
    // kept as the one in play, as the resampling stage keeps it.
    int64_t readTime(bool forward) {
        mCache->read(&mInPlay, forward);
        if (mInPlay == NULL) return -1;
        EXPECT_TRUE(mInPlay->meta_data().findInt64(kKeyTime, &mInPlayTime));
        EXPECT_EQ("", inPlayIntact());
        return mInPlayTime;
    }
    Times readTimes(int n, bool forward) {
        Times t;
        while (n-- > 0) t.push_back(readTime(forward));
        return t;
    }
    // The buffer in play must hold its audio until the next read, whatever
    // the cache did meanwhile.
    std::string inPlayIntact() const { return testing::timedBufferIntact(mInPlay, mInPlayTime); }
    MediaBufferCacheInspector in() { return MediaBufferCacheInspector(mCache); }
    void expectSane() { EXPECT_EQ("", in().checkInvariants()); }

    sp<SyntheticPcmSource> mUpstream;
    sp<RotavoxSource> mOwner;
    MediaBufferCache* mCache = NULL;
    MediaBuffer* mInPlay = NULL;
    int64_t mInPlayTime = -1;
};

TEST_F(MediaBufferCacheTest, UnknownFormatIsReported) {
    LogCapture log;
    mCache->setPcmFormat((audio_format_t)0x1234);
    EXPECT_EQ(1, log.count(kTag, "can't get sample size for fomat 4660", ANDROID_LOG_ERROR));
}

TEST_F(MediaBufferCacheTest, HitWindowHasMarginOnBothSidesAndClampsAtZero) {
    // 960 frames = 20000 us of audio.
    const size_t bytes = kFrames * 4;
    EXPECT_TRUE(mCache->isBufferHitTimeus(1000000, 900000, bytes));
    EXPECT_FALSE(mCache->isBufferHitTimeus(1000000, 899999, bytes));
    EXPECT_TRUE(mCache->isBufferHitTimeus(1000000, 1120000, bytes));
    EXPECT_FALSE(mCache->isBufferHitTimeus(1000000, 1120001, bytes));
    EXPECT_TRUE(mCache->isBufferHitTimeus(50000, 0, bytes));
    EXPECT_FALSE(mCache->isBufferHitTimeus(50000, -1, bytes));
    EXPECT_TRUE(mCache->isBufferHitTimeus(100000, 0, bytes));
    EXPECT_FALSE(mCache->isBufferHitTimeus(100001, 0, bytes));
    // An empty buffer still has the margin.
    EXPECT_TRUE(mCache->isBufferHitTimeus(1000000, 1100000, 0));
    EXPECT_FALSE(mCache->isBufferHitTimeus(1000000, 1100001, 0));
}

TEST_F(MediaBufferCacheTest, AppendOrdersLaterDuplicateAndEarlierWhileForward) {
    EXPECT_EQ(1000000, append(1000000));
    append(1020000);
    append(1040000);
    EXPECT_EQ((Times{1000000, 1020000, 1040000}), in().times());
    EXPECT_EQ(1000000, mCache->getCacheStartTimeUs());
    EXPECT_EQ(1040000, mCache->getCacheEndTimeUs());

    // A duplicate of the tail and, while forward, an earlier buffer (nothing
    // in front of the stretch) are dropped.
    append(1040000);
    append(500000);
    EXPECT_EQ((Times{1000000, 1020000, 1040000}), in().times());
    expectSane();
}

TEST_F(MediaBufferCacheTest, EarlierWhileBackwardSplicesInFrontAndJoinsAtReadPosition) {
    for (int64_t t = 1000000; t <= 1200000; t += kBufferUs) append(t);
    // The first buffer became the reader (read position 0 lies before it).
    EXPECT_EQ((Times{1000000, 1020000, 1040000}), readTimes(3, true));
    mOwner->rewind(0);
    // The cursor was one ahead.
    EXPECT_EQ((Times{1060000, 1040000, 1020000}), readTimes(3, false));

    // A refill decoded from 900 ms is spliced in front, in time order.
    append(900000);
    append(920000);
    EXPECT_EQ(900000, in().times()[0]);
    EXPECT_EQ(920000, in().times()[1]);
    EXPECT_EQ(1000000, mCache->getCacheStartTimeUs());
    for (int64_t t = 940000; t <= 1000000; t += kBufferUs) append(t);
    EXPECT_EQ(1000000, mCache->getCacheStartTimeUs());  // no join yet
    // 1020000 reaches the read position: join, the tail after it is dropped.
    append(1020000);
    EXPECT_EQ((Times{900000, 920000, 940000, 960000, 980000, 1000000, 1020000}), in().times());
    EXPECT_EQ(900000, mCache->getCacheStartTimeUs());
    EXPECT_EQ(1020000, mCache->getCacheEndTimeUs());
    // The old 1020 ms buffer, still being played, went with the tail; the
    // decoder running on at the tail takes the tail's memory, not its.
    for (int64_t t = 1040000; t <= 1240000; t += kBufferUs) append(t);
    EXPECT_EQ("", inPlayIntact());
    // The reader starts again at the joined buffer and walks back.
    EXPECT_EQ((Times{1020000, 1000000}), readTimes(2, false));
    expectSane();
}

TEST_F(MediaBufferCacheTest, DrainedFrontWhileRewindingWarnsAndJoinsAtTheFront) {
    for (int64_t t = 1000000; t <= 1060000; t += kBufferUs) append(t);
    mOwner->rewind(0);
    // The front of the stretch, returned again at the front.
    EXPECT_EQ((Times{1000000, 1000000}), readTimes(2, false));

    LogCapture log;
    append(960000);
    EXPECT_EQ(1, log.count(kTag, "cache is drained when rewinding. decoding lag!!",
                           ANDROID_LOG_WARN));
    append(980000);
    append(1000000);
    EXPECT_EQ((Times{960000, 980000, 1000000}), in().times());
    EXPECT_EQ(960000, mCache->getCacheStartTimeUs());  // joined at the front
    EXPECT_EQ((Times{1000000, 980000}), readTimes(2, false));
    expectSane();
}

TEST_F(MediaBufferCacheTest, EarlierWhileBackwardWithPendingTargetOnlyWarns) {
    EXPECT_EQ(1800000, mCache->setNextReadPosUs(1834567));
    append(1500000);  // ends before the target: the reader stays invalid
    EXPECT_TRUE(mCache->isReadBufferInvalid());
    mOwner->rewind(0);
    LogCapture log;
    append(1400000);
    EXPECT_EQ(1, log.count(kTag, "cache does not hit and extend from head????",
                           ANDROID_LOG_WARN));
    EXPECT_EQ((Times{1400000, 1500000}), in().times());
    expectSane();
}

TEST_F(MediaBufferCacheTest, FirstBufferAndPendingTargets) {
    // Read position 0 lies before the first buffer: it jumps to the buffer.
    append(700000);
    EXPECT_EQ(700000, in().readPosUs());
    mCache->releaseAll();

    // A target the buffer does not reach keeps the reader invalid; later
    // buffers take it once one hits.
    EXPECT_EQ(1500000, mCache->setNextReadPosUs(1500000));
    append(1000000);
    EXPECT_TRUE(mCache->isReadBufferInvalid());
    append(1300000);
    EXPECT_TRUE(mCache->isReadBufferInvalid());
    append(1390000);  // 1390000 + 100000 + 20000 >= 1500000
    EXPECT_EQ(1390000, in().readPosUs());
    expectSane();

    // A genuine buffer time on the grid looks like a pending target: a later
    // buffer that does not hit it leaves the reader invalid.
    mCache->releaseAll();
    in().setReadPosUs(600000);
    append(100000);  // no hit, 600000 >= 100000: invalid
    EXPECT_TRUE(mCache->isReadBufferInvalid());
    append(800000);
    EXPECT_TRUE(mCache->isReadBufferInvalid());
    // Off the grid, the next buffer simply becomes the reader.
    in().setReadPosUs(650001);
    append(820000);
    EXPECT_EQ(820000, readTime(true));
}

TEST_F(MediaBufferCacheTest, ReadsAtBothEndsRepeatTheEndBuffer) {
    EXPECT_EQ(-1, readTime(true));
    for (int64_t t = 0; t < 60000; t += kBufferUs) append(t);
    // Each end is handed out again when the reader is already on it.
    EXPECT_EQ((Times{0, 20000, 40000, 40000}), readTimes(4, true));
    EXPECT_EQ((Times{40000, 20000, 0, 0}), readTimes(4, false));
}

TEST_F(MediaBufferCacheTest, SeekingFollowsTheGridAndTheSmallMoveRule) {
    for (int64_t t = 1000000; t < 3000000; t += kBufferUs) append(t);
    EXPECT_EQ(1000000, in().readPosUs());  // jumped to the first buffer

    // Less than 500 ms away from a read position >= 1: unchanged.
    EXPECT_EQ(1000000, mCache->setNextReadPosUs(1499999));
    // Far enough: truncated to the grid, then resolved to the first buffer
    // whose window (100 ms margin + 20 ms of audio) reaches the target.
    EXPECT_EQ(1680000, mCache->setNextReadPosUs(1800000 + 12345));
    EXPECT_EQ(1680000, readTime(true));
    EXPECT_EQ(2280000, mCache->setNextReadPosUs(2599999));
    EXPECT_EQ(2280000, readTime(true));

    // Before the cache start and after its end: pending, reader invalid.
    EXPECT_EQ(600000, mCache->setNextReadPosUs(600000));
    EXPECT_TRUE(mCache->isReadBufferInvalid());
    EXPECT_EQ(3300000, mCache->setNextReadPosUs(3456789));
    EXPECT_TRUE(mCache->isReadBufferInvalid());

    // Truncation is toward zero, also for negative targets.
    in().setReadPosUs(0);
    EXPECT_EQ(-300000, mCache->setNextReadPosUs(-450000));
    EXPECT_TRUE(mCache->isReadBufferInvalid());

    // Read position 0 re-seeks even for a tiny move.
    in().setReadPosUs(0);
    EXPECT_EQ(1080000, mCache->setNextReadPosUs(1200000));
}

TEST_F(MediaBufferCacheTest, UpdateReadPositionReportsAGap) {
    append(0);
    append(1000000);  // a gap from 20 ms to 1 s
    LogCapture log;
    in().setReadPosUs(0);
    EXPECT_EQ(600000, mCache->setNextReadPosUs(600000));
    EXPECT_TRUE(mCache->isReadBufferInvalid());
    EXPECT_EQ(1, log.count(kTag, "can't hit the buffer!!", ANDROID_LOG_ERROR));
}

TEST_F(MediaBufferCacheTest, TrimsFromEitherEndAndReleasesAll) {
    for (int64_t t = 20000; t <= 200000; t += kBufferUs) append(t);
    EXPECT_EQ(0, mCache->releaseFromStart(0));
    EXPECT_EQ(3, mCache->releaseFromStart(60000));
    EXPECT_EQ(0, mCache->releaseToEnd(0));
    EXPECT_EQ(2, mCache->releaseToEnd(180000));
    EXPECT_EQ((Times{80000, 100000, 120000, 140000, 160000}), in().times());
    expectSane();

    // Emptying the list from the end stops at the empty list.
    EXPECT_EQ(5, mCache->releaseToEnd(1));
    EXPECT_TRUE(in().times().empty());
    for (int64_t t = 20000; t <= 100000; t += kBufferUs) append(t);
    LogCapture log;
    EXPECT_EQ(5, mCache->releaseFromStart(100000));
    EXPECT_EQ(1, log.count(kTag, "516 should not be here.", ANDROID_LOG_ERROR));

    for (int64_t t = 20000; t <= 100000; t += kBufferUs) append(t);
    readTime(true);
    EXPECT_EQ(5, mCache->releaseAll());
    EXPECT_TRUE(mCache->isReadBufferInvalid());
    EXPECT_EQ(-1, mCache->getCacheEndTimeUs());
    EXPECT_EQ(-1, mCache->getCacheStartTimeUs());
    expectSane();
}

// 1 MiB buffers: the limit of 15 x 4 MiB is reached by the 60th.
class MediaBufferCacheMemoryTest : public MediaBufferCacheTest {
protected:
    static const size_t kBigFrames = 262144;  // 1 MiB of stereo 16-bit
    static const int64_t kBigUs = 5461333;    // 262144 frames at 48 kHz
    int64_t bigTime(int i) const { return 10000000 + i * kBigUs; }
};

// Below the limit the cache only grows: nothing the reader has left behind
// is taken for new audio, and a buffer given back is kept for reuse.
TEST_F(MediaBufferCacheMemoryTest, BelowTheLimitNothingIsRecycledOrDestroyed) {
    for (int i = 0; i < 40; ++i) append(bigTime(i), kBigFrames);
    readTime(true);
    append(bigTime(40), kBigFrames);
    EXPECT_EQ(bigTime(0), mCache->getCacheStartTimeUs());
    mCache->releaseToEnd(bigTime(40));
    EXPECT_EQ(41u << 20, in().cachedBytes());
    expectSane();
}

TEST_F(MediaBufferCacheMemoryTest, ForwardRecyclesTheOldestBufferOfTheStretch) {
    for (int i = 0; i < 59; ++i) append(bigTime(i), kBigFrames);
    EXPECT_EQ(59u << 20, in().cachedBytes());
    readTime(true);  // reader moves off the first buffer
    append(bigTime(59), kBigFrames);
    EXPECT_EQ(59u << 20, in().cachedBytes());
    // The first buffer left the list, but it is still being played: the new
    // audio went to other memory.
    EXPECT_EQ("", inPlayIntact());
    EXPECT_EQ(bigTime(1), mCache->getCacheStartTimeUs());
    EXPECT_EQ(bigTime(59), mCache->getCacheEndTimeUs());
    expectSane();

    // The reader's buffer is never taken: with the reader at the front a new
    // buffer is allocated instead.
    in().setReadPosUs(0);
    mCache->setNextReadPosUs(bigTime(1) + 200000);  // grid target inside the front buffer
    append(bigTime(60), kBigFrames);
    EXPECT_EQ(60u << 20, in().cachedBytes());

    // Over the limit a returned buffer is destroyed, not kept.
    mCache->releaseToEnd(bigTime(60));
    EXPECT_EQ(59u << 20, in().cachedBytes());
    expectSane();
}

TEST_F(MediaBufferCacheMemoryTest, BackwardRecyclesTheNewestBuffer) {
    for (int i = 10; i < 69; ++i) append(bigTime(i), kBigFrames);
    // The reader turns at the tail: it plays the last buffer backward and
    // the cursor has moved on to the one before.
    for (int i = 10; i < 68; ++i) readTime(true);
    mOwner->rewind(0);
    EXPECT_EQ(bigTime(68), readTime(false));
    // An earlier buffer while backward takes the tail out of the list; the
    // tail is the buffer in play, so its memory stays with the reader.
    append(bigTime(0), kBigFrames);
    EXPECT_EQ(59u << 20, in().cachedBytes());
    EXPECT_EQ(bigTime(0), in().times().front());
    EXPECT_EQ(bigTime(67), in().times().back());
    EXPECT_EQ("", inPlayIntact());
    expectSane();
    // Once the reader moves on, it is destroyed (the cache is at its limit).
    EXPECT_EQ(bigTime(67), readTime(false));
    EXPECT_EQ(59u << 20, in().cachedBytes());
    expectSane();
}

// Random sequences of the operations the source makes, checked after every
// step against the cache's structural invariants.
TEST_F(MediaBufferCacheTest, RandomOperationsKeepInvariants) {
    // A fixed seed, so that a failure reproduces; ROTAVOX_TEST_SEED tries
    // another.  Printed up front as well: a broken invariant may also abort.
    const char* forced = getenv("ROTAVOX_TEST_SEED");
    const unsigned seed = forced != NULL ? (unsigned)strtoul(forced, NULL, 10) : 20261123u;
    fprintf(stderr, "random operations seed %u\n", seed);
    std::mt19937_64 rng(seed);
    auto pick = [&](int64_t lo, int64_t hi) { return lo + (int64_t)(rng() % (uint64_t)(hi - lo + 1)); };
    EXPECT_EQ("", testing::runCacheOperations(mCache, mOwner, 48000, 2, 4000, pick))
            << "seed " << seed;
}

using MediaBufferCacheDeathTest = MediaBufferCacheTest;

TEST_F(MediaBufferCacheDeathTest, AbortsOnBrokenContracts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                MediaBuffer* input = new MediaBuffer(64);
                int64_t t;
                mCache->append(input, t);
            },
            "frameworks/av/media/librotavox/RotavoxSource:223 "
            "CHECK\\(inputBuffer->meta_data\\(\\).findInt64\\(kKeyTime, &timeStampUs\\)\\) failed\\.");

    // Backward, earlier buffer, no reader and a read position off the grid.
    EXPECT_DEATH(
            {
                in().setReadPosUs(1500001);
                append(1000000);  // ends before the read position: no reader
                mOwner->rewind(0);
                append(900000);
            },
            "frameworks/av/media/librotavox/RotavoxSource:362 Should not be here\\. ");

    SyntheticPcmConfig config;
    config.announceSampleRate = false;
    sp<SyntheticPcmSource> noRate = new SyntheticPcmSource(config);
    EXPECT_DEATH({ sp<RotavoxSource> s = new RotavoxSource(noRate, NULL); },
                 "frameworks/av/media/librotavox/RotavoxSource:123 CHECK\\(success\\) failed\\.");
}

}  // namespace
}  // namespace android
