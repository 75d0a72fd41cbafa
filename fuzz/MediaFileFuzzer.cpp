// Arbitrary bytes as a media file, down the player's own road: the extractor
// opens them, the first audio track the player would accept is selected, and
// AudioDecoder turns it into PCM until the end, then seeks back and reads on.
// Whatever the bytes, this must end in a status, never in a crash, a hang or
// a buffer that breaks the decoder's promises.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <strings.h>

#include <media/stagefright/MediaBufferBase.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include "AudioDecoder.h"
#include "LogCapture.h"
#include "MemoryDataSource.h"

using namespace android;

namespace {

// Enough to run through every fixture; a longer stream says nothing new.
const int kMaxReads = 4000;
const int kReadsAfterSeek = 8;

void fail(const char* what) {
    fprintf(stderr, "MediaFileFuzzer: %s\n", what);
    abort();
}

// One buffer as the decoder hands it out: stamped, and its range inside it.
void checkBuffer(MediaBufferBase* buffer) {
    if (buffer == NULL) fail("OK without a buffer");
    if (buffer->range_offset() + buffer->range_length() > buffer->size()) {
        fail("range beyond the buffer");
    }
    int64_t timeUs;
    if (!buffer->meta_data().findInt64(kKeyTime, &timeUs)) fail("buffer without kKeyTime");
    // Touch every byte so that ASan sees a short allocation.
    const uint8_t* p = (const uint8_t*)buffer->data() + buffer->range_offset();
    volatile uint8_t sum = 0;
    for (size_t i = 0; i < buffer->range_length(); ++i) sum += p[i];
    (void)sum;
    buffer->release();
}

// Reads until the end is reported twice in a row, an error, or |maxReads|.
void drain(const sp<AudioDecoder>& decoder, int maxReads,
           const MediaSource::ReadOptions* firstOptions) {
    int ends = 0;
    for (int i = 0; i < maxReads; ++i) {
        MediaBufferBase* buffer = NULL;
        status_t err = decoder->read(&buffer, i == 0 ? firstOptions : NULL);
        if (err == OK) {
            ends = 0;
            checkBuffer(buffer);
            continue;
        }
        if (buffer != NULL) fail("error with a buffer");
        if (err != ERROR_END_OF_STREAM || ++ends == 2) return;
    }
}

// The track the player picks: the last audio track that can be selected,
// and only mono or stereo (the player refuses more channels).
ssize_t selectAudioTrack(const sp<NuMediaExtractor>& extractor) {
    ssize_t chosen = -1;
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        sp<AMessage> format;
        if (extractor->getTrackFormat(i, &format, 0) != OK) continue;
        AString mime;
        if (!format->findString("mime", &mime)) fail("track format without a mime");
        if (strncasecmp(mime.c_str(), "audio/", 6) != 0) continue;
        if (extractor->selectTrack(i, -1ll, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC) != OK) {
            continue;
        }
        int32_t channels = -1;
        if (!format->findInt32("channel-count", &channels) || channels >= 3) continue;
        chosen = i;
    }
    return chosen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The engine's log lines of the last input only: kept lines would read
    // as a leak to the fuzzer and slow every run.
    android::testing::LogCapture log;
    sp<NuMediaExtractor> extractor = new NuMediaExtractor;
    if (extractor->setDataSource(new testing::MemoryDataSource(data, size)) != OK) {
        return 0;
    }
    if (selectAudioTrack(extractor) < 0) {
        return 0;
    }
    sp<AudioDecoder> decoder = new AudioDecoder(extractor);
    if (decoder->start(NULL) != OK) {
        return 0;
    }
    sp<MetaData> format = decoder->getFormat();
    if (format == NULL) fail("started decoder without a format");

    drain(decoder, kMaxReads, NULL);
    MediaSource::ReadOptions seek;
    seek.setSeekTo(0, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC);
    drain(decoder, kReadsAfterSeek, &seek);
    decoder->stop();
    return 0;
}
