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

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ */
/* Handles and ids */

typedef int audio_io_handle_t;
#define AUDIO_IO_HANDLE_NONE 0

typedef int audio_module_handle_t;
#define AUDIO_MODULE_HANDLE_NONE 0

typedef int audio_port_handle_t;
#define AUDIO_PORT_HANDLE_NONE 0

typedef int audio_patch_handle_t;
#define AUDIO_PATCH_HANDLE_NONE 0

typedef int audio_unique_id_t;
#define AUDIO_UNIQUE_ID_ALLOCATE 0

#define AUDIO_UID_INVALID ((uid_t)-1)

typedef enum {
    AUDIO_SESSION_OUTPUT_STAGE = -1,
    AUDIO_SESSION_OUTPUT_MIX = 0,
    AUDIO_SESSION_ALLOCATE = 0,
    AUDIO_SESSION_NONE = 0,
} audio_session_t;

/* ------------------------------------------------------------------ */
/* Streams */

typedef enum {
    AUDIO_STREAM_DEFAULT = -1,
    AUDIO_STREAM_MIN = 0,
    AUDIO_STREAM_VOICE_CALL = 0,
    AUDIO_STREAM_SYSTEM = 1,
    AUDIO_STREAM_RING = 2,
    AUDIO_STREAM_MUSIC = 3,
    AUDIO_STREAM_ALARM = 4,
    AUDIO_STREAM_NOTIFICATION = 5,
    AUDIO_STREAM_BLUETOOTH_SCO = 6,
    AUDIO_STREAM_ENFORCED_AUDIBLE = 7,
    AUDIO_STREAM_DTMF = 8,
    AUDIO_STREAM_TTS = 9,
    AUDIO_STREAM_ACCESSIBILITY = 10,
    AUDIO_STREAM_REROUTING = 11,
    AUDIO_STREAM_PATCH = 12,
    AUDIO_STREAM_PUBLIC_CNT = 11,
    AUDIO_STREAM_FOR_POLICY_CNT = 12,
    AUDIO_STREAM_CNT = 13,
} audio_stream_type_t;

typedef enum {
    AUDIO_SOURCE_DEFAULT = 0,
    AUDIO_SOURCE_MIC = 1,
    AUDIO_SOURCE_VOICE_UPLINK = 2,
    AUDIO_SOURCE_VOICE_DOWNLINK = 3,
    AUDIO_SOURCE_VOICE_CALL = 4,
    AUDIO_SOURCE_CAMCORDER = 5,
    AUDIO_SOURCE_VOICE_RECOGNITION = 6,
    AUDIO_SOURCE_VOICE_COMMUNICATION = 7,
    AUDIO_SOURCE_REMOTE_SUBMIX = 8,
    AUDIO_SOURCE_UNPROCESSED = 9,
    AUDIO_SOURCE_VOICE_PERFORMANCE = 10,
    AUDIO_SOURCE_ECHO_REFERENCE = 1997,
    AUDIO_SOURCE_FM_TUNER = 1998,
    AUDIO_SOURCE_HOTWORD = 1999,
    AUDIO_SOURCE_INVALID = -1,
} audio_source_t;

typedef enum {
    AUDIO_CONTENT_TYPE_UNKNOWN = 0,
    AUDIO_CONTENT_TYPE_SPEECH = 1,
    AUDIO_CONTENT_TYPE_MUSIC = 2,
    AUDIO_CONTENT_TYPE_MOVIE = 3,
    AUDIO_CONTENT_TYPE_SONIFICATION = 4,
} audio_content_type_t;

typedef enum {
    AUDIO_USAGE_UNKNOWN = 0,
    AUDIO_USAGE_MEDIA = 1,
    AUDIO_USAGE_VOICE_COMMUNICATION = 2,
    AUDIO_USAGE_VOICE_COMMUNICATION_SIGNALLING = 3,
    AUDIO_USAGE_ALARM = 4,
    AUDIO_USAGE_NOTIFICATION = 5,
    AUDIO_USAGE_NOTIFICATION_TELEPHONY_RINGTONE = 6,
    AUDIO_USAGE_NOTIFICATION_COMMUNICATION_REQUEST = 7,
    AUDIO_USAGE_NOTIFICATION_COMMUNICATION_INSTANT = 8,
    AUDIO_USAGE_NOTIFICATION_COMMUNICATION_DELAYED = 9,
    AUDIO_USAGE_NOTIFICATION_EVENT = 10,
    AUDIO_USAGE_ASSISTANCE_ACCESSIBILITY = 11,
    AUDIO_USAGE_ASSISTANCE_NAVIGATION_GUIDANCE = 12,
    AUDIO_USAGE_ASSISTANCE_SONIFICATION = 13,
    AUDIO_USAGE_GAME = 14,
    AUDIO_USAGE_VIRTUAL_SOURCE = 15,
    AUDIO_USAGE_ASSISTANT = 16,
} audio_usage_t;

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

