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

// A device owner's file, line by line, and whether the loader warns about it.
const struct {
    std::string text;
    bool bad;
} kFileLines[] = {
        {"# device owner's settings", false},
        {"media.rotavox.cache-params=2000000/20000000/5000000", false},
        {"", false},
        {"   host.audio.sink =  wav   ", false},
        {"this line has no equals sign", true},
        {"=value-without-key", true},
        {"bad key=1", true},
        {"too.long=" + std::string(100, 'v'), true},
        {"   # indented comment", false},
        {"value.with.equals=a=b", false},
        {"last.line=42", false},  // no newline after it
};

std::string fileContent() {
    std::string s;
    for (const auto& line : kFileLines) s += (&line == kFileLines ? "" : "\n") + line.text;
    return s;
}

TEST_F(PropertiesTest, FileKeepsGoodLinesLogsEachBadOneAndYieldsToTheEnvironment) {
    const std::string path = writeTempFile("props", fileContent());
    LogCapture log;
    ASSERT_EQ(0, host_properties_reload(path.c_str()));
    EXPECT_EQ("2000000/20000000/5000000", get("media.rotavox.cache-params"));
    EXPECT_EQ("wav", get("host.audio.sink"));
    EXPECT_EQ("a=b", get("value.with.equals"));
    EXPECT_EQ(42, property_get_int32("last.line", -1));
    EXPECT_EQ("absent", get("too.long", "absent"));
    EXPECT_EQ("absent", get("bad", "absent"));
    for (size_t i = 0; i < sizeof(kFileLines) / sizeof(kFileLines[0]); ++i) {
        EXPECT_EQ(kFileLines[i].bad ? 1 : 0,
                  log.count("properties", path + ":" + std::to_string(i + 1) + ":", ANDROID_LOG_WARN))
                << kFileLines[i].text;
    }

    // The environment wins over the file, and outlives a missing one.
    setenv("ROTAVOX_PROPERTIES", "host.audio.sink=null,last.line=1\n spaced.key = 7 ,broken,,", 1);
    ASSERT_EQ(0, host_properties_reload(path.c_str()));
    EXPECT_EQ("null", get("host.audio.sink"));
    EXPECT_EQ(1, property_get_int32("last.line", 0));
    EXPECT_EQ(7, property_get_int32("spaced.key", 0));
    EXPECT_EQ("a=b", get("value.with.equals")) << "keys only the file names survive";
    EXPECT_TRUE(log.contains("properties", "ROTAVOX_PROPERTIES:4:", ANDROID_LOG_WARN));

    EXPECT_EQ(-1, host_properties_reload("/nonexistent/rotavox.properties"));
    EXPECT_TRUE(log.contains("properties", "/nonexistent/rotavox.properties", ANDROID_LOG_ERROR));
    EXPECT_EQ("7", get("spaced.key"));
    EXPECT_EQ("", get("value.with.equals")) << "the old file is gone with the reload";
    unlink(path.c_str());
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
                        good += get("from.file") == "file" && get("both") == "env" &&
                                get("cache") == "1/2/3";
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
    // PROPERTY_VALUE_MAX bytes for the value, then a guard zone.
    char value[PROPERTY_VALUE_MAX + 16];
    memset(value, 0x5a, sizeof(value));
    EXPECT_EQ(PROPERTY_VALUE_MAX - 1, property_get("absent", value, std::string(200, 'd').c_str()));
    EXPECT_EQ(std::string(PROPERTY_VALUE_MAX - 1, 'd'), std::string(value));
    for (size_t i = PROPERTY_VALUE_MAX; i < sizeof(value); ++i) {
        EXPECT_EQ(0x5a, value[i]) << "byte " << i << " written";
    }
    EXPECT_EQ(0, property_get("absent", value, nullptr));
    EXPECT_STREQ("", value);
    // The longest value the store takes comes back whole; an empty one counts as absent.
    const std::string longest(PROPERTY_VALUE_MAX - 1, 'L');
    ASSERT_EQ(0, property_set("longest", longest.c_str()));
    EXPECT_EQ(longest, get("longest", "default"));
    ASSERT_EQ(0, property_set("empty", ""));
    EXPECT_EQ(7, property_get("empty", value, "default"));
    EXPECT_STREQ("default", value);
}

TEST_F(PropertiesTest, SetRejectsBadKeysAndLongValues) {
    LogCapture log;
    const std::string tooLong(PROPERTY_VALUE_MAX, 'x');
    const std::pair<const char*, const char*> bad[] = {
            {nullptr, "1"}, {"", "1"}, {"a=b", "1"}, {"a b", "1"}, {"tab\tkey", "1"},
            {"too.long", tooLong.c_str()},
    };
    for (const auto& kv : bad) EXPECT_EQ(-1, property_set(kv.first, kv.second)) << kv.first;
    EXPECT_EQ("kept", get("too.long", "kept"));
    EXPECT_EQ(6, log.count("properties", "property_set", ANDROID_LOG_WARN));
}

// What the typed getters read from each text; -1 is the default they fall
// back to, with a warning that names the key and the text.
TEST_F(PropertiesTest, TypedGettersParseLikeThePlatformAndWarnWhenTheyFallBack) {
    struct Case {
        const char* text;
        int asBool;
        int64_t as64;
        int32_t as32;
    } cases[] = {
            {"1", 1, 1, 1},
            {"0", 0, 0, 0},
            {"y", 1, -1, -1},  {"yes", 1, -1, -1},  {"on", 1, -1, -1},  {"true", 1, -1, -1},
            {"n", 0, -1, -1},  {"no", 0, -1, -1},   {"off", 0, -1, -1}, {"false", 0, -1, -1},
            {"TRUE", -1, -1, -1},
            {"yes ", -1, -1, -1},  // no trimming: spellings match exactly
            {"-7", -1, -7, -7},
            {"0x10", -1, 16, 16},
            {"010", -1, 8, 8},
            {"12abc", -1, -1, -1},
            {"3000000000", -1, 3000000000LL, -1},
            {"-2147483648", -1, -2147483648LL, INT32_MIN},
            {"99999999999999999999", -1, -1, -1},
    };
    LogCapture log;
    for (const Case& c : cases) {
        ASSERT_EQ(0, property_set("k", c.text));
        EXPECT_EQ(c.asBool, property_get_bool("k", -1)) << c.text;
        EXPECT_EQ(c.as64, property_get_int64("k", -1)) << c.text;
        EXPECT_EQ(c.as32, property_get_int32("k", -1)) << c.text;
        EXPECT_EQ((c.asBool == -1) + (c.as64 == -1) + (c.as32 == -1),
                  log.count("properties", std::string("property k: \"") + c.text + "\" is not",
                            ANDROID_LOG_WARN)) << c.text;
    }
    EXPECT_TRUE(log.contains("properties", "property k: \"12abc\" is not an integer in range; using -1",
                             ANDROID_LOG_WARN));
    log.clear();
    EXPECT_EQ(1, property_get_bool("absent.bool", 1));
    EXPECT_EQ(5, property_get_int32("absent.int", 5));
    EXPECT_TRUE(log.lines().empty()) << "an absent key is quiet";
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
