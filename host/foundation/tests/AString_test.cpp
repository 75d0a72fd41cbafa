#define LOG_TAG "AString_test"

#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AString.h>
#include <utils/String8.h>

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

TEST(ADebugDeathTest, ChecksPrintThePlatformMessage) {
    int two = 2;
    EXPECT_DEATH(CHECK(two == 3), "AString_test\\.cpp:[0-9]+ CHECK\\(two == 3\\) failed\\.");
    EXPECT_DEATH(CHECK_EQ(two, 3), "AString_test\\.cpp:[0-9]+ CHECK_EQ\\( two,3\\) failed: 2 vs\\. 3");
    EXPECT_DEATH(TRESPASS(), "AString_test\\.cpp:[0-9]+ Should not be here\\. ");
}

}  // namespace
}  // namespace android
