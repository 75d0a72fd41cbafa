#include <system/audio.h>

#include <gtest/gtest.h>

namespace {

TEST(AudioTypesTest, ChannelMasksFromCountsAndBack) {
    // The platform's masks for the usual layouts.
    EXPECT_EQ(0x1u, audio_channel_out_mask_from_count(1));
    EXPECT_EQ(0x3u, audio_channel_out_mask_from_count(2));
    EXPECT_EQ(0x33u, audio_channel_out_mask_from_count(4));
    EXPECT_EQ(0x37u, audio_channel_out_mask_from_count(5));
    EXPECT_EQ(0x3Fu, audio_channel_out_mask_from_count(6));
    EXPECT_EQ(0x13Fu, audio_channel_out_mask_from_count(7));
    EXPECT_EQ(0x63Fu, audio_channel_out_mask_from_count(8));
    EXPECT_EQ((audio_channel_mask_t)AUDIO_CHANNEL_INVALID, audio_channel_out_mask_from_count(9));
    EXPECT_EQ((audio_channel_mask_t)AUDIO_CHANNEL_NONE, audio_channel_out_mask_from_count(0));
    for (uint32_t n = 0; n <= 8; ++n) {
        EXPECT_EQ(n, audio_channel_count_from_out_mask(audio_channel_out_mask_from_count(n)));
    }
    EXPECT_EQ(0u, audio_channel_count_from_out_mask(AUDIO_CHANNEL_INVALID));
    EXPECT_EQ(3u, audio_channel_count_from_out_mask(AUDIO_CHANNEL_INDEX_MASK_3));
}

TEST(AudioTypesTest, SampleSizesAndPcmTest) {
    EXPECT_EQ(1u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_8_BIT));
    EXPECT_EQ(2u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_16_BIT));
    EXPECT_EQ(3u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_24_BIT_PACKED));
    EXPECT_EQ(4u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_32_BIT));
    EXPECT_EQ(4u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_8_24_BIT));
    EXPECT_EQ(4u, audio_bytes_per_sample(AUDIO_FORMAT_PCM_FLOAT));
    EXPECT_EQ(0u, audio_bytes_per_sample(AUDIO_FORMAT_MP3));
    EXPECT_EQ(12u, audio_bytes_per_frame(6, AUDIO_FORMAT_PCM_16_BIT));
    EXPECT_TRUE(audio_is_linear_pcm(AUDIO_FORMAT_PCM_FLOAT));
    EXPECT_FALSE(audio_is_linear_pcm(AUDIO_FORMAT_AAC_LC));
    EXPECT_FALSE(audio_is_valid_format(AUDIO_FORMAT_INVALID));
    EXPECT_FALSE(audio_is_valid_format((audio_format_t)0x7));
    EXPECT_TRUE(audio_is_valid_format(AUDIO_FORMAT_FLAC));
}

}  // namespace
