/*
 * Audio types of the platform (formats, channel masks, streams, flags,
 * sessions, attributes) with the platform's values, and the small inline
 * helpers that go with them.  Usable from C and C++.
 */

#ifndef ANDROID_AUDIO_CORE_H
#define ANDROID_AUDIO_CORE_H

#include <stdbool.h>
#include <stdint.h>
#include <string.h>
#include <sys/types.h>

#include "audio-base.h"
#include "audio-base-utils.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ */
/* Handles and ids */

typedef int audio_io_handle_t;

typedef int audio_module_handle_t;

typedef int audio_port_handle_t;

typedef int audio_patch_handle_t;

typedef int audio_unique_id_t;
#define AUDIO_UNIQUE_ID_ALLOCATE 0

#define AUDIO_UID_INVALID ((uid_t)-1)


/* ------------------------------------------------------------------ */
/* Streams */





typedef uint32_t audio_flags_mask_t;
enum {
    AUDIO_FLAG_NONE = 0x0,
    AUDIO_FLAG_AUDIBILITY_ENFORCED = 0x1,
    AUDIO_FLAG_SECURE = 0x2,
    AUDIO_FLAG_SCO = 0x4,
    AUDIO_FLAG_BEACON = 0x8,
    AUDIO_FLAG_HW_AV_SYNC = 0x10,
    AUDIO_FLAG_HW_HOTWORD = 0x20,
    AUDIO_FLAG_BYPASS_INTERRUPTION_POLICY = 0x40,
    AUDIO_FLAG_BYPASS_MUTE = 0x80,
    AUDIO_FLAG_LOW_LATENCY = 0x100,
    AUDIO_FLAG_DEEP_BUFFER = 0x200,
    AUDIO_FLAG_NO_MEDIA_PROJECTION = 0x400,
    AUDIO_FLAG_MUTE_HAPTIC = 0x800,
    AUDIO_FLAG_NO_SYSTEM_CAPTURE = 0x1000,
};

#define AUDIO_ATTRIBUTES_TAGS_MAX_SIZE 256

typedef struct {
    audio_content_type_t content_type;
    audio_usage_t usage;
    audio_source_t source;
    audio_flags_mask_t flags;
    char tags[AUDIO_ATTRIBUTES_TAGS_MAX_SIZE]; /* UTF8 */
} audio_attributes_t;

static const audio_attributes_t AUDIO_ATTRIBUTES_INITIALIZER = {
    AUDIO_CONTENT_TYPE_UNKNOWN, AUDIO_USAGE_UNKNOWN, AUDIO_SOURCE_DEFAULT, AUDIO_FLAG_NONE, ""};

/* ------------------------------------------------------------------ */
/* Formats */


/* ------------------------------------------------------------------ */
/* Channel masks */

typedef uint32_t audio_channel_mask_t;

typedef uint32_t audio_channel_representation_t;

#define AUDIO_CHANNEL_REPRESENTATION_LOG2   2




/* ------------------------------------------------------------------ */
/* Output flags and devices */


typedef uint32_t audio_devices_t;

/* ------------------------------------------------------------------ */
/* Offload */

#define AUDIO_MAKE_OFFLOAD_INFO_VERSION(maj, min) ((((maj) & 0xff) << 8) | ((min) & 0xff))
#define AUDIO_OFFLOAD_INFO_VERSION_0_1 AUDIO_MAKE_OFFLOAD_INFO_VERSION(0, 1)
#define AUDIO_OFFLOAD_INFO_VERSION_CURRENT AUDIO_OFFLOAD_INFO_VERSION_0_1

typedef struct {
    uint16_t version;              /* version of the info structure */
    uint16_t size;                 /* total size of the structure including version and size */
    uint32_t sample_rate;          /* sample rate in Hz */
    audio_channel_mask_t channel_mask; /* channel mask */
    audio_format_t format;         /* audio format */
    audio_stream_type_t stream_type; /* stream type */
    uint32_t bit_rate;             /* bit rate in bits per second */
    int64_t duration_us;           /* duration in microseconds, -1 if unknown */
    bool has_video;                /* true if stream is tied to a video stream */
    bool is_streaming;             /* true if streaming, false if local playback */
    uint32_t bit_width;
    uint32_t offload_buffer_size;  /* offload fragment size */
    audio_usage_t usage;
} audio_offload_info_t;

