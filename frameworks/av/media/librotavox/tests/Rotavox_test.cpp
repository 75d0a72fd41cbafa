// The player: preparation, track selection, transport, the watchdog, and the
// audio callback's fill rules, on real fixture files heard through the host's
// WAV sink and on a scripted source.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <fstream>
#include <future>
#include <iterator>
#include <map>
#include <mutex>
#include <regex>
#include <set>
#include <thread>
#include <string>
#include <vector>

#include <cutils/properties.h>
#include <media/AudioTrack.h>
#include <HostLooperStats.h>
#include <HostMediaStats.h>
#include <media/HostAudioSink.h>
#include <media/MediaPlayerInterface.h>
#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>
#include <system/audio.h>

#include "Fixtures.h"
#include "LogCapture.h"
#include "WavReader.h"
#include "Rotavox.h"
#include "RotavoxSource.h"
#include "TestTime.h"

namespace android {

using testing::LogCapture;
using testing::stretched;
using namespace std::chrono_literals;

// Reaches the player's private state; the player itself exposes no flags.
// The _l calls expect the test to hold player.mLock, and the readers look
// at fields as they stand: the lock analysis cannot see through the peer's
// reference, hence NO_THREAD_SAFETY_ANALYSIS on those.
struct RotavoxTestPeer {
    explicit RotavoxTestPeer(Rotavox& p) : player(p) {}
    uint32_t flags() const { return player.mFlags; }
    size_t audioTrackIndex() const NO_THREAD_SAFETY_ANALYSIS {
        return player.mAudioTrackIndex;
    }
    int64_t seekPositionUs() const { return player.mSeekPositionUs; }
    sp<RotavoxSource> source() const NO_THREAD_SAFETY_ANALYSIS { return player.mSource; }
    void setSource(const sp<RotavoxSource>& s) NO_THREAD_SAFETY_ANALYSIS { player.mSource = s; }
    void setAudioPaused(bool paused) { player.mAudioPaused = paused; }
    // What pausing the output tells the callback, without a track.
    void pauseOutput() {
        player.mAudioPaused = true;
        ++player.mAudioPauses;
    }
    size_t fillBuffer(void* data, size_t size) { return player.fillBuffer(data, size); }
    void setIsAsyncPrepare(bool async) NO_THREAD_SAFETY_ANALYSIS {
        player.mIsAsyncPrepare = async;
    }
    status_t prepareAsync_l() NO_THREAD_SAFETY_ANALYSIS { return player.prepareAsync_l(); }
    void abortPrepare(status_t err) NO_THREAD_SAFETY_ANALYSIS { player.abortPrepare(err); }
    void createAudioPlayer_l() NO_THREAD_SAFETY_ANALYSIS { player.createAudioPlayer_l(); }
    status_t startAudioPlayer_l() NO_THREAD_SAFETY_ANALYSIS {
        return player.startAudioPlayer_l(false);
    }
    sp<TimedEventQueue::Event> checkStatusEvent() const NO_THREAD_SAFETY_ANALYSIS { return player.mCheckStatusEvent; }
    // Returns once everything the player's queue had due before now has
    // fired: an event posted to run at once goes after them.
    void settleQueue() {
        struct Marker : public TimedEventQueue::Event {
            void fire(TimedEventQueue*, int64_t) override { fired.set_value(); }
            std::promise<void> fired;
        };
        sp<Marker> marker = new Marker;
        std::future<void> fired = marker->fired.get_future();
        player.mQueue.postEvent(marker);
        ASSERT_EQ(std::future_status::ready, fired.wait_for(std::chrono::seconds(20)));
    }
    status_t setDataSource(const sp<DataSource>& source) {
        Mutex::Autolock autoLock(player.mLock);
        player.reset_l();
        return player.setDataSource_l(source);
    }
    void releaseInputBuffer() {
        if (player.mInputBuffer != NULL) {
            player.mInputBuffer->release();
            player.mInputBuffer = NULL;
        }
    }
    Rotavox& player;
};

namespace {

const int kUnknownError = (int)UNKNOWN_ERROR;

std::string fixture(const char* name) { return testing::fixturePath(name); }

// Observes the messages a player sends, as the platform's player object would.
struct Message {
    int msg, ext1, ext2;
};

class RecordingPlayer : public MediaPlayerBase {
public:
    struct Recorder : public MediaPlayerBase::Listener {
        void notify(int msg, int ext1, int ext2, const Parcel*) override {
            std::lock_guard<std::mutex> l(lock);
            messages.push_back({msg, ext1, ext2});
        }
        std::mutex lock;  // guards messages
        std::vector<Message> messages;
    };

    RecordingPlayer() : mRecorder(new Recorder) { setNotifyCallback(mRecorder); }

    std::vector<Message> messages() {
        std::lock_guard<std::mutex> l(mRecorder->lock);
        return mRecorder->messages;
    }
    std::vector<int> codes() {
        std::vector<int> out;
        for (const Message& m : messages()) out.push_back(m.msg);
        return out;
    }
    void clear() {
        std::lock_guard<std::mutex> l(mRecorder->lock);
        mRecorder->messages.clear();
    }

private:
    sp<Recorder> mRecorder;
};

// Polls observable state against a generous deadline; the deadline is only a
// guard against a hang, never the oracle.
using testing::waitUntil;

class RotavoxTest : public ::testing::Test {
protected:
    void SetUp() override {
        // The null sink at full speed: no device, no real-time wait.
        HostAudioOptions options;
        options.sink = "null";
        options.clock = std::make_shared<HostManualClock>();
        mSinkScope.reset(new HostAudioOptionsScope(options));
    }
    void TearDown() override { mSinkScope.reset(); }

