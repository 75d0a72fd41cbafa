#include <audio_utils/format.h>
#include <audio_utils/primitives.h>

#include <math.h>
#include <string.h>

#include <limits>
#include <vector>

#include <gtest/gtest.h>

namespace {

// Expected values below are worked out by hand from the format definitions:
//   8-bit      unsigned, 0x80 is silence, one step is 256 16-bit steps
//   24 packed  little-endian two's complement, the top two bytes are the 16 bits
//   32-bit     two's complement, the top half is the 16 bits
//   8.24       Q8.23: 1.0 is 0x00800000, so 16 bits are the value >> 8, clamped
//   float      [-1.0, 1.0) times 32768, rounded to nearest (ties to even), clamped

struct P24 {
    uint8_t b[3];
};

TEST(PrimitivesTest, U8ToI16AtExtremesAndMidScale) {
    const uint8_t src[] = {0x00, 0x01, 0x40, 0x7F, 0x80, 0x81, 0xC0, 0xFF};
    const int16_t expected[] = {-32768, -32512, -16384, -256, 0, 256, 16384, 32512};
    int16_t dst[8];
    memcpy_to_i16_from_u8(dst, src, 8);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(expected[i], dst[i]) << i;
}

TEST(PrimitivesTest, P24ToI16KeepsTopSixteenBits) {
    const uint8_t src[] = {
            0x00, 0x00, 0x80,  // -8388608 (full scale negative)
            0xFF, 0xFF, 0x7F,  // 8388607 (full scale positive)
            0x00, 0x00, 0x40,  // 4194304 (half scale)
            0xFF, 0xFF, 0xFF,  // -1
            0x56, 0x34, 0x12,  // 0x123456
            0xFF, 0x00, 0x00,  // 255: below one 16-bit step
            0x00, 0x00, 0x00,  // 0
    };
    const int16_t expected[] = {-32768, 32767, 16384, -1, 0x1234, 0, 0};
    int16_t dst[7];
    memcpy_to_i16_from_p24(dst, src, 7);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(expected[i], dst[i]) << i;
}

TEST(PrimitivesTest, P24ToI16ReadsUnalignedSamples) {
    // Samples start at an odd address: 0x123456 and -0x000100.
    uint8_t raw[1 + 6] = {0xEE, 0x56, 0x34, 0x12, 0x00, 0xFF, 0xFF};
    int16_t dst[2];
    memcpy_to_i16_from_p24(dst, raw + 1, 2);
    EXPECT_EQ(0x1234, dst[0]);
    EXPECT_EQ(-1, dst[1]);

    // And through the dispatcher into an unaligned destination.
    uint8_t out[1 + 4];
    memcpy_by_audio_format(out + 1, AUDIO_FORMAT_PCM_16_BIT, raw + 1,
                           AUDIO_FORMAT_PCM_24_BIT_PACKED, 2);
    EXPECT_EQ(0x34, out[1]);
    EXPECT_EQ(0x12, out[2]);
    EXPECT_EQ(0xFF, out[3]);
    EXPECT_EQ(0xFF, out[4]);
}

TEST(PrimitivesTest, I32ToI16KeepsTopHalf) {
    const int32_t src[] = {INT32_MIN, INT32_MAX, 0x40000000, 0x12345678, -1, 0x0000FFFF,
                           -0x10000};
    const int16_t expected[] = {-32768, 32767, 16384, 0x1234, -1, 0, -1};
    int16_t dst[7];
    memcpy_to_i16_from_i32(dst, src, 7);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(expected[i], dst[i]) << i;
}

TEST(PrimitivesTest, Q8_23ToI16ShiftsAndClamps) {
    const int32_t src[] = {
            0x007FFFFF,           // just below 1.0
            -0x00800000,          // -1.0
            0x00400000,           // 0.5
            0x01000000,           // 2.0: above full scale
            -0x02000000,          // -4.0: below full scale
            INT32_MAX,            // 255.99...
            INT32_MIN,            // -256.0
            0x00001234,           // small
            0,
    };
    const int16_t expected[] = {32767, -32768, 16384, 32767, -32768, 32767, -32768, 0x12, 0};
    int16_t dst[9];
    memcpy_to_i16_from_q8_23(dst, src, 9);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(expected[i], dst[i]) << i;
}

TEST(PrimitivesTest, FloatToI16RoundsToNearestAndClamps) {
    const float step = 1.0f / 32768.0f;
    struct Case {
        float in;
        int16_t out;
    } cases[] = {
            {1.0f, 32767},
            {-1.0f, -32768},
            {1.5f, 32767},
            {-1.5f, -32768},
            {1000.0f, 32767},
            {std::numeric_limits<float>::infinity(), 32767},
            {-std::numeric_limits<float>::infinity(), -32768},
            {0.5f, 16384},
            {-0.5f, -16384},
            {0.0f, 0},
            {-0.0f, 0},
            {1e-9f, 0},
            {-1e-9f, 0},
            {0.4f * step, 0},
            {0.6f * step, 1},
            {-0.6f * step, -1},
            {0.5f * step, 0},     // tie: to the even neighbour
            {1.5f * step, 2},     // tie
            {2.5f * step, 2},     // tie
            {-1.5f * step, -2},   // tie
            {32766.5f * step, 32766},
            {32767.4f * step, 32767},
            {32767.5f * step, 32767},
            {-32767.5f * step, -32768},
    };
    for (const Case& c : cases) {
        int16_t dst = 0x5555;
        memcpy_to_i16_from_float(&dst, &c.in, 1);
        EXPECT_EQ(c.out, dst) << c.in;
        EXPECT_EQ(c.out, clamp16_from_float(c.in)) << c.in;
    }
}

// Widening to any format and narrowing back must give every 16-bit value
// back unchanged.
TEST(PrimitivesTest, EverySixteenBitValueSurvivesARoundTrip) {
    std::vector<int16_t> all(65536);
    for (int i = 0; i < 65536; ++i) all[i] = static_cast<int16_t>(i - 32768);
    const audio_format_t wide[] = {AUDIO_FORMAT_PCM_FLOAT, AUDIO_FORMAT_PCM_32_BIT,
                                   AUDIO_FORMAT_PCM_8_24_BIT, AUDIO_FORMAT_PCM_24_BIT_PACKED};
    for (audio_format_t format : wide) {
        std::vector<uint8_t> buffer(all.size() * 4);
        std::vector<int16_t> back(all.size());
        memcpy_by_audio_format(buffer.data(), format, all.data(), AUDIO_FORMAT_PCM_16_BIT,
                               all.size());
        memcpy_by_audio_format(back.data(), AUDIO_FORMAT_PCM_16_BIT, buffer.data(), format,
                               all.size());
        EXPECT_EQ(all, back) << "format " << format;
    }
    std::vector<uint8_t> bytes(256), bytesBack(256);
    std::vector<int16_t> wide16(256);
    for (int i = 0; i < 256; ++i) bytes[i] = static_cast<uint8_t>(i);
    memcpy_to_i16_from_u8(wide16.data(), bytes.data(), 256);
    memcpy_to_u8_from_i16(bytesBack.data(), wide16.data(), 256);
    EXPECT_EQ(bytes, bytesBack);
}

// Each format's full-scale ramp converted in place to 16 bits equals the
// same ramp converted into a separate buffer, and back again.
TEST(PrimitivesTest, ConversionsWorkInPlace) {
    const size_t n = 4097;
    std::vector<int16_t> ramp(n);
    for (size_t i = 0; i < n; ++i) ramp[i] = static_cast<int16_t>(-32768 + i * 16);

    const audio_format_t formats[] = {AUDIO_FORMAT_PCM_8_BIT, AUDIO_FORMAT_PCM_FLOAT,
                                      AUDIO_FORMAT_PCM_32_BIT, AUDIO_FORMAT_PCM_8_24_BIT,
                                      AUDIO_FORMAT_PCM_24_BIT_PACKED};
    for (audio_format_t format : formats) {
        std::vector<uint8_t> separate(n * 4);
        memcpy_by_audio_format(separate.data(), format, ramp.data(), AUDIO_FORMAT_PCM_16_BIT, n);

        // Widening in place: 16-bit samples at the start of a buffer big enough.
        std::vector<uint8_t> inPlace(n * 4);
        memcpy(inPlace.data(), ramp.data(), n * 2);
        memcpy_by_audio_format(inPlace.data(), format, inPlace.data(), AUDIO_FORMAT_PCM_16_BIT,
                               n);
        const size_t bytes = n * audio_bytes_per_sample(format);
        EXPECT_EQ(0, memcmp(separate.data(), inPlace.data(), bytes)) << "to format " << format;

        // Narrowing in place.
        std::vector<int16_t> expected(n);
        memcpy_by_audio_format(expected.data(), AUDIO_FORMAT_PCM_16_BIT, separate.data(), format,
                               n);
        memcpy_by_audio_format(inPlace.data(), AUDIO_FORMAT_PCM_16_BIT, inPlace.data(), format,
                               n);
        EXPECT_EQ(0, memcmp(expected.data(), inPlace.data(), n * 2)) << "from format " << format;
    }
}

TEST(PrimitivesTest, DispatcherConvertsEveryPcmFormatToSixteenBits) {
    // Half scale positive and full scale negative in every format.
    const uint8_t u8[] = {0xC0, 0x00};
    const uint8_t p24[] = {0x00, 0x00, 0x40, 0x00, 0x00, 0x80};
    const int32_t i32[] = {0x40000000, INT32_MIN};
    const int32_t q823[] = {0x00400000, -0x00800000};
    const float f[] = {0.5f, -1.0f};
    const int16_t i16[] = {16384, -32768};
    struct Case {
        audio_format_t format;
        const void* src;
    } cases[] = {
            {AUDIO_FORMAT_PCM_8_BIT, u8},       {AUDIO_FORMAT_PCM_24_BIT_PACKED, p24},
            {AUDIO_FORMAT_PCM_32_BIT, i32},     {AUDIO_FORMAT_PCM_8_24_BIT, q823},
            {AUDIO_FORMAT_PCM_FLOAT, f},        {AUDIO_FORMAT_PCM_16_BIT, i16},
            {AUDIO_FORMAT_IEC61937, i16},
    };
    for (const Case& c : cases) {
        int16_t dst[3] = {0x5555, 0x5555, 0x5555};
        memcpy_by_audio_format(dst, AUDIO_FORMAT_PCM_16_BIT, c.src, c.format, 2);
        EXPECT_EQ(16384, dst[0]) << "format " << c.format;
        EXPECT_EQ(-32768, dst[1]) << "format " << c.format;
        EXPECT_EQ(0x5555, dst[2]) << "format " << c.format << " wrote past count";
    }
}

TEST(PrimitivesTest, SameFormatCopiesBytes) {
    const uint8_t src[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const audio_format_t formats[] = {AUDIO_FORMAT_PCM_8_BIT,         AUDIO_FORMAT_PCM_16_BIT,
                                      AUDIO_FORMAT_PCM_24_BIT_PACKED, AUDIO_FORMAT_PCM_32_BIT,
                                      AUDIO_FORMAT_PCM_8_24_BIT,      AUDIO_FORMAT_PCM_FLOAT};
    for (audio_format_t format : formats) {
        uint8_t dst[13];
        memset(dst, 0xAA, sizeof(dst));
        const size_t count = 12 / audio_bytes_per_sample(format);
        memcpy_by_audio_format(dst, format, src, format, count);
        EXPECT_EQ(0, memcmp(src, dst, 12)) << "format " << format;
        EXPECT_EQ(0xAA, dst[12]);
    }
}

TEST(PrimitivesDeathTest, UnsupportedPairAbortsWithThePlatformMessage) {
    int32_t dst[2];
    const uint8_t src[2] = {0, 0};
    EXPECT_DEATH(memcpy_by_audio_format(dst, AUDIO_FORMAT_PCM_32_BIT, src,
                                        AUDIO_FORMAT_PCM_8_BIT, 2),
                 "invalid src format 0x2 for dst format 0x3");
    EXPECT_DEATH(memcpy_by_audio_format(dst, AUDIO_FORMAT_PCM_16_BIT, src, AUDIO_FORMAT_MP3, 1),
                 "invalid src format 0x1000000 for dst format 0x1");
}

}  // namespace
