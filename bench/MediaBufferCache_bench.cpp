// Throughput of the scratch source's PCM cache: one decoded buffer appended
// (with the sample-format conversion the decoder's format asks for) and read
// back per iteration, in the cache's steady state under its memory limit.

#include <benchmark/benchmark.h>

#include <string.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>

#include "RotavoxSource.h"

namespace android {
namespace {

// Only the format is ever asked of this upstream: nothing is decoded.
class FormatOnlySource : public MediaSource {
public:
    FormatOnlySource(audio_format_t format) : mFormat(new MetaData) {
        mFormat->setInt32(kKeySampleRate, 48000);
        mFormat->setInt32(kKeyChannelCount, 2);
        mFormat->setInt32('pfmt', format);
    }
    status_t start(MetaData*) override { return OK; }
    status_t stop() override { return OK; }
    sp<MetaData> getFormat() override { return mFormat; }
    status_t read(MediaBufferBase**, const ReadOptions*) override { return ERROR_END_OF_STREAM; }

private:
    sp<MetaData> mFormat;
};

void BM_CacheAppendAndRead(benchmark::State& state) {
    const audio_format_t format = (audio_format_t)state.range(0);
    const size_t frames = (size_t)state.range(1);
    const size_t bytesPerSample = format == AUDIO_FORMAT_PCM_24_BIT_PACKED ? 3 : 2;
    const size_t inputBytes = frames * 2 * bytesPerSample;

    sp<RotavoxSource> owner = new RotavoxSource(new FormatOnlySource(format), NULL);
    MediaBufferCache* cache = new MediaBufferCache(owner.get());
    cache->setPcmFormat(format);

    MediaBuffer* input = new MediaBuffer(inputBytes);
    memset(input->data(), 0x5a, inputBytes);
    const int64_t bufferUs = (int64_t)frames * 1000000 / 48000;
    int64_t timeUs = 0;
    for (auto _ : state) {
        input->meta_data().setInt64(kKeyTime, timeUs);
        int64_t stamped;
        cache->append(input, stamped);
        MediaBuffer* out = NULL;
        cache->read(&out, true);
        benchmark::DoNotOptimize(out);
        timeUs += bufferUs;
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * frames * 4);  // 16-bit output
    input->release();
    delete cache;
}
BENCHMARK(BM_CacheAppendAndRead)
        ->ArgNames({"format", "frames"})
        ->Args({AUDIO_FORMAT_PCM_16_BIT, 1024})
        ->Args({AUDIO_FORMAT_PCM_16_BIT, 4096})
        ->Args({AUDIO_FORMAT_PCM_24_BIT_PACKED, 1024})
        ->Args({AUDIO_FORMAT_PCM_24_BIT_PACKED, 4096});

}  // namespace
}  // namespace android
