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

struct Payload : public RefBase {};

TEST(AMessageTest, EveryTypeRoundTripsAndIsNoOtherType) {
    sp<AMessage> msg = new AMessage;
    int anchor = 0;
    sp<ABuffer> buffer = new ABuffer(4);
    sp<AMessage> nested = new AMessage('nest', NULL);
    sp<RefBase> object = new Payload;
    msg->setSize("size", SIZE_MAX - 1);
    msg->setFloat("float", 1.5f);
    msg->setDouble("double", -2.25);
    msg->setPointer("ptr", &anchor);
    msg->setBuffer("buf", buffer);
    msg->setMessage("msg", nested);
    msg->setObject("obj", object);
    msg->setRect("rect", 1, 2, 3, 4);

    size_t size = 0;
    float f = 0;
    double d = 0;
    void *ptr = NULL;
    sp<ABuffer> gotBuffer;
    sp<AMessage> gotMessage;
    sp<RefBase> gotObject;
    int32_t l = 0, t = 0, r = 0, b = 0;
    ASSERT_TRUE(msg->findSize("size", &size) && msg->findFloat("float", &f) &&
                msg->findDouble("double", &d) && msg->findPointer("ptr", &ptr) &&
                msg->findBuffer("buf", &gotBuffer) && msg->findMessage("msg", &gotMessage) &&
                msg->findObject("obj", &gotObject) && msg->findRect("rect", &l, &t, &r, &b));
    EXPECT_EQ(SIZE_MAX - 1, size);
    EXPECT_EQ(1.5f, f);
    EXPECT_EQ(-2.25, d);
    EXPECT_EQ(&anchor, ptr);
    EXPECT_EQ(buffer.get(), gotBuffer.get());
    EXPECT_EQ(nested.get(), gotMessage.get());
    EXPECT_EQ(object.get(), gotObject.get());
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3, 4}), (std::vector<int32_t>{l, t, r, b}));

    // Another type finds nothing and leaves the output alone; an object is
    // neither a buffer nor a message, even though all are RefBase.
    gotBuffer.clear();
    gotMessage.clear();
    EXPECT_FALSE(msg->findFloat("double", &f));
    EXPECT_FALSE(msg->findBuffer("obj", &gotBuffer));
    EXPECT_FALSE(msg->findMessage("obj", &gotMessage));
    EXPECT_FALSE(msg->findObject("absent", &gotObject));
    EXPECT_EQ(1.5f, f);
    EXPECT_EQ(NULL, gotBuffer.get());
    EXPECT_EQ(NULL, gotMessage.get());
}

TEST(AMessageTest, NamesAndStringsAreCopied) {
    sp<AMessage> msg = new AMessage;
    char name[] = "volatile-name";
    char value[] = "abcdef";
    msg->setInt32(name, 3);
    msg->setString("partial", value, 3);
    msg->setString("embedded", AString("a\0b", 3));
    memset(name, 'x', sizeof(name) - 1);
    memset(value, 'y', sizeof(value) - 1);

    int32_t i32 = 0;
    EXPECT_TRUE(msg->findInt32("volatile-name", &i32));
    EXPECT_EQ(3, i32);
    AString s;
    ASSERT_TRUE(msg->findString("partial", &s));
    EXPECT_STREQ("abc", s.c_str());
    ASSERT_TRUE(msg->findString("embedded", &s));
    EXPECT_EQ(3u, s.size());
    EXPECT_EQ(0, memcmp("a\0b", s.c_str(), 3));
}

TEST(AMessageTest, EntriesKeepInsertionOrder) {
    sp<AMessage> msg = new AMessage('what', NULL);
    msg->setInt32("a", 1);
    msg->setFloat("b", 2);
    msg->setRect("c", 0, 0, 1, 1);
    const struct { const char *name; AMessage::Type type; } expected[] = {
            {"a", AMessage::kTypeInt32}, {"b", AMessage::kTypeFloat}, {"c", AMessage::kTypeRect}};
    ASSERT_EQ(3u, msg->countEntries());
    for (size_t i = 0; i < 3; ++i) {
        AMessage::Type type;
        EXPECT_STREQ(expected[i].name, msg->getEntryNameAt(i, &type));
        EXPECT_EQ(expected[i].type, type);
    }
    AMessage::Type type;
    EXPECT_EQ(NULL, msg->getEntryNameAt(3, &type));
}

TEST(AMessageTest, DupIsDeepForMessagesAndSharesBuffersAndObjects) {
    sp<AMessage> inner = new AMessage;
    inner->setInt32("depth", 1);
    sp<ABuffer> buffer = new ABuffer(8);
    sp<AMessage> orig = new AMessage('orig', NULL);
    orig->setInt32("n", 1);
    orig->setString("s", "one");
    orig->setMessage("inner", inner);
    orig->setBuffer("buffer", buffer);

    sp<AMessage> copy = orig->dup();
    EXPECT_EQ((uint32_t)'orig', copy->what());
    copy->setInt32("n", 2);
    copy->setString("s", "two");
    copy->setInt32("added", 3);
    sp<AMessage> copyInner;
    ASSERT_TRUE(copy->findMessage("inner", &copyInner));
    EXPECT_NE(inner.get(), copyInner.get());
    copyInner->setInt32("depth", 2);

    int32_t n = 0;
    AString s;
    ASSERT_TRUE(orig->findInt32("n", &n));
    EXPECT_EQ(1, n);
    ASSERT_TRUE(orig->findString("s", &s));
    EXPECT_STREQ("one", s.c_str());
    EXPECT_FALSE(orig->contains("added"));
    ASSERT_TRUE(inner->findInt32("depth", &n));
    EXPECT_EQ(1, n);

    sp<ABuffer> copyBuffer;
    ASSERT_TRUE(copy->findBuffer("buffer", &copyBuffer));
    EXPECT_EQ(buffer.get(), copyBuffer.get());
}

TEST(AMessageTest, RemoveAndExtend) {
    sp<AMessage> msg = new AMessage;
    msg->setInt32("c", 1);
    msg->setInt32("b", 2);
    EXPECT_EQ(OK, msg->removeEntryAt(1));
    EXPECT_EQ(BAD_INDEX, msg->removeEntryAt(1));
    EXPECT_FALSE(msg->contains("b"));

    sp<AMessage> other = new AMessage;
    other->setInt32("c", 10);
    other->setString("e", "x");
    msg->extend(other);
    int32_t c = 0;
    ASSERT_TRUE(msg->findInt32("c", &c));
    EXPECT_EQ(10, c);
    EXPECT_EQ(2u, msg->countEntries());
}

// Random sets, overwrites, removals and clears against a plain map: what the
// message reports must always match the model.
TEST(AMessageTest, RandomOperationsMatchAModel) {
    std::mt19937 rng(20261121);
    sp<AMessage> msg = new AMessage;
    std::map<std::string, std::pair<int, int64_t> > model;  // type 0 = int32, 1 = int64, 2 = string
    const char *names[] = {"a", "b", "c", "d", "e", "f", "g", "h"};

    for (int step = 0; step < 5000; ++step) {
        std::string name = names[rng() % 8];
        int op = rng() % 10;
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
        } else if (op < 9) {
            for (size_t i = 0; i < msg->countEntries(); ++i) {
                AMessage::Type type;
                if (name == msg->getEntryNameAt(i, &type)) {
                    ASSERT_EQ(OK, msg->removeEntryAt(i));
                    break;
                }
            }
            model.erase(name);
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
