#pragma once

// A small client of MediaCodec in asynchronous mode, fed by a NuMediaExtractor,
// the way a platform audio decoder drives them: callbacks arrive on the
// client's own looper, input is read straight into codec input buffers,
// output is copied out and released at once.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <media/stagefright/MediaCodec.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include "MediaCodecBuffer.h"
#include "TestTime.h"

namespace android {
namespace testing {

struct CodecClient : public AHandler {
    enum { kWhatCallback = 'cbck' };

    struct Output {
        int64_t timeUs;
        size_t offset;  // byte offset of this buffer in pcm
    };

    // Opens |path|, selects |track| (an audio one) and configures a codec
    // with |pcmEncoding| (< 0: leave it to the codec).
    status_t open(const std::string& path, size_t track = 0, int32_t pcmEncoding = -1) {
        mExtractor = new NuMediaExtractor;
        status_t err = mExtractor->setDataSource(NULL, path.c_str());
        if (err == OK) err = mExtractor->getTrackFormat(track, &mTrackFormat);
        if (err == OK) err = mExtractor->selectTrack(track);
        if (err != OK) return err;
        if (pcmEncoding >= 0) mTrackFormat->setInt32("pcm-encoding", pcmEncoding);
        mLooper = new ALooper;
        mLooper->setName("CodecClient");
        mLooper->start();
        mLooper->registerHandler(this);
        mCodecLooper = new ALooper;
        mCodecLooper->setName("CodecClient-CL");
        mCodecLooper->start();
        AString mime;
        mTrackFormat->findString("mime", &mime);
        // Chosen the way the engine does it: by name for APE, ALAC and DSD.
        const char* component = mime == "audio/x-ape" ? "OMX.qcom.audio.decoder.ape"
                : mime == "audio/alac" ? "OMX.qcom.audio.decoder.alac"
                : mime == "audio/dsd" ? "OMX.qti.audio.decoder.dsd" : nullptr;
        mCodec = component == nullptr
                ? MediaCodec::CreateByType(mCodecLooper, mime, false, &err)
                : MediaCodec::CreateByComponentName(mCodecLooper, component, &err);
        if (mCodec == NULL) return err;
        err = mCodec->configure(mTrackFormat, NULL, NULL, 0);
        if (err != OK) return err;
        return mCodec->setCallback(new AMessage(kWhatCallback, this));
    }

    status_t start() { return mCodec->start(); }

    // Waits until the end-of-stream output arrived; false on time-out.
    bool waitForEos() { return waitFor([this] { return mEos; }); }
    // Waits until at least |bytes| of PCM came out (or the end).
    bool waitForBytes(size_t bytes) {
        return waitFor([&] { return mPcm.size() >= bytes || mEos; }) && mPcm.size() >= bytes;
    }

    void shutdown() {
        if (mCodec != NULL) mCodec->release();
        if (mLooper != NULL) {
            mLooper->unregisterHandler(id());
            mLooper->stop();
        }
        if (mCodecLooper != NULL) mCodecLooper->stop();
        // Only now: callbacks still queued on the client's looper use it.
        mCodec.clear();
    }

    std::vector<uint8_t> pcm() const { Mutex::Autolock l(mLock); return mPcm; }
    std::vector<Output> outputs() const { Mutex::Autolock l(mLock); return mOutputs; }
    int errors() const { Mutex::Autolock l(mLock); return mErrors; }
    // Error callbacks without "err" or "actionCode", and the last "err".
    int incompleteErrors() const { Mutex::Autolock l(mLock); return mIncompleteErrors; }
    status_t lastError() const { Mutex::Autolock l(mLock); return mLastError; }

    // Optional: alters a sample before it is queued (index of the sample).
    std::function<void(size_t, uint8_t*, size_t)> mCorrupt;

