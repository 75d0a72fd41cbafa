/*
 * Host stand-in for the platform's binder/IServiceManager.h (API 29): an
 * in-process registry of named binder services.  The first call to
 * defaultServiceManager() registers the host's default services ("power").
 */
#pragma once

#include <binder/IInterface.h>
#include <utils/String16.h>
#include <utils/Vector.h>

namespace android {

class IServiceManager : public IInterface {
public:
    DECLARE_META_INTERFACE(ServiceManager)

    enum {
        DUMP_FLAG_PRIORITY_CRITICAL = 1 << 0,
        DUMP_FLAG_PRIORITY_HIGH = 1 << 1,
        DUMP_FLAG_PRIORITY_NORMAL = 1 << 2,
        DUMP_FLAG_PRIORITY_DEFAULT = 1 << 3,
        DUMP_FLAG_PRIORITY_ALL = DUMP_FLAG_PRIORITY_CRITICAL | DUMP_FLAG_PRIORITY_HIGH |
                                 DUMP_FLAG_PRIORITY_NORMAL | DUMP_FLAG_PRIORITY_DEFAULT,
        DUMP_FLAG_PROTO = 1 << 4,
    };

    // Waits a while (as the platform does, about 5 s) for the service to be
    // registered; null if it never comes.
    virtual sp<IBinder> getService(const String16& name) const = 0;

    // Non-blocking: null when no such service is registered.
    virtual sp<IBinder> checkService(const String16& name) const = 0;

    // Registers |service| under |name|, replacing an earlier registration.
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false,
                                int dumpsysFlags = DUMP_FLAG_PRIORITY_DEFAULT) = 0;

    virtual Vector<String16> listServices(int dumpsysFlags = DUMP_FLAG_PRIORITY_ALL) = 0;
};

sp<IServiceManager> defaultServiceManager();

template <typename INTERFACE>
status_t getService(const String16& name, sp<INTERFACE>* outService) {
    const sp<IServiceManager> sm = defaultServiceManager();
    if (sm != nullptr) {
        *outService = interface_cast<INTERFACE>(sm->getService(name));
        if ((*outService) != nullptr) return NO_ERROR;
    }
    return NAME_NOT_FOUND;
}

}  // namespace android
