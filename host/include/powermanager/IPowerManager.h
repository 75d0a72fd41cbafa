/*
 * Host stand-in for the platform's powermanager/IPowerManager.h (API 29).
 */
#pragma once

#include <binder/IInterface.h>
#include <utils/String16.h>

namespace android {

// Must be kept in sync with the platform's PowerManager.java wake lock levels.
enum {
    POWERMANAGER_PARTIAL_WAKE_LOCK = 1,
    POWERMANAGER_SCREEN_DIM_WAKE_LOCK = 6,
    POWERMANAGER_SCREEN_BRIGHT_WAKE_LOCK = 10,
    POWERMANAGER_FULL_WAKE_LOCK = 26,
    POWERMANAGER_PROXIMITY_SCREEN_OFF_WAKE_LOCK = 32,
    POWERMANAGER_DOZE_WAKE_LOCK = 64,
    POWERMANAGER_DRAW_WAKE_LOCK = 128,
};

class IPowerManager : public IInterface {
public:
    // These transaction IDs follow the method order of IPowerManager.aidl.
    enum {
        ACQUIRE_WAKE_LOCK = IBinder::FIRST_CALL_TRANSACTION,
        ACQUIRE_WAKE_LOCK_UID = IBinder::FIRST_CALL_TRANSACTION + 1,
        RELEASE_WAKE_LOCK = IBinder::FIRST_CALL_TRANSACTION + 2,
    };

    DECLARE_META_INTERFACE(PowerManager)

    virtual status_t acquireWakeLock(int flags, const sp<IBinder>& lock, const String16& tag,
                                     const String16& packageName, bool isOneWay = false) = 0;
    virtual status_t acquireWakeLockWithUid(int flags, const sp<IBinder>& lock,
                                            const String16& tag, const String16& packageName,
                                            int uid, bool isOneWay = false) = 0;
    virtual status_t releaseWakeLock(const sp<IBinder>& lock, int flags,
                                     bool isOneWay = false) = 0;
};

}  // namespace android
