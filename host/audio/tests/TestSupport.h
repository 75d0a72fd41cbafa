#pragma once

// Helpers shared by the host audio tests: a gate threads can wait at, a
// callback that writes a self-describing ramp, and a temporary path.

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <vector>

#include <media/AudioTrack.h>
#include <media/HostAudioSink.h>
#include <system/audio.h>

#include "TestTime.h"

namespace android {
namespace testing {

// A one-shot event: waiters block until open() is called.
class Gate {
public:
    void open() {
        std::call_once(mOnce, [this] { mPromise.set_value(); });
    }
    bool isOpen() const { return wait(std::chrono::seconds(0)); }
    // Generous bound so a broken build fails instead of hanging.
    bool wait(std::chrono::seconds timeout = std::chrono::seconds(20)) const {
        return mOpened.wait_for(stretched(timeout)) == std::future_status::ready;
    }

private:
    std::once_flag mOnce;
    std::promise<void> mPromise;
    const std::shared_future<void> mOpened = mPromise.get_future().share();
};

// Sample |sampleIndex| of the expected stream: every sample tells its own
// position in the stream.  Integer formats take the low bytes of a number
// whose every byte moves from one sample to the next.
inline void rampSample(audio_format_t format, int64_t sampleIndex, uint8_t* out) {
    if (format == AUDIO_FORMAT_PCM_FLOAT) {
        const float v = (float)((sampleIndex % 2001) - 1000) / 1000.0f;
        memcpy(out, &v, 4);
    } else {
        const uint32_t v = (uint32_t)(sampleIndex * 65539);
        memcpy(out, &v, audio_bytes_per_sample(format));
    }
}

// Writes the ramp; |policy| says how many of the frames asked to write on
// each call, |onCall| runs before the callback returns (to block, or to move
// a manual clock).
class RampSource {
public:
    RampSource(audio_format_t format, uint32_t channels)
        : mFormat(format), mChannels(channels),
          mSampleBytes(audio_bytes_per_sample(format)) {}

    std::function<size_t(int call, size_t wanted)> policy;
    std::function<void(int call)> onCall;

    std::atomic<int> calls{0};
    std::atomic<int> underrunEvents{0};
    std::atomic<bool> inside{false};
    std::atomic<int64_t> framesWritten{0};
    std::atomic<int64_t> framesMissing{0};

    static void callback(int event, void* user, void* info) {
        static_cast<RampSource*>(user)->onEvent(event, info);
    }

    std::vector<uint8_t> expected(int64_t frames) const {
        std::vector<uint8_t> bytes(frames * mChannels * mSampleBytes);
        for (int64_t s = 0; s < frames * mChannels; ++s) {
            rampSample(mFormat, s, bytes.data() + s * mSampleBytes);
        }
        return bytes;
    }

private:
    void onEvent(int event, void* info) {
        if (event == AudioTrack::EVENT_UNDERRUN) {
            underrunEvents++;
            return;
        }
        if (event != AudioTrack::EVENT_MORE_DATA) return;
        inside = true;
        auto* buffer = static_cast<AudioTrack::Buffer*>(info);
        int call = calls.load();
        size_t frameBytes = mChannels * mSampleBytes;
        size_t wanted = buffer->size / frameBytes;
        size_t frames = policy ? policy(call, wanted) : wanted;
        int64_t first = framesWritten.load();
        uint8_t* out = static_cast<uint8_t*>(buffer->raw);
        for (size_t s = 0; s < frames * mChannels; ++s) {
            rampSample(mFormat, first * mChannels + (int64_t)s, out + s * mSampleBytes);
        }
        framesWritten += (int64_t)frames;
        framesMissing += (int64_t)(wanted - frames);
        buffer->size = frames * frameBytes;
        if (onCall) onCall(call);
        calls++;
        inside = false;
    }

    const audio_format_t mFormat;
    const uint32_t mChannels;
    const size_t mSampleBytes;
};

inline sp<AudioTrack> makeTrack(RampSource* source, uint32_t rate, audio_format_t format,
                                audio_channel_mask_t mask,
                                audio_output_flags_t flags = AUDIO_OUTPUT_FLAG_NONE) {
    return new AudioTrack(AUDIO_STREAM_MUSIC, rate, format, mask, 0, flags,
                          &RampSource::callback, source);
}

inline std::string tempPath(const std::string& name) {
    const char* dir = getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/rotavox-" + std::to_string(getpid()) +
           "-" + name;
}

}  // namespace testing
}  // namespace android