    std::unique_ptr<HostAudioOptionsScope> mSinkScope;
    LogCapture mLog;
};

// --- Preparation -------------------------------------------------------------

// Only an asynchronous preparation announces itself; preparing again answers
// at once.
TEST_F(RotavoxTest, OnlyAnAsynchronousPreparationSaysPrepared) {
    for (bool async : {false, true}) {
        SCOPED_TRACE(async ? "asynchronous" : "synchronous");
        Rotavox player;
        RotavoxTestPeer peer(player);
        sp<RecordingPlayer> observer = new RecordingPlayer;
        player.setListener(observer);
        ASSERT_EQ(OK, player.setDataSource(fixture("flac16.flac").c_str()));
        if (async) {
            ASSERT_EQ(OK, player.prepareAsync());
            ASSERT_TRUE(waitUntil([&] {
                const std::vector<int> codes = observer->codes();
                return std::find(codes.begin(), codes.end(), 1) != codes.end();
            }));
        } else {
            ASSERT_EQ(OK, player.prepare());
        }
        int64_t durationUs = 0;
        ASSERT_EQ(OK, player.getDuration(&durationUs));
        EXPECT_NEAR(3000000, durationUs, 30000);
        EXPECT_EQ(0u, player.flags());
        if (async) observer->clear();
        // Anything a second preparation might have queued has run by the
        // time the queue settles.
        EXPECT_EQ(OK, player.prepare());
        EXPECT_EQ(OK, player.prepareAsync());
        peer.settleQueue();
        for (int code : observer->codes()) EXPECT_NE(1, code);
    }
}

TEST_F(RotavoxTest, ResetCancelsAPendingPreparation) {
    for (bool async : {true, false}) {
        SCOPED_TRACE(async ? "asynchronous" : "synchronous");
        Rotavox player;
        RotavoxTestPeer peer(player);
        sp<RecordingPlayer> observer = new RecordingPlayer;
        player.setListener(observer);
        ASSERT_EQ(OK, player.setDataSource(fixture("flac16.flac").c_str()));
        observer->clear();
        mLog.clear();
        {
            // Holding the lock from posting to reset makes the prepare event
            // run only once reset waits, so it always finds the cancel flag.
            Mutex::Autolock l(player.mLock);
            peer.setIsAsyncPrepare(async);
            ASSERT_EQ(OK, peer.prepareAsync_l());
            player.reset_l();
        }
        EXPECT_TRUE(mLog.contains("Rotavox", "prepare was cancelled before doing anything",
                                  ANDROID_LOG_INFO));
        EXPECT_EQ(0u, peer.flags());
        std::vector<Message> m = observer->messages();
        ASSERT_GE(m.size(), 1u);
        EXPECT_EQ(8, m[0].msg);
        if (async) {
            ASSERT_EQ(2u, m.size());
            EXPECT_EQ(100, m[1].msg);
            EXPECT_EQ(1, m[1].ext1);
            EXPECT_EQ(kUnknownError, m[1].ext2);
        } else {
            EXPECT_EQ(1u, m.size());
        }
    }
}

// Two audio tracks: the later one; an audio track behind a video track.
TEST_F(RotavoxTest, TheLastAudioTrackIsChosen) {
    for (const char* file : {"twotracks.mkv", "video.mp4"}) {
        SCOPED_TRACE(file);
        Rotavox player;
        RotavoxTestPeer peer(player);
        ASSERT_EQ(OK, player.setDataSource(fixture(file).c_str()));
        EXPECT_EQ(1u, peer.audioTrackIndex());
        EXPECT_EQ(OK, player.prepare());
    }
}

TEST_F(RotavoxTest, AFileWithoutAudioGatesEveryLaterCall) {
    Rotavox player;
    EXPECT_EQ(UNKNOWN_ERROR, player.setDataSource(fixture("video-only.mp4").c_str()));
    EXPECT_TRUE(mLog.contains("Rotavox", "no audio track or invalid!", ANDROID_LOG_ERROR));
    EXPECT_EQ(UNKNOWN_ERROR, player.prepare());
    EXPECT_EQ(UNKNOWN_ERROR, player.prepareAsync());
    EXPECT_EQ(UNKNOWN_ERROR, player.play());
    EXPECT_EQ(UNKNOWN_ERROR, player.pause());
    EXPECT_EQ(UNKNOWN_ERROR, player.forward(1000));
    EXPECT_EQ(UNKNOWN_ERROR, player.rewind(1000));
    EXPECT_EQ(UNKNOWN_ERROR, player.setPlaybackRatePermille(500));
    int64_t durationUs;
    EXPECT_EQ(UNKNOWN_ERROR, player.getDuration(&durationUs));
    // The seek is refused but remembered.
    EXPECT_EQ(UNKNOWN_ERROR, player.setPosition(1200));
    EXPECT_EQ(1200000, player.getPosition());
    // Until the next reset.
    player.reset();
    EXPECT_EQ(NO_INIT, player.getDuration(&durationUs));
    EXPECT_EQ(-1, player.getPosition());
}

// Calls out of the documented order (docs/bad-input.md, "Calls out of
// order"): each is a status and nothing more, and the object plays after.
TEST_F(RotavoxTest, CallsOutOfOrderAreAStatusAndNothingMore) {
    Rotavox player;
    const std::string flac = fixture("flac16.flac");
    EXPECT_EQ(NO_INIT, player.forward(1000));
    EXPECT_EQ(NO_INIT, player.setPosition(500));
    ASSERT_EQ(OK, player.setDataSource(flac.c_str()));
    EXPECT_EQ(NO_INIT, player.setPlaybackRatePermille(500));
    player.reset();
    EXPECT_EQ(OK, player.prepare());  // nothing to prepare
    EXPECT_EQ(NO_INIT, player.forward(1000));
    ASSERT_EQ(OK, player.setDataSource(flac.c_str()));
    ASSERT_EQ(OK, player.prepare());
    ASSERT_EQ(OK, player.forward(1000));
    player.reset();
    EXPECT_EQ(NO_INIT, player.rewind(1000));
    // The player's own lines; the host codec may complain of a stop that
    // came while its buffers were in flight.
    for (const testing::LogLine& line : mLog.lines()) {
        if (line.tag.rfind("Rotavox", 0) == 0) {
            EXPECT_LT(line.priority, ANDROID_LOG_WARN) << line.message;
        }
    }
    // A preparation asked for while one is queued is refused at once.
    ASSERT_EQ(OK, player.setDataSource(fixture("six.flac").c_str()));
    EXPECT_EQ(OK, player.prepareAsync());
    EXPECT_EQ(UNKNOWN_ERROR, player.prepare());
    player.reset();
    ASSERT_EQ(OK, player.setDataSource(flac.c_str()));
    ASSERT_EQ(OK, player.prepare());
    EXPECT_EQ(OK, player.forward(1000));
}

// One row of the bad-input document's player table: the three statuses and
// the first warning or error line, "tag: message" (none when the status is
// the whole answer), as a pattern where "…" stands for a part that varies.
struct BadInputRow {
    std::string input;
    status_t open, prepare, forward;
    std::regex log;
};

std::vector<BadInputRow> readBadInputTable(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line) && line.rfind("## Files, descriptors and properties", 0) != 0) {
    }
    const std::regex row("\\| (.+?) \\| (-?\\d+) \\| (-?\\d+) \\| (-?\\d+) \\| ([^`]*`([^`]*)`)?.*\\|");
    std::vector<BadInputRow> rows;
    for (std::smatch m; std::getline(in, line) && (line.empty() || line[0] == '|');) {
        if (!std::regex_match(line, m, row)) continue;  // the header and its rule
        const std::string literal = std::regex_replace(
                m[6].str(), std::regex(R"([.^$|()\[\]{}*+?\\])"), "\\$&");
        rows.push_back({m[1], std::stoi(m[2]), std::stoi(m[3]), std::stoi(m[4]),
                        std::regex(std::regex_replace(literal, std::regex("…"), ".*"))});
    }
    return rows;
}

