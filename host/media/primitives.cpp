#define LOG_TAG "audio_utils_primitives"

#include <audio_utils/format.h>
#include <audio_utils/primitives.h>

#include <math.h>
#include <string.h>

#include <log/log.h>

// Samples are read and written through memcpy: the buffers may be unaligned
// and, for in-place conversions, the same bytes are seen as two types.

namespace {

template <typename T>
inline T load(const void* p, size_t index) {
    T v;
    memcpy(&v, static_cast<const uint8_t*>(p) + index * sizeof(T), sizeof(T));
    return v;
}

template <typename T>
inline void store(void* p, size_t index, T v) {
    memcpy(static_cast<uint8_t*>(p) + index * sizeof(T), &v, sizeof(T));
}

// Sign-extended value of a little-endian 24-bit sample.
inline int32_t loadP24(const void* p, size_t index) {
    const uint8_t* b = static_cast<const uint8_t*>(p) + index * 3;
    const uint32_t u = static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) |
                       (static_cast<uint32_t>(b[2]) << 16);
    return static_cast<int32_t>(u << 8) >> 8;
}

inline void storeP24(void* p, size_t index, int32_t v) {
    uint8_t* b = static_cast<uint8_t*>(p) + index * 3;
    const uint32_t u = static_cast<uint32_t>(v);
    b[0] = static_cast<uint8_t>(u);
    b[1] = static_cast<uint8_t>(u >> 8);
    b[2] = static_cast<uint8_t>(u >> 16);
}

inline int32_t clamp24(int32_t v) {
    if (v > 0x7FFFFF) return 0x7FFFFF;
    if (v < -0x800000) return -0x800000;
    return v;
}

// Scaled by 2^23, rounded half away from zero, clamped to 24 bits.
inline int32_t clamp24FromFloat(float f) {
    static const float kScale = static_cast<float>(1 << 23);
    static const float kLimPos = static_cast<float>(0x7FFFFF) / kScale;
    static const float kLimNeg = -static_cast<float>(0x800000) / kScale;
    if (f <= kLimNeg) return -0x800000;
    if (f >= kLimPos) return 0x7FFFFF;
    if (isnan(f)) return 0;
    f *= kScale;
    return static_cast<int32_t>(f > 0 ? f + 0.5f : f - 0.5f);
}

// Scaled by 2^31, rounded half away from zero, clamped to 32 bits.
inline int32_t clamp32FromFloat(float f) {
    static const float kScale = static_cast<float>(1UL << 31);
    static const float kLimPos = 1.f;
    static const float kLimNeg = -1.f;
    if (f <= kLimNeg) return INT32_MIN;
    if (f >= kLimPos) return INT32_MAX;
    if (isnan(f)) return 0;
    f *= kScale;
    // |f| < 2^31 here, and the nearest float below 2^31 is 2^31 - 128.
    return static_cast<int32_t>(f > 0 ? f + 0.5f : f - 0.5f);
}

inline int16_t i16FromU8(uint8_t v) {
    return static_cast<int16_t>((static_cast<int32_t>(v) - 0x80) * 256);
}

inline uint8_t u8FromI16(int16_t v) {
    return static_cast<uint8_t>((v >> 8) + 0x80);
}

}  // namespace

extern "C" {

int16_t clamp16_from_float(float f) {
    if (isnan(f)) return signbit(f) ? -32768 : 32767;
    // The scaling by a power of two is exact; nearbyintf rounds ties to even
    // in the default rounding mode.
    const float v = nearbyintf(f * 32768.0f);
    if (v >= 32767.0f) return 32767;
    if (v <= -32768.0f) return -32768;
    return static_cast<int16_t>(v);
}

// Narrowing or same-width conversions run front to back, widening ones back
// to front, so that each works in place.

void memcpy_to_i16_from_u8(int16_t* dst, const uint8_t* src, size_t count) {
    while (count--) store<int16_t>(dst, count, i16FromU8(load<uint8_t>(src, count)));
}

void memcpy_to_i16_from_p24(int16_t* dst, const uint8_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        store<int16_t>(dst, i, static_cast<int16_t>(loadP24(src, i) >> 8));
    }
}

void memcpy_to_i16_from_i32(int16_t* dst, const int32_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        store<int16_t>(dst, i, static_cast<int16_t>(load<int32_t>(src, i) >> 16));
    }
}

