#include <media/stagefright/MetaData.h>

#include <string.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace android {
namespace {

// Random sets, overwrites, removes and clears against a plain map of the last value
// and type written per key.  Strings are written from temporaries, so a copy
// that kept the caller's pointer reads freed memory.
TEST(MetaDataTest, RandomOperationsMatchAModel) {
    struct Model {
        int type;  // 0 int32, 1 int64, 2 string
        int64_t value;
    };
    std::mt19937 rng(1234);
    MetaDataBase meta;
    std::map<uint32_t, Model> model;
    const uint32_t keys[] = {kKeyTime, kKeyDuration, kKeySampleRate, 0, 0xFFFFFFFF, 'abcd'};
    for (int step = 0; step < 5000; ++step) {
        const uint32_t key = keys[rng() % 6];
        const int op = rng() % 5;
        const int64_t value = static_cast<int64_t>(rng()) - (1LL << 31);
        if (op == 4) {
            EXPECT_EQ(model.erase(key) > 0, meta.remove(key));
            if (rng() % 64 == 0) {
                meta.clear();
                model.clear();
            }
            continue;
        }
        const int type = op % 3;
        bool replaced = false;
        if (type == 0) replaced = meta.setInt32(key, static_cast<int32_t>(value));
        if (type == 1) replaced = meta.setInt64(key, value * 3);
        if (type == 2) replaced = meta.setCString(key, std::to_string(value).c_str());
        EXPECT_EQ(model.count(key) > 0, replaced);
        model[key] = {type, type == 1 ? value * 3 : value};

        for (uint32_t k : keys) {
            auto it = model.find(k);
            int32_t i32;
            int64_t i64;
            const char* s;
            const bool has32 = meta.findInt32(k, &i32);
            const bool has64 = meta.findInt64(k, &i64);
            const bool hasS = meta.findCString(k, &s);
            ASSERT_EQ(it != model.end() && it->second.type == 0, has32);
            ASSERT_EQ(it != model.end() && it->second.type == 1, has64);
            ASSERT_EQ(it != model.end() && it->second.type == 2, hasS);
            if (has32) { ASSERT_EQ(static_cast<int32_t>(it->second.value), i32); }
            if (has64) { ASSERT_EQ(it->second.value, i64); }
            if (hasS) { ASSERT_EQ(std::to_string(it->second.value), s); }
        }
        for (uint32_t k : keys) ASSERT_EQ(model.count(k) > 0, meta.hasData(k));
    }
}

}  // namespace
}  // namespace android
