#include <audio_utils/format.h>
#include <audio_utils/primitives.h>

#include <math.h>
#include <string.h>

#include <initializer_list>
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

template <typename T>
std::vector<uint8_t> bytesOf(std::initializer_list<T> values) {
    std::vector<uint8_t> out(values.size() * sizeof(T));
    memcpy(out.data(), values.begin(), out.size());
    return out;
}

// Through the dispatcher the engine calls, source and destination both at odd
// addresses, with a guard sample behind the destination.
TEST(PrimitivesTest, EveryPcmFormatToSixteenBitsAtExtremesAndMidScale) {
    struct Case {
        audio_format_t format;
        std::vector<uint8_t> src;
        std::vector<int16_t> expected;
    } cases[] = {
            {AUDIO_FORMAT_PCM_8_BIT,
             {0x00, 0x01, 0x40, 0x7F, 0x80, 0x81, 0xC0, 0xFF},
             {-32768, -32512, -16384, -256, 0, 256, 16384, 32512}},
            // Full scale negative and positive, half scale, -1, 0x123456, 255
            // (below one 16-bit step), 0.
            {AUDIO_FORMAT_PCM_24_BIT_PACKED,
             {0x00, 0x00, 0x80, 0xFF, 0xFF, 0x7F, 0x00, 0x00, 0x40, 0xFF, 0xFF, 0xFF,
              0x56, 0x34, 0x12, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00},
             {-32768, 32767, 16384, -1, 0x1234, 0, 0}},
            {AUDIO_FORMAT_PCM_32_BIT,
             bytesOf<int32_t>({INT32_MIN, INT32_MAX, 0x40000000, 0x12345678, -1, 0x0000FFFF,
                               -0x10000}),
             {-32768, 32767, 16384, 0x1234, -1, 0, -1}},
            // Just below 1.0, -1.0, 0.5, 2.0 and -4.0 beyond full scale, the
            // extremes, a small value, 0.
            {AUDIO_FORMAT_PCM_8_24_BIT,
             bytesOf<int32_t>({0x007FFFFF, -0x00800000, 0x00400000, 0x01000000, -0x02000000,
                               INT32_MAX, INT32_MIN, 0x00001234, 0}),
             {32767, -32768, 16384, 32767, -32768, 32767, -32768, 0x12, 0}},
            {AUDIO_FORMAT_PCM_FLOAT, bytesOf<float>({0.5f, -1.0f}), {16384, -32768}},
            {AUDIO_FORMAT_PCM_16_BIT, bytesOf<int16_t>({16384, -32768}), {16384, -32768}},
            {AUDIO_FORMAT_IEC61937, bytesOf<int16_t>({16384, -32768}), {16384, -32768}},
    };
    for (const Case& c : cases) {
        const size_t n = c.expected.size();
        std::vector<uint8_t> src(1 + c.src.size());
        memcpy(src.data() + 1, c.src.data(), c.src.size());
        std::vector<uint8_t> dst(1 + 2 * (n + 1), 0x55);
        memcpy_by_audio_format(dst.data() + 1, AUDIO_FORMAT_PCM_16_BIT, src.data() + 1, c.format,
                               n);
        std::vector<int16_t> got(n + 1);
        memcpy(got.data(), dst.data() + 1, 2 * (n + 1));
        std::vector<int16_t> expected = c.expected;
        expected.push_back(0x5555);
        EXPECT_EQ(expected, got) << "format " << c.format;
    }
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
            {std::numeric_limits<float>::infinity(), 32767},
            {-std::numeric_limits<float>::infinity(), -32768},
            {0.5f, 16384},
            {0.0f, 0},
            {0.4f * step, 0},
            {0.6f * step, 1},
            {-0.6f * step, -1},
            {0.5f * step, 0},     // tie: to the even neighbour
            {2.5f * step, 2},     // tie
            {-1.5f * step, -2},   // tie
            {32767.5f * step, 32767},
            {-32767.5f * step, -32768},
    };
    for (const Case& c : cases) {
        int16_t dst = 0x5555;
        memcpy_to_i16_from_float(&dst, &c.in, 1);
        EXPECT_EQ(c.out, dst) << c.in;
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
}

TEST(PrimitivesDeathTest, UnsupportedPairAbortsWithThePlatformMessage) {
    int16_t dst[2];
    const uint8_t src[2] = {0, 0};
    EXPECT_DEATH(memcpy_by_audio_format(dst, AUDIO_FORMAT_PCM_16_BIT, src, AUDIO_FORMAT_MP3, 1),
                 "invalid src format 0x1000000 for dst format 0x1");
}

}  // namespace
