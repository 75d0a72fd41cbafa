/*
 * Host stand-in for the platform's binder/IBinder.h (API 29).  The host has no
 * kernel driver: every binder lives in this process, calls are plain virtual
 * calls, and there is no Parcel marshalling, so transact() is not part of this
 * surface.  Death notices are real, though: a service can be killed through
 * the host-only hooks in binder/HostBinder.h and its linked recipients hear
 * about it on a binder thread.
 */
#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <stdint.h>

// Four-character transaction codes, as the platform's binder headers define them.
#ifndef B_PACK_CHARS
#define B_PACK_CHARS(c1, c2, c3, c4) ((((c1) << 24)) | (((c2) << 16)) | (((c3) << 8)) | (c4))
#endif

namespace android {

class BBinder;
class BpBinder;
class IInterface;

class IBinder : public virtual RefBase {
public:
    enum {
        FIRST_CALL_TRANSACTION = 0x00000001,
        LAST_CALL_TRANSACTION = 0x00ffffff,

        PING_TRANSACTION = B_PACK_CHARS('_', 'P', 'N', 'G'),
        DUMP_TRANSACTION = B_PACK_CHARS('_', 'D', 'M', 'P'),
        SHELL_COMMAND_TRANSACTION = B_PACK_CHARS('_', 'C', 'M', 'D'),
        INTERFACE_TRANSACTION = B_PACK_CHARS('_', 'N', 'T', 'F'),
        SYSPROPS_TRANSACTION = B_PACK_CHARS('_', 'S', 'P', 'R'),

        FLAG_ONEWAY = 0x00000001,
    };

    IBinder();

    // The local interface object for |descriptor|, or null when this binder
    // does not implement it locally.
    virtual sp<IInterface> queryLocalInterface(const String16& descriptor);

    virtual const String16& getInterfaceDescriptor() const = 0;

    virtual bool isBinderAlive() const = 0;
    virtual status_t pingBinder() = 0;
    virtual status_t dump(int fd, const Vector<String16>& args) = 0;

    class DeathRecipient : public virtual RefBase {
    public:
        virtual void binderDied(const wp<IBinder>& who) = 0;
    };

    // Registers |recipient| (held weakly) to hear when this binder's process
    // dies.  DEAD_OBJECT when it is already dead.
    virtual status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                                 uint32_t flags = 0) = 0;

    // Removes the first registration matching |recipient| (or, when it is
    // null, |cookie|) and |flags|.  NAME_NOT_FOUND when there is none,
    // DEAD_OBJECT when the death notice has already been sent.
    virtual status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                                   uint32_t flags = 0,
                                   wp<DeathRecipient>* outRecipient = nullptr) = 0;

    virtual bool checkSubclass(const void* subclassID) const;

    virtual BBinder* localBinder();
    virtual BpBinder* remoteBinder();

protected:
    virtual ~IBinder();

private:
};

}  // namespace android
