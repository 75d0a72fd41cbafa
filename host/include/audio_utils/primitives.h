/*
 * Sample-format conversions of the platform's audio_utils.  Counts are in
 * samples (frames times channels).  A conversion may run in place (dst ==
 * src) wherever the platform allows it: the narrowing ones work front to
 * back, the widening ones back to front.  24-bit packed samples are little
 * endian and need no alignment.
 */

#ifndef ANDROID_AUDIO_PRIMITIVES_H
#define ANDROID_AUDIO_PRIMITIVES_H

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <system/audio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 16-bit from the other formats */
void memcpy_to_i16_from_u8(int16_t* dst, const uint8_t* src, size_t count);
void memcpy_to_i16_from_p24(int16_t* dst, const uint8_t* src, size_t count);
void memcpy_to_i16_from_i32(int16_t* dst, const int32_t* src, size_t count);
void memcpy_to_i16_from_q8_23(int16_t* dst, const int32_t* src, size_t count);
void memcpy_to_i16_from_float(int16_t* dst, const float* src, size_t count);

/* 8-bit unsigned from 16-bit and float */
void memcpy_to_u8_from_i16(uint8_t* dst, const int16_t* src, size_t count);
void memcpy_to_u8_from_float(uint8_t* dst, const float* src, size_t count);

/* float from the other formats */
void memcpy_to_float_from_i16(float* dst, const int16_t* src, size_t count);
void memcpy_to_float_from_u8(float* dst, const uint8_t* src, size_t count);
void memcpy_to_float_from_p24(float* dst, const uint8_t* src, size_t count);
void memcpy_to_float_from_i32(float* dst, const int32_t* src, size_t count);
void memcpy_to_float_from_q8_23(float* dst, const int32_t* src, size_t count);

/* 24-bit packed from the other formats */
void memcpy_to_p24_from_i16(uint8_t* dst, const int16_t* src, size_t count);
void memcpy_to_p24_from_float(uint8_t* dst, const float* src, size_t count);
void memcpy_to_p24_from_q8_23(uint8_t* dst, const int32_t* src, size_t count);
void memcpy_to_p24_from_i32(uint8_t* dst, const int32_t* src, size_t count);

/* 32-bit from the other formats */
void memcpy_to_i32_from_i16(int32_t* dst, const int16_t* src, size_t count);
void memcpy_to_i32_from_float(int32_t* dst, const float* src, size_t count);
void memcpy_to_i32_from_p24(int32_t* dst, const uint8_t* src, size_t count);

/* Q8.23 from the other formats */
void memcpy_to_q8_23_from_i16(int32_t* dst, const int16_t* src, size_t count);
void memcpy_to_q8_23_from_float_with_clamp(int32_t* dst, const float* src, size_t count);
void memcpy_to_q8_23_from_p24(int32_t* dst, const uint8_t* src, size_t count);

/* Single-sample helpers, the platform's rounding and clamping. */
static inline int16_t clamp16(int32_t sample) {
    if ((sample >> 15) ^ (sample >> 31)) sample = 0x7FFF ^ (sample >> 31);
    return (int16_t)sample;
}

/* Scaled by 32768, rounded to the nearest integer (ties to even) and
 * clamped to [-32768, 32767]. */
int16_t clamp16_from_float(float f);

static inline float float_from_i16(int16_t ival) {
    return (float)ival * (1.0f / (1 << 15));
}

#ifdef __cplusplus
}
#endif

#endif /* ANDROID_AUDIO_PRIMITIVES_H */
