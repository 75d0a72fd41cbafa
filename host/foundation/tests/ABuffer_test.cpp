#define LOG_TAG "ABuffer_test"

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>

#include <stdint.h>
#include <string.h>

#include <gtest/gtest.h>

namespace android {
namespace {

TEST(ABufferTest, RangeMovesDataWithinTheBase) {
    sp<ABuffer> buffer = new ABuffer(16);
    EXPECT_EQ(16u, buffer->size());
    for (int i = 0; i < 16; ++i) {
        buffer->base()[i] = i;
    }
    buffer->setRange(5, 7);
    EXPECT_EQ(buffer->base() + 5, buffer->data());
    EXPECT_EQ(5, buffer->data()[0]);
    EXPECT_EQ(7u, buffer->size());
    // Both edges are legal: an empty range at the very end, and the whole buffer.
    buffer->setRange(16, 0);
    EXPECT_EQ(0u, buffer->size());
    buffer->setRange(0, 16);
    EXPECT_EQ(16u, buffer->size());
}

TEST(ABufferTest, WrappedMemoryIsUsedInPlaceAndNotFreed) {
    // On the stack: freeing it would be caught by the allocator or ASan.
    uint8_t storage[32];
    memset(storage, 0, sizeof(storage));
    {
        sp<ABuffer> buffer = new ABuffer(storage, sizeof(storage));
        EXPECT_EQ(storage, buffer->base());
        buffer->setRange(4, 4);
        memcpy(buffer->data(), "abcd", 4);
    }
    EXPECT_EQ(0, memcmp(storage + 4, "abcd", 4));
}

TEST(ABufferDeathTest, RangeBeyondCapacityAborts) {
    sp<ABuffer> buffer = new ABuffer(8);
    EXPECT_DEATH(buffer->setRange(9, 0),
                 "ABuffer\\.cpp:[0-9]+ CHECK_LE\\( offset,mCapacity\\) failed: 9 vs\\. 8");
    EXPECT_DEATH(buffer->setRange(3, 6), "ABuffer\\.cpp:[0-9]+ CHECK_LE\\(.*\\) failed: 6 vs\\. 5");
    // A size so large that offset + size wraps around must not slip through.
    EXPECT_DEATH(buffer->setRange(4, SIZE_MAX - 2), "ABuffer\\.cpp:[0-9]+ CHECK_LE\\(.*\\) failed");
}

}  // namespace
}  // namespace android
