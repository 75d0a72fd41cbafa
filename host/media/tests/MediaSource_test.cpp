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
    MediaBufferBase* buffer = reinterpret_cast<MediaBufferBase*>(1);
    EXPECT_EQ(ERROR_END_OF_STREAM, source->read(&buffer));
    EXPECT_EQ(nullptr, buffer);
}

}  // namespace
}  // namespace android