void memcpy_to_i16_from_q8_23(int16_t* dst, const int32_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        store<int16_t>(dst, i, clamp16(load<int32_t>(src, i) >> 8));
    }
}

void memcpy_to_i16_from_float(int16_t* dst, const float* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        store<int16_t>(dst, i, clamp16_from_float(load<float>(src, i)));
    }
}

void memcpy_to_u8_from_i16(uint8_t* dst, const int16_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) store<uint8_t>(dst, i, u8FromI16(load<int16_t>(src, i)));
}

void memcpy_to_u8_from_float(uint8_t* dst, const float* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        store<uint8_t>(dst, i, u8FromI16(clamp16_from_float(load<float>(src, i))));
    }
}

void memcpy_to_float_from_i16(float* dst, const int16_t* src, size_t count) {
    while (count--) store<float>(dst, count, float_from_i16(load<int16_t>(src, count)));
}

void memcpy_to_float_from_u8(float* dst, const uint8_t* src, size_t count) {
    while (count--) {
        store<float>(dst, count,
                     (static_cast<int32_t>(load<uint8_t>(src, count)) - 0x80) * (1.0f / (1 << 7)));
    }
}

void memcpy_to_float_from_p24(float* dst, const uint8_t* src, size_t count) {
    while (count--) store<float>(dst, count, loadP24(src, count) * (1.0f / (1 << 23)));
}

void memcpy_to_float_from_i32(float* dst, const int32_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        store<float>(dst, i, load<int32_t>(src, i) * (1.0f / (1UL << 31)));
    }
}

void memcpy_to_float_from_q8_23(float* dst, const int32_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        store<float>(dst, i, load<int32_t>(src, i) * (1.0f / (1 << 23)));
    }
}

void memcpy_to_p24_from_i16(uint8_t* dst, const int16_t* src, size_t count) {
    while (count--) storeP24(dst, count, static_cast<int32_t>(load<int16_t>(src, count)) * 256);
}

void memcpy_to_p24_from_float(uint8_t* dst, const float* src, size_t count) {
    for (size_t i = 0; i < count; ++i) storeP24(dst, i, clamp24FromFloat(load<float>(src, i)));
}

void memcpy_to_p24_from_q8_23(uint8_t* dst, const int32_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) storeP24(dst, i, clamp24(load<int32_t>(src, i)));
}

void memcpy_to_p24_from_i32(uint8_t* dst, const int32_t* src, size_t count) {
    for (size_t i = 0; i < count; ++i) storeP24(dst, i, load<int32_t>(src, i) >> 8);
}

void memcpy_to_i32_from_i16(int32_t* dst, const int16_t* src, size_t count) {
    while (count--) {
        store<int32_t>(dst, count, static_cast<int32_t>(load<int16_t>(src, count)) * 65536);
    }
}

void memcpy_to_i32_from_float(int32_t* dst, const float* src, size_t count) {
    for (size_t i = 0; i < count; ++i) store<int32_t>(dst, i, clamp32FromFloat(load<float>(src, i)));
}

void memcpy_to_i32_from_p24(int32_t* dst, const uint8_t* src, size_t count) {
    while (count--) {
        store<int32_t>(dst, count,
                       static_cast<int32_t>(static_cast<uint32_t>(loadP24(src, count)) << 8));
    }
}

void memcpy_to_q8_23_from_i16(int32_t* dst, const int16_t* src, size_t count) {
    while (count--) {
        store<int32_t>(dst, count, static_cast<int32_t>(load<int16_t>(src, count)) * 256);
    }
}

void memcpy_to_q8_23_from_float_with_clamp(int32_t* dst, const float* src, size_t count) {
    for (size_t i = 0; i < count; ++i) store<int32_t>(dst, i, clamp24FromFloat(load<float>(src, i)));
}

void memcpy_to_q8_23_from_p24(int32_t* dst, const uint8_t* src, size_t count) {
    while (count--) store<int32_t>(dst, count, loadP24(src, count));
}

