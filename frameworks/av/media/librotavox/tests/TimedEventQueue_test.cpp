#define LOG_TAG "TimedEventQueue_test"

#include "TimedEventQueue.h"

#include <binder/HostBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <powermanager/PowerManager.h>
#include <media/stagefright/foundation/ALooper.h>
#include <utils/AndroidThreads.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <LogCapture.h>
#include <TestTime.h>
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <fstream>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace android {
namespace {

using testing::LogCapture;
using namespace std::chrono_literals;

const char* const kTag = "TimedEventQueue";
const String16 kPower("power");

// Nothing here is timed; this only keeps a broken queue from hanging the run.
const nsecs_t kGuardNs = testing::stretchedNs(20000000000LL);

struct Firing {
    int tag;
    int64_t nowUs;    // what the queue handed to fire()
    int64_t clockUs;  // the clock when fire() ran
};

// Collects firings from the queue's thread; the test thread waits on it.
class FireLog {
public:
    void add(const Firing& f) {
        Mutex::Autolock _l(mLock);
        mFirings.push_back(f);
        mChanged.broadcast();
    }
    // false when |n| firings did not arrive before the guard ran out.
    bool waitForCount(size_t n) {
        Mutex::Autolock _l(mLock);
        const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + kGuardNs;
        while (mFirings.size() < n) {
            const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
            if (left <= 0) return false;
            mChanged.waitRelative(mLock, left);
        }
        return true;
    }
    std::vector<Firing> firings() const {
        Mutex::Autolock _l(mLock);
        return mFirings;
    }
    std::vector<int> tags() const {
        std::vector<int> t;
        for (const Firing& f : firings()) t.push_back(f.tag);
        return t;
    }

private:
    mutable Mutex mLock;  // guards mFirings
    Condition mChanged;
    std::vector<Firing> mFirings;
};

class TestEvent : public TimedEventQueue::Event {
public:
    using Action = std::function<void(TimedEventQueue*, TestEvent*)>;
    TestEvent(FireLog* log, int tag, Action action = nullptr)
        : mLog(log), mTag(tag), mAction(std::move(action)) {}

    void fire(TimedEventQueue* queue, int64_t nowUs) override {
        if (mAction) mAction(queue, this);
        mLog->add({mTag, nowUs, ALooper::GetNowUs()});
    }
    int tag() const { return mTag; }

private:
    FireLog* mLog;
    int mTag;
    Action mAction;
};

// Ids of the threads named like the queue's.  Others may carry the name too
// (threads inherit it, and the test executable's own name truncates to the
// same fifteen characters), so tests compare sets taken before and after.
std::set<pid_t> queueNamedThreads() {
    std::set<pid_t> tids;
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return tids;
    while (dirent* d = readdir(dir)) {
        std::ifstream comm(std::string("/proc/self/task/") + d->d_name + "/comm");
        std::string name;
        std::getline(comm, name);
        if (name == "TimedEventQueue") tids.insert(pid_t(atoi(d->d_name)));
    }
    closedir(dir);
    return tids;
}

// ---------------------------------------------------------------------------
// Order of firing

TEST(TimedEventQueueOrderTest, PostEventFirstThenByTimeInPostingOrderThenBack) {
    TimedEventQueue queue;
    FireLog log;
    const int64_t base = ALooper::GetNowUs();
    std::map<int, int64_t> due;
    std::vector<TimedEventQueue::event_id> ids;
    std::vector<sp<TestEvent>> events;
    auto ev = [&](int tag) {
        events.push_back(new TestEvent(&log, tag));
        return events.back();
    };

    // Posted before start, so the queue alone decides the order.
    ids.push_back(queue.postTimedEvent(ev(0), due[0] = base + 60000));
    ids.push_back(queue.postEventToBack(ev(1)));
    ids.push_back(queue.postTimedEvent(ev(2), due[2] = base + 20000));
    ids.push_back(queue.postEvent(ev(3)));
    ids.push_back(queue.postTimedEvent(ev(4), due[4] = base + 20000));
    ids.push_back(queue.postEvent(ev(5)));
    ids.push_back(queue.postTimedEvent(ev(6), due[6] = base + 20000));
    ids.push_back(queue.postTimedEvent(ev(7), -5));
    ids.push_back(queue.postEventWithDelay(ev(8), 0));

    for (size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(ids[i], TimedEventQueue::event_id(i + 1));
        EXPECT_EQ(events[i]->eventID(), ids[i]);
    }

    queue.start();
    queue.stop(true);

    EXPECT_EQ(log.tags(), (std::vector<int>{3, 5, 7, 8, 2, 4, 6, 0, 1}));
    for (const Firing& f : log.firings()) {
        if (due.count(f.tag)) {
            EXPECT_GE(f.nowUs, due[f.tag]) << "event " << f.tag << " fired early";
        }
        EXPECT_LE(f.nowUs, f.clockUs);
    }
    for (const sp<TestEvent>& e : events) EXPECT_EQ(e->eventID(), 0);
}

// Random posts and concurrent cancellations: every event either fires once
// or is reported cancelled, never both, never early, and the firings keep
// the queue's order.
TEST(TimedEventQueueOrderTest, RandomPostsAndCancelsKeepTheInvariants) {
    const char* seedEnv = getenv("ROTAVOX_TEST_SEED");
    const unsigned seed = seedEnv ? unsigned(strtoul(seedEnv, nullptr, 0)) : 20240611u;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);

    TimedEventQueue queue;
    FireLog log;
    constexpr int kEvents = 300;
    struct Posted {
        sp<TestEvent> event;
        TimedEventQueue::event_id id;
        int64_t dueUs;  // as queued, specials included
    };
    std::vector<Posted> posted;
    const int64_t base = ALooper::GetNowUs();
    for (int i = 0; i < kEvents; ++i) {
        sp<TestEvent> e = new TestEvent(&log, i);
        const int kind = int(rng() % 10);
        if (kind == 0) {
            posted.push_back({e, queue.postEvent(e), INT64_MIN + 1});
        } else if (kind == 1) {
            posted.push_back({e, queue.postEventToBack(e), INT64_MAX});
        } else {
            const int64_t due = base + int64_t(rng() % 40000);
            posted.push_back({e, queue.postTimedEvent(e, due), due});
        }
    }

    queue.start();
    std::vector<bool> cancelled(kEvents, false);
    std::vector<int> order(kEvents);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), rng);
    for (int k = 0; k < kEvents / 3; ++k) {
        const int i = order[k];
        cancelled[i] = queue.cancelEvent(posted[i].id);
        if (cancelled[i]) {
            EXPECT_FALSE(queue.cancelEvent(posted[i].id));
        }
    }
    queue.stop(true);

    // Each event not cancelled fires once, in the queue's order; no other.
    for (const Posted& p : posted) EXPECT_EQ(p.event->eventID(), 0);
    std::vector<int> expected;
    for (int i = 0; i < kEvents; ++i) {
        if (!cancelled[i]) expected.push_back(i);
    }
    std::stable_sort(expected.begin(), expected.end(),
                     [&](int a, int b) { return posted[a].dueUs < posted[b].dueUs; });
    EXPECT_EQ(log.tags(), expected);
    for (const Firing& f : log.firings()) {
        const int64_t due = posted[f.tag].dueUs;
        if (due > 0 && due != INT64_MAX) {
            EXPECT_GE(f.nowUs, due);
        }
    }
}

