#define LOG_TAG "AudioTrack"

#include <ctype.h>
#include <pthread.h>
#include <string.h>

#include <chrono>
#include <optional>

#include <cutils/properties.h>
#include <log/log.h>
#include <system/thread_defs.h>
#include <utils/AndroidThreads.h>

#include "HostAudioTrack.h"

namespace android {

namespace {

// The platform's primary output runs at 48 kHz; its fast mixer (5 ms
// periods) takes only tracks that ask for it at that rate, since it does not
// resample.  Every other track is served by the normal mixer, every 20 ms.
// The difference matters on a host too: a thread woken every 5 ms costs
// about 50 us of CPU per wake-up under a hypervisor, several times the
// engine's own work for the period.
constexpr uint32_t kPrimaryOutputRateHz = 48000;
constexpr size_t kFastPeriodFrames = 240;
constexpr uint32_t kNormalPeriodsPerSecond = 50;
// The highest rate the platform's mixer accepts for a track.
constexpr uint32_t kMaxSampleRateHz = 192000;
constexpr uint32_t kDefaultSampleRateHz = 48000;
constexpr uint32_t kMaxChannels = 8;

}  // namespace

size_t defaultPeriodFrames(audio_output_flags_t flags, uint32_t sampleRate) {
    if ((flags & AUDIO_OUTPUT_FLAG_FAST) && sampleRate == kPrimaryOutputRateHz) {
        return kFastPeriodFrames;
    }
    return std::max<size_t>(1, sampleRate / kNormalPeriodsPerSecond);
}

namespace {

constexpr std::chrono::milliseconds kStalledCallback(50);

HostMutex gOptionsLock;
std::optional<HostAudioOptions> gOptions GUARDED_BY(gOptionsLock);

HostMutex gTotalsLock;
HostAudioStats gTotals GUARDED_BY(gTotalsLock);

std::string lower(std::string s) {
    for (char& c : s) c = (char)tolower((unsigned char)c);
    return s;
}

HostAudioOptions currentOptions() {
    HostLock lock(gOptionsLock);
    return gOptions ? *gOptions : HostAudioOptions();
}

HostSinkConfig resolveConfig(const HostAudioOptions& options) {
    HostSinkConfig config;
    char value[PROPERTY_VALUE_MAX];
    if (!options.sink.empty()) {
        config.sink = lower(options.sink);
    } else {
        property_get("host.audio.sink", value, "auto");
        config.sink = lower(value);
    }
    if (config.sink != "auto" && config.sink != "sdl" && config.sink != "null" &&
            config.sink != "wav") {
        ALOGW("unknown audio sink '%s' (host.audio.sink takes auto, sdl, null or wav); "
              "using auto", config.sink.c_str());
        config.sink = "auto";
    }
    if (!options.wavPath.empty()) {
        config.wavPath = options.wavPath;
    } else {
        property_get("host.audio.wav.path", value, "rotavox-out.wav");
        config.wavPath = value;
    }
    property_get("host.audio.fallback", value, "null");
    config.wavFallback = lower(value) == "wav";
    config.freewheel = options.freewheel >= 0 ? options.freewheel != 0
                                              : property_get_bool("host.audio.wav.freewheel", false);
    if (options.deviceSampleRate != 0) {
        config.deviceSampleRate = options.deviceSampleRate;
    } else {
        int64_t rate = property_get_int64("host.audio.device.rate", 0);
        if (rate < 0 || rate > kMaxSampleRateHz) {
            ALOGW("ignoring host.audio.device.rate=%lld: not a rate between 1 and %u Hz",
                  (long long)rate, kMaxSampleRateHz);
            rate = 0;
        }
        config.deviceSampleRate = (uint32_t)rate;
    }
    config.clock = options.clock;
    return config;
}

bool channelMaskValid(audio_channel_mask_t mask, uint32_t* count) {
    uint32_t bits = audio_channel_mask_get_bits(mask);
    switch (audio_channel_mask_get_representation(mask)) {
        case AUDIO_CHANNEL_REPRESENTATION_POSITION:
            if (bits == 0 || (bits & ~(uint32_t)AUDIO_CHANNEL_OUT_ALL) != 0) return false;
            break;
        case AUDIO_CHANNEL_REPRESENTATION_INDEX:
            if (bits == 0) return false;
            break;
        default:
            return false;
    }
    *count = audio_channel_count_from_out_mask(mask);
    return *count >= 1 && *count <= kMaxChannels;
}

}  // namespace

HostAudioTrack::HostAudioTrack(const Params& params) : mParams(params) {}

HostAudioTrack::~HostAudioTrack() {
    if (mThread.joinable()) mThread.detach();  // only when shut down from the thread itself
    if (mSink) mSink->close();
}

status_t HostAudioTrack::validate_l() {
    const Params& p = mParams;
    if (p.transferType > AudioTrack::TRANSFER_SYNC_NOTIF_CALLBACK) {
        ALOGE("Invalid transfer type %d", p.transferType);
        return BAD_VALUE;
    }
    if (p.transferType == AudioTrack::TRANSFER_CALLBACK && p.cbf == nullptr) {
        ALOGE("Transfer type TRANSFER_CALLBACK but cbf == NULL");
        return BAD_VALUE;
    }
    if ((p.transferType != AudioTrack::TRANSFER_DEFAULT &&
         p.transferType != AudioTrack::TRANSFER_CALLBACK) || p.cbf == nullptr) {
        ALOGE("the host AudioTrack plays in callback mode only (transfer type %d, cbf %p)",
              p.transferType, p.cbf);
        return NO_INIT;
    }
    if (!audio_is_valid_format(p.format)) {
        ALOGE("Invalid format %#x", p.format);
        return BAD_VALUE;
    }
    switch (p.format) {
        case AUDIO_FORMAT_PCM_16_BIT:
        case AUDIO_FORMAT_PCM_8_BIT:
        case AUDIO_FORMAT_PCM_32_BIT:
        case AUDIO_FORMAT_PCM_FLOAT:
            break;
        default:
            ALOGE("the host cannot play format %#x (it plays 8, 16, 32-bit and float PCM)",
                  p.format);
            return NO_INIT;
    }
    if (!channelMaskValid(p.channelMask, &mChannelCount)) {
        ALOGE("Invalid channel mask %#x", p.channelMask);
        return BAD_VALUE;
    }
    if (p.sampleRate > kMaxSampleRateHz) {
        ALOGE("Invalid sample rate %u Hz (at most %u)", p.sampleRate, kMaxSampleRateHz);
        return BAD_VALUE;
    }
    if (p.hasOffloadInfo || (p.flags & (AUDIO_OUTPUT_FLAG_COMPRESS_OFFLOAD |
                                        AUDIO_OUTPUT_FLAG_DIRECT))) {
        ALOGW("output flags %#x: the host has no offloaded or direct output; mixing instead",
              p.flags);
    }
    return OK;
}

status_t HostAudioTrack::init() {
    HostLock lock(mLock);
    mStatus = validate_l();
    if (mStatus != OK) return mStatus;
    mSampleRate = mParams.sampleRate != 0 ? mParams.sampleRate : kDefaultSampleRateHz;
    mFrameSizeBytes = mChannelCount * audio_bytes_per_sample(mParams.format);

    HostAudioOptions options = currentOptions();
    HostSinkConfig config = resolveConfig(options);
    mPeriodFrames = options.periodFrames != 0 ? options.periodFrames
                    : mParams.notificationFrames > 0 ? (size_t)mParams.notificationFrames
                                                     : defaultPeriodFrames(mParams.flags, mSampleRate);
    HostSinkFormat format;
    format.sampleRate = mSampleRate;
    format.channelCount = mChannelCount;
    format.format = mParams.format;
    format.frameSizeBytes = mFrameSizeBytes;
    format.periodFrames = mPeriodFrames;
    format.capacityFrames = std::max(mParams.frameCount, 2 * mPeriodFrames);

    if (config.sink == "auto" || config.sink == "sdl") {
        mSink = createSdlSink(format, config.deviceSampleRate);
        if (!mSink && config.wavFallback) {
            // Asked for by callers that must not go silent (the demo): the
            // sound is kept in the WAV file instead.
            mSink = createClockSink(format, config.clock, config.wavPath, false);
            if (mSink) {
                ALOGW("host.audio.sink=%s: no audio device could be opened; writing '%s' "
                      "in real time", config.sink.c_str(), config.wavPath.c_str());
            }
        }
        if (!mSink) {
            ALOGW("host.audio.sink=%s: no audio device could be opened; using the null sink",
                  config.sink.c_str());
        }
    } else if (config.sink == "wav") {
        mSink = createClockSink(format, config.clock, config.wavPath, config.freewheel);
        if (!mSink) {
            ALOGE("host.audio.sink=wav: cannot write '%s'; the track has no output",
                  config.wavPath.c_str());
            mStatus = NO_INIT;
            return mStatus;
        }
    }
    if (!mSink) mSink = createClockSink(format, config.clock, std::string(), false);
    mSinkName = mSink->name();
    ALOGI("track %u Hz, %u channels, format %#x, %zu-frame periods: %s sink%s%s",
          mSampleRate, mChannelCount, mParams.format, mPeriodFrames, mSinkName.c_str(),
          mSinkName == "wav" ? (config.freewheel ? " (freewheel) " : " (real time) ") : "",
          mSinkName == "wav" ? config.wavPath.c_str() : "");
    if (options.periodHook) mHook = std::make_shared<const HostAudioPeriodHook>(options.periodHook);
    mBuffer.assign(mPeriodFrames * mFrameSizeBytes, 0);
    {
        HostLock totals(gTotalsLock);
        gTotals.sink = mSinkName;
        gTotals.outputSampleRate = mSink->outputSampleRate();
    }

    std::shared_ptr<HostAudioTrack> self = shared_from_this();
    mThread = std::thread([self] {
        self->threadLoop();
        ALOGD("callback thread done");
    });
    return OK;
}

void HostAudioTrack::shutdown() {
    {
        HostLock lock(mLock);
        mExitPending = true;
        mState = kStopped;
        mCond.notify_all();
    }
    if (mSink) mSink->wake();
    if (!mThread.joinable()) return;
    if (mThread.get_id() == std::this_thread::get_id()) {
        // Released from inside its own callback or hook: the thread holds
        // its own reference and leaves the loop when that returns.
        ALOGW("AudioTrack released on its own callback thread");
        mThread.detach();
        return;
    }
    mThread.join();
    mSink->close();
}

void HostAudioTrack::threadLoop() {
    pthread_setname_np(pthread_self(), "AudioTrack");
    androidSetThreadPriority(0, ANDROID_PRIORITY_AUDIO);
    bool inUnderrun = false;
    bool oversizeLogged = false;
    const size_t requestedBytes = mPeriodFrames * mFrameSizeBytes;
    for (;;) {
        {
            HostLock lock(mLock);
            mCond.wait(lock.waitable(),
                       [this]() REQUIRES(mLock) { return mExitPending || mState == kActive; });
            if (mExitPending) return;
        }
        if (!mSink->waitForRoom(mPeriodFrames)) continue;
        std::shared_ptr<const HostAudioPeriodHook> hook;
        uint32_t sampleRate;
        {
            HostLock lock(mLock);
            if (mExitPending) return;
            // No callback starts once pause() or stop() has returned.
            if (mState != kActive) continue;
            hook = mHook;
            // setSampleRate() may change it while this period runs.
            sampleRate = mSampleRate;
        }

        AudioTrack::Buffer buffer;
        buffer.frameCount = mPeriodFrames;
        buffer.size = requestedBytes;
        buffer.raw = mBuffer.data();
        const auto callbackStart = std::chrono::steady_clock::now();
        mParams.cbf(AudioTrack::EVENT_MORE_DATA, mParams.user, &buffer);
        // The engine's reader waits for data in 50 ms steps: a callback that
        // long waited at least once.
        const bool stalled = std::chrono::steady_clock::now() - callbackStart >= kStalledCallback;
        size_t bytes = buffer.size;
        if (bytes > requestedBytes) {
            if (!oversizeLogged) {
                oversizeLogged = true;
                ALOGE("callback returned %zu bytes for a %zu-byte buffer; keeping %zu",
                      bytes, requestedBytes, requestedBytes);
            }
            bytes = requestedBytes;
        }
        size_t writtenFrames = bytes / mFrameSizeBytes;
        int64_t silenceFrames = mSink->write(mBuffer.data(), writtenFrames, mPeriodFrames);
        mCallbacks.fetch_add(1);
        if (stalled) mStalledCallbacks.fetch_add(1);
        mDeliveredFrames.fetch_add((int64_t)writtenFrames);
        mUnderrunFrames.fetch_add(silenceFrames);
        int64_t streamFrames = mStreamFrames.fetch_add((int64_t)writtenFrames + silenceFrames) +
                               (int64_t)writtenFrames + silenceFrames;
        {
            HostLock totals(gTotalsLock);
            gTotals.callbacks += 1;
            gTotals.stalledCallbacks += stalled ? 1 : 0;
            gTotals.deliveredFrames += (int64_t)writtenFrames;
            gTotals.underrunFrames += silenceFrames;
        }
        if (silenceFrames > 0 && !inUnderrun) {
            mParams.cbf(AudioTrack::EVENT_UNDERRUN, mParams.user, nullptr);
        }
        inUnderrun = silenceFrames > 0;
        if (hook) {
            HostAudioPeriod period;
            period.streamFrames = streamFrames;
            period.deliveredFrames = mDeliveredFrames.load();
            period.requestedFrames = mPeriodFrames;
            period.writtenFrames = writtenFrames;
            period.sampleRate = sampleRate;
            period.data = mBuffer.data();
            (*hook)(period);
        }
    }
}

status_t HostAudioTrack::start() {
    HostLock lock(mLock);
    if (mStatus != OK) return mStatus;
    if (mExitPending) return INVALID_OPERATION;
    if (mState == kActive) return INVALID_OPERATION;
    if (mResetPositionOnStart) {
        mResetPositionOnStart = false;
        mPositionBaseFrames = mDeliveredFrames.load();
    }
    mSink->start();
    mState = kActive;
    mCond.notify_all();
    return OK;
}

void HostAudioTrack::pause() {
    HostLock lock(mLock);
    if (mState != kActive) return;
    mState = kPaused;
    mSink->pause();
}

void HostAudioTrack::stop() {
    HostLock lock(mLock);
    if (mState != kActive && mState != kPaused) return;
    mState = kStopped;
    mResetPositionOnStart = true;
    mSink->stop();
}

bool HostAudioTrack::stopped() const {
    HostLock lock(mLock);
    return mState != kActive;
}

void HostAudioTrack::flush() {
    HostLock lock(mLock);
    if (mStatus != OK || mState == kActive) return;
    mSink->flush();
    mPositionBaseFrames = mDeliveredFrames.load();
    mResetPositionOnStart = false;
}

bool HostAudioTrack::isPlaying() const {
    HostLock lock(mLock);
    return mState == kActive;
}

status_t HostAudioTrack::setVolume(float left, float right) {
    if (!(left >= 0.0f && left <= 1.0f) || !(right >= 0.0f && right <= 1.0f)) {
        return BAD_VALUE;
    }
    HostLock lock(mLock);
    if (mStatus != OK) return mStatus;
    mSink->setVolume(left, right);
    return OK;
}

status_t HostAudioTrack::setSampleRate(uint32_t sampleRate) {
    HostLock lock(mLock);
    if (mStatus != OK) return mStatus;
    if (mParams.flags & AUDIO_OUTPUT_FLAG_FAST) return INVALID_OPERATION;
    if (sampleRate == 0 || sampleRate > kMaxSampleRateHz) return BAD_VALUE;
    mSampleRate = sampleRate;
    mSink->setSpeed(mPlaybackRate.mSpeed * sampleRate /
                    (float)(mParams.sampleRate != 0 ? mParams.sampleRate : kDefaultSampleRateHz));
    return OK;
}

uint32_t HostAudioTrack::sampleRate() const {
    HostLock lock(mLock);
    return mSampleRate;
}

status_t HostAudioTrack::setPlaybackRate(const AudioPlaybackRate& rate) {
    HostLock lock(mLock);
    if (isAudioPlaybackRateEqual(rate, mPlaybackRate)) return NO_ERROR;
    if (mStatus != OK) return mStatus;
    // A fast track has no time stretcher on the platform either.
    if (mParams.flags & AUDIO_OUTPUT_FLAG_FAST) return INVALID_OPERATION;
    if (!isAudioPlaybackRateValid(rate)) return BAD_VALUE;
    if (fabsf(rate.mSpeed - rate.mPitch) >= AUDIO_TIMESTRETCH_PITCH_MIN_DELTA) {
        ALOGW("setPlaybackRate(speed %.3f, pitch %.3f): the host has no time stretcher and "
              "plays only speed changes that move the pitch with them", rate.mSpeed, rate.mPitch);
        return INVALID_OPERATION;
    }
    uint32_t original = mParams.sampleRate != 0 ? mParams.sampleRate : kDefaultSampleRateHz;
    mSink->setSpeed(rate.mSpeed * mSampleRate / (float)original);
    mPlaybackRate = rate;
    return NO_ERROR;
}

const AudioPlaybackRate& HostAudioTrack::playbackRate() const {
    HostLock lock(mLock);
    return mPlaybackRate;
}

status_t HostAudioTrack::getPosition(uint32_t* position) {
    if (position == nullptr) return BAD_VALUE;
    HostLock lock(mLock);
    if (mStatus != OK) return mStatus;
    if (mResetPositionOnStart) {
        *position = 0;
        return NO_ERROR;
    }
    int64_t played = mDeliveredFrames.load() - mSink->bufferedFrames() - mPositionBaseFrames.load();
    *position = played > 0 ? (uint32_t)played : 0;
    return NO_ERROR;
}

HostAudioStats HostAudioTrack::stats() const {
    HostAudioStats s;
    s.deliveredFrames = mDeliveredFrames.load();
    s.underrunFrames = mUnderrunFrames.load();
    s.callbacks = mCallbacks.load();
    s.stalledCallbacks = mStalledCallbacks.load();
    s.sink = mSinkName;
    s.outputSampleRate = mSink ? mSink->outputSampleRate() : 0;
    return s;
}

void HostAudioTrack::setPeriodHook(HostAudioPeriodHook hook) {
    HostLock lock(mLock);
    mHook = hook ? std::make_shared<const HostAudioPeriodHook>(std::move(hook)) : nullptr;
}

// ---- host-only controls ----

struct HostAudioTrackAccess {
    static HostAudioTrack* get(const sp<AudioTrack>& track) {
        return track != nullptr ? track->mHost.get() : nullptr;
    }
};

void hostAudioSetOptions(const HostAudioOptions& options) {
    HostLock lock(gOptionsLock);
    gOptions = options;
}

void hostAudioClearOptions() {
    HostLock lock(gOptionsLock);
    gOptions.reset();
}

HostAudioOptionsScope::HostAudioOptionsScope(const HostAudioOptions& options) {
    HostLock lock(gOptionsLock);
    mHadPrevious = gOptions.has_value();
    if (mHadPrevious) mPrevious = *gOptions;
    gOptions = options;
}

HostAudioOptionsScope::~HostAudioOptionsScope() {
    HostLock lock(gOptionsLock);
    if (mHadPrevious) {
        gOptions = mPrevious;
    } else {
        gOptions.reset();
    }
}

HostAudioStats hostAudioGetStats(const sp<AudioTrack>& track) {
    HostAudioTrack* host = HostAudioTrackAccess::get(track);
    return host != nullptr ? host->stats() : HostAudioStats();
}

HostAudioStats hostAudioGetTotals() {
    HostLock lock(gTotalsLock);
    return gTotals;
}

void hostAudioSetPeriodHook(const sp<AudioTrack>& track, HostAudioPeriodHook hook) {
    HostAudioTrack* host = HostAudioTrackAccess::get(track);
    if (host != nullptr) host->setPeriodHook(std::move(hook));
}

}  // namespace android
