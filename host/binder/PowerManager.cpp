#define LOG_TAG "PowerManagerService"

#include <binder/HostBinder.h>
#include <binder/IPCThreadState.h>
#include <powermanager/IPowerManager.h>
#include <powermanager/PowerManager.h>

#include <log/log.h>
#include <utils/String8.h>

namespace android {

IMPLEMENT_META_INTERFACE(PowerManager, "android.os.IPowerManager")

namespace host {

namespace {

constexpr int kWakeLockLevelMask = 0x0000ffff;

// The other wake lock levels of PowerManager.java; the platform's C++ header
// names only the partial one.
constexpr int POWERMANAGER_SCREEN_DIM_WAKE_LOCK = 6;
constexpr int POWERMANAGER_SCREEN_BRIGHT_WAKE_LOCK = 10;
constexpr int POWERMANAGER_FULL_WAKE_LOCK = 26;
constexpr int POWERMANAGER_PROXIMITY_SCREEN_OFF_WAKE_LOCK = 32;
constexpr int POWERMANAGER_DOZE_WAKE_LOCK = 64;
constexpr int POWERMANAGER_DRAW_WAKE_LOCK = 128;

bool isValidLevel(int flags) {
    switch (flags & kWakeLockLevelMask) {
        case POWERMANAGER_PARTIAL_WAKE_LOCK:
        case POWERMANAGER_SCREEN_DIM_WAKE_LOCK:
        case POWERMANAGER_SCREEN_BRIGHT_WAKE_LOCK:
        case POWERMANAGER_FULL_WAKE_LOCK:
        case POWERMANAGER_PROXIMITY_SCREEN_OFF_WAKE_LOCK:
        case POWERMANAGER_DOZE_WAKE_LOCK:
        case POWERMANAGER_DRAW_WAKE_LOCK:
            return true;
        default:
            return false;
    }
}

}  // namespace

HostPowerService::HostPowerService() {}

status_t HostPowerService::acquireWakeLock(int flags, const sp<IBinder>& lock,
                                           const String16& tag, const String16& packageName,
                                           bool /*isOneWay*/) {
    Mutex::Autolock _l(mLock);
    ++mAcquireRequests;
    if (!isBinderAlive()) return DEAD_OBJECT;
    if (mRefusal != OK) return mRefusal;
    return acquire_l(flags, lock, tag, packageName, -1);
}

status_t HostPowerService::acquireWakeLockWithUid(int flags, const sp<IBinder>& lock,
                                                  const String16& tag,
                                                  const String16& packageName, int uid,
                                                  bool /*isOneWay*/) {
    Mutex::Autolock _l(mLock);
    ++mAcquireRequests;
    if (!isBinderAlive()) return DEAD_OBJECT;
    if (mRefusal != OK) return mRefusal;
    return acquire_l(flags, lock, tag, packageName, uid < 0 ? -1 : uid);
}

// Bad arguments make the platform's service throw; its native proxy returns
// only the transport status, so the caller still sees OK.  The host does the
// same and leaves a log line instead of the exception.
status_t HostPowerService::acquire_l(int flags, const sp<IBinder>& lock, const String16& tag,
                                     const String16& packageName, int workSourceUid) {
    if (lock == nullptr) {
        ALOGW("acquireWakeLock: lock must not be null");
        return OK;
    }
    if (!isValidLevel(flags)) {
        ALOGW("acquireWakeLock: invalid wake lock level 0x%x", flags);
        return OK;
    }
    IPCThreadState* ipc = IPCThreadState::self();
    WakeLock wl{lock, flags, tag, packageName, int(ipc->getCallingUid()),
                int(ipc->getCallingPid()), workSourceUid};
    for (WakeLock& held : mWakeLocks) {
        if (held.token == lock) {
            // Same token again: the existing lock takes the new properties.
            held = wl;
            return OK;
        }
    }
    mWakeLocks.push_back(wl);
    return OK;
}

status_t HostPowerService::releaseWakeLock(const sp<IBinder>& lock, int /*flags*/,
                                           bool /*isOneWay*/) {
    Mutex::Autolock _l(mLock);
    ++mReleaseRequests;
    if (!isBinderAlive()) return DEAD_OBJECT;
    if (mRefusal != OK) return mRefusal;
    if (lock == nullptr) {
        ALOGW("releaseWakeLock: lock must not be null");
        return OK;
    }
    for (auto it = mWakeLocks.begin(); it != mWakeLocks.end(); ++it) {
        if (it->token == lock) {
            mWakeLocks.erase(it);
            return OK;
        }
    }
    // An unknown token is not an error for the platform either.
    return OK;
}

std::vector<HostPowerService::WakeLock> HostPowerService::heldWakeLocks() const {
    Mutex::Autolock _l(mLock);
    return mWakeLocks;
}

int HostPowerService::partialWakeLockCount() const {
    Mutex::Autolock _l(mLock);
    int n = 0;
    for (const WakeLock& wl : mWakeLocks) {
        n += (wl.flags & kWakeLockLevelMask) == POWERMANAGER_PARTIAL_WAKE_LOCK;
    }
    return n;
}

int HostPowerService::acquireRequests() const {
    Mutex::Autolock _l(mLock);
    return mAcquireRequests;
}

int HostPowerService::releaseRequests() const {
    Mutex::Autolock _l(mLock);
    return mReleaseRequests;
}

void HostPowerService::setRefusal(status_t status) {
    Mutex::Autolock _l(mLock);
    mRefusal = status;
}

void HostPowerService::onHostKilled() {
    Mutex::Autolock _l(mLock);
    mWakeLocks.clear();
}

}  // namespace host
}  // namespace android
