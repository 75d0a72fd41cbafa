#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MetaDataBase.h>

#include <string.h>

#include <vector>

#include <gtest/gtest.h>

namespace android {
namespace {

// Counts destructions so a test sees the exact moment a buffer dies.
class CountingBuffer : public MediaBuffer {
public:
    CountingBuffer(size_t size, int* destroyed) : MediaBuffer(size), mDestroyed(destroyed) {}

protected:
    ~CountingBuffer() override { ++*mDestroyed; }

private:
    int* mDestroyed;
};

TEST(MediaBufferTest, EachAddRefDefersDestructionByOneRelease) {
    for (int refs = 0; refs <= 3; ++refs) {
        int destroyed = 0;
        MediaBufferBase* buffer = new CountingBuffer(16, &destroyed);
        for (int i = 0; i < refs; ++i) buffer->add_ref();
        EXPECT_EQ(refs, buffer->refcount());
        for (int i = 0; i < refs; ++i) {
            buffer->release();
            ASSERT_EQ(0, destroyed) << "destroyed after " << i + 1 << " of " << refs + 1;
        }
        buffer->release();
        EXPECT_EQ(1, destroyed) << refs << " references";
    }
}

TEST(MediaBufferTest, ResetClearsMetaAndRestoresTheFullRange) {
    MediaBufferBase* buffer = MediaBufferBase::Create(64);
    memset(buffer->data(), 0x11, buffer->size());  // ASan checks the extent
    buffer->set_range(8, 16);
    buffer->meta_data().setInt64(kKeyTime, 123);
    buffer->meta_data().setInt32(kKeyIsSyncFrame, 1);
    buffer->reset();
    EXPECT_EQ(0u, buffer->range_offset());
    EXPECT_EQ(64u, buffer->range_length());
    int64_t timeUs;
    EXPECT_FALSE(buffer->meta_data().findInt64(kKeyTime, &timeUs));
    EXPECT_FALSE(buffer->meta_data().hasData(kKeyIsSyncFrame));
    buffer->release();
}

TEST(MediaBufferDeathTest, RangeOutsideTheBufferAborts) {
    MediaBuffer* buffer = new MediaBuffer(100);
    EXPECT_DEATH(buffer->set_range(1, 100), "CHECK\\(offset \\+ length <= mSize\\) failed\\.");
    // Would wrap around to a small sum.
    EXPECT_DEATH(buffer->set_range(SIZE_MAX, 2), "CHECK\\(offset \\+ length <= mSize\\) failed\\.");
    buffer->release();
}

}  // namespace
}  // namespace android