// Every kind of bad input from outside the engine, each on the same player
// object in turn, answers as docs/bad-input.md's player table says (the
// test reads the table, so the two cannot drift): a status, never an abort,
// and the player plays a good file straight afterwards (nothing is lost or
// left half-open).
TEST_F(RotavoxTest, EveryBadInputAnswersWithAStatusAndLosesNothing) {
    const char* docs = getenv("ROTAVOX_DOCS");
    const std::vector<BadInputRow> rows =
            readBadInputTable(std::string(docs ? docs : ROTAVOX_DOCS) + "/bad-input.md");
    ASSERT_FALSE(rows.empty()) << "no player table in bad-input.md";
    const std::string flac = fixture("flac16.flac");
    struct stat st;
    ASSERT_EQ(0, stat(flac.c_str(), &st));
    const int64_t flacBytes = st.st_size;
    auto path = [](const std::string& p) {
        return [p](Rotavox& r) { return r.setDataSource(p.c_str()); };
    };
    // The descriptor is closed once the player has it, as an application may.
    auto descriptor = [](const std::string& p, int flags, int64_t offset, int64_t length) {
        return [=](Rotavox& r) {
            const int fd = open(p.c_str(), flags);
            const status_t err = r.setDataSource(fd, offset, length);
            if (fd >= 0) close(fd);
            return err;
        };
    };
    auto withProperty = [](const char* key, const char* value, const std::string& p) {
        return [=](Rotavox& r) {
            property_set(key, value);
            return r.setDataSource(p.c_str());
        };
    };
    const char* kCacheParams = "media.rotavox.cache-params";
    const char* kFlac24 = "flac.sw.decoder.24bit.support";
    // Opens the data source; the rest of the sequence is the same for all.
    const std::map<std::string, std::function<status_t(Rotavox&)>> setups = {
        {"missing path", path(fixture("does-not-exist.flac"))},
        {"null path", [](Rotavox& r) { return r.setDataSource((const char*)NULL); }},
        {"directory", path(fixture(""))},
        {"empty file", path(fixture("bad-empty.mp3"))},
        {"truncated FLAC (header cut)", path(fixture("bad-truncated.flac"))},
        {"truncated MP4 (index cut)", path(fixture("bad-truncated.m4a"))},
        {"garbage bytes", path(fixture("bad-garbage.wav"))},
        {"text", path(fixture("bad-text.mp3"))},
        {"video only", path(fixture("video-only.mp4"))},
        {"3 channels", path(fixture("three.flac"))},
        {"6 channels", path(fixture("six.flac"))},
        {"descriptor: length beyond the end", descriptor(flac, O_RDONLY, 0, flacBytes + 1000000)},
        {"descriptor: offset beyond the end", descriptor(flac, O_RDONLY, flacBytes + 4096, 1000)},
        {"descriptor: negative offset", descriptor(flac, O_RDONLY, -5, 1000)},
        {"descriptor: closed",
         [&](Rotavox& r) {
             int fd = open(flac.c_str(), O_RDONLY);
             close(fd);
             return r.setDataSource(fd, 0, flacBytes);
         }},
        {"descriptor: -1", [](Rotavox& r) { return r.setDataSource(-1, 0, 100); }},
        {"descriptor: a directory", descriptor(fixture(""), O_RDONLY | O_DIRECTORY, 0, 100)},
        // The fixture itself behind it: only the access mode is wrong.
        {"descriptor: write-only", descriptor(flac, O_WRONLY, 0, flacBytes)},
        {"`media.rotavox.cache-params` = `abc`", withProperty(kCacheParams, "abc", flac)},
        {"`media.rotavox.cache-params` = `1/2`", withProperty(kCacheParams, "1/2", flac)},
        {"`flac.sw.decoder.24bit.support` = `maybe`",
         withProperty(kFlac24, "maybe", fixture("flac24.flac"))},
    };
    std::set<std::string> documented;
    Rotavox player;
    for (const BadInputRow& row : rows) {
        SCOPED_TRACE(row.input);
        documented.insert(row.input);
        auto setup = setups.find(row.input);
        if (setup == setups.end()) {
            ADD_FAILURE() << "a documented input without a setup here";
            continue;
        }
        mLog.clear();
        const status_t open = setup->second(player);
        const status_t prepare = player.prepare();
        const status_t forward = player.forward(1000);
        (void)player.getPosition();
        player.reset();
        property_set(kCacheParams, "");
        property_set(kFlac24, "");
        std::string log;
        for (const testing::LogLine& line : mLog.lines()) {
            if (line.priority >= ANDROID_LOG_WARN) {
                log = line.tag + ": " + line.message;
                break;
            }
        }
        const std::string observed = ::testing::PrintToString(open) + " | " +
                                     ::testing::PrintToString(prepare) + " | " +
                                     ::testing::PrintToString(forward) + " | `" + log + "`";
        EXPECT_EQ(row.open, open) << observed;
        EXPECT_EQ(row.prepare, prepare) << observed;
        EXPECT_EQ(row.forward, forward) << observed;
        EXPECT_TRUE(std::regex_match(log, row.log)) << observed;
        // Whatever came before, the same object plays a good file.
        ASSERT_EQ(OK, player.setDataSource(flac.c_str()));
        ASSERT_EQ(OK, player.prepare());
        ASSERT_EQ(OK, player.forward(1000));
        player.reset();
    }
    for (const auto& setup : setups) {
        EXPECT_EQ(1u, documented.count(setup.first)) << setup.first << ": a setup without a row";
    }
}