typedef enum {
    AUDIO_FORMAT_INVALID = 0xFFFFFFFFu,
    AUDIO_FORMAT_DEFAULT = 0,
    AUDIO_FORMAT_PCM = 0x00000000u,
    AUDIO_FORMAT_MP3 = 0x01000000u,
    AUDIO_FORMAT_AMR_NB = 0x02000000u,
    AUDIO_FORMAT_AMR_WB = 0x03000000u,
    AUDIO_FORMAT_AAC = 0x04000000u,
    AUDIO_FORMAT_HE_AAC_V1 = 0x05000000u,
    AUDIO_FORMAT_HE_AAC_V2 = 0x06000000u,
    AUDIO_FORMAT_VORBIS = 0x07000000u,
    AUDIO_FORMAT_OPUS = 0x08000000u,
    AUDIO_FORMAT_AC3 = 0x09000000u,
    AUDIO_FORMAT_E_AC3 = 0x0A000000u,
    AUDIO_FORMAT_DTS = 0x0B000000u,
    AUDIO_FORMAT_DTS_HD = 0x0C000000u,
    AUDIO_FORMAT_IEC61937 = 0x0D000000u,
    AUDIO_FORMAT_DOLBY_TRUEHD = 0x0E000000u,
    AUDIO_FORMAT_EVRC = 0x10000000u,
    AUDIO_FORMAT_EVRCB = 0x11000000u,
    AUDIO_FORMAT_EVRCWB = 0x12000000u,
    AUDIO_FORMAT_EVRCNW = 0x13000000u,
    AUDIO_FORMAT_AAC_ADIF = 0x14000000u,
    AUDIO_FORMAT_WMA = 0x15000000u,
    AUDIO_FORMAT_WMA_PRO = 0x16000000u,
    AUDIO_FORMAT_AMR_WB_PLUS = 0x17000000u,
    AUDIO_FORMAT_MP2 = 0x18000000u,
    AUDIO_FORMAT_QCELP = 0x19000000u,
    AUDIO_FORMAT_DSD = 0x1A000000u,
    AUDIO_FORMAT_FLAC = 0x1B000000u,
    AUDIO_FORMAT_ALAC = 0x1C000000u,
    AUDIO_FORMAT_APE = 0x1D000000u,
    AUDIO_FORMAT_AAC_ADTS = 0x1E000000u,
    AUDIO_FORMAT_SBC = 0x1F000000u,
    AUDIO_FORMAT_APTX = 0x20000000u,
    AUDIO_FORMAT_APTX_HD = 0x21000000u,
    AUDIO_FORMAT_AC4 = 0x22000000u,
    AUDIO_FORMAT_LDAC = 0x23000000u,
    AUDIO_FORMAT_MAT = 0x24000000u,
    AUDIO_FORMAT_AAC_LATM = 0x25000000u,
    AUDIO_FORMAT_CELT = 0x26000000u,
    AUDIO_FORMAT_APTX_ADAPTIVE = 0x27000000u,
    AUDIO_FORMAT_LHDC = 0x28000000u,
    AUDIO_FORMAT_LHDC_LL = 0x29000000u,
    AUDIO_FORMAT_APTX_TWSP = 0x2A000000u,
    AUDIO_FORMAT_MAIN_MASK = 0xFF000000u,
    AUDIO_FORMAT_SUB_MASK = 0x00FFFFFFu,

    /* PCM sub formats */
    AUDIO_FORMAT_PCM_SUB_16_BIT = 0x1u,
    AUDIO_FORMAT_PCM_SUB_8_BIT = 0x2u,
    AUDIO_FORMAT_PCM_SUB_32_BIT = 0x3u,
    AUDIO_FORMAT_PCM_SUB_8_24_BIT = 0x4u,
    AUDIO_FORMAT_PCM_SUB_FLOAT = 0x5u,
    AUDIO_FORMAT_PCM_SUB_24_BIT_PACKED = 0x6u,

    /* Aliases */
    AUDIO_FORMAT_PCM_16_BIT = 0x1u,        /* PCM | PCM_SUB_16_BIT */
    AUDIO_FORMAT_PCM_8_BIT = 0x2u,         /* unsigned, 128 is silence */
    AUDIO_FORMAT_PCM_32_BIT = 0x3u,
    AUDIO_FORMAT_PCM_8_24_BIT = 0x4u,      /* Q8.23 in 32 bits */
    AUDIO_FORMAT_PCM_FLOAT = 0x5u,         /* [-1.0, 1.0] */
    AUDIO_FORMAT_PCM_24_BIT_PACKED = 0x6u, /* 3 bytes, little endian */
    AUDIO_FORMAT_AAC_LC = 0x4000002u,
    AUDIO_FORMAT_AAC_HE_V1 = 0x4000010u,
    AUDIO_FORMAT_AAC_HE_V2 = 0x4000100u,
    AUDIO_FORMAT_AAC_ADTS_LC = 0x1E000002u,
    AUDIO_FORMAT_E_AC3_JOC = 0xA000001u,
} audio_format_t;

