#define LOG_TAG "AndroidThreads"

#include <utils/AndroidThreads.h>

#include <errno.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include <log/log.h>
#include <utils/Errors.h>

namespace {

// Set once the first refused raise has been logged: an unprivileged host
// refuses every one of them and the warning would repeat for each thread.
std::atomic<bool> sPrivilegeWarningLogged{false};

pid_t resolveTid(pid_t tid) {
    return tid != 0 ? tid : static_cast<pid_t>(syscall(SYS_gettid));
}

}  // namespace

extern "C" int androidSetThreadPriority(pid_t tid, int prio) {
    const pid_t target = resolveTid(tid);
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(target), prio) == 0) {
        return 0;
    }
    const int err = errno;
    if (err == EACCES || err == EPERM) {
        if (!sPrivilegeWarningLogged.exchange(true, std::memory_order_relaxed)) {
            ALOGW("cannot set thread %d to priority %d without the privilege to raise priorities "
                  "(%s); threads keep their current priority",
                  target, prio, strerror(err));
        }
    } else {
        ALOGE("cannot set thread %d to priority %d: %s", target, prio, strerror(err));
    }
    errno = err;
    return android::INVALID_OPERATION;
}

extern "C" int androidGetThreadPriority(pid_t tid) {
    return getpriority(PRIO_PROCESS, static_cast<id_t>(resolveTid(tid)));
}
