#include <media/stagefright/MediaSource.h>

#include <gtest/gtest.h>

namespace android {
namespace {

using ReadOptions = MediaSource::ReadOptions;

TEST(ReadOptionsTest, SeekRoundTripsAndResets) {
    ReadOptions options;
    int64_t timeUs = -5;
    ReadOptions::SeekMode mode = ReadOptions::SEEK_CLOSEST;
    EXPECT_FALSE(options.getSeekTo(&timeUs, &mode));

    options.setSeekTo(1234567);
    ASSERT_TRUE(options.getSeekTo(&timeUs, &mode));
    EXPECT_EQ(1234567, timeUs);
    EXPECT_EQ(ReadOptions::SEEK_CLOSEST_SYNC, mode);

    options.setSeekTo(9, ReadOptions::SEEK_NEXT_SYNC);
    ReadOptions copy = options;
    options.clearSeekTo();
    EXPECT_FALSE(options.getSeekTo(&timeUs, &mode));
    ASSERT_TRUE(copy.getSeekTo(&timeUs, &mode));
    EXPECT_EQ(9, timeUs);
    EXPECT_EQ(ReadOptions::SEEK_NEXT_SYNC, mode);
}

}  // namespace
}  // namespace android
