#define LOG_TAG "AudioTrack"

#include <media/AudioTrack.h>

#include <log/log.h>

#include "HostAudioTrack.h"

namespace android {

// static
status_t AudioTrack::getMinFrameCount(size_t* frameCount, audio_stream_type_t /*streamType*/,
                                      uint32_t sampleRate) {
    if (frameCount == nullptr) return BAD_VALUE;
    if (sampleRate == 0) return BAD_VALUE;
    // Double buffering of the period a track without flags gets.
    *frameCount = 2 * defaultPeriodFrames(AUDIO_OUTPUT_FLAG_NONE, sampleRate);
    return NO_ERROR;
}

AudioTrack::AudioTrack(audio_stream_type_t streamType, uint32_t sampleRate, audio_format_t format,
                       audio_channel_mask_t channelMask, size_t frameCount,
                       audio_output_flags_t flags, callback_t cbf, void* user,
                       int32_t notificationFrames, audio_session_t sessionId,
                       transfer_type transferType, const audio_offload_info_t* offloadInfo,
                       uid_t /*uid*/, pid_t /*pid*/, const audio_attributes_t* /*pAttributes*/,
                       bool /*doNotReconnect*/, float /*maxRequiredSpeed*/,
                       audio_port_handle_t /*selectedDeviceId*/) {
    HostAudioTrack::Params params;
    params.streamType = streamType;
    params.sampleRate = sampleRate;
    params.format = format == AUDIO_FORMAT_DEFAULT ? AUDIO_FORMAT_PCM_16_BIT : format;
    params.channelMask = channelMask;
    params.frameCount = frameCount;
    params.flags = flags;
    params.cbf = cbf;
    params.user = user;
    params.notificationFrames = notificationFrames;
    params.sessionId = sessionId;
    params.transferType = transferType;
    params.hasOffloadInfo = offloadInfo != nullptr;
    mHost = std::make_shared<HostAudioTrack>(params);
    mHost->init();
}

AudioTrack::~AudioTrack() {
    mHost->shutdown();
}

status_t AudioTrack::initCheck() const { return mHost->status(); }
uint32_t AudioTrack::latency() { return mHost->latencyMs(); }
audio_stream_type_t AudioTrack::streamType() const { return mHost->params().streamType; }
audio_format_t AudioTrack::format() const { return mHost->params().format; }
size_t AudioTrack::frameCount() const { return mHost->frameCount(); }
uint32_t AudioTrack::channelCount() const { return mHost->channelCount(); }
size_t AudioTrack::frameSize() const { return mHost->frameSizeBytes(); }
audio_output_flags_t AudioTrack::getFlags() const { return mHost->params().flags; }
audio_session_t AudioTrack::getSessionId() const { return mHost->params().sessionId; }
status_t AudioTrack::start() { return mHost->start(); }
void AudioTrack::stop() { mHost->stop(); }
bool AudioTrack::stopped() const { return mHost->stopped(); }
void AudioTrack::flush() { mHost->flush(); }
void AudioTrack::pause() { mHost->pause(); }
bool AudioTrack::isPlaying() const { return mHost->isPlaying(); }
status_t AudioTrack::setVolume(float left, float right) { return mHost->setVolume(left, right); }
status_t AudioTrack::setVolume(float volume) { return mHost->setVolume(volume, volume); }
status_t AudioTrack::setSampleRate(uint32_t rate) { return mHost->setSampleRate(rate); }
uint32_t AudioTrack::getSampleRate() const { return mHost->sampleRate(); }
uint32_t AudioTrack::getOriginalSampleRate() const { return mHost->params().sampleRate; }
status_t AudioTrack::setPlaybackRate(const AudioPlaybackRate& rate) {
    return mHost->setPlaybackRate(rate);
}
const AudioPlaybackRate& AudioTrack::getPlaybackRate() const { return mHost->playbackRate(); }
uint32_t AudioTrack::getUnderrunFrames() const { return mHost->underrunFrames(); }
status_t AudioTrack::getPosition(uint32_t* position) { return mHost->getPosition(position); }

}  // namespace android