// ---------------------------------------------------------------------------
// Cancelling

TEST(TimedEventQueueCancelTest, IdsThatMatchNothing) {
    TimedEventQueue queue;
    FireLog log;
    sp<TestEvent> e = new TestEvent(&log, 1);
    EXPECT_FALSE(queue.cancelEvent(0));

    // Posting a queued event again re-queues it under a new id; the first id
    // then matches nothing.
    const auto first = queue.postEvent(e);
    const auto second = queue.postEvent(e);
    EXPECT_NE(first, second);
    EXPECT_EQ(e->eventID(), second);
    EXPECT_FALSE(queue.cancelEvent(first));
    EXPECT_TRUE(queue.cancelEvent(second));
    EXPECT_FALSE(queue.cancelEvent(second));
    EXPECT_EQ(e->eventID(), 0);

    // One of the two items is left; it fires once.
    queue.start();
    ASSERT_TRUE(log.waitForCount(1));
    const auto fid = queue.postEvent(new TestEvent(&log, 2));
    queue.stop(true);
    EXPECT_EQ(log.tags(), (std::vector<int>{1, 2}));
    EXPECT_FALSE(queue.cancelEvent(fid));  // already fired
}

// The cookie is a std::function<bool(int)> taking the event's tag.
bool MatchTag(void* cookie, const sp<TimedEventQueue::Event>& event) {
    return (*static_cast<std::function<bool(int)>*>(cookie))(
            static_cast<TestEvent*>(event.get())->tag());
}

