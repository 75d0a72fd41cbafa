/*
 * Host build of the platform's media foundation: common helpers.
 */

#ifndef A_BASE_H_

#define A_BASE_H_

#ifndef ARRAY_SIZE
#define ARRAY_SIZE(a) (sizeof(a) / sizeof(*(a)))
#endif

#define DISALLOW_EVIL_CONSTRUCTORS(name) \
    name(const name &); \
    name &operator=(const name &) /* NOLINT */

#ifdef __cplusplus

#include <cstddef>
#include <cstdint>
#include <limits>

// True when |size| elements of T can be allocated without the byte count
// overflowing a size_t (and, like the platform, a 32-bit byte count).
template <typename T, typename S>
bool isSafeArraySize(S size) {
    return size >= 0 &&
           static_cast<uint64_t>(size) <= std::numeric_limits<uint32_t>::max() / sizeof(T) &&
           static_cast<uint64_t>(size) <= std::numeric_limits<size_t>::max() / sizeof(T);
}

#endif  // __cplusplus

#endif  // A_BASE_H_
