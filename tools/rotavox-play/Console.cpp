#include "Console.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <mutex>
#include <sstream>

#include <android/log.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/Errors.h>

namespace rotavox {
namespace console {

namespace {

std::mutex gLock;  // guards everything below and the writes to stderr
Verbosity gVerbosity = kNormal;
bool gProgress = false;
std::string gProgressLine;  // what is on screen now, empty when nothing
int gDefaultPriority = ANDROID_LOG_WARN;
std::map<std::string, int> gTagPriority;

// Clears the progress line so that a whole line can be written.
void clearProgress_l() {
    if (!gProgressLine.empty()) fputs("\r\033[K", stderr);
}

void redrawProgress_l() {
    if (!gProgressLine.empty()) fputs(gProgressLine.c_str(), stderr);
    fflush(stderr);
}

void writeLine(const std::string& line) {
    std::lock_guard<std::mutex> l(gLock);
    clearProgress_l();
    fputs(line.c_str(), stderr);
    fputc('\n', stderr);
    redrawProgress_l();
}

int priorityOf(char c) {
    switch (c) {
        case 'v': return ANDROID_LOG_VERBOSE;
        case 'd': return ANDROID_LOG_DEBUG;
        case 'i': return ANDROID_LOG_INFO;
        case 'w': return ANDROID_LOG_WARN;
        case 'e': return ANDROID_LOG_ERROR;
        case 'f': return ANDROID_LOG_FATAL;
        case 's': return ANDROID_LOG_SILENT;
        default: return -1;
    }
}

char letterOf(int priority) {
    static const char kLetters[] = "??VDIWEFS";
    return priority >= 0 && priority < (int)sizeof(kLetters) - 1 ? kLetters[priority] : '?';
}

void logger(const struct __android_logger_data* data, const char* message) {
    const char* tag = data->tag != nullptr ? data->tag : "";
    int minimum = gDefaultPriority;
    {
        std::lock_guard<std::mutex> l(gLock);
        auto it = gTagPriority.find(tag);
        if (it != gTagPriority.end()) minimum = it->second;
    }
    if (data->priority < minimum) return;
    writeLine(std::string(1, letterOf(data->priority)) + " " + tag + ": " + message);
}

}  // namespace

bool setUp(Verbosity verbosity, bool progress, std::string* error) {
    gVerbosity = verbosity;
    gProgress = progress;
    gDefaultPriority = verbosity == kVerbose ? ANDROID_LOG_VERBOSE
                       : verbosity == kQuiet ? ANDROID_LOG_ERROR
                                             : ANDROID_LOG_WARN;
    // Android's host tools read "tag:p" words; "*:p" sets the default.
    const char* tags = getenv("ANDROID_LOG_TAGS");
    if (tags != nullptr) {
        std::istringstream words(tags);
        std::string word;
        while (words >> word) {
            const size_t colon = word.rfind(':');
            const int priority =
                    colon != std::string::npos && colon + 2 == word.size() ? priorityOf(word[colon + 1]) : -1;
            if (priority < 0 || colon == 0) {
                *error = "ANDROID_LOG_TAGS: '" + word + "' is not TAG:P (P one of v d i w e f s)";
                return false;
            }
            const std::string tag = word.substr(0, colon);
            if (tag == "*") {
                gDefaultPriority = priority;
            } else {
                gTagPriority[tag] = priority;
            }
        }
    }
    // liblog drops what is below its minimum before the logger sees it: let
    // through the lowest priority any tag wants, and decide per tag here.
    int lowest = gDefaultPriority;
    for (const auto& [tag, priority] : gTagPriority) lowest = std::min(lowest, priority);
    __android_log_set_minimum_priority(lowest);
    __android_log_set_logger(logger);
    return true;
}

Verbosity verbosity() {
    return gVerbosity;
}

void info(const char* fmt, ...) {
    if (gVerbosity == kQuiet) return;
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    writeLine(buf);
}

void error(const char* fmt, ...) {
    char buf[1024];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(buf, sizeof(buf), fmt, ap);
    va_end(ap);
    writeLine(std::string("rotavox-play: ") + buf);
}

void progress(const std::string& line) {
    if (!gProgress) return;
    std::lock_guard<std::mutex> l(gLock);
    fputs("\r\033[K", stderr);
    gProgressLine = line;
    redrawProgress_l();
}

void endProgress() {
    std::lock_guard<std::mutex> l(gLock);
    if (!gProgressLine.empty()) fputc('\n', stderr);
    gProgressLine.clear();
    fflush(stderr);
}

}  // namespace console

std::string statusName(int status) {
    using namespace android;
#define NAMED(s) {(int)s, #s}
    static const std::map<int, const char*> kNames = {
            NAMED(OK), NAMED(UNKNOWN_ERROR), NAMED(NO_MEMORY), NAMED(INVALID_OPERATION),
            NAMED(BAD_VALUE), NAMED(BAD_TYPE), NAMED(NAME_NOT_FOUND), NAMED(PERMISSION_DENIED),
            NAMED(NO_INIT), NAMED(ALREADY_EXISTS), NAMED(DEAD_OBJECT), NAMED(BAD_INDEX),
            NAMED(NOT_ENOUGH_DATA), NAMED(WOULD_BLOCK), NAMED(TIMED_OUT), NAMED(ERROR_IO),
            NAMED(ERROR_MALFORMED), NAMED(ERROR_UNSUPPORTED), NAMED(ERROR_END_OF_STREAM),
            NAMED(INFO_FORMAT_CHANGED),
    };
#undef NAMED
    auto it = kNames.find(status);
    return std::string(it != kNames.end() ? it->second : "status") + " (" + std::to_string(status) + ")";
}

}  // namespace rotavox
