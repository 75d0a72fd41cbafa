// Arbitrary text where a device owner writes configuration: the property
// store's string and file loaders, the property getters, and the scratch
// source's parsing of media.rotavox.cache-params, from a caller's string and
// from the property.  A value that does not parse must leave a usable store
// and cache parameters that are never negative.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include <fuzzer/FuzzedDataProvider.h>

#include <cutils/host_properties.h>
#include <cutils/properties.h>

#include "LogCapture.h"
#include "RotavoxSource.h"
#include "SyntheticPcmSource.h"

using namespace android;

namespace {

const char* kCacheParams = "media.rotavox.cache-params";

void fail(const char* what, const std::string& input) {
    fprintf(stderr, "PropertiesFuzzer: %s (input \"%s\")\n", what, input.c_str());
    abort();
}

// One source for the whole run: building one starts a looper thread.
RotavoxSource* source() {
    static sp<RotavoxSource>* sSource = [] {
        testing::SyntheticPcmConfig config;
        sp<testing::SyntheticPcmSource> upstream = new testing::SyntheticPcmSource(config);
        return new sp<RotavoxSource>(new RotavoxSource(upstream, NULL));
    }();
    return sSource->get();
}

// The property file lives in memory; fopen reaches it through /proc.
int propertyFile() {
    static int sFd = memfd_create("rotavox-fuzz-properties", 0);
    return sFd;
}

// Updates the scratch source's cache parameters with |update|, which parsed
// |text|: they must stay non-negative, and change only for three numbers.
template <typename Update>
void checkCacheParams(const std::string& text, Update update) {
    RotavoxSource* s = source();
    const int64_t before[] = {s->getCacheLowWaterUs(), s->getCacheHighWaterUs(),
                              s->getCachePrerollUs()};
    update(s);
    const int64_t after[] = {s->getCacheLowWaterUs(), s->getCacheHighWaterUs(),
                             s->getCachePrerollUs()};
    if (*std::min_element(after, after + 3) < 0) fail("negative cache parameter", text);
    const char* t = text.c_str();  // what the parser sees ends at the first NUL
    if (!std::equal(before, before + 3, after) && std::count(t, t + strlen(t), '/') < 2) {
        fail("parameters changed by a string without three parts", text);
    }
}

void checkStore(const std::string& input) {
    property_list(
            [](const char* key, const char* value, void* cookie) {
                const std::string& in = *static_cast<const std::string*>(cookie);
                if (key[0] == '\0') fail("empty key in the store", in);
                if (strlen(value) >= PROPERTY_VALUE_MAX) fail("value too long in the store", in);
                char got[PROPERTY_VALUE_MAX];
                const int n = property_get(key, got, "");
                if (n < 0 || (size_t)n != strlen(got) || strcmp(got, value) != 0) {
                    fail("property_get disagrees with the store", in);
                }
            },
            const_cast<std::string*>(&input));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The engine's log lines of the last input only: kept lines would read
    // as a leak to the fuzzer and slow every run.
    android::testing::LogCapture log;
    FuzzedDataProvider in(data, size);
    const std::string a = in.ConsumeRandomLengthString(512);
    const std::string b = in.ConsumeRandomLengthString(512);
    const std::string c = in.ConsumeRemainingBytesAsString();

    host_properties_clear();
    host_properties_load_string(a.c_str(), "fuzz");
    checkStore(a);

    const int fd = propertyFile();
    if (fd >= 0 && ftruncate(fd, 0) == 0 && pwrite(fd, b.data(), b.size(), 0) == (ssize_t)b.size()) {
        char path[64];
        snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
        if (host_properties_load_file(path) < 0) fail("in-memory property file did not open", b);
        checkStore(b);
    }

    // Whatever the text, the getters answer within their bounds.
    char value[PROPERTY_VALUE_MAX];
    const int n = property_get(c.c_str(), value, c.size() < PROPERTY_VALUE_MAX ? c.c_str() : "");
    if (n < 0 || n >= PROPERTY_VALUE_MAX || (size_t)n != strlen(value)) {
        fail("property_get length", c);
    }
    (void)property_get_bool(c.c_str(), 0);
    (void)property_get_int64(c.c_str(), 0);
    (void)property_get_int32(c.c_str(), 0);
    property_set("fuzz.key", c.c_str());
    property_set(c.c_str(), "1");

    for (const std::string* text : {&a, &c}) {
        checkCacheParams(*text, [text](RotavoxSource* s) {
            s->updateCacheParamsFromString(text->c_str());
        });
    }
    if (property_set(kCacheParams, c.c_str()) == 0) {
        checkCacheParams(c, [](RotavoxSource* s) { s->updateCacheParamsFromSystemProperty(); });
    }
    return 0;
}
