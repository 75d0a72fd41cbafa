#define LOG_TAG "HostBinder_test"

#include <binder/Binder.h>
#include <binder/HostBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <powermanager/IPowerManager.h>

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <tuple>

namespace android {
namespace {

using host::HostPowerService;

const String16 kPower("power");

// Read only after host::flushBinderThread(), which orders the binder
// thread's writes before its return.
class Recorder : public IBinder::DeathRecipient {
public:
    void binderDied(const wp<IBinder>& who) override {
        ++deaths;
        this->who = who;
        thread = pthread_self();
    }
    int deaths = 0;
    wp<IBinder> who;
    pthread_t thread{};
};

TEST(ServiceManagerTest, DefaultPowerServiceIsAnIPowerManager) {
    host::restoreDefaultPowerService();
    sp<IBinder> binder = defaultServiceManager()->checkService(kPower);
    sp<IPowerManager> pm = IPowerManager::asInterface(binder);
    ASSERT_NE(pm, nullptr);
    EXPECT_EQ(IInterface::asBinder(pm), binder);
    EXPECT_EQ(binder->getInterfaceDescriptor(), String16("android.os.IPowerManager"));
    // A binder that does not implement the interface gives no interface.
    EXPECT_EQ(IPowerManager::asInterface(new BBinder), nullptr);
}

TEST(DeathNoticeTest, KillDeliversBinderDiedOnAnotherThreadToEveryLinkedRecipient) {
    sp<IBinder> binder = new BBinder;
    sp<Recorder> a = new Recorder, b = new Recorder, unlinked = new Recorder;
    ASSERT_EQ(binder->linkToDeath(a), NO_ERROR);
    ASSERT_EQ(binder->linkToDeath(b), NO_ERROR);
    ASSERT_EQ(binder->linkToDeath(unlinked), NO_ERROR);
    EXPECT_EQ(binder->unlinkToDeath(unlinked), NO_ERROR);
    EXPECT_EQ(binder->unlinkToDeath(unlinked), NAME_NOT_FOUND);

    host::killBinder(binder);
    EXPECT_FALSE(binder->isBinderAlive());
    EXPECT_EQ(binder->pingBinder(), DEAD_OBJECT);
    host::flushBinderThread();
    EXPECT_EQ(std::make_tuple(a->deaths, b->deaths, unlinked->deaths), std::make_tuple(1, 1, 0));
    EXPECT_EQ(a->who.promote(), binder);
    EXPECT_FALSE(pthread_equal(a->thread, pthread_self()));

    // A second kill sends nothing more; the links are gone.
    host::killBinder(binder);
    host::flushBinderThread();
    EXPECT_EQ(a->deaths, 1);
    EXPECT_EQ(binder->linkToDeath(a), DEAD_OBJECT);
    EXPECT_EQ(binder->unlinkToDeath(b), DEAD_OBJECT);
}

class PowerServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        mService = host::restoreDefaultPowerService();
        mPm = IPowerManager::asInterface(defaultServiceManager()->checkService(kPower));
        ASSERT_NE(mPm, nullptr);
    }
    status_t acquire(const sp<IBinder>& token, const char* tag = "x", int level = 1) {
        return mPm->acquireWakeLock(level, token, String16(tag), String16("media"));
    }
    sp<HostPowerService> mService;
    sp<IPowerManager> mPm;
};

TEST_F(PowerServiceTest, TracksWhoHoldsWhichTokenOnceEach) {
    sp<IBinder> t1 = new BBinder, t2 = new BBinder;
    // An incoming call from an app, then the service's own identity.
    const int64_t app = (int64_t(10077) << 32) | 77;
    IPCThreadState::self()->restoreCallingIdentity(app);
    EXPECT_EQ(acquire(t1, "A"), OK);
    EXPECT_EQ(IPCThreadState::self()->clearCallingIdentity(), app);
    EXPECT_EQ(acquire(t2, "B", 6 /* SCREEN_DIM_WAKE_LOCK */), OK);
    EXPECT_EQ(acquire(t2, "B2", 6), OK) << "the same token again is the same lock";
    auto held = mService->heldWakeLocks();
    ASSERT_EQ(held.size(), 2u);
    EXPECT_EQ(std::make_tuple(held[0].token, held[0].tag, held[0].uid, held[0].pid),
              std::make_tuple(t1, String16("A"), 10077, 77));
    EXPECT_EQ(std::make_tuple(held[1].token, held[1].tag, held[1].uid, held[1].pid),
              std::make_tuple(t2, String16("B2"), int(getuid()), int(getpid())));
    EXPECT_EQ(mService->partialWakeLockCount(), 1);

    EXPECT_EQ(mPm->releaseWakeLock(new BBinder, 0), OK) << "an unknown token is harmless";
    EXPECT_EQ(mPm->releaseWakeLock(t1, 0), OK);
    EXPECT_EQ(mPm->releaseWakeLock(t1, 0), OK);
    EXPECT_EQ(mService->partialWakeLockCount(), 0);
    EXPECT_EQ(mService->heldWakeLocks().size(), 1u);
}

TEST_F(PowerServiceTest, ARefusalAnswersEveryRequest) {
    sp<IBinder> t = new BBinder;
    ASSERT_EQ(acquire(t), OK);
    mService->setRefusal(PERMISSION_DENIED);
    EXPECT_EQ(acquire(new BBinder), PERMISSION_DENIED);
    EXPECT_EQ(mPm->releaseWakeLock(t, 0), PERMISSION_DENIED);
    EXPECT_EQ(mService->heldWakeLocks().size(), 1u) << "only the lock from before";
}

TEST_F(PowerServiceTest, AKilledServiceLosesItsLocksAndAnswersDeadObject) {
    sp<IBinder> t = new BBinder;
    sp<Recorder> r = new Recorder;
    ASSERT_EQ(IInterface::asBinder(mService)->linkToDeath(r), NO_ERROR);
    ASSERT_EQ(acquire(t), OK);
    ASSERT_TRUE(host::killService(kPower));
    EXPECT_EQ(defaultServiceManager()->checkService(kPower), nullptr);
    EXPECT_TRUE(mService->heldWakeLocks().empty());
    // The stale connection still carries the call, which fails.
    EXPECT_EQ(mPm->releaseWakeLock(t, 0), DEAD_OBJECT);
    EXPECT_EQ(acquire(t), DEAD_OBJECT);
    host::flushBinderThread();
    EXPECT_EQ(r->deaths, 1);

    sp<HostPowerService> fresh = host::restoreDefaultPowerService();
    EXPECT_TRUE(fresh->heldWakeLocks().empty());
}

}  // namespace
}  // namespace android