TEST(TimedEventQueueCancelTest, CancelEventsByPredicate) {
    TimedEventQueue queue;
    FireLog log;
    std::vector<sp<TestEvent>> events;
    for (int i = 0; i < 6; ++i) {
        events.push_back(new TestEvent(&log, i));
        queue.postEvent(events.back());
    }
    std::function<bool(int)> match = [](int tag) { return tag % 2 == 0; };
    queue.cancelEvents(MatchTag, &match, false);

    match = [](int) { return true; };
    queue.cancelEvents(MatchTag, &match, true);  // only the first that is left
    EXPECT_EQ(events[1]->eventID(), 0);

    queue.start();
    queue.stop(true);
    EXPECT_EQ(log.tags(), (std::vector<int>{3, 5}));
}

// The thread waits for a far head in capped pieces, logging each delay.
// Without a wake-up on cancelling the head it would sit out its 10 s wait and
// then find the next item less than 10 s away: the second warning, above
// 13 s, shows it re-read the queue at once.  A new, nearer head wakes it the
// same way; cancelling the last item while the thread waits for it finds
// nothing to fire, with a warning, and the loop goes on.
TEST(TimedEventQueueCancelTest, TheWaitingThreadFollowsChangesOfTheHead) {
    LogCapture capture;
    TimedEventQueue queue;
    FireLog log;
    queue.start();
    const int64_t base = ALooper::GetNowUs();
    const auto idA = queue.postTimedEvent(new TestEvent(&log, 1), base + 12000000);
    const auto idB = queue.postTimedEvent(new TestEvent(&log, 2), base + 14000000);
    ASSERT_TRUE(capture.waitFor(kTag, "delay_us exceeds max timeout: 1", 10s, ANDROID_LOG_WARN));
    ASSERT_EQ(capture.count(kTag, "delay_us exceeds max timeout: 13"), 0);
    EXPECT_TRUE(queue.cancelEvent(idA));
    ASSERT_TRUE(capture.waitFor(kTag, "delay_us exceeds max timeout: 13", 20s));

    queue.postEventWithDelay(new TestEvent(&log, 3), 1000);
    ASSERT_TRUE(log.waitForCount(1));
    // Cancelled only once the thread waits for it again.
    ASSERT_TRUE(testing::waitUntil(
            [&] { return capture.count(kTag, "delay_us exceeds max timeout: 13") >= 2; }));
    EXPECT_TRUE(queue.cancelEvent(idB));
    ASSERT_TRUE(capture.waitFor(
            kTag, "Event " + std::to_string(idB) + " was not found in the queue, already cancelled?",
            10s, ANDROID_LOG_WARN));
    queue.postEvent(new TestEvent(&log, 4));
    ASSERT_TRUE(log.waitForCount(2));
    queue.stop(false);
    EXPECT_EQ(log.tags(), (std::vector<int>{3, 4}));
    EXPECT_EQ(capture.count(kTag, "was not found in the queue"), 1);
}

// ---------------------------------------------------------------------------
// Events that use the queue from fire()

TEST(TimedEventQueueFireTest, AnEventRepostsItselfFromFire) {
    TimedEventQueue queue;
    FireLog log;
    std::vector<TimedEventQueue::event_id> idsDuringFire, reposted;
    sp<TestEvent> e = new TestEvent(&log, 7, [&](TimedEventQueue* q, TestEvent* self) {
        idsDuringFire.push_back(self->eventID());
        if (idsDuringFire.size() < 3) reposted.push_back(q->postEventWithDelay(self, 1000));
    });
    const auto firstId = queue.postEvent(e);
    queue.start();
    ASSERT_TRUE(log.waitForCount(3));
    queue.stop(true);  // drains: nothing more was queued
    EXPECT_EQ(log.firings().size(), 3u);
    EXPECT_EQ(idsDuringFire, (std::vector<TimedEventQueue::event_id>{0, 0, 0}));
    ASSERT_EQ(reposted.size(), 2u);
    EXPECT_GT(reposted[0], firstId);
    EXPECT_GT(reposted[1], reposted[0]);
}

