#define LOG_TAG "properties"

#include <cutils/host_properties.h>
#include <cutils/properties.h>

#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>

#include <utils/HostMutex.h>

#include <log/log.h>

namespace {

// The store lives for the whole process; it is never destroyed so that
// property calls from static destructors of other objects stay safe.
struct PropertyStore {
    android::HostMutex mLock;
    std::map<std::string, std::string> mValues GUARDED_BY(mLock);
    // Whether the start-up load from the file and the environment has run.
    bool mLoaded GUARDED_BY(mLock) = false;
};

PropertyStore& store() {
    static PropertyStore* sStore = new PropertyStore;
    return *sStore;
}

bool isValidKey(const char* key, size_t length) {
    if (key == nullptr || length == 0) return false;
    for (size_t i = 0; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(key[i]);
        if (c <= ' ' || c == '=' || c == 0x7f) return false;
    }
    return true;
}

std::string trim(const std::string& s) {
    const char* kSpace = " \t\r\n";
    const size_t begin = s.find_first_not_of(kSpace);
    if (begin == std::string::npos) return std::string();
    const size_t end = s.find_last_not_of(kSpace);
    return s.substr(begin, end - begin + 1);
}

// Parses one "key=value" entry into the store.  Blank entries and comments
// return true without setting anything.  |origin| and |line| name the entry
// in the log line of a malformed one.
bool applyEntry_l(PropertyStore& s, const std::string& rawEntry, const char* origin, int line,
                  int* setCount) REQUIRES(s.mLock) {
    const std::string entry = trim(rawEntry);
    if (entry.empty() || entry[0] == '#') return true;
    const size_t eq = entry.find('=');
    const char* problem = nullptr;
    std::string key, value;
    if (eq == std::string::npos) {
        problem = "no '='";
    } else {
        key = trim(entry.substr(0, eq));
        value = trim(entry.substr(eq + 1));
        if (!isValidKey(key.c_str(), key.size())) {
            problem = "bad key";
        } else if (value.size() >= PROPERTY_VALUE_MAX) {
            problem = "value too long";
        }
    }
    if (problem != nullptr) {
        ALOGW("%s:%d: malformed property line skipped (%s): \"%s\"", origin, line, problem,
              entry.c_str());
        return false;
    }
    s.mValues[key] = value;
    ++*setCount;
    return true;
}

int loadString_l(PropertyStore& s, const char* text, const char* origin) REQUIRES(s.mLock) {
    int setCount = 0;
    if (text == nullptr) return 0;
    std::string entry;
    int index = 1;
    for (const char* p = text;; ++p) {
        if (*p == ',' || *p == '\n' || *p == '\0') {
            applyEntry_l(s, entry, origin, index, &setCount);
            entry.clear();
            ++index;
            if (*p == '\0') break;
        } else {
            entry.push_back(*p);
        }
    }
    return setCount;
}

int loadFile_l(PropertyStore& s, const char* path) REQUIRES(s.mLock) {
    FILE* f = fopen(path, "re");
    if (f == nullptr) {
        ALOGE("cannot open property file %s: %s", path, strerror(errno));
        return -1;
    }
    int setCount = 0;
    int lineNumber = 0;
    std::string line;
    char chunk[256];
    bool lineDone = true;
    while (fgets(chunk, sizeof(chunk), f) != nullptr) {
        if (lineDone) {
            ++lineNumber;
            line.clear();
        }
        line += chunk;
        lineDone = !line.empty() && line.back() == '\n';
        if (lineDone) applyEntry_l(s, line, path, lineNumber, &setCount);
    }
    if (!lineDone) applyEntry_l(s, line, path, lineNumber, &setCount);
    fclose(f);
    return setCount;
}

// The start-up load: the file first, then the environment, which wins.
int loadDefaults_l(PropertyStore& s, const char* filePath) REQUIRES(s.mLock) {
    int result = 0;
    if (filePath != nullptr && filePath[0] != '\0') {
        if (loadFile_l(s, filePath) < 0) result = -1;
    }
    loadString_l(s, getenv("ROTAVOX_PROPERTIES"), "ROTAVOX_PROPERTIES");
    s.mLoaded = true;
    return result;
}

void ensureLoaded_l(PropertyStore& s) REQUIRES(s.mLock) {
    if (!s.mLoaded) loadDefaults_l(s, getenv("ROTAVOX_PROPERTIES_FILE"));
}

// Copies the value of |key| into |value| (PROPERTY_VALUE_MAX bytes); returns
// its length, 0 with value "" when it is absent.
int lookup(const char* key, char* value) {
    value[0] = '\0';
    if (key == nullptr) return 0;
    PropertyStore& s = store();
    android::HostLock lock(s.mLock);
    ensureLoaded_l(s);
    auto it = s.mValues.find(key);
    if (it == s.mValues.end()) return 0;
    const size_t length = std::min(it->second.size(), static_cast<size_t>(PROPERTY_VALUE_MAX - 1));
    memcpy(value, it->second.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

intmax_t getSigned(const char* key, intmax_t lowerBound, intmax_t upperBound,
                   intmax_t defaultValue) {
    char buf[PROPERTY_VALUE_MAX];
    if (lookup(key, buf) <= 0) return defaultValue;
    errno = 0;
    char* end = nullptr;
    const intmax_t result = strtoimax(buf, &end, 0);
    if (errno == ERANGE || end == buf || *end != '\0' || result < lowerBound ||
        result > upperBound) {
        // A device owner's typo must not pass unnoticed: say which key and
        // what is used instead.
        ALOGW("property %s: \"%s\" is not an integer in range; using %jd", key, buf,
              defaultValue);
        return defaultValue;
    }
    return result;
}

}  // namespace

extern "C" {

int property_get(const char* key, char* value, const char* default_value) {
    int length = lookup(key, value);
    if (length > 0) return length;
    if (default_value != nullptr) {
        length = static_cast<int>(strnlen(default_value, PROPERTY_VALUE_MAX - 1));
        memcpy(value, default_value, length);
        value[length] = '\0';
    }
    return length;
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    char buf[PROPERTY_VALUE_MAX];
    if (lookup(key, buf) <= 0) return default_value;
    static const char* const kTrue[] = {"1", "y", "yes", "on", "true"};
    static const char* const kFalse[] = {"0", "n", "no", "off", "false"};
    for (const char* t : kTrue) {
        if (strcmp(buf, t) == 0) return 1;
    }
    for (const char* f : kFalse) {
        if (strcmp(buf, f) == 0) return 0;
    }
    ALOGW("property %s: \"%s\" is not a boolean; using %s", key, buf,
          default_value ? "true" : "false");
    return default_value;
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    return static_cast<int64_t>(getSigned(key, INT64_MIN, INT64_MAX, default_value));
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    return static_cast<int32_t>(getSigned(key, INT32_MIN, INT32_MAX, default_value));
}

int property_set(const char* key, const char* value) {
    if (key == nullptr || !isValidKey(key, strlen(key))) {
        ALOGW("property_set: invalid key \"%s\"", key == nullptr ? "(null)" : key);
        return -1;
    }
    if (value == nullptr) value = "";
    if (strlen(value) >= PROPERTY_VALUE_MAX) {
        ALOGW("property_set: value of %s too long (%zu characters)", key, strlen(value));
        return -1;
    }
    PropertyStore& s = store();
    android::HostLock lock(s.mLock);
    ensureLoaded_l(s);
    s.mValues[key] = value;
    return 0;
}

int property_list(void (*propfn)(const char* key, const char* value, void* cookie),
                  void* cookie) {
    if (propfn == nullptr) return -1;
    // Copied first so that the callback may call back into the store.
    std::map<std::string, std::string> copy;
    {
        PropertyStore& s = store();
        android::HostLock lock(s.mLock);
        ensureLoaded_l(s);
        copy = s.mValues;
    }
    for (const auto& entry : copy) propfn(entry.first.c_str(), entry.second.c_str(), cookie);
    return 0;
}

void host_properties_clear(void) {
    PropertyStore& s = store();
    android::HostLock lock(s.mLock);
    s.mValues.clear();
    s.mLoaded = true;
}

int host_properties_reload(const char* file_path) {
    PropertyStore& s = store();
    android::HostLock lock(s.mLock);
    s.mValues.clear();
    return loadDefaults_l(s, file_path);
}

int host_properties_load_file(const char* file_path) {
    if (file_path == nullptr) return -1;
    PropertyStore& s = store();
    android::HostLock lock(s.mLock);
    ensureLoaded_l(s);
    return loadFile_l(s, file_path);
}

int host_properties_load_string(const char* text, const char* origin) {
    PropertyStore& s = store();
    android::HostLock lock(s.mLock);
    ensureLoaded_l(s);
    return loadString_l(s, text, origin != nullptr ? origin : "properties");
}

}  // extern "C"
