#define LOG_TAG "HostBinder_test"

#include <binder/Binder.h>
#include <binder/HostBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <powermanager/IPowerManager.h>
#include <powermanager/PowerManager.h>

#include <LogCapture.h>
#include <gtest/gtest.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace android {
namespace {

using host::HostPowerService;

const String16 kPower("power");

class Recorder : public IBinder::DeathRecipient {
public:
    void binderDied(const wp<IBinder>& who) override {
        Mutex::Autolock _l(mLock);
        ++mDeaths;
        mWho = who;
        mThread = pthread_self();
    }
    int deaths() const {
        Mutex::Autolock _l(mLock);
        return mDeaths;
    }
    wp<IBinder> who() const {
        Mutex::Autolock _l(mLock);
        return mWho;
    }
    pthread_t thread() const {
        Mutex::Autolock _l(mLock);
        return mThread;
    }

private:
    mutable Mutex mLock;  // guards everything below
    int mDeaths = 0;
    wp<IBinder> mWho;
    pthread_t mThread{};
};

TEST(ServiceManagerTest, DefaultPowerServiceIsRegisteredAndIsAnIPowerManager) {
    host::restoreDefaultPowerService();
    sp<IBinder> binder = defaultServiceManager()->checkService(kPower);
    ASSERT_NE(binder, nullptr);
    sp<IPowerManager> pm = IPowerManager::asInterface(binder);
    ASSERT_NE(pm, nullptr);
    EXPECT_EQ(IInterface::asBinder(pm), binder);
    EXPECT_EQ(binder->getInterfaceDescriptor(), String16("android.os.IPowerManager"));
    EXPECT_EQ(IInterface::asBinder(host::powerService()), binder);
    // A binder that does not implement the interface gives no interface.
    EXPECT_EQ(IPowerManager::asInterface(new BBinder), nullptr);
    EXPECT_EQ(IPowerManager::asInterface(nullptr), nullptr);
}

TEST(ServiceManagerTest, CheckAddRemoveAndList) {
    sp<IServiceManager> sm = defaultServiceManager();
    const String16 name("host.test.service");
    EXPECT_EQ(sm->checkService(name), nullptr);
    EXPECT_EQ(sm->addService(name, nullptr), BAD_VALUE);

    sp<IBinder> first = new BBinder;
    sp<IBinder> second = new BBinder;
    ASSERT_EQ(sm->addService(name, first), NO_ERROR);
    EXPECT_EQ(sm->checkService(name), first);
    EXPECT_EQ(sm->getService(name), first);
    ASSERT_EQ(sm->addService(name, second), NO_ERROR);
    EXPECT_EQ(sm->checkService(name), second);

    EXPECT_TRUE(host::removeService(name));
    EXPECT_FALSE(host::removeService(name));
    EXPECT_EQ(sm->checkService(name), nullptr);
    // The holder keeps a removed service alive and working.
    EXPECT_EQ(second->pingBinder(), NO_ERROR);
}

TEST(DeathNoticeTest, KillDeliversBinderDiedOnAnotherThreadToEveryLinkedRecipient) {
    sp<IBinder> binder = new BBinder;
    sp<Recorder> a = new Recorder, b = new Recorder, unlinked = new Recorder;
    ASSERT_EQ(binder->linkToDeath(a), NO_ERROR);
    ASSERT_EQ(binder->linkToDeath(b, reinterpret_cast<void*>(7), 0), NO_ERROR);
    ASSERT_EQ(binder->linkToDeath(unlinked), NO_ERROR);
    EXPECT_EQ(binder->unlinkToDeath(unlinked), NO_ERROR);
    EXPECT_EQ(binder->unlinkToDeath(unlinked), NAME_NOT_FOUND);

    EXPECT_TRUE(binder->isBinderAlive());
    host::killBinder(binder);
    EXPECT_FALSE(binder->isBinderAlive());
    EXPECT_EQ(binder->pingBinder(), DEAD_OBJECT);
    host::flushBinderThread();

    EXPECT_EQ(a->deaths(), 1);
    EXPECT_EQ(b->deaths(), 1);
    EXPECT_EQ(unlinked->deaths(), 0);
    EXPECT_EQ(a->who().promote(), binder);
    EXPECT_FALSE(pthread_equal(a->thread(), pthread_self()));

    // A second kill sends nothing more; the links are gone.
    host::killBinder(binder);
    host::flushBinderThread();
    EXPECT_EQ(a->deaths(), 1);
    EXPECT_EQ(binder->linkToDeath(a), DEAD_OBJECT);
    EXPECT_EQ(binder->unlinkToDeath(b), DEAD_OBJECT);
}

TEST(DeathNoticeTest, RecipientsAreHeldWeakly) {
    sp<IBinder> binder = new BBinder;
    wp<Recorder> weak;
    {
        sp<Recorder> r = new Recorder;
        weak = r;
        ASSERT_EQ(binder->linkToDeath(r), NO_ERROR);
    }
    EXPECT_EQ(weak.promote(), nullptr);
    host::killBinder(binder);
    host::flushBinderThread();  // must not touch the destroyed recipient
}

TEST(DeathNoticeTest, KillServiceForgetsItAndRestoreBringsAFreshOne) {
    sp<HostPowerService> old = host::restoreDefaultPowerService();
    sp<Recorder> r = new Recorder;
    ASSERT_EQ(IInterface::asBinder(old)->linkToDeath(r), NO_ERROR);
    EXPECT_TRUE(host::killService(kPower));
    EXPECT_FALSE(host::killService(kPower));
    EXPECT_EQ(defaultServiceManager()->checkService(kPower), nullptr);
    EXPECT_EQ(host::powerService(), nullptr);
    host::flushBinderThread();
    EXPECT_EQ(r->deaths(), 1);

    sp<HostPowerService> fresh = host::restoreDefaultPowerService();
    EXPECT_NE(fresh, old);
    EXPECT_EQ(host::powerService(), fresh);
    EXPECT_EQ(fresh->acquireRequests(), 0);
}

TEST(IPCThreadStateTest, ClearAndRestoreCallingIdentityPerThread) {
    IPCThreadState* ipc = IPCThreadState::self();
    EXPECT_EQ(ipc, IPCThreadState::self());
    EXPECT_EQ(ipc->getCallingUid(), getuid());
    EXPECT_EQ(ipc->getCallingPid(), getpid());

    // Play an incoming call from another app.
    const int64_t app = (int64_t(10123) << 32) | 4321;
    ipc->restoreCallingIdentity(app);
    EXPECT_EQ(ipc->getCallingUid(), 10123u);
    EXPECT_EQ(ipc->getCallingPid(), 4321);

    uid_t otherThreadUid = 0;
    std::thread([&] { otherThreadUid = IPCThreadState::self()->getCallingUid(); }).join();
    EXPECT_EQ(otherThreadUid, getuid());

    const int64_t token = ipc->clearCallingIdentity();
    EXPECT_EQ(token, app);
    EXPECT_EQ(ipc->getCallingUid(), getuid());
    EXPECT_EQ(ipc->getCallingPid(), getpid());
    ipc->restoreCallingIdentity(token);
    EXPECT_EQ(ipc->getCallingUid(), 10123u);
    ipc->restoreCallingIdentity((int64_t(getuid()) << 32) | getpid());
}

class PowerServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        mService = host::restoreDefaultPowerService();
        mPm = IPowerManager::asInterface(defaultServiceManager()->checkService(kPower));
        ASSERT_NE(mPm, nullptr);
    }
    sp<HostPowerService> mService;
    sp<IPowerManager> mPm;
};

