#include "DecoderTestSupport.h"

#include <gtest/gtest.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MetaData.h>
#include <system/audio.h>
#include "TestTime.h"
#include <media/stagefright/foundation/AString.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <cmath>

namespace android {
namespace decodertest {

sp<NuMediaExtractor> openExtractor(const std::string &path, ssize_t track, bool *selected) {
    if (selected != nullptr) *selected = false;
    sp<NuMediaExtractor> extractor = new NuMediaExtractor;
    if (extractor->setDataSource(NULL, path.c_str()) != OK) {
        return extractor;
    }
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        sp<AMessage> format;
        if (extractor->getTrackFormat(i, &format) != OK) continue;
        AString mime;
        if (!format->findString("mime", &mime)) continue;
        if (track >= 0 ? (size_t)track == i : !strncasecmp(mime.c_str(), "audio/", 6)) {
            if (extractor->selectTrack(i) == OK && selected != nullptr) *selected = true;
            break;
        }
    }
    return extractor;
}

PcmLayout layoutOf(int32_t pfmt) {
    switch (pfmt) {
        case AUDIO_FORMAT_PCM_8_BIT: return {"u8", 1};
        case AUDIO_FORMAT_PCM_24_BIT_PACKED: return {"s24le", 3};
        case AUDIO_FORMAT_PCM_32_BIT: return {"s32le", 4};
        default: return {"s16le", 2};
    }
}

Decoded drain(const sp<AudioDecoder> &decoder, int maxReads,
              const MediaSource::ReadOptions *firstOptions) {
    Decoded d;
    int endsInARow = 0;
    for (int reads = 0; reads < maxReads; ++reads) {
        MediaBufferBase *buffer = reinterpret_cast<MediaBufferBase *>(0x1);
        status_t err = decoder->read(&buffer, reads == 0 ? firstOptions : nullptr);
        d.lastStatus = err;
        if (err != OK) {
            EXPECT_EQ(nullptr, buffer);
            if (err != ERROR_END_OF_STREAM || ++endsInARow == 2) break;
            continue;
        }
        endsInARow = 0;
        const uint8_t *p = static_cast<const uint8_t *>(buffer->data()) + buffer->range_offset();
        EXPECT_EQ(0u, buffer->range_offset());
        d.pcm.insert(d.pcm.end(), p, p + buffer->range_length());
        int64_t timeUs = -1;
        EXPECT_TRUE(buffer->meta_data().findInt64(kKeyTime, &timeUs));
        d.timesUs.push_back(timeUs);
        d.sizes.push_back(buffer->range_length());
        buffer->release();
    }
    return d;
}

std::vector<double> toDoubles(const std::vector<uint8_t> &pcm, int32_t pfmt, int channels,
                              int channel) {
    const size_t bytes = layoutOf(pfmt).bytes;
    std::vector<double> out;
    for (size_t i = channel; i < pcm.size() / bytes; i += channels) {
        // The sample goes into the top bytes of a little-endian int32.
        int32_t s = 0;
        memcpy(reinterpret_cast<uint8_t *>(&s) + 4 - bytes, &pcm[i * bytes], bytes);
        if (bytes == 1) s ^= INT32_MIN;  // 8-bit PCM is unsigned
        out.push_back(s / 2147483648.0);
    }
    return out;
}

void MessageCollector::onMessageReceived(const sp<AMessage> &msg) {
    Mutex::Autolock l(mLock);
    mMessages.push_back(msg);
    mCondition.broadcast();
}

sp<AMessage> MessageCollector::next(std::chrono::milliseconds timeout) {
    Mutex::Autolock l(mLock);
    const nsecs_t deadline = systemTime(SYSTEM_TIME_MONOTONIC) +
                             std::chrono::nanoseconds(testing::stretched(timeout)).count();
    while (mMessages.empty()) {
        const nsecs_t left = deadline - systemTime(SYSTEM_TIME_MONOTONIC);
        if (left <= 0) return nullptr;
        mCondition.waitRelative(mLock, left);
    }
    sp<AMessage> msg = mMessages.front();
    mMessages.pop_front();
    return msg;
}

void LooperGate::close(const sp<ALooper> &looper) {
    looper->registerHandler(this);
    (new AMessage('gate', this))->post();
}

void LooperGate::waitClosed() {
    Mutex::Autolock l(mLock);
    while (!mHeld) mCondition.wait(mLock);
}

void LooperGate::open() {
    Mutex::Autolock l(mLock);
    mReleased = true;
    mCondition.broadcast();
}

void LooperGate::onMessageReceived(const sp<AMessage> &) {
    Mutex::Autolock l(mLock);
    mHeld = true;
    mCondition.broadcast();
    while (!mReleased) mCondition.wait(mLock);
}

void syncLooper(const sp<ALooper> &looper) {
    sp<LooperGate> gate = new LooperGate;
    gate->close(looper);
    gate->waitClosed();
    gate->open();
    looper->unregisterHandler(gate->id());
}

}  // namespace decodertest
}  // namespace android
