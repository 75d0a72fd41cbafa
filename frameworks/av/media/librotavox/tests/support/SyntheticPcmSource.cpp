#define LOG_TAG "SyntheticPcmSource"

#include "SyntheticPcmSource.h"

#include <string.h>

#include <chrono>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>

#include "TestTime.h"

namespace android {
namespace testing {

namespace {
const uint32_t kKeyPcmFormat = 'pfmt';
const int32_t kChannelOffset16 = 0x4000;
const int32_t kChannelOffset8 = 0x40;
}  // namespace

SyntheticPcmSource::SyntheticPcmSource(const SyntheticPcmConfig& config)
    : mConfig(config), mFormat(new MetaData) {
    mFormat->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_RAW);
    if (mConfig.announceSampleRate) {
        mFormat->setInt32(kKeySampleRate, mConfig.sampleRate);
    }
    mFormat->setInt32(kKeyChannelCount, mConfig.channelCount);
    if (mConfig.announceFormat) {
        mFormat->setInt32(kKeyPcmFormat, mConfig.format);
    }
    mFormat->setInt64(kKeyDuration, timeOfFrame(mConfig.totalFrames));
    mPendingFormatChanges = mConfig.formatChangesAfterSeek;
}

status_t SyntheticPcmSource::start(MetaData*) {
    return OK;
}

status_t SyntheticPcmSource::stop() {
    std::lock_guard<std::mutex> lock(mMutex);
    ++mStops;
    return OK;
}

sp<MetaData> SyntheticPcmSource::getFormat() {
    return mFormat;
}

size_t SyntheticPcmSource::bytesPerSample() const {
    switch (mConfig.format) {
        case AUDIO_FORMAT_PCM_8_BIT: return 1;
        case AUDIO_FORMAT_PCM_24_BIT_PACKED: return 3;
        case AUDIO_FORMAT_PCM_32_BIT: return 4;
        default: return 2;
    }
}

int16_t SyntheticPcmSource::expected16(audio_format_t format, int64_t frame, int channel) {
    if (format == AUDIO_FORMAT_PCM_8_BIT) {
        int code = (int)((frame + channel * kChannelOffset8) & 0xff);
        return (int16_t)((code - 128) * 256);
    }
    return (int16_t)(uint16_t)((frame + channel * kChannelOffset16) & 0xffff);
}

int64_t SyntheticPcmSource::frameOf(audio_format_t format, const int16_t* frame, int channels) {
    int64_t index;
    if (format == AUDIO_FORMAT_PCM_8_BIT) {
        index = ((frame[0] / 256) + 128) & 0xff;
    } else {
        index = (uint16_t)frame[0];
    }
    for (int c = 1; c < channels; ++c) {
        if (frame[c] != expected16(format, index, c)) {
            return -1;
        }
    }
    return index;
}

void SyntheticPcmSource::fill(uint8_t* dst, int64_t firstFrame, int64_t frames) const {
    const int channels = mConfig.channelCount;
    for (int64_t f = 0; f < frames; ++f) {
        for (int c = 0; c < channels; ++c) {
            const int64_t frame = firstFrame + f;
            const int16_t v16 = expected16(mConfig.format, frame, c);
            switch (mConfig.format) {
                case AUDIO_FORMAT_PCM_8_BIT:
                    *dst++ = (uint8_t)((frame + c * kChannelOffset8) & 0xff);
                    break;
                case AUDIO_FORMAT_PCM_24_BIT_PACKED: {
                    // Low byte below the 16-bit value; any conversion,
                    // truncating or rounding, must drop it.
                    const uint32_t v24 = ((uint32_t)(uint16_t)v16 << 8) | 0x12;
                    *dst++ = v24 & 0xff;
                    *dst++ = (v24 >> 8) & 0xff;
                    *dst++ = (v24 >> 16) & 0xff;
                    break;
                }
                case AUDIO_FORMAT_PCM_32_BIT: {
                    const int32_t v32 = (int32_t)(((uint32_t)(uint16_t)v16 << 16) | 0x1234);
                    memcpy(dst, &v32, 4);
                    dst += 4;
                    break;
                }
                default:
                    memcpy(dst, &v16, 2);
                    dst += 2;
                    break;
            }
        }
    }
}

status_t SyntheticPcmSource::read(MediaBufferBase** buffer, const ReadOptions* options) {
    *buffer = NULL;
    std::unique_lock<std::mutex> lock(mMutex);
    int64_t seekUs = -1;
    ReadOptions::SeekMode mode;
    if (options != NULL && !options->getSeekTo(&seekUs, &mode)) {
        seekUs = -1;
    }
    mRecords.push_back({seekUs, WOULD_BLOCK, -1});
    const int readNumber = (int)mRecords.size();
    mChanged.notify_all();

    mChanged.wait(lock, [this] { return !mGateClosed; });

    if (seekUs >= 0) {
        const int64_t target = seekUs * mConfig.sampleRate / 1000000;
        const int64_t landing = target / mConfig.framesPerBuffer * mConfig.framesPerBuffer;
        mNextFrame = landing < 0 ? 0 : landing;
        mPendingFormatChanges = mConfig.formatChangesAfterSeek;
    }

    status_t result;
    int64_t timeUs = -1;
    if (readNumber == mConfig.failAtRead) {
        result = mConfig.failStatus;
    } else if (readNumber == mConfig.okWithoutBufferAtRead) {
        result = OK;
    } else if (mPendingFormatChanges > 0) {
        --mPendingFormatChanges;
        result = INFO_FORMAT_CHANGED;
    } else if (mNextFrame >= mConfig.totalFrames) {
        result = ERROR_END_OF_STREAM;
    } else {
        const int64_t frames = std::min(mConfig.framesPerBuffer, mConfig.totalFrames - mNextFrame);
        const size_t bytes = frames * mConfig.channelCount * bytesPerSample();
        // Data after a non-zero range offset, as decoders hand them out.
        const size_t offset = 4;
        MediaBuffer* out = new MediaBuffer(bytes + offset);
        fill((uint8_t*)out->data() + offset, mNextFrame, frames);
        out->set_range(offset, bytes);
        timeUs = timeOfFrame(mNextFrame);
        out->meta_data().setInt64(kKeyTime, timeUs);
        mNextFrame += frames;
        *buffer = out;
        result = OK;
    }
    mRecords[readNumber - 1].result = result;
    mRecords[readNumber - 1].timeUs = timeUs;
    mChanged.notify_all();
    return result;
}

void SyntheticPcmSource::closeGate() {
    std::lock_guard<std::mutex> lock(mMutex);
    mGateClosed = true;
}

void SyntheticPcmSource::openGate() {
    std::lock_guard<std::mutex> lock(mMutex);
    mGateClosed = false;
    mChanged.notify_all();
}

bool SyntheticPcmSource::waitForReadsEntered(int count, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, stretched(std::chrono::milliseconds(timeoutMs)),
                             [&] { return (int)mRecords.size() >= count; });
}

std::vector<SyntheticReadRecord> SyntheticPcmSource::records() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mRecords;
}

int SyntheticPcmSource::stopCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mStops;
}

}  // namespace testing
}  // namespace android