static const audio_offload_info_t AUDIO_INFO_INITIALIZER = {
    AUDIO_OFFLOAD_INFO_VERSION_CURRENT,
    sizeof(audio_offload_info_t),
    0,
    0,
    AUDIO_FORMAT_DEFAULT,
    AUDIO_STREAM_VOICE_CALL,
    0,
    0,
    false,
    false,
    16,
    0,
    AUDIO_USAGE_UNKNOWN,
};

/* ------------------------------------------------------------------ */
/* Stream configuration */

typedef struct {
    uint32_t sample_rate;
    audio_channel_mask_t channel_mask;
    audio_format_t format;
    audio_offload_info_t offload_info;
    uint32_t frame_count;
} audio_config_t;

static const audio_config_t AUDIO_CONFIG_INITIALIZER = {
    0, AUDIO_CHANNEL_NONE, AUDIO_FORMAT_DEFAULT,
    {AUDIO_OFFLOAD_INFO_VERSION_CURRENT, sizeof(audio_offload_info_t), 0, 0,
     AUDIO_FORMAT_DEFAULT, AUDIO_STREAM_VOICE_CALL, 0, 0, false, false, 16, 0,
     AUDIO_USAGE_UNKNOWN},
    0};

/* ------------------------------------------------------------------ */
/* Helpers */

static inline uint32_t audio_channel_mask_get_bits(audio_channel_mask_t channel) {
    return channel & ((1u << AUDIO_CHANNEL_COUNT_MAX) - 1);
}

static inline audio_channel_representation_t audio_channel_mask_get_representation(
        audio_channel_mask_t channel) {
    return (audio_channel_representation_t)(
            (channel >> AUDIO_CHANNEL_COUNT_MAX) & ((1u << AUDIO_CHANNEL_REPRESENTATION_LOG2) - 1));
}

static inline audio_channel_mask_t audio_channel_mask_from_representation_and_bits(
        audio_channel_representation_t representation, uint32_t bits) {
    return (audio_channel_mask_t)(((uint32_t)representation << AUDIO_CHANNEL_COUNT_MAX) | bits);
}

static inline uint32_t audio_channel_count_from_out_mask(audio_channel_mask_t channel) {
    uint32_t bits = audio_channel_mask_get_bits(channel);
    switch (audio_channel_mask_get_representation(channel)) {
        case AUDIO_CHANNEL_REPRESENTATION_POSITION:
            bits &= AUDIO_CHANNEL_OUT_ALL;
            /* fall through */
        case AUDIO_CHANNEL_REPRESENTATION_INDEX:
            return (uint32_t)__builtin_popcount(bits);
        default:
            return 0;
    }
}

static inline uint32_t audio_channel_count_from_in_mask(audio_channel_mask_t channel) {
    uint32_t bits = audio_channel_mask_get_bits(channel);
    switch (audio_channel_mask_get_representation(channel)) {
        case AUDIO_CHANNEL_REPRESENTATION_POSITION:
            bits &= AUDIO_CHANNEL_IN_ALL;
            /* fall through */
        case AUDIO_CHANNEL_REPRESENTATION_INDEX:
            return (uint32_t)__builtin_popcount(bits);
        default:
            return 0;
    }
}

/* The positional mask the platform uses for |channel_count| output
 * channels; AUDIO_CHANNEL_INVALID above eight. */
