#define LOG_TAG "AString_test"

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/String8.h>

#include <stdint.h>

#include <gtest/gtest.h>

namespace android {
namespace {

TEST(AStringTest, ConstructionAndAssignment) {
    AString empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_STREQ("", empty.c_str());

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

    copy = a;
    EXPECT_TRUE(copy == a);
    copy = copy;  // self-assignment keeps the value
    EXPECT_STREQ("abcdef", copy.c_str());
    copy.setTo("xy");
    EXPECT_EQ(2u, copy.size());
    copy.clear();
    EXPECT_TRUE(copy.empty());
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

    s.clear();
    for (int i = 0; i < 1000; ++i) {
        s.append("x", 1);
    }
    EXPECT_EQ(1000u, s.size());
    EXPECT_STREQ("7 and 'z'", AStringPrintf("%d and '%c'", 7, 'z').c_str());
}

TEST(AStringTest, SearchAndCompare) {
    AString s("Audio/MPEG");

    EXPECT_EQ(5, s.find("/"));
    EXPECT_EQ(-1, s.find("/", 6));
    EXPECT_EQ(-1, s.find("x"));
    EXPECT_EQ(0, s.find(""));
    EXPECT_EQ(-1, s.find("a", 100));

    EXPECT_LT(AString("ab").compare("abc"), 0);
    EXPECT_GT(AString("b").compare("abc"), 0);
    EXPECT_EQ(0, AString("abc").compare("abc"));
    EXPECT_TRUE(AString("ab") < AString("b"));
    EXPECT_TRUE(AString("a") != AString("A"));
    EXPECT_EQ(0, AString("a").compareIgnoreCase("A"));
}

TEST(AStringTest, Editing) {
    AString s("  \tMixed Case \n");
    s.trim();
    EXPECT_STREQ("Mixed Case", s.c_str());
    s.tolower();
    EXPECT_STREQ("mixed case", s.c_str());
    s.erase(0, 6);
    EXPECT_STREQ("case", s.c_str());
    s.insert(AString("stair"), 0);
    EXPECT_STREQ("staircase", s.c_str());

    AString blank("   ");
    blank.trim();
    EXPECT_TRUE(blank.empty());
}

TEST(ADebugDeathTest, ChecksPrintThePlatformMessage) {
    int two = 2;
    EXPECT_DEATH(CHECK(two == 3), "AString_test\\.cpp:[0-9]+ CHECK\\(two == 3\\) failed\\.");
    EXPECT_DEATH(CHECK_EQ(two, 3), "AString_test\\.cpp:[0-9]+ CHECK_EQ\\( two,3\\) failed: 2 vs\\. 3");
    EXPECT_DEATH(CHECK_GT(two, two), "CHECK_GT\\( two,two\\) failed: 2 vs\\. 2");
    EXPECT_DEATH(TRESPASS(), "AString_test\\.cpp:[0-9]+ Should not be here\\. ");
}

TEST(ADebugTest, PassingChecksDoNothing) {
    int two = 2;
    CHECK(two == 2);
    CHECK_EQ(two, 2);
    CHECK_NE(two, 3);
    CHECK_LE(two, 2);
    CHECK_LT(two, 3);
    CHECK_GE(two, 2);
    CHECK_GT(two, 1);
    EXPECT_STREQ("BAD_VALUE", asString(BAD_VALUE));
}

}  // namespace
}  // namespace android
