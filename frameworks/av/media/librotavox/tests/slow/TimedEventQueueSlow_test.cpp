#define LOG_TAG "TimedEventQueueSlow_test"

#include "TimedEventQueue.h"

#include <media/stagefright/foundation/ALooper.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <LogCapture.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace android {
namespace {

using testing::LogCapture;

const char* const kTag = "TimedEventQueue";

// Signals once it has fired; the test waits on it with a generous guard.
class Waitable : public TimedEventQueue::Event {
public:
    void fire(TimedEventQueue*, int64_t nowUs) override {
        Mutex::Autolock _l(mLock);
        mFired = true;
        mNowUs = nowUs;
        mFiredCondition.broadcast();
    }
    bool waitFired(nsecs_t guardNs, int64_t* nowUs) {
        Mutex::Autolock _l(mLock);
        const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + guardNs;
        while (!mFired) {
            const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
            if (left <= 0) return false;
            mFiredCondition.waitRelative(mLock, left);
        }
        *nowUs = mNowUs;
        return true;
    }

private:
    Mutex mLock;  // guards mFired and mNowUs
    Condition mFiredCondition;
    bool mFired = false;
    int64_t mNowUs = 0;
};

// Returns the delay printed by the first capped-wait warning, -1 if none.
int64_t loggedDelayUs(const LogCapture& capture) {
    for (const auto& line : capture.lines()) {
        const std::string prefix = "delay_us exceeds max timeout: ";
        if (line.tag == kTag && line.message.rfind(prefix, 0) == 0) {
            return strtoll(line.message.c_str() + prefix.size(), nullptr, 10);
        }
    }
    return -1;
}

// Waits of up to 10 s are made in one piece; a 15 s one waits 10 s with a
// warning that logs the uncapped delay, then the rest silently.
TEST(TimedEventQueueSlowTest, WaitsAbove10sAreCappedWithOneWarning) {
    LogCapture capture;
    TimedEventQueue queue;
    queue.start();
    for (int64_t delayUs : {10000000LL, 15000000LL}) {
        SCOPED_TRACE(delayUs);
        sp<Waitable> event = new Waitable;
        const int64_t dueUs = ALooper::GetNowUs() + delayUs;
        queue.postTimedEvent(event, dueUs);
        int64_t nowUs = 0;
        ASSERT_TRUE(event->waitFired(60000000000LL, &nowUs));
        EXPECT_GE(nowUs, dueUs);
    }
    EXPECT_EQ(capture.count(kTag, "delay_us exceeds max timeout", ANDROID_LOG_WARN), 1);
    const int64_t logged = loggedDelayUs(capture);
    EXPECT_GT(logged, 10000000);
    EXPECT_LE(logged, 15000000);
    queue.stop(false);
}

}  // namespace
}  // namespace android
