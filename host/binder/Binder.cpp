#define LOG_TAG "HostBinder"

#include <binder/Binder.h>
#include <binder/HostBinder.h>
#include <binder/IInterface.h>

#include <log/log.h>
#include <utils/Condition.h>

#include <pthread.h>

#include <deque>

namespace android {

// ---------------------------------------------------------------------------
// The binder thread: death notices are delivered here, one dead object after
// the other, as a binder thread of the process would deliver them.

namespace {

class BinderThread {
public:
    static BinderThread& get() {
        // Never destroyed: the thread may still be waiting when the process
        // exits.
        static BinderThread* sThread = new BinderThread;
        return *sThread;
    }

    void post(const sp<BBinder>& dead, void (*deliver)(const sp<BBinder>&)) {
        Mutex::Autolock _l(mLock);
        if (!mStarted) {
            pthread_t thread;
            if (pthread_create(&thread, nullptr, ThreadMain, this) == 0) {
                pthread_detach(thread);
                mStarted = true;
            } else {
                ALOGE("cannot start the binder thread; death notices are lost");
                return;
            }
        }
        mPending.push_back({dead, deliver});
        ++mPosted;
        mWorkCondition.signal();
    }

    void flush() {
        Mutex::Autolock _l(mLock);
        if (pthread_equal(pthread_self(), mThreadId) && mStarted) {
            ALOGE("flushBinderThread() called on the binder thread itself");
            return;
        }
        const uint64_t target = mPosted;
        while (mDelivered < target) mIdleCondition.wait(mLock);
    }

private:
    struct Work {
        sp<BBinder> dead;
        void (*deliver)(const sp<BBinder>&);
    };

    static void* ThreadMain(void* me) {
        pthread_setname_np(pthread_self(), "Binder:host_1");
        static_cast<BinderThread*>(me)->loop();
        return nullptr;
    }

    void loop() {
        Mutex::Autolock _l(mLock);
        mThreadId = pthread_self();
        for (;;) {
            while (mPending.empty()) mWorkCondition.wait(mLock);
            Work work = mPending.front();
            mPending.pop_front();
            mLock.unlock();
            work.deliver(work.dead);
            work.dead.clear();
            mLock.lock();
            ++mDelivered;
            mIdleCondition.broadcast();
        }
    }

    Mutex mLock;
    Condition mWorkCondition;  // waits with mLock
    Condition mIdleCondition;  // waits with mLock
    std::deque<Work> mPending GUARDED_BY(mLock);
    uint64_t mPosted GUARDED_BY(mLock) = 0;
    uint64_t mDelivered GUARDED_BY(mLock) = 0;
    bool mStarted GUARDED_BY(mLock) = false;
    pthread_t mThreadId GUARDED_BY(mLock){};
};

}  // namespace

// ---------------------------------------------------------------------------

IBinder::IBinder() : RefBase() {}
IBinder::~IBinder() {}

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}

bool IBinder::checkSubclass(const void* /*subclassID*/) const {
    return false;
}

BBinder* IBinder::localBinder() {
    return nullptr;
}

BpBinder* IBinder::remoteBinder() {
    return nullptr;
}

// ---------------------------------------------------------------------------

BBinder::BBinder() {}
BBinder::~BBinder() {}

const String16& BBinder::getInterfaceDescriptor() const {
    static const String16* sEmpty = new String16();
    return *sEmpty;
}

bool BBinder::isBinderAlive() const {
    return !mDead.load(std::memory_order_acquire);
}

status_t BBinder::pingBinder() {
    return isBinderAlive() ? status_t(NO_ERROR) : status_t(DEAD_OBJECT);
}

status_t BBinder::dump(int /*fd*/, const Vector<String16>& /*args*/) {
    return isBinderAlive() ? status_t(NO_ERROR) : status_t(DEAD_OBJECT);
}

BBinder* BBinder::localBinder() {
    return this;
}

status_t BBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) return BAD_VALUE;
    Mutex::Autolock _l(mLock);
    if (mObitsSent || mDead.load(std::memory_order_acquire)) return DEAD_OBJECT;
    mObituaries.push_back({recipient, cookie, flags});
    return NO_ERROR;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie,
                                uint32_t flags, wp<DeathRecipient>* outRecipient) {
    Mutex::Autolock _l(mLock);
    if (mObitsSent) return DEAD_OBJECT;
    for (auto it = mObituaries.begin(); it != mObituaries.end(); ++it) {
        if ((it->recipient == recipient || (recipient == nullptr && it->cookie == cookie)) &&
            it->flags == flags) {
            if (outRecipient != nullptr) *outRecipient = it->recipient;
            mObituaries.erase(it);
            return NO_ERROR;
        }
    }
    return NAME_NOT_FOUND;
}

bool BBinder::hostKill() {
    bool expected = false;
    return mDead.compare_exchange_strong(expected, true, std::memory_order_acq_rel);
}

void BBinder::sendObituaries() {
    std::vector<Obituary> obits;
    {
        Mutex::Autolock _l(mLock);
        mObitsSent = true;
        obits.swap(mObituaries);
    }
    const wp<IBinder> who(this);
    for (const Obituary& obit : obits) {
        sp<DeathRecipient> recipient = obit.recipient.promote();
        if (recipient != nullptr) recipient->binderDied(who);
    }
}

class HostBinderKiller {
public:
    static void kill(const sp<IBinder>& binder) {
        if (binder == nullptr) return;
        BBinder* local = binder->localBinder();
        if (local == nullptr || !local->hostKill()) return;
        if (host::HostKillable* killable = dynamic_cast<host::HostKillable*>(local)) {
            killable->onHostKilled();
        }
        BinderThread::get().post(local, [](const sp<BBinder>& dead) { dead->sendObituaries(); });
    }
};

namespace host {

void killBinder(const sp<IBinder>& binder) {
    HostBinderKiller::kill(binder);
}

void flushBinderThread() {
    BinderThread::get().flush();
}

}  // namespace host

// ---------------------------------------------------------------------------

IInterface::IInterface() : RefBase() {}
IInterface::~IInterface() {}

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
    if (iface == nullptr) return nullptr;
    return const_cast<IInterface*>(iface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& iface) {
    if (iface == nullptr) return nullptr;
    return iface->onAsBinder();
}

}  // namespace android
