#include <system/audio.h>

#include <gtest/gtest.h>

namespace {

TEST(AudioTypesTest, ChannelMasksFromCountsAndBack) {
    // The platform's masks for the usual layouts, 0 to 8 channels.
    const audio_channel_mask_t masks[] = {AUDIO_CHANNEL_NONE, 0x1, 0x3, 0x7, 0x33, 0x37,
                                          0x3F, 0x13F, 0x63F};
    for (uint32_t n = 0; n <= 8; ++n) {
        EXPECT_EQ(masks[n], audio_channel_out_mask_from_count(n)) << n;
        EXPECT_EQ(n, audio_channel_count_from_out_mask(masks[n])) << n;
    }
    EXPECT_EQ((audio_channel_mask_t)AUDIO_CHANNEL_INVALID, audio_channel_out_mask_from_count(9));
    EXPECT_EQ(0u, audio_channel_count_from_out_mask(AUDIO_CHANNEL_INVALID));
    EXPECT_EQ(3u, audio_channel_count_from_out_mask(AUDIO_CHANNEL_INDEX_MASK_3));
}

TEST(AudioTypesTest, SampleSizesAndValidFormats) {
    EXPECT_EQ(1u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_8_BIT));
    EXPECT_EQ(3u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_24_BIT_PACKED));
    EXPECT_EQ(4u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_8_24_BIT));
    EXPECT_EQ(0u, audio_bytes_per_sample(AUDIO_FORMAT_MP3));
    EXPECT_FALSE(audio_is_valid_format(AUDIO_FORMAT_INVALID));
    EXPECT_FALSE(audio_is_valid_format((audio_format_t)0x7));
    EXPECT_TRUE(audio_is_valid_format(AUDIO_FORMAT_FLAC));
}

}  // namespace
