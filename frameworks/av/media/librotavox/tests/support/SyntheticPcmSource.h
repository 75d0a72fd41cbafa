#pragma once

// An upstream MediaSource for tests of the scratch source: PCM whose samples
// tell their own frame index, in any of the decoder's sample formats, with
// configurable buffer size, seek precision, read failures, end of stream, and
// a gate that holds reads until the test lets them through.

#include <stdint.h>

#include <condition_variable>
#include <mutex>
#include <vector>

#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <system/audio.h>

namespace android {
namespace testing {

struct SyntheticPcmConfig {
    int32_t sampleRate = 48000;
    int32_t channelCount = 2;
    audio_format_t format = AUDIO_FORMAT_PCM_16_BIT;
    bool announceFormat = true;      // put "pfmt" into getFormat()
    bool announceSampleRate = true;  // put kKeySampleRate into getFormat()
    int64_t framesPerBuffer = 1024;
    int64_t totalFrames = 48000 * 10;
    // INFO_FORMAT_CHANGED answers after start and after every seek, before
    // the first buffer, as a decoder gives while it settles.
    int formatChangesAfterSeek = 0;
    // Read number (1-based, counting every read) that fails with failStatus;
    // 0 never fails.
    int failAtRead = 0;
    status_t failStatus = ERROR_IO;
    // Read number that answers OK without a buffer (a broken decoder).
    int okWithoutBufferAtRead = 0;
};

struct SyntheticReadRecord {
    int64_t seekUs;  // -1: no seek requested
    status_t result;  // WOULD_BLOCK while the read runs
    int64_t timeUs;  // kKeyTime of the buffer handed out, -1 if none
};

class SyntheticPcmSource : public MediaSource {
public:
    explicit SyntheticPcmSource(const SyntheticPcmConfig& config);

    status_t start(MetaData* params = NULL) override;
    status_t stop() override;
    sp<MetaData> getFormat() override;
    status_t read(MediaBufferBase** buffer, const ReadOptions* options = NULL) override;

    // Reads block while the gate is closed.
    void closeGate();
    void openGate();

    // Waits (on a condition, bounded) until |count| reads have entered read().
    bool waitForReadsEntered(int count, int timeoutMs = 10000);

    std::vector<SyntheticReadRecord> records() const;
    int stopCount() const;

    const SyntheticPcmConfig& config() const { return mConfig; }

    // Expected 16-bit value of |channel| of frame |frame| after the cache's
    // conversion to 16-bit PCM.
    static int16_t expected16(audio_format_t format, int64_t frame, int channel);
    // Frame index (mod 65536 for 16/24/32-bit, mod 256 for 8-bit) that a
    // 16-bit output frame carries, checked for consistency between channels;
    // -1 when the channels disagree.
    static int64_t frameOf(audio_format_t format, const int16_t* frame, int channels);

    int64_t timeOfFrame(int64_t frame) const {
        return frame * 1000000 / mConfig.sampleRate;
    }

private:
    SyntheticPcmConfig mConfig;
    sp<MetaData> mFormat;

    mutable std::mutex mMutex;  // guards everything below
    std::condition_variable mChanged;
    int64_t mNextFrame = 0;
    int mPendingFormatChanges = 0;
    bool mGateClosed = false;
    int mStops = 0;
    std::vector<SyntheticReadRecord> mRecords;  // one per read, from its entry

    void fill(uint8_t* dst, int64_t firstFrame, int64_t frames) const;
    size_t bytesPerSample() const;
};

}  // namespace testing
}  // namespace android
