/*
 * HOST ONLY.  Not a platform header: a std::mutex that carries the lock
 * annotations of utils/Mutex.h, for host code that waits on a
 * std::condition_variable.  libstdc++'s own mutex and lock guards are not
 * annotated, so clang's -Wthread-safety could not check the fields they
 * guard.
 */

#ifndef ANDROID_HOST_MUTEX_H
#define ANDROID_HOST_MUTEX_H

#include <mutex>

#include <utils/Mutex.h>

namespace android {

class CAPABILITY("mutex") HostMutex {
public:
    HostMutex() = default;

    void lock() ACQUIRE() { mMutex.lock(); }
    void unlock() RELEASE() { mMutex.unlock(); }

private:
    friend class HostLock;

    std::mutex mMutex;

    HostMutex(const HostMutex&) = delete;
    HostMutex& operator=(const HostMutex&) = delete;
};

// Holds a HostMutex for its scope, like Mutex::Autolock.
class SCOPED_CAPABILITY HostLock {
public:
    explicit HostLock(HostMutex& mutex) ACQUIRE(mutex) : mLock(mutex.mMutex) {}
    ~HostLock() RELEASE() {}

    // For std::condition_variable: a wait lets go of the mutex and takes it
    // back before it returns, so the scope still holds it afterwards.
    std::unique_lock<std::mutex>& waitable() { return mLock; }

private:
    std::unique_lock<std::mutex> mLock;

    HostLock(const HostLock&) = delete;
    HostLock& operator=(const HostLock&) = delete;
};

}  // namespace android

#endif  // ANDROID_HOST_MUTEX_H