// --- Transport -----------------------------------------------------------------

TEST_F(RotavoxTest, SpeedOperationsClampAndChooseDirection) {
    Rotavox player;
    RotavoxTestPeer peer(player);
    sp<RecordingPlayer> observer = new RecordingPlayer;
    player.setListener(observer);
    ASSERT_EQ(OK, player.setDataSource(fixture("wav16.wav").c_str()));
    ASSERT_EQ(OK, player.prepare());
    sp<RotavoxSource> source = peer.source();
    ASSERT_NE(nullptr, source.get());

    struct Case {
        const char* op;
        int arg;
        int rate;
        bool forward;
    } cases[] = {
            {"rewind", 500, -500, false},    {"rewind", 20000, -10000, false},
            {"rewind", -20000, 10000, false}, {"forward", -300, -300, true},
            {"forward", 20000, 10000, true},  {"forward", -20000, -10000, true},
            {"rate", -20000, -10000, true},   {"rate", 7000, 7000, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.op) + " " + std::to_string(c.arg));
        status_t err = std::string(c.op) == "rewind"    ? player.rewind(c.arg)
                       : std::string(c.op) == "forward" ? player.forward(c.arg)
                                                         : player.setPlaybackRatePermille(c.arg);
        EXPECT_EQ(OK, err);
        EXPECT_EQ(c.rate, source->getTargetPlaybackRatePermille());
        EXPECT_EQ(c.forward, source->isForward());
        EXPECT_TRUE(player.isPlaying());
    }
    // setPlaybackRatePermille keeps the direction the last rewind chose.
    ASSERT_EQ(OK, player.rewind(1000));
    ASSERT_EQ(OK, player.setPlaybackRatePermille(3000));
    EXPECT_FALSE(source->isForward());

    // At zero: forward and rewind hold the record still but keep playing;
    // setPlaybackRatePermille pauses first.
    ASSERT_EQ(OK, player.forward(0));
    EXPECT_EQ(0, source->getTargetPlaybackRatePermille());
    EXPECT_TRUE(player.isPlaying());
    ASSERT_EQ(OK, player.rewind(0));
    EXPECT_TRUE(player.isPlaying());
    observer->clear();
    ASSERT_EQ(OK, player.setPlaybackRatePermille(0));
    EXPECT_EQ(0, source->getTargetPlaybackRatePermille());
    EXPECT_FALSE(player.isPlaying());
    EXPECT_EQ(std::vector<int>({7}), observer->codes());
}

TEST_F(RotavoxTest, FirstPlayStartsAtZeroAndASeekPausesUnlessItIsPastTheEnd) {
    Rotavox player;
    RotavoxTestPeer peer(player);
    sp<RecordingPlayer> observer = new RecordingPlayer;
    player.setListener(observer);
    ASSERT_EQ(OK, player.setDataSource(fixture("flac16.flac").c_str()));
    ASSERT_EQ(OK, player.prepare());
    EXPECT_EQ(-1, peer.seekPositionUs());
    observer->clear();
    ASSERT_EQ(OK, player.forward(1000));
    EXPECT_EQ(0, peer.seekPositionUs());
    ASSERT_EQ(OK, player.forward(1500));  // already playing: no second start
    EXPECT_EQ(std::vector<int>({6}), observer->codes());
    EXPECT_TRUE(waitUntil([&] { return player.getPosition() > 0; }));

    // At or past the end: ignored, still playing.  The file lasts exactly
    // 3000 ms, so the first seek is at the end itself.
    int64_t durationUs = 0;
    ASSERT_EQ(OK, player.getDuration(&durationUs));
    ASSERT_EQ(3000000, durationUs);
    observer->clear();
    for (int64_t positionMs : {durationUs / 1000, int64_t(5000)}) {
        EXPECT_EQ(OK, player.setPosition(positionMs));
        EXPECT_EQ(0, peer.seekPositionUs()) << positionMs;
    }
    EXPECT_TRUE(player.isPlaying());
    EXPECT_TRUE(observer->codes().empty());

    EXPECT_EQ(OK, player.setPosition(2000));
    EXPECT_EQ(2000000, peer.seekPositionUs());
    EXPECT_FALSE(player.isPlaying());
    EXPECT_FALSE(peer.flags() & Rotavox::AUDIO_RUNNING);
    EXPECT_EQ(std::vector<int>({7}), observer->codes());
    // The output's pause does not wait for a callback already running, so
    // that fill may still read once at the new place: the position lands on
    // 2 s or within a buffer of it, never back near the start.
    int64_t positionUs = -1;
    EXPECT_TRUE(waitUntil([&] {
        positionUs = player.getPosition();
        return positionUs > 1700000 && positionUs < 2300000;
    })) << "position " << positionUs << " us";

    // Negative positions mean the start.
    EXPECT_EQ(OK, player.setPosition(-1));
    EXPECT_EQ(0, peer.seekPositionUs());
}

TEST_F(RotavoxTest, WatchdogWarnsOnceAndRearmsOnTheNextPlay) {
    Rotavox player;
    ASSERT_EQ(OK, player.setDataSource(fixture("flac16.flac").c_str()));
    ASSERT_EQ(OK, player.prepare());
    const char* kWarning = "no call from app in last 500ms since we start playing";

    RotavoxTestPeer peer(player);
    ASSERT_EQ(OK, player.forward(1000));
    ASSERT_TRUE(mLog.waitFor("Rotavox", kWarning, 5000ms, ANDROID_LOG_WARN));
    // The watchdog stopped: once the warning's event has returned, it is not
    // queued again (a queued event has an id).
    peer.settleQueue();
    EXPECT_EQ(0, peer.checkStatusEvent()->eventID());
    EXPECT_EQ(1, mLog.count("Rotavox", kWarning));

    // A new play arms it again.
    ASSERT_EQ(OK, player.setPlaybackRatePermille(0));
    mLog.clear();
    ASSERT_EQ(OK, player.forward(1000));
    EXPECT_TRUE(mLog.waitFor("Rotavox", kWarning, 5000ms, ANDROID_LOG_WARN));
}

