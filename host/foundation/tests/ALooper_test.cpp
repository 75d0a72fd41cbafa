#define LOG_TAG "ALooper_test"

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AHandlerReflector.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>

#include <errno.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
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

struct Delivery {
    int32_t seq = -1;
    int32_t sender = -1;
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

    std::atomic<int> mInFlight{0};
    std::atomic<bool> mOverlapSeen{false};

protected:
    void onMessageReceived(const sp<AMessage> &msg) override {
        if (mInFlight.fetch_add(1) != 0) {
            mOverlapSeen = true;
        }
        Delivery d;
        msg->findInt32("seq", &d.seq);
        msg->findInt32("sender", &d.sender);
        d.atUs = ALooper::GetNowUs();
        d.tid = gettid();
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
        mLooper->unregisterHandler(mHandler->id());
        mLooper->stop();
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

// Messages due at once are delivered one at a time, in posting order per
// sender, on the looper's own named thread at the priority it was given.
TEST_F(LooperTest, EqualDueTimesKeepPostingOrderPerSenderOnTheNamedThread) {
    const int kSenders = 4;
    const int kPerSender = 300;
    // Lowering a thread's priority is always permitted, so the request is
    // observable on any host.
    ASSERT_EQ(OK, mLooper->start(false, false, PRIORITY_LOWEST));
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
        ASSERT_EQ("fnd-test", d.thread);
        ASSERT_EQ(PRIORITY_LOWEST, d.nice);
        ASSERT_NE(gettid(), d.tid);
    }
    EXPECT_FALSE(mHandler->mOverlapSeen);
}

// Signals when the last reference to it goes away.
struct Sentinel : public RefBase {
    explicit Sentinel(std::atomic<bool> *gone) : mGone(gone) {}
    ~Sentinel() override { *mGone = true; }
    std::atomic<bool> *mGone;
};

// Start and stop are refused when they would do nothing; stop joins the
// thread, drops what is queued and releases a sender waiting for an answer
// that will never come; a stopped looper can run again.
TEST_F(LooperTest, StopJoinsDropsQueuedMessagesAndReleasesWaiters) {
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());
    ASSERT_EQ(OK, mLooper->start());
    EXPECT_EQ(INVALID_OPERATION, mLooper->start());
    std::atomic<bool> gone{false};
    {
        sp<AMessage> msg = new AMessage('late', mHandler);
        msg->setObject("sentinel", new Sentinel(&gone));
        ASSERT_EQ(OK, msg->post(60 * 1000000LL));
    }
    EXPECT_EQ(1, hostLooperPendingMessages("fnd-test"));
    // The recording handler never answers.
    status_t result = OK;
    std::thread sender([&] {
        sp<AMessage> response;
        result = sp<AMessage>(new AMessage('wait', mHandler))->postAndAwaitResponse(&response);
    });
    ASSERT_TRUE(mHandler->waitForCount(1));
    EXPECT_FALSE(gone);
    ASSERT_EQ(OK, mLooper->stop());
    sender.join();
    EXPECT_EQ(-ENOENT, result);
    // The queue let go of the message, and with it of what it carried.
    EXPECT_TRUE(gone);
    EXPECT_EQ(1u, mHandler->deliveries().size());
    EXPECT_EQ(0, hostLooperPendingMessages("fnd-test"));
    EXPECT_EQ(INVALID_OPERATION, mLooper->stop());
    ASSERT_EQ(OK, mLooper->start());
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('agn', mHandler))->post());
    EXPECT_TRUE(mHandler->waitForCount(2));
}

// Each 'chan' message posts its follow-up from inside the handler, as a
// decode loop does, and notes whether the looper ever looked idle meanwhile.
struct ChainHandler : public AHandler {
    std::atomic<int> zeroSeenInChain{0};

protected:
    void onMessageReceived(const sp<AMessage> &msg) override {
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
    sp<AMessage> chain = new AMessage('chan', handler);
    chain->setInt32("left", 50);
    chain->post();
    EXPECT_EQ(1, hostLooperPendingMessages("fnd-chain"));
    ASSERT_EQ(OK, looper->start());
    ASSERT_TRUE(hostLooperWaitIdle("fnd-chain", std::chrono::steady_clock::now() +
                                                        std::chrono::seconds(10)));
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
    sp<AMessage> response;
    EXPECT_EQ(-ENOENT, sp<AMessage>(new AMessage('sync', other))->postAndAwaitResponse(&response));

    // A marker due after the queued message proves the looper went past it.
    ASSERT_EQ(OK, sp<AMessage>(new AMessage('mark', mHandler))->post(40000));
    ASSERT_TRUE(mHandler->waitForCount(1));
    EXPECT_EQ(0u, other->deliveries().size());
    EXPECT_TRUE(log.contains("AMessage", "unregistered"));
}

TEST(LooperLifetimeTest, LastReferenceDroppedOnItsOwnThreadEndsCleanly) {
    // The handler owns the only strong reference and lets go of it while a
    // message is being delivered: the looper must stop without joining itself.
    struct Owner : public AHandler {
        sp<ALooper> mOwned;
        std::promise<void> mReleased;

    protected:
        void onMessageReceived(const sp<AMessage> &) override {
            mOwned.clear();
            mReleased.set_value();
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
    ASSERT_EQ(std::future_status::ready,
              owner->mReleased.get_future().wait_for(std::chrono::nanoseconds(kWaitNs)));
    EXPECT_EQ(NULL, weak.promote().get());
    // With the looper gone, its handler can no longer be reached.
    EXPECT_EQ(NULL, owner->looper().get());
    EXPECT_EQ(-ENOENT, sp<AMessage>(new AMessage('aftr', owner))->post());
}

// Answers every request with twice its value.
struct Doubler : public AHandler {
protected:
    void onMessageReceived(const sp<AMessage> &msg) override {
        sp<AReplyToken> replyID;
        CHECK(msg->senderAwaitsResponse(&replyID));
        int32_t value = 0;
        CHECK(msg->findInt32("value", &value));
        sp<AMessage> response = new AMessage;
        response->setInt32("doubled", value * 2);
        CHECK_EQ(OK, response->postReply(replyID));
    }
};

// Threads asking at once each get their own answer.
TEST_F(LooperTest, EachSenderGetsItsOwnAnswer) {
    sp<Doubler> doubler = new Doubler;
    mLooper->registerHandler(doubler);
    ASSERT_EQ(OK, mLooper->start());
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 150; ++i) {
                int32_t value = t * 100000 + i, doubled = 0;
                sp<AMessage> request = new AMessage('dbl ', doubler);
                request->setInt32("value", value);
                sp<AMessage> response;
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
    mLooper->unregisterHandler(doubler->id());
    EXPECT_EQ(0, mismatches.load());
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

}  // namespace
}  // namespace android
