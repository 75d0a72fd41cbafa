#include <cutils/host_properties.h>
#include <cutils/properties.h>

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <android/log.h>
#include <gtest/gtest.h>

#include "LogCapture.h"

namespace {

using android::testing::LogCapture;

std::string writeTempFile(const std::string& name, const std::string& content) {
    const std::string path = ::testing::TempDir() + "/" + name + "." + std::to_string(getpid());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    return path;
}

std::string get(const char* key, const char* def = nullptr) {
    char value[PROPERTY_VALUE_MAX];
    property_get(key, value, def);
    return value;
}

// Every test starts from an empty store, whatever the environment holds.
class PropertiesTest : public ::testing::Test {
protected:
    void SetUp() override {
        unsetenv("ROTAVOX_PROPERTIES");
        unsetenv("ROTAVOX_PROPERTIES_FILE");
        host_properties_clear();
    }
    void TearDown() override { host_properties_clear(); }
};

const std::string kLongValue(100, 'v');

const char* const kFileLines[] = {
        "# device owner's settings",                                // 1
        "media.rotavox.cache-params=2000000/20000000/5000000",     // 2
        "",                                                         // 3
        "   host.audio.sink =  wav   ",                             // 4
        "this line has no equals sign",                             // 5
        "=value-without-key",                                       // 6
        "flac.sw.decoder.24bit.support=true",                       // 7
        "bad key=1",                                                // 8
        nullptr,                                                    // 9: long value
        "   # indented comment",                                    // 10
        "value.with.equals=a=b",                                    // 11
        "last.line=42",                                             // 12, no newline
};

std::string fileContent() {
    std::string s;
    for (size_t i = 0; i < sizeof(kFileLines) / sizeof(kFileLines[0]); ++i) {
        s += kFileLines[i] != nullptr ? kFileLines[i] : "too.long=" + kLongValue;
        if (i + 1 < sizeof(kFileLines) / sizeof(kFileLines[0])) s += "\n";
    }
    return s;
}

TEST_F(PropertiesTest, FileKeepsGoodLinesAndLogsEachBadOne) {
    const std::string path = writeTempFile("props", fileContent());
    LogCapture log;
    ASSERT_EQ(0, host_properties_reload(path.c_str()));

    EXPECT_EQ("2000000/20000000/5000000", get("media.rotavox.cache-params"));
    EXPECT_EQ("wav", get("host.audio.sink"));
    EXPECT_EQ(1, property_get_bool("flac.sw.decoder.24bit.support", 0));
    EXPECT_EQ("a=b", get("value.with.equals"));
    EXPECT_EQ(42, property_get_int32("last.line", -1));
    EXPECT_EQ("absent", get("too.long", "absent"));
    EXPECT_EQ("absent", get("bad", "absent"));

    for (int badLine : {5, 6, 8, 9}) {
        EXPECT_EQ(1, log.count("properties", path + ":" + std::to_string(badLine) + ":",
                               ANDROID_LOG_WARN))
                << "line " << badLine;
    }
    for (int goodLine : {1, 2, 3, 4, 7, 10, 11, 12}) {
        EXPECT_EQ(0, log.count("properties", path + ":" + std::to_string(goodLine) + ":"))
                << "line " << goodLine;
    }
    unlink(path.c_str());
}

TEST_F(PropertiesTest, EnvironmentOverridesFile) {
    const std::string path = writeTempFile("props-env", fileContent());
    setenv("ROTAVOX_PROPERTIES",
           "host.audio.sink=null,media.rotavox.cache-params=1/2/3\nextra.key=yes, spaced.key = 7 ",
           1);
    LogCapture log;
    ASSERT_EQ(0, host_properties_reload(path.c_str()));
    EXPECT_EQ("null", get("host.audio.sink"));
    EXPECT_EQ("1/2/3", get("media.rotavox.cache-params"));
    EXPECT_EQ(1, property_get_bool("extra.key", 0));
    EXPECT_EQ(7, property_get_int32("spaced.key", 0));
    // Keys only the file names survive.
    EXPECT_EQ("a=b", get("value.with.equals"));

    setenv("ROTAVOX_PROPERTIES", "good.key=1,broken entry,,", 1);
    ASSERT_EQ(0, host_properties_reload(nullptr));
    EXPECT_EQ("1", get("good.key"));
    EXPECT_EQ("", get("host.audio.sink"));  // the file is gone with the reload
    EXPECT_TRUE(log.contains("properties", "ROTAVOX_PROPERTIES:2:", ANDROID_LOG_WARN));
    unlink(path.c_str());
}

TEST_F(PropertiesTest, MissingFileIsAnErrorNotAnAbort) {
    setenv("ROTAVOX_PROPERTIES", "still.applied=1", 1);
    LogCapture log;
    EXPECT_EQ(-1, host_properties_reload("/nonexistent/rotavox.properties"));
    EXPECT_TRUE(log.contains("properties", "/nonexistent/rotavox.properties", ANDROID_LOG_ERROR));
    EXPECT_EQ("1", get("still.applied"));
    EXPECT_EQ(-1, host_properties_load_file("/nonexistent/rotavox.properties"));
}

// The first property call of a process loads the file and the environment;
// the death-test child is a fresh process whose store has not been touched.
TEST(PropertiesStartupTest, FirstUseLoadsFileThenEnvironmentOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::string path =
            writeTempFile("props-startup", "from.file=file\nboth=file\ncache=1/2/3\n");
    EXPECT_EXIT(
            {
                setenv("ROTAVOX_PROPERTIES_FILE", path.c_str(), 1);
                setenv("ROTAVOX_PROPERTIES", "both=env", 1);
                // Many threads race to be first; each must see the loaded store.
                std::atomic<int> good{0};
                std::vector<std::thread> threads;
                for (int i = 0; i < 8; ++i) {
                    threads.emplace_back([&good] {
                        if (get("from.file") == "file" && get("both") == "env" &&
                            get("cache") == "1/2/3") {
                            ++good;
                        }
                    });
                }
                for (auto& t : threads) t.join();
                // A later change of the environment is not read again.
                setenv("ROTAVOX_PROPERTIES", "both=later", 1);
                const bool stable = get("both") == "env";
                exit(good == 8 && stable ? 0 : 1);
            },
            ::testing::ExitedWithCode(0), "");
    unlink(path.c_str());
}

TEST_F(PropertiesTest, GetTruncatesAndFallsBackToDefault) {
    // A buffer of exactly PROPERTY_VALUE_MAX bytes inside a guard zone.
    char guarded[PROPERTY_VALUE_MAX + 16];
    memset(guarded, 0x5a, sizeof(guarded));
    char* value = guarded;

    const std::string longDefault(200, 'd');
    EXPECT_EQ(PROPERTY_VALUE_MAX - 1, property_get("absent.key", value, longDefault.c_str()));
    EXPECT_EQ(std::string(PROPERTY_VALUE_MAX - 1, 'd'), std::string(value));
    for (size_t i = PROPERTY_VALUE_MAX; i < sizeof(guarded); ++i) {
        EXPECT_EQ(0x5a, guarded[i]) << "byte " << i << " written";
    }

    memset(value, 'x', PROPERTY_VALUE_MAX);
    EXPECT_EQ(0, property_get("absent.key", value, nullptr));
    EXPECT_STREQ("", value);

    EXPECT_EQ(3, property_get("absent.key", value, "abc"));
    EXPECT_STREQ("abc", value);

    // The longest value the store takes comes back whole.
    const std::string longest(PROPERTY_VALUE_MAX - 1, 'L');
    ASSERT_EQ(0, property_set("longest", longest.c_str()));
    EXPECT_EQ(PROPERTY_VALUE_MAX - 1, property_get("longest", value, "default"));
    EXPECT_EQ(longest, std::string(value));

    // An empty value counts as absent.
    ASSERT_EQ(0, property_set("empty", ""));
    EXPECT_EQ(7, property_get("empty", value, "default"));
    EXPECT_STREQ("default", value);
    ASSERT_EQ(0, property_set("null.value", nullptr));
    EXPECT_EQ("fallback", get("null.value", "fallback"));
}

TEST_F(PropertiesTest, SetRejectsBadKeysAndLongValues) {
    LogCapture log;
    EXPECT_EQ(-1, property_set(nullptr, "1"));
    EXPECT_EQ(-1, property_set("", "1"));
    EXPECT_EQ(-1, property_set("a=b", "1"));
    EXPECT_EQ(-1, property_set("a b", "1"));
    EXPECT_EQ(-1, property_set("tab\tkey", "1"));
    EXPECT_EQ(-1, property_set("too.long", std::string(PROPERTY_VALUE_MAX, 'x').c_str()));
    EXPECT_EQ("kept", get("too.long", "kept"));
    EXPECT_EQ(6, log.count("properties", "property_set", ANDROID_LOG_WARN));

    EXPECT_EQ(0, property_set("k", "first"));
    EXPECT_EQ(0, property_set("k", "second"));
    EXPECT_EQ("second", get("k"));
}

TEST_F(PropertiesTest, BoolSpellings) {
    struct Case {
        const char* text;
        int expectedWithDefault0;
        int expectedWithDefault1;
    } cases[] = {
            {"1", 1, 1},     {"y", 1, 1},      {"yes", 1, 1},  {"on", 1, 1},
            {"true", 1, 1},  {"0", 0, 0},      {"n", 0, 0},    {"no", 0, 0},
            {"off", 0, 0},   {"false", 0, 0},  {"TRUE", 0, 1}, {"2", 0, 1},
            {"yes ", 0, 1},  // no trimming: spellings match exactly
            {"enabled", 0, 1}, {"", 0, 1},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(0, property_set("b", c.text));
        EXPECT_EQ(c.expectedWithDefault0, property_get_bool("b", 0)) << c.text;
        EXPECT_EQ(c.expectedWithDefault1, property_get_bool("b", 1)) << c.text;
    }
    EXPECT_EQ(1, property_get_bool("absent.bool", 1));
    EXPECT_EQ(0, property_get_bool("absent.bool", 0));
}

TEST_F(PropertiesTest, IntegersParseLikeThePlatform) {
    struct Case {
        const char* text;
        int64_t as64;
        int32_t as32;
    } cases[] = {
            {"42", 42, 42},
            {"-7", -7, -7},
            {"0x10", 16, 16},
            {"010", 8, 8},
            {"12abc", -1, -1},
            {"abc", -1, -1},
            {"3000000000", 3000000000LL, -1},
            {"-2147483648", -2147483648LL, INT32_MIN},
            {"99999999999999999999", -1, -1},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(0, property_set("i", c.text));
        EXPECT_EQ(c.as64, property_get_int64("i", -1)) << c.text;
        EXPECT_EQ(c.as32, property_get_int32("i", -1)) << c.text;
    }
    EXPECT_EQ(5, property_get_int32("absent.int", 5));
}

// A value that does not parse falls back to the default with a warning that
// names the key; a good value and an absent key stay quiet.
TEST_F(PropertiesTest, UnparsableValuesWarnAndFallBack) {
    LogCapture log;
    ASSERT_EQ(0, property_set("flac.sw.decoder.24bit.support", "maybe"));
    EXPECT_EQ(0, property_get_bool("flac.sw.decoder.24bit.support", 0));
    EXPECT_TRUE(log.contains("properties",
                             "property flac.sw.decoder.24bit.support: \"maybe\" is not a boolean; "
                             "using false",
                             ANDROID_LOG_WARN));
    ASSERT_EQ(0, property_set("i", "12abc"));
    EXPECT_EQ(3, property_get_int32("i", 3));
    EXPECT_TRUE(log.contains("properties", "property i: \"12abc\" is not an integer in range; using 3",
                             ANDROID_LOG_WARN));
    log.clear();
    ASSERT_EQ(0, property_set("i", "12"));
    EXPECT_EQ(12, property_get_int32("i", 3));
    EXPECT_EQ(1, property_get_bool("absent.bool", 1));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(PropertiesTest, ConcurrentSetAndGetKeepEveryValueWhole) {
    std::vector<std::thread> threads;
    std::atomic<int> torn{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &torn] {
            const std::string key = "thread." + std::to_string(t);
            for (int i = 0; i < 500; ++i) {
                const std::string v = std::string(1 + i % 60, static_cast<char>('a' + t));
                property_set(key.c_str(), v.c_str());
                if (get(key.c_str()) != v) ++torn;
                get("thread.0");
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(0, torn.load());
}

}  // namespace
