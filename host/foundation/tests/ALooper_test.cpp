#define LOG_TAG "ALooper_test"

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AHandlerReflector.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>

#include <errno.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <HostLooperStats.h>

#include "LogCapture.h"
#include "TestTime.h"

namespace android {
namespace {

// Generous bound for waits that must succeed; it only matters when a test fails.
const nsecs_t kWaitNs = testing::stretchedNs(10000000000LL);

pid_t currentTid() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

struct Delivery {
    uint32_t what;
    int32_t seq;
    int32_t sender;
    int64_t atUs;
    pid_t tid;
    std::string thread;
    int nice;
};

// Records every message it receives and lets a test wait for a count.
struct RecordingHandler : public AHandler {
    std::vector<Delivery> deliveries() {
        Mutex::Autolock autoLock(mLock);
        return mDeliveries;
    }

    bool waitForCount(size_t n) {
        Mutex::Autolock autoLock(mLock);
        while (mDeliveries.size() < n) {
            if (mChanged.waitRelative(mLock, kWaitNs) != OK) {
                return false;
            }
        }
        return true;
    }

    size_t count() {
        Mutex::Autolock autoLock(mLock);
        return mDeliveries.size();
    }

    std::atomic<int> mInFlight{0};
    std::atomic<bool> mOverlapSeen{false};

protected:
    void onMessageReceived(const sp<AMessage> &msg) override {
        if (mInFlight.fetch_add(1) != 0) {
            mOverlapSeen = true;
        }
        Delivery d;
        d.what = msg->what();
        d.seq = -1;
        d.sender = -1;
        msg->findInt32("seq", &d.seq);
        msg->findInt32("sender", &d.sender);
        d.atUs = ALooper::GetNowUs();
        d.tid = currentTid();
        char name[17] = {};
        prctl(PR_GET_NAME, name, 0, 0, 0);
        d.thread = name;
        d.nice = getpriority(PRIO_PROCESS, d.tid);
        {
            Mutex::Autolock autoLock(mLock);
            mDeliveries.push_back(d);
        }
        mChanged.broadcast();
        mInFlight.fetch_sub(1);
    }

private:
    Mutex mLock;  // guards mDeliveries
    Condition mChanged;
    std::vector<Delivery> mDeliveries;
};

class LooperTest : public ::testing::Test {
protected:
    void SetUp() override {
        mLooper = new ALooper;
        mLooper->setName("fnd-test");
        mHandler = new RecordingHandler;
        mLooper->registerHandler(mHandler);
    }

    void TearDown() override {
        if (mLooper != NULL) {
            mLooper->unregisterHandler(mHandler->id());
            mLooper->stop();
        }
    }

    sp<ALooper> mLooper;
    sp<RecordingHandler> mHandler;
};

TEST_F(LooperTest, DelayedMessagesArriveInDueOrderAndNotEarly) {
    // Delays 15 ms apart, posted in a shuffled order before the thread runs.
    const int64_t delaysMs[] = {60, 15, 45, 0, 30, 75, 90};
    const size_t n = sizeof(delaysMs) / sizeof(delaysMs[0]);
    // The due time of each message lies between the clock read just before
    // and just after its post(), whatever the scheduler does in between.
    std::vector<int64_t> dueLoUs(n), dueHiUs(n);
    for (size_t i = 0; i < n; ++i) {
        sp<AMessage> msg = new AMessage('dlay', mHandler);
        msg->setInt32("seq", i);
        dueLoUs[i] = ALooper::GetNowUs() + delaysMs[i] * 1000;
        ASSERT_EQ(OK, msg->post(delaysMs[i] * 1000));
        dueHiUs[i] = ALooper::GetNowUs() + delaysMs[i] * 1000;
    }
    ASSERT_EQ(OK, mLooper->start());
    ASSERT_TRUE(mHandler->waitForCount(n));

    std::vector<Delivery> got = mHandler->deliveries();
    for (size_t i = 0; i < n; ++i) {
        int32_t seq = got[i].seq;
        if (i > 0) {
            // Out of order only if this one was surely due before its predecessor.
            EXPECT_GE(dueHiUs[seq], dueLoUs[got[i - 1].seq]) << "position " << i;
        }
        EXPECT_GE(got[i].atUs, dueLoUs[seq]) << "seq " << seq;
    }
}

TEST_F(LooperTest, EqualDueTimesKeepPostingOrderPerSender) {
    const int kSenders = 4;
    const int kPerSender = 300;
    ASSERT_EQ(OK, mLooper->start());
    std::vector<std::thread> senders;
    for (int s = 0; s < kSenders; ++s) {
        senders.emplace_back([this, s] {
            for (int i = 0; i < kPerSender; ++i) {
                sp<AMessage> msg = new AMessage('fifo', mHandler);
                msg->setInt32("sender", s);
                msg->setInt32("seq", i);
                EXPECT_EQ(OK, msg->post());
            }
        });
    }
    for (std::thread &t : senders) {
        t.join();
    }
    ASSERT_TRUE(mHandler->waitForCount(kSenders * kPerSender));

    std::vector<int> next(kSenders, 0);
    for (const Delivery &d : mHandler->deliveries()) {
        ASSERT_GE(d.sender, 0);
        EXPECT_EQ(next[d.sender], d.seq) << "sender " << d.sender;
        next[d.sender] = d.seq + 1;
    }
    EXPECT_FALSE(mHandler->mOverlapSeen);
}

TEST_F(LooperTest, DeliversOnANamedThreadWithItsPriority) {
    // Lowering a thread's priority is always permitted, so the request is
    // observable on any host.
    ASSERT_EQ(OK, mLooper->start(false, false, PRIORITY_LOWEST));
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('prob', mHandler))->post());
    ASSERT_TRUE(mHandler->waitForCount(1));
    const Delivery d = mHandler->deliveries()[0];
    EXPECT_EQ("fnd-test", d.thread);
    EXPECT_EQ(PRIORITY_LOWEST, d.nice);
    EXPECT_NE(currentTid(), d.tid);
}

