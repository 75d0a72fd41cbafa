#define LOG_TAG "ALooper"

#include <media/stagefright/foundation/ALooper.h>

#include <sys/prctl.h>
#include <time.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include <HostLooperStats.h>

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/AndroidThreads.h>
#include <utils/Log.h>

#include "ALooperRoster.h"

namespace android {

namespace {

// Messages not yet handled, per looper name, for tools that must know when a
// looper has gone quiet (HostLooperStats.h).  Kept outside ALooper so that
// its header stays the platform's.
struct PendingMessages {
    std::mutex lock;  // guards byName
    std::condition_variable idle;
    std::map<std::string, int64_t> byName;

    void add(const std::string &name, int64_t n) {
        if (n == 0) return;
        std::lock_guard<std::mutex> l(lock);
        int64_t &count = byName[name];
        count += n;
        if (count <= 0) {
            byName.erase(name);
            idle.notify_all();
        }
    }
};

PendingMessages &pendingMessages() {
    static PendingMessages *p = new PendingMessages;  // outlives static destructors
    return *p;
}

}  // namespace

int64_t hostLooperPendingMessages(const char *name) {
    PendingMessages &p = pendingMessages();
    std::lock_guard<std::mutex> l(p.lock);
    auto it = p.byName.find(name);
    return it == p.byName.end() ? 0 : it->second;
}

bool hostLooperWaitIdle(const char *name, std::chrono::steady_clock::time_point deadline) {
    PendingMessages &p = pendingMessages();
    std::unique_lock<std::mutex> l(p.lock);
    const std::string key(name);
    return p.idle.wait_until(l, deadline, [&] { return p.byName.count(key) == 0; });
}

struct ALooper::LooperThread : public Thread {
    LooperThread(ALooper *looper, bool canCallJava, const AString &name, int32_t priority)
        : Thread(canCallJava),
          mLooper(looper),
          mName(name),
          mPriority(priority),
          mThreadId(NULL) {
    }

    virtual status_t readyToRun() {
        mThreadId.store(androidGetThreadId(), std::memory_order_relaxed);

        // The host's thread creation applies neither name nor priority.
        prctl(PR_SET_NAME, mName.c_str(), 0, 0, 0);
        if (mPriority != PRIORITY_DEFAULT) {
            androidSetThreadPriority(0, mPriority);
        }

        return Thread::readyToRun();
    }

    virtual bool threadLoop() {
        return mLooper->loop();
    }

    bool isCurrentThread() const {
        return mThreadId.load(std::memory_order_relaxed) == androidGetThreadId();
    }

protected:
    virtual ~LooperThread() {}

private:
    // Raw on purpose: the thread must not keep its looper alive, so that the
    // looper's last reference going away can stop it.
    ALooper *mLooper;
    const AString mName;
    const int32_t mPriority;
    std::atomic<android_thread_id_t> mThreadId;

    DISALLOW_EVIL_CONSTRUCTORS(LooperThread);
};

// static
int64_t ALooper::GetNowUs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000LL + ts.tv_nsec / 1000;
}

ALooper::ALooper()
    : mPriority(PRIORITY_DEFAULT),
      mRunningLocally(false) {
    // clean up stale AHandlers. Doing it here instead of in the destructor avoids
    // the side effect of objects being deleted from the unregister function recursively.
    ALooperRoster::get().unregisterStaleHandlers();
}

ALooper::~ALooper() {
    stop();
    // stale AHandlers are now deleted
}

void ALooper::setName(const char *name) {
    Mutex::Autolock autoLock(mLock);
    // Queued messages follow the looper to its new name.
    pendingMessages().add(mName.c_str(), -(int64_t)mEventQueue.size());
    pendingMessages().add(name, (int64_t)mEventQueue.size());
    mName = name;
}

ALooper::handler_id ALooper::registerHandler(const sp<AHandler> &handler) {
    return ALooperRoster::get().registerHandler(this, handler);
}

void ALooper::unregisterHandler(handler_id handlerID) {
    ALooperRoster::get().unregisterHandler(handlerID);
}

status_t ALooper::start(
        bool runOnCallingThread, bool canCallJava, int32_t priority) {
    if (runOnCallingThread) {
        {
            Mutex::Autolock autoLock(mLock);

            if (mThread != NULL || mRunningLocally) {
                return INVALID_OPERATION;
            }

            mRunningLocally = true;
        }

        do {
        } while (loop());

        return OK;
    }

    Mutex::Autolock autoLock(mLock);

    if (mThread != NULL || mRunningLocally) {
        return INVALID_OPERATION;
    }

    mPriority = priority;
    const AString name = mName.empty() ? AString("ALooper") : mName;
    mThread = new LooperThread(this, canCallJava, name, priority);

    status_t err = mThread->run(name.c_str(), priority);
    if (err != OK) {
        ALOGE("could not start looper thread \"%s\": %d", name.c_str(), err);
        mThread.clear();
    }

    return err;
}