    sp<NuMediaExtractor> mExtractor;
    sp<AMessage> mTrackFormat;
    sp<MediaCodec> mCodec;

protected:
    void onMessageReceived(const sp<AMessage>& msg) override {
        int32_t cbID = 0;
        msg->findInt32("callbackID", &cbID);
        switch (cbID) {
            case MediaCodec::CB_INPUT_AVAILABLE: {
                int32_t index = -1;
                msg->findInt32("index", &index);
                if (mInputEos) break;
                sp<MediaCodecBuffer> buffer;
                if (mCodec->getInputBuffer(index, &buffer) != OK || buffer == NULL) break;
                sp<ABuffer> wrapper = new ABuffer(buffer->base(), buffer->capacity());
                status_t err = mExtractor->readSampleData(wrapper);
                if (err == ERROR_END_OF_STREAM) {
                    mInputEos = true;
                    mCodec->queueInputBuffer(index, 0, 0, 0, MediaCodec::BUFFER_FLAG_EOS);
                    break;
                }
                if (err != OK) {
                    mCodec->queueInputBuffer(index, 0, 0, 0, 0);
                    break;
                }
                if (mCorrupt) mCorrupt(mSamples, wrapper->data(), wrapper->size());
                ++mSamples;
                int64_t timeUs = 0;
                mExtractor->getSampleTime(&timeUs);
                mCodec->queueInputBuffer(index, 0, wrapper->size(), timeUs, 0);
                mExtractor->advance();
                break;
            }
            case MediaCodec::CB_OUTPUT_AVAILABLE: {
                int32_t index = -1, flags = 0;
                size_t size = 0;
                int64_t timeUs = 0;
                msg->findInt32("index", &index);
                msg->findSize("size", &size);
                msg->findInt64("timeUs", &timeUs);
                msg->findInt32("flags", &flags);
                sp<MediaCodecBuffer> buffer;
                if (mCodec->getOutputBuffer(index, &buffer) != OK || buffer == NULL) break;
                {
                    Mutex::Autolock autoLock(mLock);
                    if (size > 0) {
                        mOutputs.push_back({timeUs, mPcm.size()});
                        mPcm.insert(mPcm.end(), buffer->data(), buffer->data() + size);
                    }
                    mCondition.broadcast();
                }
                mCodec->releaseOutputBuffer(index);
                // Only now: a waiter woken by the end may look at which
                // buffers the client still owns.
                if (flags & MediaCodec::BUFFER_FLAG_EOS) {
                    Mutex::Autolock autoLock(mLock);
                    mEos = true;
                    mCondition.broadcast();
                }
                break;
            }
            case MediaCodec::CB_ERROR: {
                // The fields a platform client reads off an error callback.
                int32_t err = OK, actionCode = -1;
                const bool complete = msg->findInt32("err", &err)
                        && msg->findInt32("actionCode", &actionCode);
                Mutex::Autolock autoLock(mLock);
                ++mErrors;
                if (!complete) ++mIncompleteErrors;
                mLastError = err;
                break;
            }
            default:
                break;
        }
    }

private:
    // Waits on the output's condition until |done| holds (read under mLock).
    bool waitFor(const std::function<bool()>& done) {
        Mutex::Autolock autoLock(mLock);
        const nsecs_t deadline = systemTime() + testing::stretchedNs(60000000000LL);
        while (!done()) {
            const nsecs_t left = deadline - systemTime();
            if (left <= 0) return false;
            mCondition.waitRelative(mLock, left);
        }
        return true;
    }

    sp<ALooper> mLooper;
    sp<ALooper> mCodecLooper;
    // Touched on the client's looper only.
    bool mInputEos = false;
    size_t mSamples = 0;
    // Guards the collected output and counters shared with the test thread.
    mutable Mutex mLock;
    Condition mCondition;
    std::vector<uint8_t> mPcm;
    std::vector<Output> mOutputs;
    bool mEos = false;
    int mErrors = 0;
    int mIncompleteErrors = 0;
    status_t mLastError = OK;
};

}  // namespace testing
}  // namespace android