TEST_F(PowerServiceTest, TracksWhoHoldsWhichToken) {
    sp<IBinder> t1 = new BBinder, t2 = new BBinder;
    IPCThreadState::self()->restoreCallingIdentity((int64_t(10077) << 32) | 77);
    EXPECT_EQ(mPm->acquireWakeLock(POWERMANAGER_PARTIAL_WAKE_LOCK, t1, String16("A"),
                                   String16("media")),
              OK);
    IPCThreadState::self()->clearCallingIdentity();
    EXPECT_EQ(mPm->acquireWakeLockWithUid(6 /* PowerManager.SCREEN_DIM_WAKE_LOCK */, t2, String16("B"),
                                          String16("app"), 10500),
              OK);
    auto held = mService->heldWakeLocks();
    ASSERT_EQ(held.size(), 2u);
    EXPECT_EQ(held[0].token, t1);
    EXPECT_EQ(held[0].tag, String16("A"));
    EXPECT_EQ(held[0].packageName, String16("media"));
    EXPECT_EQ(held[0].uid, 10077);
    EXPECT_EQ(held[0].pid, 77);
    EXPECT_EQ(held[0].workSourceUid, -1);
    EXPECT_EQ(held[1].uid, int(getuid()));
    EXPECT_EQ(held[1].workSourceUid, 10500);
    EXPECT_EQ(mService->partialWakeLockCount(), 1);

    EXPECT_EQ(mPm->releaseWakeLock(t1, 0), OK);
    EXPECT_EQ(mService->heldWakeLocks().size(), 1u);
    EXPECT_EQ(mService->partialWakeLockCount(), 0);
    EXPECT_EQ(mService->acquireRequests(), 2);
    EXPECT_EQ(mService->releaseRequests(), 1);
}

