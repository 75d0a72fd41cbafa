#define LOG_TAG "AString_test"

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/String8.h>

#include <stdint.h>

#include <gtest/gtest.h>

namespace android {
namespace {

TEST(AStringTest, ConstructionAndAssignment) {
    AString a("abcdef");
    AString part("abcdef", 3);
    AString middle(a, 2, 3);
    AString fromString8(String8("s8"));
    AString copy(a);
    EXPECT_STREQ("abc", part.c_str());
    EXPECT_STREQ("cde", middle.c_str());
    EXPECT_STREQ("s8", fromString8.c_str());
    copy.append("!");
    EXPECT_STREQ("abcdef", a.c_str());
    EXPECT_STREQ("abcdef!", copy.c_str());

    copy = copy;  // self-assignment keeps the value
    EXPECT_STREQ("abcdef!", copy.c_str());
}

TEST(AStringTest, AppendFormatsNumbersLikePrintf) {
    AString s;
    s.append(-5);
    s.append(' ');
    s.append((unsigned)7);
    s.append(' ');
    s.append((int64_t)INT64_MIN);
    s.append(' ');
    s.append((size_t)SIZE_MAX);
    s.append(' ');
    s.append(0.5f);
    s.append(' ');
    s.append(2.25);
    EXPECT_STREQ("-5 7 -9223372036854775808 18446744073709551615 0.500000 2.250000", s.c_str());
    EXPECT_STREQ("7 and 'z'", AStringPrintf("%d and '%c'", 7, 'z').c_str());
}

TEST(AStringTest, SearchAndCompare) {
    EXPECT_EQ(5, AString("Audio/MPEG").find("/"));
    EXPECT_EQ(-1, AString("Audio/MPEG").find("/", 6));
    EXPECT_LT(AString("ab").compare("abc"), 0);
    EXPECT_GT(AString("b").compare("abc"), 0);
    EXPECT_TRUE(AString("a") != AString("A"));
    EXPECT_EQ(0, AString("a").compareIgnoreCase("A"));
}

TEST(ADebugDeathTest, ChecksPrintThePlatformMessage) {
    int two = 2;
    EXPECT_DEATH(CHECK(two == 3), "AString_test\\.cpp:[0-9]+ CHECK\\(two == 3\\) failed\\.");
    EXPECT_DEATH(CHECK_EQ(two, 3), "AString_test\\.cpp:[0-9]+ CHECK_EQ\\( two,3\\) failed: 2 vs\\. 3");
    EXPECT_DEATH(CHECK_GT(two, two), "CHECK_GT\\( two,two\\) failed: 2 vs\\. 2");
    EXPECT_DEATH(TRESPASS(), "AString_test\\.cpp:[0-9]+ Should not be here\\. ");
}

}  // namespace
}  // namespace android
