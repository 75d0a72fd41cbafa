/*
 * HOST ONLY.  Levers for tests and tools over the in-process binder world:
 * remove or kill services, look at and steer the default "power" service.
 * Nothing in the engine may include this header; it does not exist on a
 * device.
 */
#pragma once

#include <binder/IServiceManager.h>
#include <powermanager/IPowerManager.h>
#include <utils/Mutex.h>

#include <vector>

namespace android {
namespace host {

// A service that keeps state its process would lose when it dies.
class HostKillable {
public:
    // Called once, on the killer's thread, when the object dies and before
    // its death notices go out.
    virtual void onHostKilled() = 0;

protected:
    virtual ~HostKillable() {}
};

// The default "power" service: keeps the wake locks it was asked for, the way
// the platform's power manager does for its clients.
class HostPowerService : public BnInterface<IPowerManager>, public HostKillable {
public:
    struct WakeLock {
        sp<IBinder> token;
        int flags;
        String16 tag;
        String16 packageName;
        int uid;  // the calling identity when it was taken
        int pid;
        int workSourceUid;  // the uid it was taken on behalf of, -1 when none
    };

    HostPowerService();

    status_t acquireWakeLock(int flags, const sp<IBinder>& lock, const String16& tag,
                             const String16& packageName, bool isOneWay = false) override;
    status_t acquireWakeLockWithUid(int flags, const sp<IBinder>& lock, const String16& tag,
                                    const String16& packageName, int uid,
                                    bool isOneWay = false) override;
    status_t releaseWakeLock(const sp<IBinder>& lock, int flags, bool isOneWay = false) override;

    // Locks held now, in the order they were first taken.
    std::vector<WakeLock> heldWakeLocks() const;
    // Partial wake locks held now.
    int partialWakeLockCount() const;
    // Every request that reached this object, accepted or not (requests made
    // after it died count too: they reach the stale connection).
    int acquireRequests() const;
    int releaseRequests() const;
    // Answer every later request with |status| without acting on it; OK
    // turns refusal off.
    void setRefusal(status_t status);

protected:
    void onHostKilled() override;

private:
    status_t acquire_l(int flags, const sp<IBinder>& lock, const String16& tag,
                       const String16& packageName, int workSourceUid) REQUIRES(mLock);

    mutable Mutex mLock;
    std::vector<WakeLock> mWakeLocks GUARDED_BY(mLock);
    int mAcquireRequests GUARDED_BY(mLock) = 0;
    int mReleaseRequests GUARDED_BY(mLock) = 0;
    status_t mRefusal GUARDED_BY(mLock) = OK;
};

// The "power" service as registered now (null when removed).
sp<HostPowerService> powerService();

// Registers a fresh default "power" service (clean counts, no locks) and
// returns it.  Any earlier one is replaced, not killed.
sp<HostPowerService> restoreDefaultPowerService();

// Drops |name| from the service manager; holders of the binder keep it.
// false when there was none.
bool removeService(const String16& name);

// The process behind |binder| dies: it is marked dead and its death
// recipients hear binderDied() on the binder thread, never on the caller's.
void killBinder(const sp<IBinder>& binder);

// killBinder() of the service registered as |name|, which the service
// manager forgets as well.  false when there was none.
bool killService(const String16& name);

// Returns once every death notice handed to the binder thread so far has been
// delivered.
void flushBinderThread();

}  // namespace host
}  // namespace android