// ---------------------------------------------------------------------------
// Thread life

TEST(TimedEventQueueThreadTest, StartTwiceRunsOneNamedForegroundThread) {
    TimedEventQueue queue;
    queue.stop(false);  // never started: nothing to do
    FireLog log;
    const std::set<pid_t> before = queueNamedThreads();
    char name[17] = {};
    int nice = 0;
    pid_t tid = 0;
    queue.start();
    queue.start();
    queue.postEvent(new TestEvent(&log, 1, [&](TimedEventQueue*, TestEvent*) {
        prctl(PR_GET_NAME, (unsigned long)name, 0, 0, 0);
        nice = androidGetThreadPriority(0);
        tid = gettid();
    }));
    ASSERT_TRUE(log.waitForCount(1));
    std::set<pid_t> started;
    for (pid_t t : queueNamedThreads()) {
        if (!before.count(t)) started.insert(t);
    }
    EXPECT_EQ(started, std::set<pid_t>{tid});
    EXPECT_STREQ(name, "TimedEventQueue");
    EXPECT_NE(tid, gettid());

    // Whether -2 can be had depends on the privilege to raise priorities.
    std::thread probe([&] {
        if (androidSetThreadPriority(0, ANDROID_PRIORITY_FOREGROUND) == 0) {
            EXPECT_EQ(nice, ANDROID_PRIORITY_FOREGROUND);
        }
    });
    probe.join();

    queue.stop(false);
}

TEST(TimedEventQueueThreadTest, EventsWaitForAThreadAndStopWithoutFlushDropsThem) {
    LogCapture capture;
    TimedEventQueue queue;
    FireLog log;
    sp<TestEvent> waiting = new TestEvent(&log, 1);
    const auto id = queue.postEvent(waiting);
    queue.stop(true);  // not running: returns at once, the event stays queued
    EXPECT_EQ(waiting->eventID(), id);
    queue.start();
    ASSERT_TRUE(log.waitForCount(1));

    sp<TestEvent> far = new TestEvent(&log, 2);
    sp<TestEvent> later = new TestEvent(&log, 3);
    const auto farId = queue.postEventWithDelay(far, 12000000);
    ASSERT_TRUE(capture.waitFor(kTag, "delay_us exceeds max timeout", 10s));
    const auto laterId = queue.postTimedEvent(later, ALooper::GetNowUs() + 13000000);
    queue.stop(false);
    // Dropped events keep their ids but are no longer queued.
    EXPECT_EQ(far->eventID(), farId);
    EXPECT_EQ(later->eventID(), laterId);
    EXPECT_FALSE(queue.cancelEvent(farId));

    queue.postEvent(new TestEvent(&log, 4));
    EXPECT_EQ(log.firings().size(), 1u);  // no thread runs after stop
    queue.start();
    ASSERT_TRUE(log.waitForCount(2));
    queue.stop(false);
    EXPECT_EQ(log.tags(), (std::vector<int>{1, 4}));
}

TEST(TimedEventQueueDeathTest, NegativeDelayAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TimedEventQueue queue;
    FireLog log;
    sp<TestEvent> e = new TestEvent(&log, 1);
    EXPECT_DEATH(queue.postEventWithDelay(e, -1),
                 "TimedEventQueue: frameworks/av/media/librotavox/TimedEventQueue:113 "
                 "CHECK\\(delay_us >= 0\\) failed\\.");
    EXPECT_EQ(queue.postEventWithDelay(e, 0), 1);
}

// ---------------------------------------------------------------------------
// Wake lock

class TimedEventQueueWakeLockTest : public ::testing::Test {
protected:
    void SetUp() override { mPower = host::restoreDefaultPowerService(); }
    void TearDown() override {
        host::flushBinderThread();
        host::restoreDefaultPowerService();
    }

    static bool heldByQueue(const sp<host::HostPowerService>& service) {
        auto locks = service->heldWakeLocks();
        return locks.size() == 1 && locks[0].flags == POWERMANAGER_PARTIAL_WAKE_LOCK &&
               locks[0].tag == String16("TimedEventQueue") &&
               locks[0].packageName == String16("media");
    }

    sp<host::HostPowerService> mPower;
    FireLog mLog;
};

