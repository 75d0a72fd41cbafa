#include <media/stagefright/MediaSource.h>

#include <gtest/gtest.h>

namespace android {
namespace {

using ReadOptions = MediaSource::ReadOptions;

TEST(ReadOptionsTest, SeekAndNonBlockingRoundTrip) {
    ReadOptions options;
    int64_t timeUs = -5;
    ReadOptions::SeekMode mode = ReadOptions::SEEK_CLOSEST;
    EXPECT_FALSE(options.getSeekTo(&timeUs, &mode));
    EXPECT_FALSE(options.getNonBlocking());

    options.setSeekTo(1234567);
    ASSERT_TRUE(options.getSeekTo(&timeUs, &mode));
    EXPECT_EQ(1234567, timeUs);
    EXPECT_EQ(ReadOptions::SEEK_CLOSEST_SYNC, mode);

    options.setSeekTo(-1, ReadOptions::SEEK_FRAME_INDEX);
    ASSERT_TRUE(options.getSeekTo(&timeUs, &mode));
    EXPECT_EQ(-1, timeUs);
    EXPECT_EQ(ReadOptions::SEEK_FRAME_INDEX, mode);

    options.setNonBlocking();
    EXPECT_TRUE(options.getNonBlocking());
    options.clearSeekTo();
    EXPECT_FALSE(options.getSeekTo(&timeUs, &mode));
    EXPECT_TRUE(options.getNonBlocking()) << "clearing the seek keeps non-blocking";
    options.clearNonBlocking();
    EXPECT_FALSE(options.getNonBlocking());

    options.setSeekTo(9, ReadOptions::SEEK_NEXT_SYNC);
    options.setNonBlocking();
    ReadOptions copy = options;
    options.reset();
    EXPECT_FALSE(options.getSeekTo(&timeUs, &mode));
    EXPECT_FALSE(options.getNonBlocking());
    ASSERT_TRUE(copy.getSeekTo(&timeUs, &mode));
    EXPECT_EQ(9, timeUs);
    EXPECT_EQ(ReadOptions::SEEK_NEXT_SYNC, mode);
    EXPECT_TRUE(copy.getNonBlocking());
}

TEST(ReadOptionsTest, SeekModesHaveThePlatformNumbers) {
    // Seek modes cross process and message boundaries as plain integers.
    EXPECT_EQ(0, ReadOptions::SEEK_PREVIOUS_SYNC);
    EXPECT_EQ(1, ReadOptions::SEEK_NEXT_SYNC);
    EXPECT_EQ(2, ReadOptions::SEEK_CLOSEST_SYNC);
    EXPECT_EQ(3, ReadOptions::SEEK_CLOSEST);
    EXPECT_EQ(4, ReadOptions::SEEK_FRAME_INDEX);
}

struct MinimalSource : public MediaSource {
    status_t start(MetaData*) override { return OK; }
    status_t stop() override { return OK; }
    sp<MetaData> getFormat() override { return new MetaData; }
    status_t read(MediaBufferBase** buffer, const ReadOptions*) override {
        *buffer = nullptr;
        return ERROR_END_OF_STREAM;
    }
};

TEST(MediaSourceTest, OptionalOperationsDefaultToUnsupported) {
    sp<MediaSource> source = new MinimalSource;
    EXPECT_EQ(ERROR_UNSUPPORTED, source->pause());
    EXPECT_EQ(ERROR_UNSUPPORTED, source->setStopTimeUs(0));
    EXPECT_EQ(-1010, ERROR_UNSUPPORTED);
    EXPECT_EQ(-1011, ERROR_END_OF_STREAM);
    EXPECT_EQ(-1012, INFO_FORMAT_CHANGED);
    MediaBufferBase* buffer = reinterpret_cast<MediaBufferBase*>(1);
    EXPECT_EQ(ERROR_END_OF_STREAM, source->read(&buffer));
    EXPECT_EQ(nullptr, buffer);
}

}  // namespace
}  // namespace android