// Two threads play an unprepared player at once: play prepares and waits,
// releasing the lock, and the other thread may start playback the moment
// the preparation ends.  The waiter must then find playback running and leave
// it be, not start the output a second time (fatal).
TEST_F(RotavoxTest, TwoThreadsStartingAnUnpreparedPlayerStartItOnce) {
    Rotavox player;
    RotavoxTestPeer peer(player);
    for (int round = 0; round < 40; ++round) {
        ASSERT_EQ(OK, player.setDataSource(fixture("wav16.wav").c_str()));
        std::atomic<int> ready{0};
        auto start = [&] {
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            player.play();
        };
        std::thread a(start), b(start);
        a.join();
        b.join();
        ASSERT_TRUE(peer.flags() & Rotavox::PLAYING) << "round " << round;
        ASSERT_TRUE(peer.flags() & Rotavox::AUDIO_RUNNING) << "round " << round;
        player.reset();
    }
}

// The Java side may drop an object right after prepareAsync, and its
// finalizer destroys the player with the preparation still queued.  The
// destruction must end: a preparation dropped from the queue unrun must not
// leave the destructor waiting for it.
TEST_F(RotavoxTest, DestroyingAPlayerWithAQueuedPreparationEnds) {
    for (int round = 0; round < 20; ++round) {
        Rotavox* player = new Rotavox;
        ASSERT_EQ(OK, player->setDataSource(fixture("flac16.flac").c_str()));
        ASSERT_EQ(OK, player->prepareAsync());
        // The destructor runs on a thread of its own, so that a hang is a
        // failure with a round number rather than a test run that never ends.
        auto done = std::make_shared<std::promise<void>>();
        std::future<void> destroyed = done->get_future();
        std::thread([player, done] {
            delete player;
            done->set_value();
        }).detach();
        ASSERT_EQ(std::future_status::ready, destroyed.wait_for(20s))
                << "destructor still waiting in round " << round;
    }
}

// --- Faults during play: the file changes, the descriptor goes, the stream breaks

namespace {

bool copyFile(const std::string& from, const std::string& to) {
    std::ifstream in(from, std::ios::binary);
    std::ofstream out(to, std::ios::binary | std::ios::trunc);
    out << in.rdbuf();
    return in.good() && out.good();
}

off_t fileSize(const std::string& path) {
    struct stat st = {};
    return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

// A few KiB of noise over the file at |at| (a fraction of its length);
// returns where the burst starts, in bytes.
off_t writeGarbage(const std::string& path, double at, size_t bytes) {
    const off_t offset = (off_t)(fileSize(path) * at);
    std::vector<char> noise(bytes);
    uint32_t x = 2463534242u;
    for (char& c : noise) {
        x ^= x << 13, x ^= x >> 17, x ^= x << 5;
        c = (char)x;
    }
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ((ssize_t)bytes, pwrite(fd, noise.data(), bytes, offset));
    close(fd);
    return offset;
}

// The first frame at or after |fromFrame| where |reference| holds |window|,
// sample for sample within |tolerance|; -1 if nowhere.
int64_t findWindow(const std::vector<int16_t>& reference, const int16_t* window,
                   size_t frames, int64_t fromFrame, int tolerance) {
    const int64_t last = (int64_t)(reference.size() / 2) - (int64_t)frames;
    for (int64_t f = std::max<int64_t>(0, fromFrame); f <= last; ++f) {
        size_t i = 0;
        while (i < frames * 2 && abs(reference[2 * f + i] - window[i]) <= tolerance) ++i;
        if (i == frames * 2) return f;
    }
    return -1;
}

}  // namespace

// Each case plays a copy of a fixture, changes the world under the player
// while it plays, then reset, release or a new data source comes from
// another thread.  Nothing may abort, every call must return within 2 s, and
// the player (or a new one) must then play a good file.  A small cache keeps
// the decoder close behind the play position, so the decoder meets each
// change while the output is still playing.
class FaultTest : public RotavoxTest {
protected:
    enum Fault {
        kTruncate,      // cut to half, then to nothing
        kReplace,       // deleted, another format put under the same name
        kAppFdClosed,   // a descriptor source whose application closes its descriptor
        kReadsFail,     // the descriptor the extractor reads becomes unreadable (EBADF)
        kRangeGone,     // a descriptor range that the file no longer covers
        kGarbage,       // a burst of noise in the middle
    };
    enum Motion { kForward, kBackward, kScratch };
    enum Interrupt { kReset, kRelease, kNewSource };
    static constexpr int64_t kStepFrames = 11025;  // a quarter second of output

    void SetUp() override {
        RotavoxTest::SetUp();
        char dir[] = "/tmp/rotavox-faults-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(dir));
        mDir = dir;
        mWork = mDir + "/work";
        property_set("media.rotavox.cache-params", "300000/1000000/500000");
        HostAudioOptions options;
        options.sink = "wav";
        options.freewheel = 1;
        options.wavPath = mDir + "/out.wav";
        // Faster than real time, but never ahead of the decoder: each period
        // waits (briefly: a stalled decoder is part of some cases) for the
        // cache to be filled as real time would have it.
        options.periodHook = [this](const HostAudioPeriod& period) {
            hostLooperWaitIdle("RotavoxSource", std::chrono::steady_clock::now() + 200ms);
            mFrames += (int64_t)period.writtenFrames;
            if (mOnPeriod) mOnPeriod(period);
        };
        mSinkScope.reset();  // the base's scope goes first, or it would undo this one
        mSinkScope.reset(new HostAudioOptionsScope(options));
    }
    void TearDown() override {
        property_set("media.rotavox.cache-params", "");
        if (mOwnedFd >= 0) close(mOwnedFd);
        unlink(mWork.c_str());
        unlink((mDir + "/out.wav").c_str());
        rmdir(mDir.c_str());
        RotavoxTest::TearDown();
    }

    // Runs |fn| and checks that it returned within 2 s.
    template <typename Fn>
    void timed(const char* what, Fn fn) {
        const auto start = std::chrono::steady_clock::now();
        fn();
        EXPECT_LT(std::chrono::steady_clock::now() - start, 2s) << what;
    }

    // Waits for |frames| more frames of output, or for a while: output that
    // stops is a possible outcome here, not the thing measured.
    void play(int64_t frames) {
        const int64_t target = mFrames + frames;
        waitUntil([&] { return mFrames >= target; }, 250ms);
    }

