#pragma once

// Helpers for the decoder's tests: opening fixtures, reference decodes by the
// ffmpeg tool, draining an AudioDecoder, and a peer that reaches the
// decoder's handlers and queues where real files cannot lead.

#include <media/stagefright/MediaBufferBase.h>
#include <media/stagefright/MediaCodec.h>
#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <chrono>
#include <deque>
#include <string>
#include <vector>

#include "AudioDecoder.h"
#include "Fixtures.h"

namespace android {

// Friend of AudioDecoder.
struct AudioDecoderTestPeer {
    static size_t queuedBuffers(AudioDecoder *d) {
        Mutex::Autolock l(d->mLock);
        return d->mOutputBuffers.size();
    }
    static size_t pendingInputCount(AudioDecoder *d) {
        Mutex::Autolock l(d->mLock);
        return d->mPendingInputMessages.size();
    }
    static void addPendingInput(AudioDecoder *d, const sp<AMessage> &msg) {
        Mutex::Autolock l(d->mLock);
        d->mPendingInputMessages.push_back(msg);
    }
    // Queues |buffer| as if the codec had produced it (takes its reference).
    static void queueBuffer(AudioDecoder *d, MediaBufferBase *buffer) {
        Mutex::Autolock l(d->mLock);
        d->mOutputBuffers.push_back(buffer);
        if (d->mOutputBuffers.size() == 1) {
            d->mCondition.signal();
        }
    }
    static Mutex &lock(AudioDecoder *d) { return d->mLock; }
    static sp<ALooper> looper(AudioDecoder *d) { return d->mLooper; }
    static sp<ALooper> codecLooper(AudioDecoder *d) { return d->mCodecLooper; }
    static sp<AHandler> reflector(AudioDecoder *d) { return d->mReflector; }
    static sp<MediaCodec> codec(AudioDecoder *d) { return d->mCodec; }
    static sp<NuMediaExtractor> extractor(AudioDecoder *d) { return d->mExtractor; }
    static bool seeking(AudioDecoder *d) { return d->mSeeking; }
    static status_t handleAnInputBuffer(AudioDecoder *d, size_t index) {
        return d->handleAnInputBuffer(index);
    }
    static void setCodecOutputFormat(AudioDecoder *d, const sp<AMessage> &format) {
        d->setCodecOutputFormat(format);
    }
};

namespace decodertest {

using testing::bestCorrelation;
using testing::fixturePath;
using testing::referenceDecode;

// Opens |path| and selects its first audio track (or track |track| when >= 0).
// Returns null when the file does not open; *selected tells whether a track
// was selected.
sp<NuMediaExtractor> openExtractor(const std::string &path, ssize_t track = -1,
                                   bool *selected = nullptr);

// The packed PCM an audio_format_t number stands for: ffmpeg's name for it
// and the bytes of one sample.
struct PcmLayout {
    const char *ffmpegName;
    size_t bytes;
};
PcmLayout layoutOf(int32_t pfmt);

struct Decoded {
    std::vector<uint8_t> pcm;
    std::vector<int64_t> timesUs;
    std::vector<size_t> sizes;
    status_t lastStatus = OK;
};

// Reads until the end is reported twice in a row (the decoder may report the
// end once before its final buffers) or an error, or |maxReads| reads.
Decoded drain(const sp<AudioDecoder> &decoder, int maxReads = 1000000,
              const MediaSource::ReadOptions *firstOptions = nullptr);

// Samples of channel |channel| of |pcm| as doubles in [-1, 1).
std::vector<double> toDoubles(const std::vector<uint8_t> &pcm, int32_t pfmt, int channels,
                              int channel);

// Collects messages posted to it, on a looper of its own.
struct MessageCollector : public AHandler {
    // Waits for the next message; null on time-out.
    sp<AMessage> next(std::chrono::milliseconds timeout = std::chrono::seconds(10));

protected:
    void onMessageReceived(const sp<AMessage> &msg) override;

private:
    // Guards mMessages.
    Mutex mLock;
    Condition mCondition;
    std::deque<sp<AMessage>> mMessages;
};

// A handler that, once a message reaches it, holds its looper's thread until
// released: messages posted behind it wait.
struct LooperGate : public AHandler {
    void close(const sp<ALooper> &looper);  // posts the holding message
    void waitClosed();                      // the looper's thread is held
    void open();

protected:
    void onMessageReceived(const sp<AMessage> &msg) override;

private:
    // Guards mHeld and mReleased.
    Mutex mLock;
    Condition mCondition;
    bool mHeld = false;
    bool mReleased = false;
};

// Returns once every message posted to |looper| before the call has been
// handled.
void syncLooper(const sp<ALooper> &looper);

}  // namespace decodertest
}  // namespace android
