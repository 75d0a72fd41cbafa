#pragma once

// Deadlines in tests only bound a hang; they are never the oracle.  Under an
// emulator (the arm64 cross build runs its tests under qemu-user) everything
// is several times slower, so the build sets ROTAVOX_TEST_TIME_FACTOR and
// every deadline stretches by it.

#include <stdlib.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

namespace android {
namespace testing {

inline int timeFactor() {
    static const int factor = [] {
        const char* value = getenv("ROTAVOX_TEST_TIME_FACTOR");
        const int f = value != nullptr ? atoi(value) : 1;
        return f > 1 ? f : 1;
    }();
    return factor;
}

template <typename Rep, typename Period>
std::chrono::duration<Rep, Period> stretched(std::chrono::duration<Rep, Period> deadline) {
    return deadline * timeFactor();
}

// The same for the platform's nanosecond counts (nsecs_t).
inline int64_t stretchedNs(int64_t deadlineNs) {
    return deadlineNs * timeFactor();
}

// Polls |done| every millisecond until it holds or the stretched |timeout|
// passes; for state that offers nothing to wait on.  False on timeout.
inline bool waitUntil(const std::function<bool()>& done,
                      std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + stretched(timeout);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace testing
}  // namespace android