// Signals when the last reference to it goes away.
struct Sentinel : public RefBase {
    explicit Sentinel(std::atomic<bool> *gone) : mGone(gone) {}
    ~Sentinel() override { *mGone = true; }
    std::atomic<bool> *mGone;
};

// Start and stop are refused when they would do nothing; stop joins the
// thread and drops what is queued; a stopped looper can run again.
TEST_F(LooperTest, StopJoinsAndDropsQueuedMessages) {
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());
    ASSERT_EQ(OK, mLooper->start());
    EXPECT_EQ(INVALID_OPERATION, mLooper->start());
    std::atomic<bool> gone{false};
    {
        sp<AMessage> msg = new AMessage('late', mHandler);
        msg->setObject("sentinel", new Sentinel(&gone));
        ASSERT_EQ(OK, msg->post(60 * 1000000LL));
    }
    EXPECT_FALSE(gone);
    EXPECT_EQ(1, hostLooperPendingMessages("fnd-test"));
    ASSERT_EQ(OK, mLooper->stop());
    // The queue let go of the message, and with it of what it carried.
    EXPECT_TRUE(gone);
    EXPECT_EQ(0u, mHandler->count());
    EXPECT_EQ(0, hostLooperPendingMessages("fnd-test"));
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());
    ASSERT_EQ(OK, mLooper->start());
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('agn', mHandler))->post());
    EXPECT_TRUE(mHandler->waitForCount(1));
}

// Holds each 'hold' message until released; a 'chain' message posts its
// follow-up from inside the handler, as a decode loop does.
struct ChainHandler : public AHandler {
    std::mutex lock;
    std::condition_variable cond;
    bool holding = false, released = false;
    std::atomic<int> zeroSeenInChain{0};

protected:
    void onMessageReceived(const sp<AMessage> &msg) override {
        if (msg->what() == 'hold') {
            std::unique_lock<std::mutex> l(lock);
            holding = true;
            cond.notify_all();
            cond.wait(l, [&] { return released; });
            return;
        }
        int32_t left = 0;
        msg->findInt32("left", &left);
        if (hostLooperPendingMessages("fnd-chain") == 0) zeroSeenInChain++;
        if (left > 0) {
            sp<AMessage> next = new AMessage('chan', this);
            next->setInt32("left", left - 1);
            next->post();
        }
    }
};

TEST(LooperStatsTest, PendingMessagesCountQueuedAndInDeliveryUntilHandled) {
    sp<ALooper> looper = new ALooper;
    looper->setName("fnd-chain");
    sp<ChainHandler> handler = new ChainHandler;
    looper->registerHandler(handler);
    ASSERT_EQ(OK, looper->start());
    const auto deadline = [] { return std::chrono::steady_clock::now() + std::chrono::seconds(10); };

    (new AMessage('hold', handler))->post();
    {
        std::unique_lock<std::mutex> l(handler->lock);
        ASSERT_TRUE(handler->cond.wait_until(l, deadline(), [&] { return handler->holding; }));
    }
    // In delivery, then one more queued behind it.
    EXPECT_EQ(1, hostLooperPendingMessages("fnd-chain"));
    sp<AMessage> chain = new AMessage('chan', handler);
    chain->setInt32("left", 50);
    chain->post();
    EXPECT_EQ(2, hostLooperPendingMessages("fnd-chain"));
    EXPECT_FALSE(hostLooperWaitIdle("fnd-chain", std::chrono::steady_clock::now()));
    {
        std::lock_guard<std::mutex> l(handler->lock);
        handler->released = true;
        handler->cond.notify_all();
    }
    ASSERT_TRUE(hostLooperWaitIdle("fnd-chain", deadline()));
    // Each link of the chain was still counted while it ran.
    EXPECT_EQ(0, handler->zeroSeenInChain.load());
    looper->unregisterHandler(handler->id());
    looper->stop();
}