    // Opens the work copy of |file| the way |fault| needs.
    status_t open(Rotavox& player, RotavoxTestPeer& peer, Fault fault, const char* file) {
        EXPECT_TRUE(copyFile(fixture(file), mWork));
        const off_t size = fileSize(mWork);
        if (fault == kReadsFail) {
            // The extractor reads through this very descriptor.
            mReadsFailFd = ::open(mWork.c_str(), O_RDONLY | O_CLOEXEC);
            return peer.setDataSource(new FileSource(mReadsFailFd, 0, size));
        }
        if (fault == kAppFdClosed || fault == kRangeGone) {
            if (mOwnedFd >= 0) close(mOwnedFd);  // the previous case's
            mOwnedFd = ::open(mWork.c_str(), O_RDONLY | O_CLOEXEC);
            // The embedded file sits 4096 bytes into its container.
            const int64_t offset = fault == kRangeGone ? 4096 : 0;
            return player.setDataSource(mOwnedFd, offset, size - offset);
        }
        return player.setDataSource(mWork.c_str());
    }

    void injectFault(Fault fault, int part, const char* file) {
        const off_t size = fileSize(mWork);
        switch (fault) {
            case kTruncate:
                ASSERT_EQ(0, truncate(mWork.c_str(), part == 0 ? size / 2 : 0));
                break;
            case kReplace:
                if (part == 0) {
                    ASSERT_EQ(0, unlink(mWork.c_str()));
                    ASSERT_TRUE(copyFile(fixture(strstr(file, ".mp3") ? "flac16.flac" : "mp3.mp3"),
                                         mWork));
                }
                break;
            case kAppFdClosed:
                if (part == 0) {
                    close(mOwnedFd);
                    mOwnedFd = -1;
                }
                break;
            case kReadsFail:
                if (part == 0) {
                    // Same number, now a write-only description: reads fail
                    // with EBADF, and the source still closes its own number.
                    const int writeOnly = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
                    ASSERT_EQ(mReadsFailFd, dup2(writeOnly, mReadsFailFd));
                    close(writeOnly);
                }
                break;
            case kRangeGone:
                ASSERT_EQ(0, truncate(mWork.c_str(), part == 0 ? 4096 + (size - 4096) / 2 : 2048));
                break;
            case kGarbage:
                if (part == 0) writeGarbage(mWork, 0.45, 4096);
                break;
        }
    }

    void speed(Rotavox& player, Motion motion, int step) {
        const bool back = motion == kBackward || (motion == kScratch && step % 2 == 1);
        const int permille = motion == kScratch ? 10000 : 1000;
        timed("speed", [&] { EXPECT_EQ(OK, back ? player.rewind(permille) : player.forward(permille)); });
    }

    // The player can still be given a good file, and plays it.
    void playsAGoodFile(Rotavox& player) {
        timed("setDataSource", [&] { ASSERT_EQ(OK, player.setDataSource(fixture("wav16.wav").c_str())); });
        timed("prepare", [&] { ASSERT_EQ(OK, player.prepare()); });
        timed("forward", [&] { ASSERT_EQ(OK, player.forward(1000)); });
        const int64_t before = mFrames;
        EXPECT_TRUE(waitUntil([&] { return mFrames > before + 4410 && player.getPosition() > 0; }));
    }

    void runCase(const char* file, Fault fault, Motion motion, Interrupt interrupt) {
        std::unique_ptr<Rotavox> player(new Rotavox);
        RotavoxTestPeer peer(*player);
        ASSERT_EQ(OK, open(*player, peer, fault, file));
        ASSERT_EQ(OK, player->prepare());
        if (motion != kForward) {
            ASSERT_EQ(OK, player->setPosition(motion == kBackward ? 2500 : 1500));
        }
        for (int step = 0; step < 8; ++step) {
            if (step == 5) {
                // A seek to where the file may no longer have anything: the
                // output then waits for data that never comes.
                timed("seek", [&] { EXPECT_EQ(OK, player->setPosition(2700)); });
            }
            speed(*player, motion, step);
            play(kStepFrames);
            if (step == 1 || step == 3) injectFault(fault, step / 2, file);
        }
        std::thread other([&] {
            switch (interrupt) {
                case kReset:
                    timed("reset", [&] { player->reset(); });
                    break;
                case kRelease:
                    timed("release", [&] { player.reset(); });
                    break;
                case kNewSource:
                    timed("new setDataSource", [&] {
                        player->setDataSource(fixture("mp3.mp3").c_str());
                    });
                    break;
            }
        });
        if (interrupt != kRelease) {
            // A call beside it, answered OK or, after the reset, NO_INIT.
            timed("speed beside", [&] { player->forward(1000); });
        }
        // A call that never returns cannot be joined: end the run at once,
        // naming the case, rather than at the suite's time limit.
        std::promise<void> joined;
        std::thread watchdog([&, done = joined.get_future()] {
            if (done.wait_for(10s) == std::future_status::timeout) {
                fprintf(stderr, "FaultTest: %s, fault %d, motion %d, interrupt %d: stuck\n", file,
                        fault, motion, interrupt);
                abort();
            }
        });
        other.join();
        joined.set_value();
        watchdog.join();
        if (!player) player.reset(new Rotavox);
        playsAGoodFile(*player);
        timed("final reset", [&] { player->reset(); });
    }

