#pragma once

// Captures the platform log inside a test executable.  The executable defines
// __android_log_print and its siblings itself (LogCapture.cpp), which the
// linker prefers over liblog's, so every ALOGx of the code under test and of
// the platform libraries lands here.

#include <chrono>
#include <string>
#include <vector>

namespace android {
namespace testing {

struct LogLine {
    int priority;  // ANDROID_LOG_*
    std::string tag;
    std::string message;
};

class LogCapture {
public:
    // Starts a fresh capture: lines logged before construction are forgotten.
    LogCapture();
    ~LogCapture();

    std::vector<LogLine> lines() const;
    // Lines whose tag equals |tag| (any tag when empty) and whose message
    // contains |text|; |priority| < 0 matches every priority.
    int count(const std::string& tag, const std::string& text, int priority = -1) const;
    bool contains(const std::string& tag, const std::string& text, int priority = -1) const {
        return count(tag, text, priority) > 0;
    }
    // Waits on a condition (no polling sleep) until a matching line arrives.
    bool waitFor(const std::string& tag, const std::string& text,
                 std::chrono::milliseconds timeout, int priority = -1) const;
    void clear();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
};

}  // namespace testing
}  // namespace android