status_t ALooper::stop() {
    sp<LooperThread> thread;
    bool runningLocally;
    // Whatever was still queued is dropped, and with it the references the
    // messages hold; released outside the lock, since a message's last
    // reference may post to this looper from a destructor.
    List<Event> dropped;

    {
        Mutex::Autolock autoLock(mLock);

        thread = mThread;
        runningLocally = mRunningLocally;
        mThread.clear();
        mRunningLocally = false;
        dropped = mEventQueue;
        mEventQueue.clear();
        pendingMessages().add(mName.c_str(), -(int64_t)dropped.size());
    }

    if (thread == NULL && !runningLocally) {
        return INVALID_OPERATION;
    }

    if (thread != NULL) {
        thread->requestExit();
    }

    mQueueChangedCondition.signal();
    {
        // Senders blocked in postAndAwaitResponse() must not wait forever for
        // a reply that will never come.
        Mutex::Autolock autoLock(mRepliesLock);
        mRepliesCondition.broadcast();
    }

    if (!runningLocally && !thread->isCurrentThread()) {
        // If not running locally and this thread _is_ the looper thread,
        // the loop() function will return and never be called again.
        thread->requestExitAndWait();
    }

    return OK;
}

void ALooper::post(const sp<AMessage> &msg, int64_t delayUs) {
    Mutex::Autolock autoLock(mLock);

    int64_t whenUs;
    if (delayUs > 0) {
        int64_t nowUs = GetNowUs();
        whenUs = (delayUs > INT64_MAX - nowUs ? INT64_MAX : nowUs + delayUs);
    } else {
        whenUs = GetNowUs();
    }

    // After every event due at or before |whenUs|: equal due times keep the
    // order in which they were posted.
    List<Event>::iterator it = mEventQueue.begin();
    while (it != mEventQueue.end() && (*it).mWhenUs <= whenUs) {
        ++it;
    }

    Event event;
    event.mWhenUs = whenUs;
    event.mMessage = msg;

    if (it == mEventQueue.begin()) {
        mQueueChangedCondition.signal();
    }

    mEventQueue.insert(it, event);
    pendingMessages().add(mName.c_str(), 1);
}

bool ALooper::loop() {
    Event event;
    std::string name;

    {
        Mutex::Autolock autoLock(mLock);
        if (mThread == NULL && !mRunningLocally) {
            return false;
        }
        if (mEventQueue.empty()) {
            mQueueChangedCondition.wait(mLock);
            return true;
        }
        int64_t whenUs = (*mEventQueue.begin()).mWhenUs;
        int64_t nowUs = GetNowUs();

        if (whenUs > nowUs) {
            int64_t delayUs = whenUs - nowUs;
            if (delayUs > INT64_MAX / 1000) {
                delayUs = INT64_MAX / 1000;
            }
            mQueueChangedCondition.waitRelative(mLock, delayUs * 1000ll);

            return true;
        }

        event = *mEventQueue.begin();
        mEventQueue.erase(mEventQueue.begin());
        name = mName.c_str();
    }

    event.mMessage->deliver();
    // Counted until handled, so that a handler that posts its follow-up never
    // lets the count pass through 0.
    pendingMessages().add(name, -1);

    // NOTE: It's important to note that at this point our "ALooper" object
    // may no longer exist (its final reference may have gone away while
    // delivering the message). We have made sure, however, that loop()
    // won't be called again.

    return true;
}

// to be called by AMessage::postAndAwaitResponse only
sp<AReplyToken> ALooper::createReplyToken() {
    return new AReplyToken(this);
}

// to be called by AMessage::postAndAwaitResponse only
status_t ALooper::awaitResponse(const sp<AReplyToken> &replyToken, sp<AMessage> *response) {
    // return status in case we want to handle an interrupted wait
    Mutex::Autolock autoLock(mRepliesLock);
    CHECK(replyToken != NULL);
    while (!replyToken->retrieveReply(response)) {
        {
            Mutex::Autolock autoLock(mLock);
            if (mThread == NULL && !mRunningLocally) {
                return -ENOENT;
            }
        }
        mRepliesCondition.wait(mRepliesLock);
    }
    return OK;
}

status_t ALooper::postReply(const sp<AReplyToken> &replyToken, const sp<AMessage> &reply) {
    Mutex::Autolock autoLock(mRepliesLock);
    status_t err = replyToken->setReply(reply);
    if (err == OK) {
        mRepliesCondition.broadcast();
    }
    return err;
}

}  // namespace android