    std::string mDir, mWork;
    int mOwnedFd = -1;
    int mReadsFailFd = -1;
    std::atomic<int64_t> mFrames{0};
    std::function<void(const HostAudioPeriod&)> mOnPeriod;  // set before the track exists
};

TEST_F(FaultTest, EveryFaultAtEverySpeedLeavesAPlayerThatAnswersAndPlaysAgain) {
    struct Row {
        Fault fault;
        const char* file;
    };
    const Row rows[] = {
            {kTruncate, "mp3.mp3"},   {kReplace, "aac.m4a"},        {kAppFdClosed, "mp3.mp3"},
            {kReadsFail, "aac.m4a"},  {kRangeGone, "embedded.bin"}, {kGarbage, "flac16.flac"},
    };
    int n = 0;
    for (const Row& row : rows) {
        for (Motion motion : {kForward, kBackward, kScratch}) {
            const Interrupt interrupt = (Interrupt)(n++ % 3);
            SCOPED_TRACE(::testing::Message() << row.file << " fault " << row.fault << " motion "
                                            << motion << " interrupt " << interrupt);
            runCase(row.file, row.fault, motion, interrupt);
            if (HasFatalFailure()) return;
        }
    }
}

// Play goes on past a burst of garbage, reached by playing through it and by
// seeking into it: once past it, the output is the file's own decode,
// sample for sample (as an independent ffmpeg decode has it).
TEST_F(FaultTest, PlayGoesOnPastABurstOfGarbage) {
    for (const char* file : {"mp3.mp3", "aac.m4a", "flac16.flac"}) {
        for (bool seekInto : {false, true}) {
            SCOPED_TRACE(::testing::Message() << file << (seekInto ? ", seeking into it" : ", playing through"));
            const std::vector<uint8_t> bytes = android::testing::referenceDecode(
                    fixture(file), "s16le", 0, "-ac 2 -ar 44100");
            const std::vector<int16_t> reference((const int16_t*)bytes.data(),
                                                 (const int16_t*)(bytes.data() + bytes.size()));
            ASSERT_GT(reference.size(), 44100u * 2 * 2);
            ASSERT_TRUE(copyFile(fixture(file), mWork));
            const double at = 0.45;
            writeGarbage(mWork, at, 4096);
            const int64_t burstUs = (int64_t)(at * 3000000);
            // The output to compare starts well after the burst, short of the
            // file's end, where the last buffer would repeat.
            const int64_t lookUs = burstUs + 700000;
            std::atomic<int64_t> lookFrame{-1};
            std::unique_ptr<Rotavox> player(new Rotavox);
            mOnPeriod = [&](const HostAudioPeriod& period) {
                if (lookFrame < 0 && player && player->getPosition() >= lookUs) {
                    lookFrame = period.deliveredFrames;
                }
            };
            mLog.clear();
            ASSERT_EQ(OK, player->setDataSource(mWork.c_str()));
            ASSERT_EQ(OK, player->prepare());
            if (seekInto) {
                ASSERT_EQ(OK, player->setPosition(burstUs / 1000));
            }
            ASSERT_EQ(OK, player->forward(1000));
            ASSERT_TRUE(waitUntil([&] { return lookFrame >= 0; }, 60s));
            // Another quarter second, then the output file is complete.
            play(kStepFrames);
            timed("reset", [&] { player->reset(); });
            mOnPeriod = nullptr;

            const std::vector<int16_t> out = android::testing::readWav(mDir + "/out.wav").pcm16();
            const size_t kWindow = 4096;
            ASSERT_GE((int64_t)out.size() / 2, lookFrame + (int64_t)kWindow);
            const int64_t found = findWindow(reference, &out[2 * lookFrame], kWindow,
                                             burstUs * 44100 / 1000000, 4);
            EXPECT_GE(found, 0) << "the output after the burst is not the file's decode";
        }
    }
}

// --- The audio callback's fill rules, over a scripted source ------------------

class StubUpstream : public MediaSource {
public:
    static sp<MetaData> rawFormat() {
        sp<MetaData> meta = new MetaData;
        meta->setCString(kKeyMIMEType, "audio/raw");
        meta->setInt32(kKeySampleRate, 44100);
        meta->setInt32(kKeyChannelCount, 2);
        return meta;
    }
    // The format is handed out itself, not a copy: a test can spoil it
    // after the scratch source has read it.
    explicit StubUpstream(const sp<MetaData>& format = rawFormat()) : mFormat(format) {}
    status_t start(MetaData*) override { return OK; }
    status_t stop() override { return OK; }
    sp<MetaData> getFormat() override { return mFormat; }
    status_t read(MediaBufferBase** buffer, const ReadOptions*) override {
        *buffer = NULL;
        return ERROR_END_OF_STREAM;
    }

private:
    sp<MetaData> mFormat;
};

class ScriptedSource : public RotavoxSource {
public:
    struct Step {
        status_t status;
        int bytes;  // < 0: no buffer
    };
    ScriptedSource() : RotavoxSource(new StubUpstream, nullptr) {}

    status_t read(MediaBufferBase** buffer, const ReadOptions*) override {
        ++reads;
        if (duringRead) {
            std::function<void()> action;
            action.swap(duringRead);
            action();
        }
        if (script.empty()) {
            *buffer = NULL;
            return ERROR_END_OF_STREAM;
        }
        Step s = script.front();
        script.pop_front();
        *buffer = NULL;
        if (s.bytes >= 0) {
            MediaBufferBase* b = MediaBufferBase::Create(s.bytes);
            uint8_t* p = static_cast<uint8_t*>(b->data());
            for (int i = 0; i < s.bytes; ++i) p[i] = (uint8_t)(next++);
            *buffer = b;
        }
        return s.status;
    }

