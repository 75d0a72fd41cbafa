#define LOG_TAG "IPCThreadState"

#include <binder/IPCThreadState.h>

#include <unistd.h>

#include <memory>

namespace android {

struct IPCThreadStateHolder {
    IPCThreadState state;
};

namespace {
thread_local std::unique_ptr<IPCThreadStateHolder> tState;
}

IPCThreadState::IPCThreadState() : mCallingPid(getpid()), mCallingUid(getuid()) {}
IPCThreadState::~IPCThreadState() {}

IPCThreadState* IPCThreadState::self() {
    if (!tState) tState.reset(new IPCThreadStateHolder);
    return &tState->state;
}

IPCThreadState* IPCThreadState::selfOrNull() {
    return tState ? &tState->state : nullptr;
}

pid_t IPCThreadState::getCallingPid() const {
    return mCallingPid;
}

uid_t IPCThreadState::getCallingUid() const {
    return mCallingUid;
}

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token = (int64_t(mCallingUid) << 32) | uint32_t(mCallingPid);
    mCallingPid = getpid();
    mCallingUid = getuid();
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    mCallingUid = uid_t(token >> 32);
    mCallingPid = pid_t(token & 0xffffffff);
}

void IPCThreadState::flushCommands() {}

}  // namespace android
