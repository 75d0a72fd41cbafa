#include "LogCapture.h"
#include "TestTime.h"

#include <android/log.h>

#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace android {
namespace testing {
namespace {

struct Store {
    std::mutex lock;  // guards lines
    std::condition_variable added;
    std::vector<LogLine> lines;
    bool echo = getenv("ROTAVOX_TEST_LOG") != nullptr;
};

Store& store() {
    static Store* s = new Store;  // never destroyed: threads may log during exit
    return *s;
}

char priorityLetter(int prio) {
    switch (prio) {
        case ANDROID_LOG_VERBOSE: return 'V';
        case ANDROID_LOG_DEBUG: return 'D';
        case ANDROID_LOG_INFO: return 'I';
        case ANDROID_LOG_WARN: return 'W';
        case ANDROID_LOG_ERROR: return 'E';
        case ANDROID_LOG_FATAL: return 'F';
        default: return '?';
    }
}

void record(int prio, const char* tag, const char* text) {
    Store& s = store();
    {
        std::lock_guard<std::mutex> l(s.lock);
        s.lines.push_back({prio, tag ? tag : "", text ? text : ""});
    }
    s.added.notify_all();
    if (s.echo || prio >= ANDROID_LOG_FATAL) {
        fprintf(stderr, "%c %s: %s\n", priorityLetter(prio), tag ? tag : "", text ? text : "");
    }
}

bool matches(const LogLine& l, const std::string& tag, const std::string& text, int priority) {
    return (tag.empty() || l.tag == tag) && l.message.find(text) != std::string::npos &&
           (priority < 0 || l.priority == priority);
}

}  // namespace

LogCapture::LogCapture() { clear(); }
LogCapture::~LogCapture() {}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> l(store().lock);
    return store().lines;
}

int LogCapture::count(const std::string& tag, const std::string& text, int priority) const {
    std::lock_guard<std::mutex> l(store().lock);
    int n = 0;
    for (const LogLine& line : store().lines) n += matches(line, tag, text, priority);
    return n;
}

bool LogCapture::waitFor(const std::string& tag, const std::string& text,
                         std::chrono::milliseconds timeout, int priority) const {
    Store& s = store();
    std::unique_lock<std::mutex> l(s.lock);
    return s.added.wait_for(l, stretched(timeout), [&] {
        for (const LogLine& line : s.lines) {
            if (matches(line, tag, text, priority)) return true;
        }
        return false;
    });
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> l(store().lock);
    store().lines.clear();
}

}  // namespace testing
}  // namespace android

using android::testing::record;

extern "C" int __android_log_write(int prio, const char* tag, const char* text) {
    record(prio, tag, text);
    return 1;
}

extern "C" int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    char buf[1024];
    vsnprintf(buf, sizeof(buf), fmt, ap);
    record(prio, tag, buf);
    return 1;
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int r = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return r;
}

extern "C" void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    char buf[1024];
    if (fmt) {
        va_list ap;
        va_start(ap, fmt);
        vsnprintf(buf, sizeof(buf), fmt, ap);
        va_end(ap);
    } else if (cond) {
        snprintf(buf, sizeof(buf), "Assertion failed: %s", cond);
    } else {
        snprintf(buf, sizeof(buf), "Unspecified assertion failed");
    }
    // Death tests match this line on stderr.
    record(ANDROID_LOG_FATAL, tag, buf);
    fflush(stderr);
    abort();
}
