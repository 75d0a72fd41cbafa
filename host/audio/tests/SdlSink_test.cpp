// The device sink through SDL2: falling back when no device opens, and a
// track converted for a device that runs at another rate (SDL's "disk"
// driver stands in for the device and records what it was given).

#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include <android/log.h>
#include <gtest/gtest.h>

#include <media/AudioTrack.h>
#include <media/HostAudioSink.h>

#include "LogCapture.h"
#include "TestSupport.h"

namespace android {
namespace {

using testing::Gate;
using testing::LogCapture;
using testing::RampSource;
using testing::makeTrack;

TEST(SdlSink, FallsBackToTheNullSinkWhenNoDeviceOpens) {
    setenv("SDL_AUDIODRIVER", "no-such-driver", 1);
    for (const char* name : {"sdl", "auto"}) {
        SCOPED_TRACE(name);
        HostAudioOptions options;
        options.sink = name;
        Gate flowing;
        options.periodHook = [&](const HostAudioPeriod& p) {
            if (p.deliveredFrames >= 3 * 240) flowing.open();
        };
        HostAudioOptionsScope scope(options);
        LogCapture log;
        RampSource source(AUDIO_FORMAT_PCM_16_BIT, 2);
        sp<AudioTrack> track = makeTrack(&source, 44100, AUDIO_FORMAT_PCM_16_BIT,
                                         AUDIO_CHANNEL_OUT_STEREO, AUDIO_OUTPUT_FLAG_FAST);
        ASSERT_EQ(OK, track->initCheck());
        EXPECT_TRUE(log.contains("HostAudioSink", "no SDL audio device", ANDROID_LOG_WARN));
        EXPECT_TRUE(log.contains("AudioTrack",
                                 std::string("host.audio.sink=") + name +
                                         ": no audio device could be opened; using the null sink"));
        EXPECT_EQ("null", hostAudioGetStats(track).sink);
        ASSERT_EQ(OK, track->start());
        EXPECT_TRUE(flowing.wait());
        track->stop();
    }
    unsetenv("SDL_AUDIODRIVER");
}

// 1 kHz at 22050 Hz for half a second into a 48000 Hz device.
TEST(SdlSink, ConvertsATrackForADeviceAtAnotherRate) {
    const std::string rawPath = testing::tempPath("sdl-disk.raw");
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", rawPath.c_str(), 1);
    const uint32_t kTrackRate = 22050, kDeviceRate = 48000;
    const double kToneHz = 1000.0, kAmplitude = 12000.0;

    struct Tone {
        int64_t next = 0;
        const int64_t frames = 22050 / 2;
        static void callback(int event, void* user, void* info) {
            if (event != AudioTrack::EVENT_MORE_DATA) return;
            Tone* tone = static_cast<Tone*>(user);
            auto* buffer = static_cast<AudioTrack::Buffer*>(info);
            size_t n = std::min<int64_t>(buffer->size / 2, tone->frames - tone->next);
            for (size_t i = 0; i < n; ++i, ++tone->next) {
                buffer->i16[i] = (short)lrint(12000.0 * sin(2 * M_PI * 1000.0 * tone->next / 22050.0));
            }
            buffer->size = n * 2;
        }
    } tone;

    HostAudioOptions options;
    options.sink = "sdl";
    options.deviceSampleRate = kDeviceRate;
    Gate played;
    int64_t drainPeriods = -1;  // track thread only
    options.periodHook = [&](const HostAudioPeriod& p) {
        if (p.deliveredFrames < tone.frames) return;
        // Keep going until the FIFO and the device buffer have played out.
        if (drainPeriods < 0) drainPeriods = 40;
        if (--drainPeriods == 0) played.open();
    };
    sp<AudioTrack> track;
    {
        HostAudioOptionsScope scope(options);
        track = new AudioTrack(AUDIO_STREAM_MUSIC, kTrackRate, AUDIO_FORMAT_PCM_16_BIT,
                               AUDIO_CHANNEL_OUT_MONO, 0, AUDIO_OUTPUT_FLAG_FAST, &Tone::callback,
                               &tone);
    }
    ASSERT_EQ(OK, track->initCheck());
    HostAudioStats stats = hostAudioGetStats(track);
    if (stats.sink != "sdl") {
        unsetenv("SDL_AUDIODRIVER");
        GTEST_SKIP() << "SDL has no disk driver here";
    }
    EXPECT_EQ(kDeviceRate, stats.outputSampleRate);
    ASSERT_EQ(OK, track->start());
    ASSERT_TRUE(played.wait());
    track->stop();
    track.clear();  // closes the device, which closes its file
    unsetenv("SDL_AUDIODRIVER");
    unsetenv("SDL_DISKAUDIOFILE");

    std::ifstream file(rawPath, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<int16_t> out(bytes.size() / 2);
    memcpy(out.data(), bytes.data(), out.size() * 2);
    unlink(rawPath.c_str());
    ASSERT_GT(out.size(), (size_t)kDeviceRate / 2);

    // Length: 1 ms windows (48 device frames, one period of the tone) that
    // carry the tone at full level.  Counting windows rather than measuring
    // from first to last keeps a scheduling gap from passing for length.
    const size_t kWindow = kDeviceRate / 1000;
    std::vector<bool> inTone(out.size(), false);
    int toneWindows = 0, peak = 0;
    for (size_t w = 0; w + kWindow <= out.size(); w += kWindow) {
        int maxAbs = 0;
        for (size_t i = w; i < w + kWindow; ++i) maxAbs = std::max(maxAbs, abs((int)out[i]));
        peak = std::max(peak, maxAbs);
        toneWindows += maxAbs > kAmplitude / 2;
        std::fill(inTone.begin() + w, inTone.begin() + w + kWindow, maxAbs > kAmplitude / 2);
    }
    EXPECT_NEAR(500, toneWindows, 3) << "half a second of tone";
    EXPECT_NEAR(kAmplitude, peak, kAmplitude * 0.03);

    // Frequency: the mean distance between interpolated rising zero
    // crossings of the tone at full level (the filter's ringing after the
    // tone crosses zero too, but gently), skipping any gap.
    const double expectedPeriod = kDeviceRate / kToneHz;
    const double fullSlope = kAmplitude * sin(2 * M_PI / expectedPeriod);
    double lastCrossing = -1, sum = 0;
    int crossings = 0;
    for (size_t i = 1; i < out.size(); ++i) {
        if (!(inTone[i] && inTone[i - 1] && out[i - 1] < 0 && out[i] >= 0)) continue;
        if (out[i] - out[i - 1] < fullSlope / 2) continue;
        double at = i - 1 + (double)-out[i - 1] / (out[i] - out[i - 1]);
        if (lastCrossing >= 0 && at - lastCrossing < 1.5 * expectedPeriod) {
            sum += at - lastCrossing;
            ++crossings;
        }
        lastCrossing = at;
    }
    ASSERT_GT(crossings, 400);
    EXPECT_NEAR(kToneHz, kDeviceRate / (sum / crossings), kToneHz * 0.002);
}

}  // namespace
}  // namespace android
