/*
 * Host stand-in for the platform's system/audio-base-utils.h (API 29).
 */

#ifndef ANDROID_AUDIO_BASE_UTILS_H
#define ANDROID_AUDIO_BASE_UTILS_H

#include "audio-base.h"

enum {
    AUDIO_STREAM_PUBLIC_CNT = 11,
    AUDIO_STREAM_FOR_POLICY_CNT = 12,
    AUDIO_STREAM_CNT = 13,
};

enum {
    AUDIO_CHANNEL_OUT_ALL = 0x3FFFFu,
    AUDIO_CHANNEL_IN_ALL = 0x3FFFFCu,
};

#endif  // ANDROID_AUDIO_BASE_UTILS_H
