/*
 * Audio output track in callback (pull) mode, for a host process.
 *
 * The public surface mirrors the platform's android::AudioTrack of API 29 for
 * the parts a native player uses: the callback-mode constructor, the
 * transport calls, volume, playback rate, underrun frames and position.  The
 * track runs a thread of its own that asks the callback for one period of
 * audio at a time (EVENT_MORE_DATA) and hands what it gets to a sink: an
 * audio device through SDL2, a null sink paced by the monotonic clock, or a
 * WAV file.  The sink is chosen by the system property "host.audio.sink"
 * (see host/audio/README.md); tools and tests reach the host-only controls
 * through media/HostAudioSink.h.
 *
 * Host differences: only the callback transfer mode exists (no write(), no
 * shared buffer, no offload); a track without a callback fails initCheck().
 */

#ifndef ANDROID_AUDIOTRACK_H
#define ANDROID_AUDIOTRACK_H

#include <memory>
#include <stdint.h>
#include <sys/types.h>

#include <media/AudioResamplerPublic.h>
#include <system/audio.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

class HostAudioTrack;
struct HostAudioTrackAccess;

class AudioTrack : public virtual RefBase {
public:
    /* Events delivered to the callback. */
    enum event_type {
        EVENT_MORE_DATA = 0,        // info is a Buffer*: fill it and set its size to the bytes written
        EVENT_UNDERRUN = 1,         // the track starved
        EVENT_LOOP_END = 2,
        EVENT_MARKER = 3,
        EVENT_NEW_POS = 4,
        EVENT_BUFFER_END = 5,
        EVENT_NEW_IAUDIOTRACK = 6,
        EVENT_STREAM_END = 7,
        EVENT_CAN_WRITE_MORE_DATA = 9,
    };

    /* The buffer handed with EVENT_MORE_DATA. */
    class Buffer {
    public:
        size_t frameCount;  // frames wanted
        size_t size;        // in: bytes wanted; out: bytes the callback wrote
        union {
            void* raw;
            int16_t* i16;
            int8_t* i8;
        };
    };

    typedef void (*callback_t)(int event, void* user, void* info);

    enum transfer_type {
        TRANSFER_DEFAULT,   // callback when cbf is set, else write()
        TRANSFER_CALLBACK,  // the callback pulls data
        TRANSFER_OBTAIN,
        TRANSFER_SYNC,
        TRANSFER_SHARED,
        TRANSFER_SYNC_NOTIF_CALLBACK,
    };

    /* Smallest frame count a streaming track of this rate may ask for. */
    static status_t getMinFrameCount(size_t* frameCount, audio_stream_type_t streamType,
                                     uint32_t sampleRate);

    AudioTrack(audio_stream_type_t streamType,
               uint32_t sampleRate,
               audio_format_t format,
               audio_channel_mask_t channelMask,
               size_t frameCount = 0,
               audio_output_flags_t flags = AUDIO_OUTPUT_FLAG_NONE,
               callback_t cbf = NULL,
               void* user = NULL,
               int32_t notificationFrames = 0,
               audio_session_t sessionId = AUDIO_SESSION_ALLOCATE,
               transfer_type transferType = TRANSFER_DEFAULT,
               const audio_offload_info_t* offloadInfo = NULL,
               uid_t uid = AUDIO_UID_INVALID,
               pid_t pid = -1,
               const audio_attributes_t* pAttributes = NULL,
               bool doNotReconnect = false,
               float maxRequiredSpeed = 1.0f,
               audio_port_handle_t selectedDeviceId = AUDIO_PORT_HANDLE_NONE);

    /* OK, or NO_INIT / BAD_VALUE when the track cannot play. */
    status_t initCheck() const;

    /* Output latency in milliseconds: the track's buffer plus the sink's. */
    uint32_t latency();

    audio_stream_type_t streamType() const;
    audio_format_t format() const;
    size_t frameCount() const;
    uint32_t channelCount() const;
    size_t frameSize() const;
    audio_output_flags_t getFlags() const;
    audio_session_t getSessionId() const;

    /* Starts or resumes the callback.  After stop() or flush() the position
     * restarts from 0. */
    status_t start();
    /* Stops the callback.  Returns at once: a callback in progress finishes
     * on the track's thread, and none follows it. */
    void stop();
    bool stopped() const;
    /* Drops buffered audio of a stopped or paused track. */
    void flush();
    /* Pauses the callback; like stop(), never waits for a callback in
     * progress. */
    void pause();
    bool isPlaying() const;

    status_t setVolume(float left, float right);
    status_t setVolume(float volume);

    status_t setSampleRate(uint32_t sampleRate);
    uint32_t getSampleRate() const;
    uint32_t getOriginalSampleRate() const;

    /* Speed changes are played as a rate change (speed equal to pitch); a
     * fast track, or a pitch differing from the speed, is refused. */
    status_t setPlaybackRate(const AudioPlaybackRate& playbackRate);
    const AudioPlaybackRate& getPlaybackRate() const;

    /* Frames the sink had to play as silence since construction. */
    uint32_t getUnderrunFrames() const;

    /* Frames played since the last start after a stop or flush. */
    status_t getPosition(uint32_t* position);

protected:
    /* Stops the track and joins its thread. */
    virtual ~AudioTrack();

private:
    AudioTrack(const AudioTrack&) = delete;
    AudioTrack& operator=(const AudioTrack&) = delete;

    friend struct HostAudioTrackAccess;
    // Shared with the track's thread, so that the last reference may be
    // dropped from inside the callback without pulling state from under it.
    std::shared_ptr<HostAudioTrack> mHost;
};

}  // namespace android

#endif  // ANDROID_AUDIOTRACK_H
