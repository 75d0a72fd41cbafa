/*
 * Where a host AudioTrack's audio goes.  Internal to host_audio.
 *
 * The track's thread calls waitForRoom() before each callback and write()
 * after it; transport calls (start, pause, stop, flush, setRate) come from
 * any thread.  Every sink serialises itself with a lock of its own and
 * never holds it while the engine's callback runs.
 */

#ifndef HOST_AUDIO_HOST_SINK_H
#define HOST_AUDIO_HOST_SINK_H

#include <memory>
#include <stdint.h>
#include <string>

#include <media/HostAudioSink.h>
#include <system/audio.h>

namespace android {

struct HostSinkFormat {
    uint32_t sampleRate;
    uint32_t channelCount;
    audio_format_t format;  // linear PCM: 8, 16, 32 bit or float
    size_t frameSizeBytes;
    size_t periodFrames;    // frames asked of each callback
    size_t capacityFrames;  // frames the track may buffer ahead of the sink
};

class HostSink {
public:
    virtual ~HostSink() = default;

    virtual const char* name() const = 0;
    virtual uint32_t outputSampleRate() const = 0;
    virtual uint32_t latencyMs() const = 0;
    /* The track's buffer size in track frames (AudioTrack::frameCount()). */
    virtual size_t frameCount() const = 0;

    /* Blocks until |frames| more fit.  Returns false when woken by wake()
     * (or a transport call) first, so the caller re-checks its state. */
    virtual bool waitForRoom(size_t frames) = 0;
    virtual void wake() = 0;

    /* One period: |writtenFrames| of |requestedFrames| arrived in |data|.
     * Returns the frames played as silence because of this period (the
     * frames not delivered, plus the gap when the period came late). */
    virtual int64_t write(const void* data, size_t writtenFrames, size_t requestedFrames) = 0;

    /* Frames written but not yet played. */
    virtual int64_t bufferedFrames() = 0;

    virtual void start() = 0;
    virtual void pause() = 0;
    /* Stops playing and drops what is buffered. */
    virtual void stop() = 0;
    virtual void flush() = 0;
    /* Ends output for good (a WAV file gets its final header). */
    virtual void close() = 0;

    /* Playback speed as a rate change: the sink consumes speed * sampleRate
     * track frames per second. */
    virtual void setSpeed(float speed) = 0;
    virtual void setVolume(float left, float right) = 0;
};

struct HostSinkConfig {
    std::string sink;     // resolved: "auto", "sdl", "null" or "wav"
    std::string wavPath;
    bool wavFallback;  // a device that cannot be opened writes wavPath instead
    bool freewheel;
    uint32_t deviceSampleRate;  // 0: the track's
    std::shared_ptr<HostAudioClock> clock;
};

/* A sink paced by |clock|: discards audio (|wavPath| empty) or writes it to
 * a WAV file.  Null with a log line when the file cannot be created. */
std::unique_ptr<HostSink> createClockSink(const HostSinkFormat& format,
                                          std::shared_ptr<HostAudioClock> clock,
                                          const std::string& wavPath, bool freewheel);

/* An audio device through SDL2; null (with a log line) when none opens. */
std::unique_ptr<HostSink> createSdlSink(const HostSinkFormat& format, uint32_t deviceSampleRate);

}  // namespace android

#endif  // HOST_AUDIO_HOST_SINK_H
