#define LOG_TAG "TimedEventQueue"

#include "TimedEventQueue.h"

#include <errno.h>
#include <inttypes.h>
#include <sys/prctl.h>

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <media/stagefright/foundation/ALooper.h>
#include <powermanager/PowerManager.h>
#include <utils/AndroidThreads.h>
#include <utils/Log.h>

#include "RotavoxDebug.h"

namespace android {

namespace {

// Items due later than this when posted keep the device awake.
constexpr int64_t kWakeLockMinDelayUs = 100000LL;

// The thread re-examines far events at least this often.
constexpr int64_t kMaxTimeoutUs = 10000000LL;

// Due times with a meaning of their own.
constexpr int64_t kStopNowUs = INT64_MIN;         // stop(false): before everything
constexpr int64_t kPostNowUs = INT64_MIN + 1;     // postEvent: now, in posting order
constexpr int64_t kPostLastUs = INT64_MAX;        // postEventToBack, stop(true)

}  // namespace

static bool MatchesEventID(void* cookie, const sp<TimedEventQueue::Event>& event) {
    TimedEventQueue::event_id* id = static_cast<TimedEventQueue::event_id*>(cookie);
    if (event->eventID() != *id) {
        return false;
    }
    *id = 0;
    return true;
}

TimedEventQueue::TimedEventQueue()
    : mThread(),
      mNextEventID(1),
      mRunning(false),
      mStopped(false),
      mDeathRecipient(new PMDeathRecipient(this)),
      mWakeLockCount(0) {}

TimedEventQueue::~TimedEventQueue() {
    stop(false);
    Mutex::Autolock autoLock(mLock);
    if (mPowerManager != 0) {
        sp<IBinder> binder = IInterface::asBinder(mPowerManager);
        binder->unlinkToDeath(mDeathRecipient);
    }
}

void TimedEventQueue::start() {
    if (mRunning.load(std::memory_order_relaxed)) {
        return;
    }

    mStopped.store(false, std::memory_order_relaxed);

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
    pthread_create(&mThread, &attr, ThreadWrapper, this);
    pthread_attr_destroy(&attr);

    mRunning.store(true, std::memory_order_relaxed);
}

// The wake lock and the queue are touched without mLock once the thread is
// joined (see below), which the analysis cannot follow.
void TimedEventQueue::stop(bool flush) NO_THREAD_SAFETY_ANALYSIS {
    if (!mRunning.load(std::memory_order_relaxed)) {
        return;
    }

    sp<StopEvent> stopEvent = new StopEvent;
    if (flush) {
        postEventToBack(stopEvent);
    } else {
        postTimedEvent(stopEvent, kStopNowUs);
    }

    void* dummy;
    pthread_join(mThread, &dummy);

    // The thread is gone and the owner does not post concurrently, so the
    // lock is not needed here.
    releaseWakeLock_l(true);

    // Whatever is left is dropped without firing; the dropped events keep
    // their ids.
    mQueue.clear();

    mRunning.store(false, std::memory_order_relaxed);
}

TimedEventQueue::event_id TimedEventQueue::postEvent(const sp<Event>& event) {
    return postTimedEvent(event, kPostNowUs);
}

TimedEventQueue::event_id TimedEventQueue::postEventToBack(const sp<Event>& event) {
    return postTimedEvent(event, kPostLastUs);
}

TimedEventQueue::event_id TimedEventQueue::postEventWithDelay(const sp<Event>& event,
                                                              int64_t delay_us) {
    RV_CHECK("TimedEventQueue", 113, delay_us >= 0);
    return postTimedEvent(event, ALooper::GetNowUs() + delay_us);
}

TimedEventQueue::event_id TimedEventQueue::postTimedEvent(const sp<Event>& event,
                                                          int64_t realtime_us) {
    Mutex::Autolock autoLock(mLock);

    event->setEventID(mNextEventID);
    // Ids are not expected to wrap in practice; if they do, they do so
    // without undefined behaviour.
    mNextEventID = static_cast<event_id>(static_cast<uint32_t>(mNextEventID) + 1u);

    List<QueueItem>::iterator it = mQueue.begin();
    while (it != mQueue.end() && realtime_us >= (*it).realtimeUs) {
        ++it;
    }

    QueueItem item;
    item.event = event;
    item.realtimeUs = realtime_us;
    item.hasWakeLock = false;

    if (it == mQueue.begin()) {
        mQueueHeadChangedCondition.signal();
    }

    if (realtime_us > ALooper::GetNowUs() + kWakeLockMinDelayUs) {
        acquireWakeLock_l();
        // Set even when no lock could be had: the release that goes with this
        // item is then a no-op or takes a count that a later item obtained.
        item.hasWakeLock = true;
    }

    mQueue.insert(it, item);

    mQueueNotEmptyCondition.signal();

    return event->eventID();
}

bool TimedEventQueue::cancelEvent(event_id id) {
    if (id == 0) {
        return false;
    }

    cancelEvents(&MatchesEventID, &id, true /* stopAfterFirstMatch */);

    // MatchesEventID zeroes the cookie when it found the event.
    return id == 0;
}

void TimedEventQueue::cancelEvents(bool (*predicate)(void* cookie, const sp<Event>& event),
                                   void* cookie, bool stopAfterFirstMatch) {
    Mutex::Autolock autoLock(mLock);

    List<QueueItem>::iterator it = mQueue.begin();
    while (it != mQueue.end()) {
        if (!(*predicate)(cookie, (*it).event)) {
            ++it;
            continue;
        }

        if (it == mQueue.begin()) {
            mQueueHeadChangedCondition.signal();
        }

        (*it).event->setEventID(0);
        if ((*it).hasWakeLock) {
            releaseWakeLock_l();
        }
        it = mQueue.erase(it);
        if (stopAfterFirstMatch) {
            return;
        }
    }
}

// static
void* TimedEventQueue::ThreadWrapper(void* me) {
    androidSetThreadPriority(0, ANDROID_PRIORITY_FOREGROUND);

    static_cast<TimedEventQueue*>(me)->threadEntry();

    return NULL;
}

void TimedEventQueue::threadEntry() {
    prctl(PR_SET_NAME, (unsigned long)"TimedEventQueue", 0, 0, 0);

    for (;;) {
        int64_t now_us = 0;
        sp<Event> event;
        bool wakeLocked = false;

        {
            Mutex::Autolock autoLock(mLock);

            if (mStopped.load(std::memory_order_relaxed)) {
                break;
            }

            while (mQueue.empty()) {
                mQueueNotEmptyCondition.wait(mLock);
            }

            event_id eventID = 0;
            for (;;) {
                if (mQueue.empty()) {
                    // The only item was cancelled while we waited for it.
                    break;
                }

                List<QueueItem>::iterator it = mQueue.begin();
                eventID = (*it).event->eventID();

                now_us = ALooper::GetNowUs();
                int64_t when_us = (*it).realtimeUs;

                int64_t delay_us;
                if (when_us < 0 || when_us == INT64_MAX) {
                    delay_us = 0;
                } else {
                    delay_us = when_us - now_us;
                }

                if (delay_us <= 0) {
                    break;
                }

                bool timeoutCapped = false;
                if (delay_us > kMaxTimeoutUs) {
                    ALOGW("delay_us exceeds max timeout: %" PRId64 " us", delay_us);

                    // Waking up now and then makes sure a far event is not
                    // missed should the clock misbehave.
                    delay_us = kMaxTimeoutUs;
                    timeoutCapped = true;
                }

                status_t err = mQueueHeadChangedCondition.waitRelative(mLock, delay_us * 1000LL);

                if (!timeoutCapped && err == -ETIMEDOUT) {
                    // The head is due: fire it without looking at the clock
                    // again beyond this reading.
                    now_us = ALooper::GetNowUs();
                    break;
                }
            }

            // The event may have been cancelled while we waited, in which case
            // there is nothing to fire this time round.
            event = removeEventFromQueue_l(eventID, &wakeLocked);
        }

        if (event != NULL) {
            // Fire without the lock so the event can post and cancel.
            event->fire(this, now_us);
            if (wakeLocked) {
                Mutex::Autolock autoLock(mLock);
                releaseWakeLock_l();
            }
        }
    }
}

sp<TimedEventQueue::Event> TimedEventQueue::removeEventFromQueue_l(event_id id,
                                                                   bool* wakeLocked) {
    for (List<QueueItem>::iterator it = mQueue.begin(); it != mQueue.end(); ++it) {
        if ((*it).event->eventID() == id) {
            sp<Event> event = (*it).event;
            event->setEventID(0);
            *wakeLocked = (*it).hasWakeLock;
            mQueue.erase(it);
            return event;
        }
    }

    ALOGW("Event %d was not found in the queue, already cancelled?", id);

    return NULL;
}

void TimedEventQueue::acquireWakeLock_l() {
    if (mWakeLockCount != 0) {
        ++mWakeLockCount;
        return;
    }

    RV_CHECK("TimedEventQueue", 323, mWakeLockToken == 0);

    if (mPowerManager == 0) {
        // Use checkService() to avoid blocking if the power service is not up
        // yet.
        sp<IBinder> binder = defaultServiceManager()->checkService(String16("power"));
        if (binder == 0) {
            ALOGW("cannot connect to the power manager service");
        } else {
            mPowerManager = IPowerManager::asInterface(binder);
            binder->linkToDeath(mDeathRecipient);
        }
    }

    if (mPowerManager == 0) {
        return;
    }

    sp<IBinder> binder = new BBinder();
    int64_t token = IPCThreadState::self()->clearCallingIdentity();
    status_t status = mPowerManager->acquireWakeLock(POWERMANAGER_PARTIAL_WAKE_LOCK, binder,
                                                     String16("TimedEventQueue"),
                                                     String16("media"), false /* isOneWay */);
    IPCThreadState::self()->restoreCallingIdentity(token);
    if (status == NO_ERROR) {
        mWakeLockToken = binder;
        ++mWakeLockCount;
    }
}

void TimedEventQueue::releaseWakeLock_l(bool force) {
    if (mWakeLockCount == 0) {
        return;
    }

    if (force) {
        // A forced release gives the lock back whatever the count.
        mWakeLockCount = 0;
    } else if (--mWakeLockCount != 0) {
        return;
    }

    RV_CHECK("TimedEventQueue", 363, mWakeLockToken != 0);

    if (mPowerManager != 0) {
        int64_t token = IPCThreadState::self()->clearCallingIdentity();
        mPowerManager->releaseWakeLock(mWakeLockToken, 0, false /* isOneWay */);
        IPCThreadState::self()->restoreCallingIdentity(token);
    }
    mWakeLockToken.clear();
}

void TimedEventQueue::clearPowerManager() {
    Mutex::Autolock _l(mLock);
    releaseWakeLock_l(true /* force */);
    mPowerManager.clear();
}

void TimedEventQueue::PMDeathRecipient::binderDied(const wp<IBinder>& /* who */) {
    mQueue->clearPowerManager();
}

}  // namespace android
