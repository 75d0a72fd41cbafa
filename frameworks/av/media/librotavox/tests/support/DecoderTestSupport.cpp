#include "DecoderTestSupport.h"

#include <gtest/gtest.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MetaData.h>
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

std::string sampleFormatForPfmt(int32_t pfmt) {
    switch (pfmt) {
        case 2: return "u8";
        case 6: return "s24le";
        case 3: return "s32le";
        default: return "s16le";
    }
}

size_t bytesPerSampleForPfmt(int32_t pfmt) {
    switch (pfmt) {
        case 2: return 1;
        case 6: return 3;
        case 3: return 4;
        default: return 2;
    }
}

Decoded drain(const sp<AudioDecoder> &decoder, int maxReads,
              const MediaSource::ReadOptions *firstOptions) {
    Decoded d;
    int endsInARow = 0;
    while (d.reads < maxReads) {
        MediaBufferBase *buffer = reinterpret_cast<MediaBufferBase *>(0x1);
        status_t err = decoder->read(&buffer, d.reads == 0 ? firstOptions : nullptr);
        ++d.reads;
        d.lastStatus = err;
        if (err == ERROR_END_OF_STREAM) {
            EXPECT_EQ(nullptr, buffer);
            if (++endsInARow == 2) break;
            continue;
        }
        if (err != OK) {
            EXPECT_EQ(nullptr, buffer);
            break;
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
    const size_t bps = bytesPerSampleForPfmt(pfmt);
    const size_t count = pcm.size() / bps;
    std::vector<double> out;
    out.reserve(channel < 0 ? count : count / channels);
    for (size_t i = 0; i < count; ++i) {
        if (channel >= 0 && (int)(i % channels) != channel) continue;
        const uint8_t *p = &pcm[i * bps];
        double v;
        switch (pfmt) {
            case 2:
                v = (p[0] - 128) / 128.0;
                break;
            case 6: {
                int32_t s = (int32_t)((uint32_t)p[0] << 8 | (uint32_t)p[1] << 16 |
                                      (uint32_t)p[2] << 24) >> 8;
                v = s / 8388608.0;
                break;
            }
            case 3: {
                int32_t s;
                memcpy(&s, p, 4);
                v = s / 2147483648.0;
                break;
            }
            default: {
                int16_t s;
                memcpy(&s, p, 2);
                v = s / 32768.0;
                break;
            }
        }
        out.push_back(v);
    }
    return out;
}

MessageCollector::MessageCollector() {}

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

size_t MessageCollector::count() {
    Mutex::Autolock l(mLock);
    return mMessages.size();
}

LooperGate::LooperGate() {}

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

namespace {
struct Replier : public AHandler {
    void onMessageReceived(const sp<AMessage> &msg) override {
        sp<AReplyToken> token;
        if (msg->senderAwaitsResponse(&token)) {
            (new AMessage)->postReply(token);
        }
    }
};
}  // namespace

void syncLooper(const sp<ALooper> &looper) {
    sp<Replier> replier = new Replier;
    looper->registerHandler(replier);
    sp<AMessage> response;
    (new AMessage('sync', replier))->postAndAwaitResponse(&response);
    looper->unregisterHandler(replier->id());
}

}  // namespace decodertest
}  // namespace android