/* ------------------------------------------------------------------ */
/* Channel masks */

typedef uint32_t audio_channel_mask_t;

typedef enum {
    AUDIO_CHANNEL_REPRESENTATION_POSITION = 0x0u,
    AUDIO_CHANNEL_REPRESENTATION_INDEX = 0x2u,
} audio_channel_representation_t;

enum {
    AUDIO_CHANNEL_REPRESENTATION_LOG2 = 2,
    AUDIO_CHANNEL_COUNT_MAX = 30,
    FCC_2 = 2,
    FCC_8 = 8,
};

enum {
    AUDIO_CHANNEL_NONE = 0x0u,
    AUDIO_CHANNEL_INVALID = 0xC0000000u,

    AUDIO_CHANNEL_OUT_FRONT_LEFT = 0x1u,
    AUDIO_CHANNEL_OUT_FRONT_RIGHT = 0x2u,
    AUDIO_CHANNEL_OUT_FRONT_CENTER = 0x4u,
    AUDIO_CHANNEL_OUT_LOW_FREQUENCY = 0x8u,
    AUDIO_CHANNEL_OUT_BACK_LEFT = 0x10u,
    AUDIO_CHANNEL_OUT_BACK_RIGHT = 0x20u,
    AUDIO_CHANNEL_OUT_FRONT_LEFT_OF_CENTER = 0x40u,
    AUDIO_CHANNEL_OUT_FRONT_RIGHT_OF_CENTER = 0x80u,
    AUDIO_CHANNEL_OUT_BACK_CENTER = 0x100u,
    AUDIO_CHANNEL_OUT_SIDE_LEFT = 0x200u,
    AUDIO_CHANNEL_OUT_SIDE_RIGHT = 0x400u,
    AUDIO_CHANNEL_OUT_TOP_CENTER = 0x800u,
    AUDIO_CHANNEL_OUT_TOP_FRONT_LEFT = 0x1000u,
    AUDIO_CHANNEL_OUT_TOP_FRONT_CENTER = 0x2000u,
    AUDIO_CHANNEL_OUT_TOP_FRONT_RIGHT = 0x4000u,
    AUDIO_CHANNEL_OUT_TOP_BACK_LEFT = 0x8000u,
    AUDIO_CHANNEL_OUT_TOP_BACK_CENTER = 0x10000u,
    AUDIO_CHANNEL_OUT_TOP_BACK_RIGHT = 0x20000u,
    AUDIO_CHANNEL_OUT_HAPTIC_A = 0x20000000u,
    AUDIO_CHANNEL_OUT_HAPTIC_B = 0x10000000u,

    AUDIO_CHANNEL_OUT_MONO = 0x1u,     /* FRONT_LEFT */
    AUDIO_CHANNEL_OUT_STEREO = 0x3u,   /* FRONT_LEFT | FRONT_RIGHT */
    AUDIO_CHANNEL_OUT_2POINT1 = 0xBu,  /* + LOW_FREQUENCY */
    AUDIO_CHANNEL_OUT_QUAD = 0x33u,    /* + BACK_LEFT | BACK_RIGHT */
    AUDIO_CHANNEL_OUT_QUAD_BACK = 0x33u,
    AUDIO_CHANNEL_OUT_QUAD_SIDE = 0x603u,
    AUDIO_CHANNEL_OUT_SURROUND = 0x107u,
    AUDIO_CHANNEL_OUT_PENTA = 0x37u,   /* QUAD | FRONT_CENTER */
    AUDIO_CHANNEL_OUT_5POINT1 = 0x3Fu,
    AUDIO_CHANNEL_OUT_5POINT1_BACK = 0x3Fu,
    AUDIO_CHANNEL_OUT_5POINT1_SIDE = 0x60Fu,
    AUDIO_CHANNEL_OUT_6POINT1 = 0x13Fu,
    AUDIO_CHANNEL_OUT_7POINT1 = 0x63Fu,
    AUDIO_CHANNEL_OUT_ALL = 0x3FFFFu,