TEST_F(PowerServiceTest, SameTokenTwiceIsOneLockAndUnknownReleasesAreHarmless) {
    sp<IBinder> t = new BBinder;
    EXPECT_EQ(mPm->acquireWakeLock(1, t, String16("first"), String16("media")), OK);
    EXPECT_EQ(mPm->acquireWakeLock(1, t, String16("second"), String16("media")), OK);
    auto held = mService->heldWakeLocks();
    ASSERT_EQ(held.size(), 1u);
    EXPECT_EQ(held[0].tag, String16("second"));

    EXPECT_EQ(mPm->releaseWakeLock(new BBinder, 0), OK);
    EXPECT_EQ(mService->heldWakeLocks().size(), 1u);
    EXPECT_EQ(mPm->releaseWakeLock(t, 0), OK);
    EXPECT_EQ(mPm->releaseWakeLock(t, 0), OK);
    EXPECT_TRUE(mService->heldWakeLocks().empty());
    EXPECT_EQ(mService->releaseRequests(), 3);
}

TEST_F(PowerServiceTest, BadArgumentsAreLoggedNotHeld) {
    testing::LogCapture log;
    EXPECT_EQ(mPm->acquireWakeLock(1, nullptr, String16("x"), String16("media")), OK);
    EXPECT_EQ(mPm->acquireWakeLock(0x7777, new BBinder, String16("x"), String16("media")), OK);
    EXPECT_EQ(mPm->releaseWakeLock(nullptr, 0), OK);
    EXPECT_TRUE(mService->heldWakeLocks().empty());
    EXPECT_EQ(log.count("PowerManagerService", "lock must not be null"), 2);
    EXPECT_EQ(log.count("PowerManagerService", "invalid wake lock level"), 1);
}

TEST_F(PowerServiceTest, RefusalAnswersEveryRequestAndHoldsNothing) {
    sp<IBinder> t = new BBinder;
    ASSERT_EQ(mPm->acquireWakeLock(1, t, String16("kept"), String16("media")), OK);
    mService->setRefusal(PERMISSION_DENIED);
    EXPECT_EQ(mPm->acquireWakeLock(1, new BBinder, String16("x"), String16("media")),
              PERMISSION_DENIED);
    EXPECT_EQ(mPm->releaseWakeLock(t, 0), PERMISSION_DENIED);
    EXPECT_EQ(mService->heldWakeLocks().size(), 1u);
    mService->setRefusal(OK);
    EXPECT_EQ(mPm->releaseWakeLock(t, 0), OK);
    EXPECT_TRUE(mService->heldWakeLocks().empty());
    EXPECT_EQ(mService->acquireRequests(), 2);
    EXPECT_EQ(mService->releaseRequests(), 2);
}

TEST_F(PowerServiceTest, ADeadServiceLosesItsLocksAndAnswersDeadObject) {
    sp<IBinder> t = new BBinder;
    ASSERT_EQ(mPm->acquireWakeLock(1, t, String16("x"), String16("media")), OK);
    ASSERT_TRUE(host::killService(kPower));
    EXPECT_TRUE(mService->heldWakeLocks().empty());
    // The stale connection still carries the call, which fails.
    EXPECT_EQ(mPm->releaseWakeLock(t, 0), DEAD_OBJECT);
    EXPECT_EQ(mPm->acquireWakeLock(1, t, String16("x"), String16("media")), DEAD_OBJECT);
    EXPECT_EQ(mService->releaseRequests(), 1);
    EXPECT_EQ(mService->acquireRequests(), 2);
    host::flushBinderThread();
    host::restoreDefaultPowerService();
}

}  // namespace
}  // namespace android