TEST_F(TimedEventQueueWakeLockTest, OneLockSharedByFarEventsUntilTheLastGoes) {
    TimedEventQueue queue;
    // Post as if serving an app's call: the lock must be taken as ourselves.
    const int64_t appIdentity = (int64_t(10123) << 32) | 4321;
    IPCThreadState::self()->restoreCallingIdentity(appIdentity);

    // Items due within 100 ms take no count.
    EXPECT_TRUE(queue.cancelEvent(queue.postEvent(new TestEvent(&mLog, 0))));
    EXPECT_TRUE(queue.cancelEvent(queue.postEventWithDelay(new TestEvent(&mLog, 0), 100000)));
    EXPECT_EQ(mPower->acquireRequests(), 0);
    queue.postEventWithDelay(new TestEvent(&mLog, 1), 150000);
    const auto cancelled = queue.postEventWithDelay(new TestEvent(&mLog, 2), 10000000);
    const auto last = queue.postEventWithDelay(new TestEvent(&mLog, 3), 10000000);

    EXPECT_EQ(IPCThreadState::self()->getCallingUid(), 10123u);
    EXPECT_EQ(IPCThreadState::self()->getCallingPid(), 4321);
    IPCThreadState::self()->clearCallingIdentity();
    ASSERT_TRUE(heldByQueue(mPower));
    EXPECT_EQ(mPower->heldWakeLocks()[0].uid, int(getuid()));
    EXPECT_EQ(mPower->heldWakeLocks()[0].pid, int(getpid()));

    // A near item fires first: it has no count to give back.
    queue.postEvent(new TestEvent(&mLog, 0));
    queue.start();
    ASSERT_TRUE(mLog.waitForCount(2));
    // The thread gives back the fired item's count after fire() returns; the
    // next event it fires shows that it is done with that.
    queue.postEvent(new TestEvent(&mLog, 4));
    ASSERT_TRUE(mLog.waitForCount(3));
    EXPECT_TRUE(queue.cancelEvent(cancelled));
    EXPECT_TRUE(heldByQueue(mPower));
    EXPECT_EQ(mPower->releaseRequests(), 0);

    EXPECT_TRUE(queue.cancelEvent(last));
    EXPECT_TRUE(mPower->heldWakeLocks().empty());
    EXPECT_EQ(mPower->acquireRequests(), 1);
    EXPECT_EQ(mPower->releaseRequests(), 1);
    queue.stop(false);
    EXPECT_EQ(mPower->releaseRequests(), 1);
}

TEST_F(TimedEventQueueWakeLockTest, StopGivesTheLockBackOnceAndResetsTheCount) {
    TimedEventQueue queue;
    queue.start();
    queue.postEventWithDelay(new TestEvent(&mLog, 1), 10000000);
    queue.postEventWithDelay(new TestEvent(&mLog, 2), 11000000);
    ASSERT_TRUE(heldByQueue(mPower));
    queue.stop(false);
    EXPECT_EQ(mPower->acquireRequests(), 1);
    EXPECT_EQ(mPower->releaseRequests(), 1);
    EXPECT_TRUE(mPower->heldWakeLocks().empty());
    EXPECT_EQ(mLog.firings().size(), 0u);

    // The count is 0 again: the next far event asks the service anew.
    const auto id = queue.postEventWithDelay(new TestEvent(&mLog, 3), 10000000);
    EXPECT_EQ(mPower->acquireRequests(), 2);
    EXPECT_TRUE(queue.cancelEvent(id));
    EXPECT_EQ(mPower->releaseRequests(), 2);

    // stop(true) queues its own stop event at the very end, hence "far".
    queue.start();
    queue.postEventWithDelay(new TestEvent(&mLog, 4), 1000);
    queue.stop(true);
    EXPECT_EQ(mLog.firings().size(), 1u);
    EXPECT_EQ(mPower->acquireRequests(), 3);
    EXPECT_EQ(mPower->releaseRequests(), 3);
    EXPECT_TRUE(mPower->heldWakeLocks().empty());
}