TEST_F(LooperTest, UnregisteredHandlerGetsNothingAndPostFails) {
    testing::LogCapture log;
    ASSERT_EQ(OK, mLooper->start());
    sp<RecordingHandler> other = new RecordingHandler;
    mLooper->registerHandler(other);

    sp<AMessage> queuedBefore = new AMessage('qbef', other);
    ASSERT_EQ(OK, queuedBefore->post(20000));
    sp<AMessage> addressedBefore = new AMessage('abef', other);
    mLooper->unregisterHandler(other->id());
    EXPECT_EQ(0, other->id());

    EXPECT_EQ(-ENOENT, addressedBefore->post());
    EXPECT_EQ(-ENOENT, sp<AMessage>(new AMessage('aaft', other))->post());
    sp<AMessage> response;
    EXPECT_EQ(-ENOENT, sp<AMessage>(new AMessage('sync', other))->postAndAwaitResponse(&response));

    // A marker due after the queued message proves the looper went past it.
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('mark', mHandler))->post(40000));
    ASSERT_TRUE(mHandler->waitForCount(1));
    EXPECT_EQ(0u, other->count());
    EXPECT_TRUE(log.contains("AMessage", "unregistered"));
}

TEST(LooperLifetimeTest, LastReferenceDroppedOnItsOwnThreadEndsCleanly) {
    // The handler owns the only strong reference and lets go of it while a
    // message is being delivered: the looper must stop without joining itself.
    struct Owner : public AHandler {
        sp<ALooper> mOwned;
        Mutex mLock;  // guards mReleased
        Condition mDone;
        bool mReleased = false;

    protected:
        void onMessageReceived(const sp<AMessage> &) override {
            mOwned.clear();
            Mutex::Autolock autoLock(mLock);
            mReleased = true;
            mDone.broadcast();
        }
    };
    sp<Owner> owner = new Owner;
    wp<ALooper> weak;
    {
        sp<ALooper> looper = new ALooper;
        weak = looper;
        looper->registerHandler(owner);
        ASSERT_EQ(OK, looper->start());
        owner->mOwned = looper;
    }
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('rels', owner))->post());
    {
        Mutex::Autolock autoLock(owner->mLock);
        while (!owner->mReleased) {
            ASSERT_EQ(OK, owner->mDone.waitRelative(owner->mLock, kWaitNs));
        }
    }
    EXPECT_EQ(NULL, weak.promote().get());
    // With the looper gone, its handler can no longer be reached.
    EXPECT_EQ(NULL, owner->looper().get());
    EXPECT_EQ(-ENOENT, sp<AMessage>(new AMessage('aftr', owner))->post());
    sp<AMessage> response;
    EXPECT_EQ(-ENOENT, sp<AMessage>(new AMessage('aftr', owner))->postAndAwaitResponse(&response));
    EXPECT_EQ(-ENOENT, sp<AMessage>(new AMessage('none', NULL))->post());
}

// Answers every request with twice its value, from the looper thread or
// (when asked) from a thread of its own.
struct Doubler : public AHandler {
    std::vector<std::thread> mRepliers;
    std::atomic<int> mDuplicateReplyResult{OK};
    std::atomic<bool> mPlainPostAwaited{true};

protected:
    void onMessageReceived(const sp<AMessage> &msg) override {
        sp<AReplyToken> replyID;
        if (!msg->senderAwaitsResponse(&replyID)) {
            mPlainPostAwaited = false;
            return;
        }
        int32_t value = 0;
        CHECK(msg->findInt32("value", &value));
        sp<AMessage> response = new AMessage;
        response->setInt32("doubled", value * 2);
        int32_t elsewhere = 0;
        if (msg->findInt32("replyElsewhere", &elsewhere) && elsewhere) {
            mRepliers.emplace_back([response, replyID] {
                CHECK_EQ(OK, response->postReply(replyID));
            });
            return;
        }
        CHECK_EQ(OK, response->postReply(replyID));
        mDuplicateReplyResult = response->postReply(replyID);
        // The token has been consumed from the request.
        sp<AReplyToken> again;
        CHECK(!msg->senderAwaitsResponse(&again));
    }
};

