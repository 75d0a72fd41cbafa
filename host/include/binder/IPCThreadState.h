/*
 * Host stand-in for the platform's binder/IPCThreadState.h (API 29): the
 * per-thread calling identity.  Outside an incoming call a thread's calling
 * identity is its own process; restoreCallingIdentity() with a token made of
 * another uid/pid lets a host test play an incoming call.
 */
#pragma once

#include <sys/types.h>
#include <stdint.h>
#include <utils/Errors.h>

namespace android {

class IPCThreadState {
public:
    static IPCThreadState* self();
    static IPCThreadState* selfOrNull();

    pid_t getCallingPid() const;
    uid_t getCallingUid() const;

    // Returns a token (uid in the upper 32 bits, pid in the lower) for
    // restoreCallingIdentity() and makes this thread's own process the caller.
    int64_t clearCallingIdentity();
    void restoreCallingIdentity(int64_t token);

    // Nothing is ever buffered in-process; kept for source compatibility.
    void flushCommands();

private:
    IPCThreadState();
    ~IPCThreadState();
    friend struct IPCThreadStateHolder;

    pid_t mCallingPid;
    uid_t mCallingUid;
};

}  // namespace android
