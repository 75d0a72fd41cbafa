/*
 * Message and error codes of the platform's media players (the part of the
 * platform header of this path that MediaPlayerInterface.h needs).
 */

#ifndef ANDROID_MEDIAPLAYER_H
#define ANDROID_MEDIAPLAYER_H

namespace android {

enum media_event_type {
    MEDIA_NOP = 0,
    MEDIA_PREPARED = 1,
    MEDIA_PLAYBACK_COMPLETE = 2,
    MEDIA_BUFFERING_UPDATE = 3,
    MEDIA_SEEK_COMPLETE = 4,
    MEDIA_SET_VIDEO_SIZE = 5,
    MEDIA_STARTED = 6,
    MEDIA_PAUSED = 7,
    MEDIA_STOPPED = 8,
    MEDIA_SKIPPED = 9,
    MEDIA_NOTIFY_TIME = 98,
    MEDIA_TIMED_TEXT = 99,
    MEDIA_ERROR = 100,
    MEDIA_INFO = 200,
    MEDIA_SUBTITLE_DATA = 201,
    MEDIA_META_DATA = 202,
    MEDIA_DRM_INFO = 210,
    MEDIA_TIME_DISCONTINUITY = 211,
    MEDIA_AUDIO_ROUTING_CHANGED = 10000,
};

enum media_error_type {
    MEDIA_ERROR_UNKNOWN = 1,
    MEDIA_ERROR_SERVER_DIED = 100,
    MEDIA_ERROR_NOT_VALID_FOR_PROGRESSIVE_PLAYBACK = 200,
};

}  // namespace android

#endif  // ANDROID_MEDIAPLAYER_H