TEST_F(TimedEventQueueWakeLockTest, WithoutAServiceEventsStillFireAndEachAcquisitionWarns) {
    LogCapture capture;
    ASSERT_TRUE(host::removeService(kPower));
    TimedEventQueue queue;
    const int64_t base = ALooper::GetNowUs();
    queue.postTimedEvent(new TestEvent(&mLog, 1), base + 150000);
    queue.postTimedEvent(new TestEvent(&mLog, 2), base + 160000);
    EXPECT_EQ(capture.count(kTag, "cannot connect to the power manager service",
                            ANDROID_LOG_WARN),
              2);
    queue.start();
    ASSERT_TRUE(mLog.waitForCount(2));
    queue.stop(false);
    EXPECT_EQ(mLog.tags(), (std::vector<int>{1, 2}));
    EXPECT_EQ(mPower->acquireRequests(), 0);

    // Looked up again once the service is back.
    sp<host::HostPowerService> back = host::restoreDefaultPowerService();
    const auto id = queue.postEventWithDelay(new TestEvent(&mLog, 3), 10000000);
    EXPECT_TRUE(heldByQueue(back));
    EXPECT_TRUE(queue.cancelEvent(id));
    EXPECT_TRUE(back->heldWakeLocks().empty());
}

// An item whose acquisition was refused still carries the flag; its release
// takes away the count a later item obtained.
TEST_F(TimedEventQueueWakeLockTest, RefusedAcquisitionsKeepTheFlagAndUnbalanceTheCount) {
    TimedEventQueue queue;
    mPower->setRefusal(PERMISSION_DENIED);
    const auto refused = queue.postEventWithDelay(new TestEvent(&mLog, 1), 10000000);
    queue.postEventWithDelay(new TestEvent(&mLog, 2), 10000000);
    EXPECT_EQ(mPower->acquireRequests(), 2);  // count stayed 0, so both asked
    EXPECT_TRUE(mPower->heldWakeLocks().empty());

    mPower->setRefusal(OK);
    const auto granted = queue.postEventWithDelay(new TestEvent(&mLog, 3), 10000000);
    EXPECT_EQ(mPower->acquireRequests(), 3);
    ASSERT_TRUE(heldByQueue(mPower));

    EXPECT_TRUE(queue.cancelEvent(refused));
    EXPECT_EQ(mPower->releaseRequests(), 1);
    EXPECT_TRUE(mPower->heldWakeLocks().empty());  // given back early, by design
    EXPECT_TRUE(queue.cancelEvent(granted));
    EXPECT_EQ(mPower->releaseRequests(), 1);
}

TEST_F(TimedEventQueueWakeLockTest, ServiceDeathWhileHeld) {
    sp<host::HostPowerService> dying = mPower;
    sp<host::HostPowerService> reborn;
    {
        TimedEventQueue queue;
        queue.start();
        const auto first = queue.postEventWithDelay(new TestEvent(&mLog, 1), 10000000);
        ASSERT_TRUE(heldByQueue(dying));

        ASSERT_TRUE(host::killService(kPower));
        host::flushBinderThread();
        // The queue gave the lock back on the stale connection.
        EXPECT_EQ(dying->releaseRequests(), 1);

        reborn = host::restoreDefaultPowerService();
        const auto second = queue.postEventWithDelay(new TestEvent(&mLog, 2), 10000000);
        EXPECT_EQ(dying->acquireRequests(), 1);
        EXPECT_EQ(reborn->acquireRequests(), 1);
        EXPECT_TRUE(heldByQueue(reborn));

        // The first item still carries its flag: cancelling it gives back the
        // lock the second one took.
        EXPECT_TRUE(queue.cancelEvent(first));
        EXPECT_EQ(reborn->releaseRequests(), 1);
        EXPECT_TRUE(queue.cancelEvent(second));
        EXPECT_EQ(reborn->releaseRequests(), 1);
        const auto third = queue.postEventWithDelay(new TestEvent(&mLog, 3), 10000000);
        EXPECT_EQ(reborn->acquireRequests(), 2);
        EXPECT_NE(third, 0);
    }
    // Destruction stopped the queue (one forced release) and unhooked its
    // death recipient, so a later death finds nobody to call.
    EXPECT_EQ(reborn->releaseRequests(), 2);
    EXPECT_TRUE(reborn->heldWakeLocks().empty());
    host::killService(kPower);
    host::flushBinderThread();
    EXPECT_EQ(reborn->releaseRequests(), 2);
    EXPECT_EQ(mLog.firings().size(), 0u);
}

}  // namespace
}  // namespace android
