/*
 * HOST ONLY.  Controls and observation of the host AudioTrack for tools and
 * tests; nothing on a device has these calls, and engine code must not use
 * them.
 *
 * Sinks ("host.audio.sink", or HostAudioOptions::sink):
 *   auto  an audio device through SDL2 when one opens, else null (default)
 *   sdl   an audio device; null, with a log line, when none opens
 *   null  discards audio, pulled at real-time pace
 *   wav   writes the delivered bytes to "host.audio.wav.path" (default
 *         "rotavox-out.wav"), in real time, or as fast as the callback
 *         delivers when "host.audio.wav.freewheel" is true
 */

#ifndef ANDROID_HOST_AUDIO_SINK_H
#define ANDROID_HOST_AUDIO_SINK_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdint.h>
#include <string>

#include <utils/HostMutex.h>
#include <utils/StrongPointer.h>

namespace android {

class AudioTrack;

/* Time base of the paced sinks (null, real-time wav). */
class HostAudioClock {
public:
    virtual ~HostAudioClock() = default;
    virtual int64_t nowNs() = 0;
    /* Called with |lock| held: returns once nowNs() >= deadlineNs, or earlier
     * when |cond| is notified (the caller re-checks both). */
    virtual void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& cond,
                           int64_t deadlineNs) = 0;
};

/* CLOCK_MONOTONIC; the default. */
std::shared_ptr<HostAudioClock> hostAudioMonotonicClock();

/* A clock that moves only when told to.  Waiting moves it to the deadline at
 * once, so a paced sink runs as fast as its callback returns while stream
 * timing stays exact; a callback "returns late" by calling advanceNs(). */
class HostManualClock : public HostAudioClock {
public:
    explicit HostManualClock(int64_t startNs = 0) : mNowNs(startNs) {}
    int64_t nowNs() override;
    void waitUntil(std::unique_lock<std::mutex>& lock, std::condition_variable& cond,
                   int64_t deadlineNs) override;
    void advanceNs(int64_t deltaNs);

private:
    HostMutex mLock;
    int64_t mNowNs GUARDED_BY(mLock);
};

/* What the period hook is told after each callback. */
struct HostAudioPeriod {
    int64_t streamFrames;     // stream time at the end of this period, in track
                              // frames: delivered frames plus underrun silence
    int64_t deliveredFrames;  // frames delivered by the callback so far
                              // (the length of the WAV file)
    size_t requestedFrames;   // asked of this callback
    size_t writtenFrames;     // delivered by this callback
    uint32_t sampleRate;      // the track's
    const void* data;         // the writtenFrames frames this callback
                              // delivered, valid during the hook only
};

/* Runs on the track's thread after each callback, without any track lock
 * held: it may block, and may call the track's (or the player's) transport
 * operations. */
using HostAudioPeriodHook = std::function<void(const HostAudioPeriod&)>;

struct HostAudioOptions {
    std::string sink;               // "auto", "sdl", "null", "wav"; empty: property
    std::string wavPath;            // empty: "host.audio.wav.path"
    int freewheel = -1;             // -1: "host.audio.wav.freewheel"; 0 or 1
    uint32_t deviceSampleRate = 0;  // sdl: rate asked of the device; 0:
                                    // "host.audio.device.rate", else the track's
    size_t periodFrames = 0;        // frames per callback; 0: 240
    std::shared_ptr<HostAudioClock> clock;  // null and wav sinks; null: monotonic
    HostAudioPeriodHook periodHook;
};

/* Options for every track constructed from now on, on any thread, in place
 * of the properties (fields left empty still come from the properties).  The
 * engine constructs its own track, so a tool sets these before it plays. */
void hostAudioSetOptions(const HostAudioOptions& options);
void hostAudioClearOptions();

/* Sets options for the scope's lifetime, then restores the previous ones. */
class HostAudioOptionsScope {
public:
    explicit HostAudioOptionsScope(const HostAudioOptions& options);
    ~HostAudioOptionsScope();
    HostAudioOptionsScope(const HostAudioOptionsScope&) = delete;
    HostAudioOptionsScope& operator=(const HostAudioOptionsScope&) = delete;

private:
    bool mHadPrevious;
    HostAudioOptions mPrevious;
};

struct HostAudioStats {
    int64_t deliveredFrames = 0;  // frames the callback wrote
    int64_t underrunFrames = 0;   // frames played as silence (short or late)
    int64_t callbacks = 0;        // EVENT_MORE_DATA callbacks made
    int64_t stalledCallbacks = 0;  // callbacks that took 50 ms or more: the
                                   // engine waited for data in them
    std::string sink;             // "sdl", "null" or "wav": the sink in use
    uint32_t outputSampleRate = 0;  // rate of the sink (device rate for sdl)
};

/* One track's figures. */
HostAudioStats hostAudioGetStats(const sp<AudioTrack>& track);
/* Sums over every track of the process, live and gone (sink and rate are
 * those of the last track constructed). */
HostAudioStats hostAudioGetTotals();
/* Replaces the period hook of one track (empty function: none). */
void hostAudioSetPeriodHook(const sp<AudioTrack>& track, HostAudioPeriodHook hook);

}  // namespace android

#endif  // ANDROID_HOST_AUDIO_SINK_H
