/*
 * Debian's libutils declares androidSetThreadPriority() and
 * androidGetThreadPriority() only for __ANDROID__ builds and does not export
 * them; the host implementation (host_core) maps them onto Linux per-thread
 * nice values, which use the same scale as the ANDROID_PRIORITY_* constants.
 */

#ifndef HOST_UTILS_ANDROID_THREADS_SHIM_H
#define HOST_UTILS_ANDROID_THREADS_SHIM_H

#include_next <utils/AndroidThreads.h>

#include <sys/types.h>
#include <system/thread_defs.h>

#if !defined(__ANDROID__)
#ifdef __cplusplus
extern "C" {
#endif

/* Sets the nice value of thread |tid| (0 = calling thread) to |prio|, one of
 * the ANDROID_PRIORITY_* constants.  Returns 0, or INVALID_OPERATION when the
 * priority could not be set (errno tells why); lacking the privilege to raise
 * a priority is logged once per process and is never fatal. */
int androidSetThreadPriority(pid_t tid, int prio);

/* The nice value of thread |tid| (0 = calling thread). */
int androidGetThreadPriority(pid_t tid);

#ifdef __cplusplus
}
#endif
#endif /* !__ANDROID__ */

#endif /* HOST_UTILS_ANDROID_THREADS_SHIM_H */
