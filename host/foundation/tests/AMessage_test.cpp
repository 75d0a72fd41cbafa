#define LOG_TAG "AMessage_test"

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include <string.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace android {
namespace {

TEST(AMessageTest, EveryTypeRoundTripsAndIsNoOtherType) {
    sp<AMessage> msg = new AMessage;
    sp<ABuffer> buffer = new ABuffer(4);
    sp<AMessage> nested = new AMessage('nest', NULL);
    msg->setSize("size", SIZE_MAX - 1);
    msg->setBuffer("buf", buffer);
    msg->setMessage("msg", nested);

    size_t size = 0;
    sp<ABuffer> gotBuffer;
    sp<AMessage> gotMessage;
    ASSERT_TRUE(msg->findSize("size", &size) && msg->findBuffer("buf", &gotBuffer) &&
                msg->findMessage("msg", &gotMessage));
    EXPECT_EQ(SIZE_MAX - 1, size);
    EXPECT_EQ(buffer.get(), gotBuffer.get());
    EXPECT_EQ(nested.get(), gotMessage.get());

    // Another type finds nothing and leaves the output alone; a buffer is not
    // a message, even though both are RefBase.
    int64_t i64 = 7;
    EXPECT_FALSE(msg->findInt64("size", &i64));
    EXPECT_FALSE(msg->findMessage("buf", &gotMessage));
    EXPECT_EQ(7, i64);
    EXPECT_EQ(nested.get(), gotMessage.get());
}

TEST(AMessageTest, DupIsDeepForMessagesAndSharesBuffers) {
    sp<AMessage> inner = new AMessage;
    inner->setInt32("depth", 1);
    sp<ABuffer> buffer = new ABuffer(8);
    sp<AMessage> orig = new AMessage('orig', NULL);
    orig->setString("s", "one");
    orig->setMessage("inner", inner);
    orig->setBuffer("buffer", buffer);

    sp<AMessage> copy = orig->dup();
    EXPECT_EQ((uint32_t)'orig', copy->what());
    copy->setString("s", "two");
    sp<AMessage> copyInner;
    ASSERT_TRUE(copy->findMessage("inner", &copyInner));
    copyInner->setInt32("depth", 2);

    int32_t depth = 0;
    AString s;
    ASSERT_TRUE(orig->findString("s", &s));
    EXPECT_STREQ("one", s.c_str());
    ASSERT_TRUE(inner->findInt32("depth", &depth));
    EXPECT_EQ(1, depth);
    sp<ABuffer> copyBuffer;
    ASSERT_TRUE(copy->findBuffer("buffer", &copyBuffer));
    EXPECT_EQ(buffer.get(), copyBuffer.get());
}

// Random sets, overwrites and clears against a plain map: what the
// message reports must always match the model.  Names and values live in
// temporaries, so a message that kept pointers instead of copies reads freed
// memory.
TEST(AMessageTest, RandomOperationsMatchAModel) {
    std::mt19937 rng(20261121);
    sp<AMessage> msg = new AMessage;
    std::map<std::string, std::pair<int, int64_t> > model;  // type 0 = int32, 1 = int64, 2 = string
    const char *names[] = {"a", "b", "c", "d", "e", "f", "g", "h"};

    for (int step = 0; step < 5000; ++step) {
        std::string name = names[rng() % 8];
        int op = rng() % 9;
        int64_t value = static_cast<int32_t>(rng());
        if (op < 3) {
            msg->setInt32(name.c_str(), (int32_t)value);
            model[name] = {0, value};
        } else if (op < 6) {
            msg->setInt64(name.c_str(), value * 3);
            model[name] = {1, value * 3};
        } else if (op < 8) {
            msg->setString(name.c_str(), AStringPrintf("%lld", (long long)value));
            model[name] = {2, value};
        } else if (rng() % 50 == 0) {
            msg->clear();
            model.clear();
        }

        ASSERT_EQ(model.size(), msg->countEntries());
        for (const char *n : names) {
            auto it = model.find(n);
            int32_t i32;
            int64_t i64;
            AString s;
            bool has32 = msg->findInt32(n, &i32);
            bool has64 = msg->findInt64(n, &i64);
            bool hasS = msg->findString(n, &s);
            ASSERT_EQ(it != model.end(), msg->contains(n));
            ASSERT_EQ(it != model.end() && it->second.first == 0, has32);
            ASSERT_EQ(it != model.end() && it->second.first == 1, has64);
            ASSERT_EQ(it != model.end() && it->second.first == 2, hasS);
            if (has32) {
                ASSERT_EQ(it->second.second, i32);
            }
            if (has64) {
                ASSERT_EQ(it->second.second, i64);
            }
            if (hasS) {
                ASSERT_EQ(std::to_string(it->second.second), s.c_str());
            }
        }
    }
}

}  // namespace
}  // namespace android
