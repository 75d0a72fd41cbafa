/*
 * Playback rate parameters shared by AudioTrack and the audio framework.
 * Mirrors the platform header of the same path (API 29).
 */

#ifndef ANDROID_AUDIO_RESAMPLER_PUBLIC_H
#define ANDROID_AUDIO_RESAMPLER_PUBLIC_H

#include <math.h>
#include <stdint.h>

namespace android {

// The largest ratio between a source rate and the rate it is converted to.
#define AUDIO_RESAMPLER_DOWN_RATIO_MAX 256
#define AUDIO_RESAMPLER_UP_RATIO_MAX 65536

#define AUDIO_TIMESTRETCH_SPEED_MIN    0.01f
#define AUDIO_TIMESTRETCH_SPEED_MAX    20.0f
#define AUDIO_TIMESTRETCH_SPEED_NORMAL 1.0f
#define AUDIO_TIMESTRETCH_SPEED_MIN_DELTA 0.0001f

#define AUDIO_TIMESTRETCH_PITCH_MIN    0.25f
#define AUDIO_TIMESTRETCH_PITCH_MAX    4.0f
#define AUDIO_TIMESTRETCH_PITCH_NORMAL 1.0f
#define AUDIO_TIMESTRETCH_PITCH_MIN_DELTA 0.0001f

enum AudioTimestretchStretchMode : int32_t {
    AUDIO_TIMESTRETCH_STRETCH_DEFAULT = 0,
    AUDIO_TIMESTRETCH_STRETCH_SPEECH  = 1,
};

enum AudioTimestretchFallbackMode : int32_t {
    AUDIO_TIMESTRETCH_FALLBACK_CUT_REPEAT = -1,
    AUDIO_TIMESTRETCH_FALLBACK_DEFAULT    = 0,
    AUDIO_TIMESTRETCH_FALLBACK_MUTE       = 1,
    AUDIO_TIMESTRETCH_FALLBACK_FAIL       = 2,
};

struct AudioPlaybackRate {
    float mSpeed;
    float mPitch;
    enum AudioTimestretchStretchMode mStretchMode;
    enum AudioTimestretchFallbackMode mFallbackMode;
};

static const AudioPlaybackRate AUDIO_PLAYBACK_RATE_DEFAULT = {
    AUDIO_TIMESTRETCH_SPEED_NORMAL,
    AUDIO_TIMESTRETCH_PITCH_NORMAL,
    AUDIO_TIMESTRETCH_STRETCH_DEFAULT,
    AUDIO_TIMESTRETCH_FALLBACK_DEFAULT,
};

static inline bool isAudioPlaybackRateEqual(const AudioPlaybackRate& pr1,
                                            const AudioPlaybackRate& pr2) {
    return fabs(pr1.mSpeed - pr2.mSpeed) < AUDIO_TIMESTRETCH_SPEED_MIN_DELTA &&
           fabs(pr1.mPitch - pr2.mPitch) < AUDIO_TIMESTRETCH_PITCH_MIN_DELTA &&
           pr1.mStretchMode == pr2.mStretchMode &&
           pr1.mFallbackMode == pr2.mFallbackMode;
}

static inline bool isAudioPlaybackRateValid(const AudioPlaybackRate& playbackRate) {
    if (playbackRate.mFallbackMode == AUDIO_TIMESTRETCH_FALLBACK_FAIL &&
            (playbackRate.mStretchMode == AUDIO_TIMESTRETCH_STRETCH_SPEECH ||
             playbackRate.mStretchMode == AUDIO_TIMESTRETCH_STRETCH_DEFAULT)) {
        // A failing fallback is only meaningful to the framework's own stretcher.
        return false;
    }
    return playbackRate.mSpeed >= AUDIO_TIMESTRETCH_SPEED_MIN &&
           playbackRate.mSpeed <= AUDIO_TIMESTRETCH_SPEED_MAX &&
           playbackRate.mPitch >= AUDIO_TIMESTRETCH_PITCH_MIN &&
           playbackRate.mPitch <= AUDIO_TIMESTRETCH_PITCH_MAX;
}

}  // namespace android

#endif  // ANDROID_AUDIO_RESAMPLER_PUBLIC_H
