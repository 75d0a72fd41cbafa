#include <utils/AndroidThreads.h>

#include <errno.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include <android/log.h>
#include <gtest/gtest.h>
#include <system/thread_defs.h>
#include <utils/Errors.h>

#include "LogCapture.h"

namespace {

using android::testing::LogCapture;

int niceOf(pid_t tid) {
    errno = 0;
    const int prio = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
    EXPECT_EQ(0, errno);
    return prio;
}

// Every caller passes tid 0: the calling thread, and only that one, moves.
TEST(AndroidThreadsTest, SetsTheCallingThreadOnly) {
    const int mainBefore = niceOf(0);
    std::thread([] {
        ASSERT_EQ(0, androidSetThreadPriority(0, ANDROID_PRIORITY_LOWEST));
        EXPECT_EQ(ANDROID_PRIORITY_LOWEST, niceOf(0));
    }).join();
    EXPECT_EQ(mainBefore, niceOf(0)) << "the caller's priority must not change";
}

// Without the privilege to raise priorities every raise fails with a status,
// the thread keeps its priority and the process logs one warning in all.
// Runs in a fresh child process, which drops root first when it has it.  The
// starting priority is 5 or the one inherited, whichever is lower: without
// the privilege, a process started under `nice -n 10` cannot go back to 5.
TEST(AndroidThreadsTest, UnprivilegedRaiseFailsQuietlyAfterOneWarning) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
            {
                if (geteuid() == 0 && setuid(65534) != 0) exit(2);
                LogCapture log;
                const int start = std::max(5, niceOf(0));
                if (androidSetThreadPriority(0, start) != 0) exit(3);
                if (setpriority(PRIO_PROCESS, 0, start - 1) == 0) exit(4);  // still privileged
                const int first = androidSetThreadPriority(0, ANDROID_PRIORITY_AUDIO);
                const int second = androidSetThreadPriority(0, ANDROID_PRIORITY_URGENT_AUDIO);
                int result = 0;
                if (first != android::INVALID_OPERATION) result |= 8;
                if (second != android::INVALID_OPERATION) result |= 16;
                if (niceOf(0) != start) result |= 32;
                if (log.count("AndroidThreads", "", ANDROID_LOG_WARN) != 1) result |= 64;
                exit(result);
            },
            ::testing::ExitedWithCode(0), "");
}

TEST(AndroidThreadsTest, PrivilegedRaiseReachesAudioPriority) {
    std::thread([] {
        if (setpriority(PRIO_PROCESS, 0, -1) != 0) {
            GTEST_SKIP() << "no privilege to raise priorities here";
        }
        ASSERT_EQ(0, androidSetThreadPriority(0, ANDROID_PRIORITY_AUDIO));
        EXPECT_EQ(ANDROID_PRIORITY_AUDIO, niceOf(0));
    }).join();
}

}  // namespace