void memcpy_by_audio_format(void* dst, audio_format_t dst_format, const void* src,
                            audio_format_t src_format, size_t count) {
    // IEC 61937 bursts travel as 16-bit words: copied, never converted.
    if (src_format == AUDIO_FORMAT_IEC61937 &&
        (dst_format == AUDIO_FORMAT_IEC61937 || dst_format == AUDIO_FORMAT_PCM_16_BIT)) {
        memmove(dst, src, count * sizeof(int16_t));
        return;
    }
    if (dst_format == src_format) {
        switch (dst_format) {
            case AUDIO_FORMAT_PCM_16_BIT:
            case AUDIO_FORMAT_PCM_FLOAT:
            case AUDIO_FORMAT_PCM_8_BIT:
            case AUDIO_FORMAT_PCM_24_BIT_PACKED:
            case AUDIO_FORMAT_PCM_32_BIT:
            case AUDIO_FORMAT_PCM_8_24_BIT:
                memmove(dst, src, count * audio_bytes_per_sample(dst_format));
                return;
            default:
                break;
        }
    }
    switch (dst_format) {
        case AUDIO_FORMAT_PCM_16_BIT:
            switch (src_format) {
                case AUDIO_FORMAT_PCM_FLOAT:
                    memcpy_to_i16_from_float((int16_t*)dst, (const float*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_8_BIT:
                    memcpy_to_i16_from_u8((int16_t*)dst, (const uint8_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_24_BIT_PACKED:
                    memcpy_to_i16_from_p24((int16_t*)dst, (const uint8_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_32_BIT:
                    memcpy_to_i16_from_i32((int16_t*)dst, (const int32_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_8_24_BIT:
                    memcpy_to_i16_from_q8_23((int16_t*)dst, (const int32_t*)src, count);
                    return;
                default:
                    break;
            }
            break;
        case AUDIO_FORMAT_PCM_FLOAT:
            switch (src_format) {
                case AUDIO_FORMAT_PCM_16_BIT:
                    memcpy_to_float_from_i16((float*)dst, (const int16_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_8_BIT:
                    memcpy_to_float_from_u8((float*)dst, (const uint8_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_24_BIT_PACKED:
                    memcpy_to_float_from_p24((float*)dst, (const uint8_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_32_BIT:
                    memcpy_to_float_from_i32((float*)dst, (const int32_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_8_24_BIT:
                    memcpy_to_float_from_q8_23((float*)dst, (const int32_t*)src, count);
                    return;
                default:
                    break;
            }
            break;
        case AUDIO_FORMAT_PCM_8_BIT:
            switch (src_format) {
                case AUDIO_FORMAT_PCM_16_BIT:
                    memcpy_to_u8_from_i16((uint8_t*)dst, (const int16_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_FLOAT:
                    memcpy_to_u8_from_float((uint8_t*)dst, (const float*)src, count);
                    return;
                default:
                    break;
            }
            break;
        case AUDIO_FORMAT_PCM_24_BIT_PACKED:
            switch (src_format) {
                case AUDIO_FORMAT_PCM_16_BIT:
                    memcpy_to_p24_from_i16((uint8_t*)dst, (const int16_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_FLOAT:
                    memcpy_to_p24_from_float((uint8_t*)dst, (const float*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_32_BIT:
                    memcpy_to_p24_from_i32((uint8_t*)dst, (const int32_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_8_24_BIT:
                    memcpy_to_p24_from_q8_23((uint8_t*)dst, (const int32_t*)src, count);
                    return;
                default:
                    break;
            }
            break;
        case AUDIO_FORMAT_PCM_32_BIT:
            switch (src_format) {
                case AUDIO_FORMAT_PCM_16_BIT:
                    memcpy_to_i32_from_i16((int32_t*)dst, (const int16_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_FLOAT:
                    memcpy_to_i32_from_float((int32_t*)dst, (const float*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_24_BIT_PACKED:
                    memcpy_to_i32_from_p24((int32_t*)dst, (const uint8_t*)src, count);
                    return;
                default:
                    break;
            }
            break;
        case AUDIO_FORMAT_PCM_8_24_BIT:
            switch (src_format) {
                case AUDIO_FORMAT_PCM_16_BIT:
                    memcpy_to_q8_23_from_i16((int32_t*)dst, (const int16_t*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_FLOAT:
                    memcpy_to_q8_23_from_float_with_clamp((int32_t*)dst, (const float*)src, count);
                    return;
                case AUDIO_FORMAT_PCM_24_BIT_PACKED:
                    memcpy_to_q8_23_from_p24((int32_t*)dst, (const uint8_t*)src, count);
                    return;
                default:
                    break;
            }
            break;
        default:
            break;
    }
    LOG_ALWAYS_FATAL("invalid src format %#x for dst format %#x", src_format, dst_format);
}

}  // extern "C"