class ReplyTest : public ::testing::Test {
protected:
    void SetUp() override {
        mLooper = new ALooper;
        mLooper->setName("fnd-reply");
        mDoubler = new Doubler;
        mLooper->registerHandler(mDoubler);
        ASSERT_EQ(OK, mLooper->start());
    }
    void TearDown() override {
        mLooper->stop();
        for (std::thread &t : mDoubler->mRepliers) {
            t.join();
        }
        mLooper->unregisterHandler(mDoubler->id());
    }

    sp<ALooper> mLooper;
    sp<Doubler> mDoubler;
};

TEST_F(ReplyTest, ManyThreadsEachGetTheirOwnAnswer) {
    const int kThreads = 6;
    const int kRequests = 150;
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRequests; ++i) {
                int32_t value = t * 100000 + i;
                sp<AMessage> request = new AMessage('dbl ', mDoubler);
                request->setInt32("value", value);
                sp<AMessage> response;
                int32_t doubled = 0;
                if (request->postAndAwaitResponse(&response) != OK || response == NULL ||
                    !response->findInt32("doubled", &doubled) || doubled != value * 2) {
                    mismatches++;
                }
            }
        });
    }
    for (std::thread &t : threads) {
        t.join();
    }
    EXPECT_EQ(0, mismatches.load());
    EXPECT_EQ(-EBUSY, mDoubler->mDuplicateReplyResult.load());
}

// A plain post awaits nothing; a reply from another thread wakes the sender,
// which is answered after the plain post.
TEST_F(ReplyTest, ReplyFromAnotherThreadWakesTheSender) {
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('plan', mDoubler))->post());
    sp<AMessage> request = new AMessage('dbl ', mDoubler);
    request->setInt32("value", 21);
    request->setInt32("replyElsewhere", 1);
    sp<AMessage> response;
    ASSERT_EQ(OK, request->postAndAwaitResponse(&response));
    int32_t doubled = 0;
    ASSERT_TRUE(response->findInt32("doubled", &doubled));
    EXPECT_EQ(42, doubled);
    EXPECT_FALSE(mDoubler->mPlainPostAwaited);
}

TEST_F(LooperTest, StoppingTheLooperReleasesAWaitingSender) {
    // The recording handler never answers; the sender must come back with
    // an error once the looper stops instead of waiting forever.
    ASSERT_EQ(OK, mLooper->start());
    status_t result = OK;
    std::thread sender([&] {
        sp<AMessage> response;
        result = sp<AMessage>(new AMessage('wait', mHandler))->postAndAwaitResponse(&response);
    });
    ASSERT_TRUE(mHandler->waitForCount(1));
    ASSERT_EQ(OK, mLooper->stop());
    sender.join();
    EXPECT_EQ(-ENOENT, result);
}

// The reflector's target; counts what reaches it.
struct ReflectorTarget : public RefBase {
    explicit ReflectorTarget(std::atomic<int> *received) : mReceived(received) {}
    void onMessageReceived(const sp<AMessage> &) { (*mReceived)++; }
    std::atomic<int> *mReceived;
};

TEST_F(LooperTest, ReflectorForwardsWhileItsTargetLivesAndDropsAfterwards) {
    ASSERT_EQ(OK, mLooper->start());
    std::atomic<int> received{0};
    sp<ReflectorTarget> target = new ReflectorTarget(&received);
    sp<AHandlerReflector<ReflectorTarget> > reflector =
            new AHandlerReflector<ReflectorTarget>(target.get());
    mLooper->registerHandler(reflector);

    ASSERT_EQ(OK, sp<AMessage>(new AMessage('live', reflector))->post());
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('mrk1', mHandler))->post());
    ASSERT_TRUE(mHandler->waitForCount(1));
    EXPECT_EQ(1, received.load());

    target.clear();
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('dead', reflector))->post());
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('mrk2', mHandler))->post());
    ASSERT_TRUE(mHandler->waitForCount(2));
    EXPECT_EQ(1, received.load());
    mLooper->unregisterHandler(reflector->id());
}

TEST(LooperDeathTest, RegisteringAHandlerTwiceAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    sp<ALooper> looper = new ALooper;
    sp<RecordingHandler> handler = new RecordingHandler;
    looper->registerHandler(handler);
    EXPECT_DEATH(looper->registerHandler(handler),
                 "CHECK\\(!\"A handler must only be registered once.\"\\) failed.");
    looper->unregisterHandler(handler->id());
}

}  // namespace
}  // namespace android
