/*
 * Host stand-in for the platform's powermanager/IPowerManager.h (API 29).
 */
#pragma once

#include <binder/IInterface.h>
#include <utils/String16.h>

namespace android {

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
