/*
 * Host stand-in for the platform's binder/Binder.h (API 29): BBinder, the
 * local side of a binder object.
 *
 * On a device a BBinder cannot die while its own process lives, so the
 * platform's BBinder refuses death links.  Here every service is a BBinder in
 * this process standing in for an object of another process, so BBinder keeps
 * death links the way the platform's proxy (BpBinder) does and delivers them
 * when the host hooks kill it (binder/HostBinder.h).
 */
#pragma once

#include <binder/IBinder.h>
#include <utils/Mutex.h>

#include <atomic>
#include <vector>

namespace android {


class BBinder : public IBinder {
public:
    BBinder();

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;

    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0,
                           wp<DeathRecipient>* outRecipient = nullptr) override;

    BBinder* localBinder() override;

protected:
    ~BBinder() override;


private:
    // The host's kill hook (binder/HostBinder.h) reaches the two below.
    friend class HostBinderKiller;

    struct Obituary {
        wp<DeathRecipient> recipient;
        void* cookie;
        uint32_t flags;
    };

    // Marks the object dead and hands the registered obituaries to the
    // binder thread.  Returns false when it was dead already.
    bool hostKill();
    void sendObituaries();

    std::atomic<bool> mDead{false};
    mutable Mutex mLock;
    std::vector<Obituary> mObituaries GUARDED_BY(mLock);
    bool mObitsSent GUARDED_BY(mLock) = false;

    BBinder(const BBinder&) = delete;
    BBinder& operator=(const BBinder&) = delete;
};

}  // namespace android