    std::deque<Step> script;
    std::atomic<int> reads{0};
    int next = 0;
    std::function<void()> duringRead;  // runs once, inside the next read
};

class FillBufferTest : public RotavoxTest {
protected:
    void SetUp() override {
        RotavoxTest::SetUp();
        source = new ScriptedSource;
        peer.setSource(source);
    }
    void TearDown() override {
        peer.releaseInputBuffer();
        peer.setSource(NULL);
        RotavoxTest::TearDown();
    }
    Rotavox player;
    RotavoxTestPeer peer{player};
    sp<ScriptedSource> source;
};

TEST_F(FillBufferTest, ALargeBufferIsConsumedAcrossCallbacksInOrder) {
    source->script = {{OK, 1000}, {OK, 100}};
    uint8_t out[300];
    int expected = 0;
    for (int call = 0; call < 3; ++call) {
        ASSERT_EQ(300u, peer.fillBuffer(out, sizeof(out)));
        for (uint8_t b : out) ASSERT_EQ((uint8_t)expected++, b);
    }
    EXPECT_EQ(1, source->reads);
    // The last 100 bytes of the first buffer, then the whole second one.
    ASSERT_EQ(200u, peer.fillBuffer(out, 200));
    for (int i = 0; i < 200; ++i) ASSERT_EQ((uint8_t)expected++, out[i]);
    EXPECT_EQ(2, source->reads);
}

// One fill over a script of reads: what it hands the track and how many
// reads it took.
TEST_F(FillBufferTest, FillRules) {
    struct Case {
        const char* what;
        std::deque<ScriptedSource::Step> script;
        bool paused;
        size_t request, copied;
        int reads;
        bool pauseDuringRead = false;
    };
    const Case cases[] = {
            {"a zero-byte request reads nothing", {{OK, 100}}, false, 0, 0, 0},
            {"empty buffers are skipped", {{OK, 0}, {OK, 0}, {OK, 50}}, false, 50, 50, 3},
            // End of stream reports nothing, and the track keeps getting nothing.
            {"end of stream mid-fill", {{OK, 100}, {ERROR_END_OF_STREAM, -1}}, false, 300, 0, 2},
            {"end of stream again", {}, false, 300, 0, 1},
            {"paused output gives up on WOULD_BLOCK",
             {{OK, 100}, {WOULD_BLOCK, -1}}, true, 300, 100, 2},
            {"running output retries WOULD_BLOCK",
             {{WOULD_BLOCK, -1}, {WOULD_BLOCK, -1}, {OK, 300}}, false, 300, 300, 3},
            // The source's pause may have been spent on that read's wait, so
            // a further read could wait for ever.
            {"a pause during the read ends the fill",
             {{OK, 100}, {OK, 100}}, false, 300, 100, 1, true},
            {"no buffer after a pause ends the fill", {{OK, 100}, {OK, -1}}, true, 300, 0, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        peer.setAudioPaused(c.paused);
        source->script = c.script;
        source->reads = 0;
        if (c.pauseDuringRead) source->duringRead = [&] { peer.pauseOutput(); };
        uint8_t out[300];
        EXPECT_EQ(c.copied, peer.fillBuffer(out, c.request));
        EXPECT_EQ(c.reads, source->reads);
        peer.releaseInputBuffer();
    }
}

// Another thread pauses and plays again while the callback waits inside the
// source's read.  The pause ends that wait with OK and no buffer, and by the
// time the read returns the output runs again: the empty read belongs to the
// pause, so the fill ends quietly instead of taking it for a broken source.
TEST_F(RotavoxTest, PauseAndPlayDuringACallbacksReadEndTheFillQuietly) {
    Rotavox player;
    RotavoxTestPeer peer(player);
    ASSERT_EQ(OK, player.setDataSource(fixture("wav16.wav").c_str()));
    ASSERT_EQ(OK, player.prepare());
    sp<ScriptedSource> source = new ScriptedSource;
    peer.setSource(source);
    std::atomic<bool> replayed(false);
    source->duringRead = [&] {
        EXPECT_EQ(OK, player.pause());
        EXPECT_EQ(OK, player.play());
        replayed = true;
    };
    source->script = {{OK, -1}};
    ASSERT_EQ(OK, player.play());
    // The callback goes on asking: the fills after the replay meet the end
    // of the script.
    ASSERT_TRUE(waitUntil([&] { return replayed && source->reads >= 3; }));
    EXPECT_TRUE(player.isPlaying());
    EXPECT_TRUE(peer.flags() & Rotavox::AUDIO_RUNNING);
    player.reset();
}

using FillBufferDeathTest = FillBufferTest;

TEST_F(FillBufferDeathTest, NoBufferWhileRunningIsFatal) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    peer.setAudioPaused(false);
    source->script = {{OK, -1}};
    uint8_t out[16];
    EXPECT_DEATH(peer.fillBuffer(out, sizeof(out)),
                 "frameworks/av/media/librotavox/Rotavox:447 CHECK\\(\\(err == OK && "
                 "mInputBuffer != NULL\\) \\|\\| \\(err != OK && mInputBuffer == NULL\\)\\) "
                 "failed\\.");
}

// --- Abort texts ---------------------------------------------------------------

TEST(RotavoxDeathTest, BrokenInvariantsAbortWithTheirTexts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                Rotavox player;
                player.modifyFlags(Rotavox::PLAYING, (Rotavox::FlagMode)3);
            },
            "frameworks/av/media/librotavox/Rotavox:868 Should not be here\\. ");
    EXPECT_DEATH(
            {
                Rotavox player;
                RotavoxTestPeer peer(player);
                Mutex::Autolock l(player.mLock);
                peer.abortPrepare(OK);
            },
            "frameworks/av/media/librotavox/Rotavox:797 CHECK\\(err != OK\\) failed\\.");
    EXPECT_DEATH(
            {
                Rotavox player;
                RotavoxTestPeer peer(player);
                ASSERT_EQ(OK, player.setDataSource(fixture("wav16.wav").c_str()));
                ASSERT_EQ(OK, player.prepare());
                player.modifyFlags(Rotavox::AUDIO_RUNNING, Rotavox::SET);
                player.play();
            },
            "frameworks/av/media/librotavox/Rotavox:401 CHECK\\(!\\(mFlags & AUDIO_RUNNING\\)\\) "
            "failed\\.");
}

// The output is built from the scratch source's format, which must be raw PCM
// with a rate and a channel count; the source itself already needed the rate.
TEST(RotavoxDeathTest, AnOutputFormatItCannotUseAbortsWithItsText) {
    auto buildOutputAfter = [](void (*spoil)(MetaData*)) {
        sp<MetaData> format = StubUpstream::rawFormat();
        Rotavox player;
        RotavoxTestPeer peer(player);
        peer.setSource(new RotavoxSource(new StubUpstream(format), nullptr));
        spoil(format.get());
        Mutex::Autolock l(player.mLock);
        peer.createAudioPlayer_l();
    };
    EXPECT_DEATH(buildOutputAfter([](MetaData* m) { m->setCString(kKeyMIMEType, "audio/mpeg"); }),
                 "frameworks/av/media/librotavox/Rotavox:506 CHECK\\(success && "
                 "!strcasecmp\\(mime, MEDIA_MIMETYPE_AUDIO_RAW\\)\\) failed\\.");
    EXPECT_DEATH(buildOutputAfter([](MetaData* m) { m->remove(kKeySampleRate); }),
                 "frameworks/av/media/librotavox/Rotavox:510 CHECK\\(success\\) failed\\.");
    EXPECT_DEATH(buildOutputAfter([](MetaData* m) { m->remove(kKeyChannelCount); }),
                 "frameworks/av/media/librotavox/Rotavox:514 CHECK\\(success\\) failed\\.");
    // And the output is started only once.
    EXPECT_DEATH(
            {
                Rotavox player;
                RotavoxTestPeer peer(player);
                player.modifyFlags(Rotavox::AUDIO_RUNNING, Rotavox::SET);
                Mutex::Autolock l(player.mLock);
                peer.startAudioPlayer_l();
            },
            "frameworks/av/media/librotavox/Rotavox:547 CHECK\\(!\\(mFlags & AUDIO_RUNNING\\)\\) "
            "failed\\.");
}

}  // namespace
}  // namespace android
