// The codec buffer wrapper: range views onto the memory, and meta data that
// does not outlive its format.

#include <gtest/gtest.h>

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>

#include <vector>

#include "MediaCodecBuffer.h"

namespace android {
namespace {

sp<AMessage> portFormat(int32_t channels) {
    sp<AMessage> format = new AMessage;
    format->setString("mime", "audio/raw");
    format->setInt32("channel-count", channels);
    return format;
}

TEST(MediaCodecBufferTest, RangeViewsTrackTheUnderlyingBuffer) {
    std::vector<uint8_t> memory(64);
    sp<ABuffer> abuffer = new ABuffer(memory.data(), memory.size());
    sp<MediaCodecBuffer> buffer = new MediaCodecBuffer(portFormat(2), abuffer);

    EXPECT_EQ(memory.data(), buffer->base());
    EXPECT_EQ(buffer->base(), buffer->data());

    EXPECT_EQ(OK, buffer->setRange(8, 16));
    EXPECT_EQ(8u, buffer->offset());
    EXPECT_EQ(16u, buffer->size());
    EXPECT_EQ(memory.data() + 8, buffer->data());
    EXPECT_EQ(64u, buffer->capacity());
    // The range is the ABuffer's, not a copy: both views agree.
    EXPECT_EQ(8u, abuffer->offset());
    EXPECT_EQ(16u, abuffer->size());

    // A range set on the ABuffer directly shows through the wrapper.
    abuffer->setRange(3, 5);
    EXPECT_EQ(3u, buffer->offset());
    EXPECT_EQ(5u, buffer->size());
    EXPECT_EQ(memory.data() + 3, buffer->data());
}

TEST(MediaCodecBufferTest, SetFormatEmptiesTheSameMetaAndReplacesFormat) {
    sp<AMessage> first = portFormat(2);
    sp<MediaCodecBuffer> buffer = new MediaCodecBuffer(first, new ABuffer(16));
    EXPECT_EQ(first, buffer->format());

    sp<AMessage> meta = buffer->meta();
    ASSERT_NE(nullptr, meta.get());
    EXPECT_EQ(0u, meta->countEntries());
    meta->setInt64("timeUs", 1234);
    meta->setInt32("flags", 4);
    EXPECT_EQ(2u, buffer->meta()->countEntries());
    // Another buffer of the same format has meta of its own.
    sp<MediaCodecBuffer> other = new MediaCodecBuffer(first, new ABuffer(16));
    EXPECT_FALSE(other->meta()->contains("flags"));

    sp<AMessage> second = portFormat(6);
    buffer->setFormat(second);
    EXPECT_EQ(meta, buffer->meta());
    EXPECT_EQ(0u, buffer->meta()->countEntries());
    EXPECT_FALSE(buffer->meta()->contains("timeUs"));
    EXPECT_EQ(second, buffer->format());
    // The old format message itself is left alone.
    int32_t channels = 0;
    EXPECT_TRUE(first->findInt32("channel-count", &channels));
    EXPECT_EQ(2, channels);
}

TEST(MediaCodecBufferDeathTest, RangeBeyondCapacityAbortsInABuffer) {
    sp<MediaCodecBuffer> buffer = new MediaCodecBuffer(portFormat(2), new ABuffer(16));
    EXPECT_DEATH(buffer->setRange(8, 9), "ABuffer.cpp:[0-9]+ CHECK_LE");
    EXPECT_DEATH(buffer->setRange(17, 0), "ABuffer.cpp:[0-9]+ CHECK_LE");
}

}  // namespace
}  // namespace android
