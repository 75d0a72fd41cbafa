#define LOG_TAG "ServiceManager"

#include <binder/HostBinder.h>
#include <binder/IServiceManager.h>

#include <log/log.h>
#include <utils/Condition.h>
#include <utils/String8.h>

#include <map>

namespace android {

IMPLEMENT_META_INTERFACE(ServiceManager, "android.os.IServiceManager")

namespace {

// How long getService() waits for a service that is not registered yet; the
// platform gives up after about five seconds too.
constexpr nsecs_t kGetServiceTimeoutNs = 5000000000LL;

class HostServiceManager : public BnInterface<IServiceManager> {
public:
    sp<IBinder> getService(const String16& name) const override {
        Mutex::Autolock _l(mLock);
        const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) + kGetServiceTimeoutNs;
        bool warned = false;
        for (;;) {
            auto it = mServices.find(name);
            if (it != mServices.end()) return it->second;
            const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
            if (left <= 0) break;
            if (!warned) {
                ALOGI("Waiting for service '%s'...", String8(name).string());
                warned = true;
            }
            mAdded.waitRelative(mLock, left);
        }
        ALOGW("Service %s didn't start. Returning NULL", String8(name).string());
        return nullptr;
    }

    sp<IBinder> checkService(const String16& name) const override {
        Mutex::Autolock _l(mLock);
        auto it = mServices.find(name);
        return it == mServices.end() ? nullptr : it->second;
    }

    status_t addService(const String16& name, const sp<IBinder>& service,
                        bool /*allowIsolated*/ = false,
                        int /*dumpsysFlags*/ = DUMP_FLAG_PRIORITY_DEFAULT) override {
        if (service == nullptr || name.size() == 0) return BAD_VALUE;
        Mutex::Autolock _l(mLock);
        mServices[name] = service;
        mAdded.broadcast();
        return NO_ERROR;
    }

    Vector<String16> listServices(int /*dumpsysFlags*/ = DUMP_FLAG_PRIORITY_ALL) override {
        Mutex::Autolock _l(mLock);
        Vector<String16> names;
        for (const auto& entry : mServices) names.add(entry.first);
        return names;
    }

    // Removes |name| and hands back what was registered, null when nothing.
    sp<IBinder> remove(const String16& name) {
        Mutex::Autolock _l(mLock);
        auto it = mServices.find(name);
        if (it == mServices.end()) return nullptr;
        sp<IBinder> binder = it->second;
        mServices.erase(it);
        return binder;
    }

private:
    mutable Mutex mLock;
    mutable Condition mAdded;  // waits with mLock
    std::map<String16, sp<IBinder>> mServices GUARDED_BY(mLock);
};

sp<HostServiceManager> hostServiceManager() {
    // Built once and never destroyed: binder objects may be in use by threads
    // still running while the process exits.  The default services are added
    // here rather than from a static constructor, so that a static link cannot
    // leave them out.
    static sp<HostServiceManager>* sManager = [] {
        auto* sm = new sp<HostServiceManager>(new HostServiceManager);
        (*sm)->addService(String16("power"), new host::HostPowerService);
        return sm;
    }();
    return *sManager;
}

}  // namespace

sp<IServiceManager> defaultServiceManager() {
    return hostServiceManager();
}

namespace host {

sp<HostPowerService> powerService() {
    sp<IBinder> binder = hostServiceManager()->checkService(String16("power"));
    if (binder == nullptr) return nullptr;
    sp<IPowerManager> pm = IPowerManager::asInterface(binder);
    if (pm == nullptr) return nullptr;
    // Only the host's own class registers as a local IPowerManager.
    return static_cast<HostPowerService*>(pm.get());
}

sp<HostPowerService> restoreDefaultPowerService() {
    sp<HostPowerService> service = new HostPowerService;
    hostServiceManager()->addService(String16("power"), service);
    return service;
}

bool removeService(const String16& name) {
    return hostServiceManager()->remove(name) != nullptr;
}

bool killService(const String16& name) {
    sp<IBinder> binder = hostServiceManager()->remove(name);
    if (binder == nullptr) return false;
    killBinder(binder);
    return true;
}

}  // namespace host
}  // namespace android
