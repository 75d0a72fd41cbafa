#pragma once

// Fatal checks of the engine.  Their abort texts are part of the engine's
// contract (tools and crash reports match them), so they name the source
// and line explicitly instead of relying on __FILE__/__LINE__, which differ
// between a platform-tree build and a host build.  Built on liblog's
// LOG_ALWAYS_FATAL so the same code compiles in both.
//
//   RV_CHECK("Rotavox", 797, err != OK);
//     -> "frameworks/av/media/librotavox/Rotavox:797 CHECK(err != OK) failed."
//   RV_CHECK_EQ("AudioDecoder", 184, err, (status_t)OK);
//     -> "frameworks/av/media/librotavox/AudioDecoder:184 CHECK_EQ( err,(status_t)OK) failed: -19 vs. 0"
//   RV_TRESPASS("Rotavox", 868);
//     -> "frameworks/av/media/librotavox/Rotavox:868 Should not be here. "

#include <log/log.h>

#define RV_SOURCE_PATH "frameworks/av/media/librotavox/"

#define RV_CHECK(file, line, condition)                                                   \
    LOG_ALWAYS_FATAL_IF(!(condition), "%s",                                               \
                        RV_SOURCE_PATH file ":" #line " CHECK(" #condition ") failed.")

#define RV_CHECK_EQ(file, line, x, y)                                                      \
    do {                                                                                   \
        const long long rvCheckX_ = (long long)(x);                                        \
        const long long rvCheckY_ = (long long)(y);                                        \
        if (rvCheckX_ != rvCheckY_) {                                                      \
            LOG_ALWAYS_FATAL("%s%lld vs. %lld",                                            \
                             RV_SOURCE_PATH file ":" #line " CHECK_EQ( " #x "," #y         \
                                                   ") failed: ",                           \
                             rvCheckX_, rvCheckY_);                                        \
        }                                                                                  \
    } while (0)

#define RV_TRESPASS(file, line) \
    LOG_ALWAYS_FATAL("%s", RV_SOURCE_PATH file ":" #line " Should not be here. ")
