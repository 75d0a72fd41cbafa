/*
 * A queue of reference-counted events, each fired at its due time on one
 * thread that the queue owns.  While an event is pending whose due time lay
 * more than 100 ms ahead when it was posted, the queue keeps a partial wake
 * lock so the device does not sleep through it.
 */

#ifndef ROTAVOX_TIMED_EVENT_QUEUE_H_
#define ROTAVOX_TIMED_EVENT_QUEUE_H_

#include <pthread.h>
#include <stdint.h>

#include <atomic>

#include <binder/IBinder.h>
#include <powermanager/IPowerManager.h>
#include <utils/Condition.h>
#include <utils/List.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>

namespace android {

struct TimedEventQueue {
    typedef int32_t event_id;

    struct Event : public RefBase {
        Event() : mEventID(0) {}

        virtual ~Event() {}

        // 0 while the event is not queued.
        event_id eventID() const { return mEventID.load(std::memory_order_relaxed); }

        // Runs on the queue's thread without the queue's lock held, so it may
        // post or cancel events, itself included.  It must not stop the queue.
        virtual void fire(TimedEventQueue* queue, int64_t now_us) = 0;

    private:
        friend struct TimedEventQueue;

        // Written by the queue under its lock; owners read it from any thread.
        std::atomic<event_id> mEventID;

        void setEventID(event_id id) { mEventID.store(id, std::memory_order_relaxed); }

        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;
    };

    TimedEventQueue();
    ~TimedEventQueue();

    // Starts the event thread unless it runs already.
    void start();

    // Stops and joins the event thread.  With |flush| every queued event
    // fires at its time first; without it, nothing queued fires any more.
    // Must not be called from an event's fire(), nor while another thread
    // posts or cancels.
    void stop(bool flush = false);

    // Fires the event as soon as possible, after earlier postEvent()s.
    event_id postEvent(const sp<Event>& event);

    // Fires the event after everything else that is queued.
    event_id postEventToBack(const sp<Event>& event);

    // Fires the event |delay_us| microseconds from now; |delay_us| >= 0.
    event_id postEventWithDelay(const sp<Event>& event, int64_t delay_us);

    // Fires the event at |realtime_us| on the ALooper::GetNowUs() clock.
    event_id postTimedEvent(const sp<Event>& event, int64_t realtime_us);

    // true if the event queued under |id| was removed before it fired.
    bool cancelEvent(event_id id);

    // Removes every queued event that |predicate| accepts (only the first
    // with |stopAfterFirstMatch|).  The predicate runs under the queue's lock
    // and must not call into the queue.
    void cancelEvents(bool (*predicate)(void* cookie, const sp<Event>& event), void* cookie,
                      bool stopAfterFirstMatch = false);

private:
    struct QueueItem {
        sp<Event> event;
        int64_t realtimeUs;
        bool hasWakeLock;
    };

    struct StopEvent : public TimedEventQueue::Event {
        void fire(TimedEventQueue* queue, int64_t /* now_us */) override {
            queue->mStopped.store(true, std::memory_order_relaxed);
        }
    };

    // Drops the power manager connection when its process dies.
    class PMDeathRecipient : public IBinder::DeathRecipient {
    public:
        explicit PMDeathRecipient(TimedEventQueue* queue) : mQueue(queue) {}

        void binderDied(const wp<IBinder>& who) override;

        ~PMDeathRecipient() override {}

    private:
        TimedEventQueue* mQueue;  // the owner; not a counted reference

        PMDeathRecipient(const PMDeathRecipient&) = delete;
        PMDeathRecipient& operator=(const PMDeathRecipient&) = delete;
    };

    pthread_t mThread;
    Mutex mLock;
    List<QueueItem> mQueue GUARDED_BY(mLock);
    Condition mQueueNotEmptyCondition;  // waits with mLock
    Condition mQueueHeadChangedCondition;  // waits with mLock
    event_id mNextEventID GUARDED_BY(mLock);

    // start() and stop() run on the owner's threads, one at a time.
    std::atomic<bool> mRunning;
    // Set by a StopEvent on the queue's thread without the lock.
    std::atomic<bool> mStopped;

    sp<IPowerManager> mPowerManager GUARDED_BY(mLock);
    sp<IBinder> mWakeLockToken GUARDED_BY(mLock);
    const sp<PMDeathRecipient> mDeathRecipient;
    uint32_t mWakeLockCount GUARDED_BY(mLock);

    static void* ThreadWrapper(void* me);
    void threadEntry();

    sp<Event> removeEventFromQueue_l(event_id id, bool* wakeLocked) REQUIRES(mLock);

    void acquireWakeLock_l() REQUIRES(mLock);
    void releaseWakeLock_l(bool force = false) REQUIRES(mLock);
    void clearPowerManager() EXCLUDES(mLock);

    TimedEventQueue(const TimedEventQueue&) = delete;
    TimedEventQueue& operator=(const TimedEventQueue&) = delete;
};

}  // namespace android

#endif  // ROTAVOX_TIMED_EVENT_QUEUE_H_