    AUDIO_CHANNEL_IN_LEFT = 0x4u,
    AUDIO_CHANNEL_IN_RIGHT = 0x8u,
    AUDIO_CHANNEL_IN_FRONT = 0x10u,
    AUDIO_CHANNEL_IN_BACK = 0x20u,
    AUDIO_CHANNEL_IN_MONO = 0x10u,
    AUDIO_CHANNEL_IN_STEREO = 0xCu,
    AUDIO_CHANNEL_IN_ALL = 0x3FFFFCu,

    AUDIO_CHANNEL_INDEX_HDR = 0x80000000u,
    AUDIO_CHANNEL_INDEX_MASK_1 = 0x80000001u,
    AUDIO_CHANNEL_INDEX_MASK_2 = 0x80000003u,
    AUDIO_CHANNEL_INDEX_MASK_3 = 0x80000007u,
    AUDIO_CHANNEL_INDEX_MASK_4 = 0x8000000Fu,
    AUDIO_CHANNEL_INDEX_MASK_5 = 0x8000001Fu,
    AUDIO_CHANNEL_INDEX_MASK_6 = 0x8000003Fu,
    AUDIO_CHANNEL_INDEX_MASK_7 = 0x8000007Fu,
    AUDIO_CHANNEL_INDEX_MASK_8 = 0x800000FFu,
};

/* ------------------------------------------------------------------ */
/* Output flags and devices */

typedef enum {
    AUDIO_OUTPUT_FLAG_NONE = 0x0,
    AUDIO_OUTPUT_FLAG_DIRECT = 0x1,
    AUDIO_OUTPUT_FLAG_PRIMARY = 0x2,
    AUDIO_OUTPUT_FLAG_FAST = 0x4,
    AUDIO_OUTPUT_FLAG_DEEP_BUFFER = 0x8,
    AUDIO_OUTPUT_FLAG_COMPRESS_OFFLOAD = 0x10,
    AUDIO_OUTPUT_FLAG_NON_BLOCKING = 0x20,
    AUDIO_OUTPUT_FLAG_HW_AV_SYNC = 0x40,
    AUDIO_OUTPUT_FLAG_TTS = 0x80,
    AUDIO_OUTPUT_FLAG_RAW = 0x100,
    AUDIO_OUTPUT_FLAG_SYNC = 0x200,
    AUDIO_OUTPUT_FLAG_IEC958_NONAUDIO = 0x400,
    AUDIO_OUTPUT_FLAG_DIRECT_PCM = 0x2000,
    AUDIO_OUTPUT_FLAG_MMAP_NOIRQ = 0x4000,
    AUDIO_OUTPUT_FLAG_VOIP_RX = 0x8000,
    AUDIO_OUTPUT_FLAG_INCALL_MUSIC = 0x10000,
} audio_output_flags_t;

typedef uint32_t audio_devices_t;
enum {
    AUDIO_DEVICE_NONE = 0x0u,
    AUDIO_DEVICE_BIT_IN = 0x80000000u,
    AUDIO_DEVICE_BIT_DEFAULT = 0x40000000u,
    AUDIO_DEVICE_OUT_EARPIECE = 0x1u,
    AUDIO_DEVICE_OUT_SPEAKER = 0x2u,
    AUDIO_DEVICE_OUT_WIRED_HEADSET = 0x4u,
    AUDIO_DEVICE_OUT_WIRED_HEADPHONE = 0x8u,
    AUDIO_DEVICE_OUT_BLUETOOTH_A2DP = 0x80u,
    AUDIO_DEVICE_OUT_AUX_DIGITAL = 0x400u,
    AUDIO_DEVICE_OUT_HDMI = 0x400u,
    AUDIO_DEVICE_OUT_USB_DEVICE = 0x4000u,
    AUDIO_DEVICE_OUT_REMOTE_SUBMIX = 0x8000u,
    AUDIO_DEVICE_OUT_DEFAULT = 0x40000000u,
};

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