static inline audio_channel_mask_t audio_channel_out_mask_from_count(uint32_t channel_count) {
    uint32_t bits;
    switch (channel_count) {
        case 0: return AUDIO_CHANNEL_NONE;
        case 1: bits = AUDIO_CHANNEL_OUT_MONO; break;
        case 2: bits = AUDIO_CHANNEL_OUT_STEREO; break;
        case 3: bits = AUDIO_CHANNEL_OUT_STEREO | AUDIO_CHANNEL_OUT_FRONT_CENTER; break;
        case 4: bits = AUDIO_CHANNEL_OUT_QUAD; break;
        case 5: bits = AUDIO_CHANNEL_OUT_QUAD | AUDIO_CHANNEL_OUT_FRONT_CENTER; break;
        case 6: bits = AUDIO_CHANNEL_OUT_5POINT1; break;
        case 7: bits = AUDIO_CHANNEL_OUT_5POINT1 | AUDIO_CHANNEL_OUT_BACK_CENTER; break;
        case FCC_8: bits = AUDIO_CHANNEL_OUT_7POINT1; break;
        default: return AUDIO_CHANNEL_INVALID;
    }
    return audio_channel_mask_from_representation_and_bits(AUDIO_CHANNEL_REPRESENTATION_POSITION,
                                                           bits);
}

static inline audio_channel_mask_t audio_channel_in_mask_from_count(uint32_t channel_count) {
    switch (channel_count) {
        case 0: return AUDIO_CHANNEL_NONE;
        case 1: return AUDIO_CHANNEL_IN_MONO;
        case 2: return AUDIO_CHANNEL_IN_STEREO;
        default: return AUDIO_CHANNEL_INVALID;
    }
}

static inline audio_channel_mask_t audio_channel_mask_for_index_assignment_from_count(
        uint32_t channel_count) {
    if (channel_count == 0) return AUDIO_CHANNEL_NONE;
    if (channel_count > AUDIO_CHANNEL_COUNT_MAX) return AUDIO_CHANNEL_INVALID;
    return audio_channel_mask_from_representation_and_bits(
            AUDIO_CHANNEL_REPRESENTATION_INDEX, (1u << channel_count) - 1);
}

static inline bool audio_is_linear_pcm(audio_format_t format) {
    return (format & AUDIO_FORMAT_MAIN_MASK) == AUDIO_FORMAT_PCM;
}

static inline bool audio_is_valid_format(audio_format_t format) {
    switch (format & AUDIO_FORMAT_MAIN_MASK) {
        case AUDIO_FORMAT_PCM:
            switch (format) {
                case AUDIO_FORMAT_PCM_16_BIT:
                case AUDIO_FORMAT_PCM_8_BIT:
                case AUDIO_FORMAT_PCM_32_BIT:
                case AUDIO_FORMAT_PCM_8_24_BIT:
                case AUDIO_FORMAT_PCM_FLOAT:
                case AUDIO_FORMAT_PCM_24_BIT_PACKED:
                    return true;
                default:
                    return false;
            }
        case AUDIO_FORMAT_INVALID & AUDIO_FORMAT_MAIN_MASK:
            return false;
        default:
            return true;
    }
}

/* Bytes of one sample of a linear PCM format (IEC 61937 travels in 16-bit
 * words); 0 for anything else. */
static inline size_t audio_bytes_per_sample(audio_format_t format) {
    switch (format) {
        case AUDIO_FORMAT_PCM_32_BIT:
        case AUDIO_FORMAT_PCM_8_24_BIT:
        case AUDIO_FORMAT_PCM_FLOAT:
            return sizeof(int32_t);
        case AUDIO_FORMAT_PCM_24_BIT_PACKED:
            return 3;
        case AUDIO_FORMAT_PCM_16_BIT:
        case AUDIO_FORMAT_IEC61937:
            return sizeof(int16_t);
        case AUDIO_FORMAT_PCM_8_BIT:
            return sizeof(uint8_t);
        default:
            return 0;
    }
}

static inline size_t audio_bytes_per_frame(uint32_t channel_count, audio_format_t format) {
    return channel_count * audio_bytes_per_sample(format);
}

static inline bool audio_has_proportional_frames(audio_format_t format) {
    return audio_is_linear_pcm(format) || format == AUDIO_FORMAT_IEC61937;
}

#ifdef __cplusplus
}
#endif

#endif /* ANDROID_AUDIO_CORE_H */
