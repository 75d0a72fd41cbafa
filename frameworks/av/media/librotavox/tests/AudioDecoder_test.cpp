// AudioDecoder over real fixtures (checked against the ffmpeg tool's own
// decode), and its edge cases driven through its handler: queue limit,
// early end of stream, stale callbacks during a seek, abort texts.

#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <system/audio.h>

#include <LogCapture.h>
#include <TestTime.h>
#include <utils/AndroidThreads.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <future>
#include <thread>

#include "AudioDecoder.h"
#include "DecoderTestSupport.h"
#include "MediaCodecBuffer.h"

namespace android {
namespace {

using namespace decodertest;
using Peer = AudioDecoderTestPeer;
using testing::LogCapture;

const char *kFlacProperty = "flac.sw.decoder.24bit.support";

class ScopedFlacProperty {
public:
    explicit ScopedFlacProperty(const char *value) { property_set(kFlacProperty, value); }
    ~ScopedFlacProperty() { property_set(kFlacProperty, "false"); }
};

sp<AudioDecoder> openDecoder(const std::string &name, ssize_t track = -1) {
    bool selected = false;
    sp<NuMediaExtractor> extractor = openExtractor(fixturePath(name), track, &selected);
    EXPECT_TRUE(selected) << name;
    return new AudioDecoder(extractor);
}

// A codec callback of kind |cbID| (none when negative) for |decoder|'s handler.
sp<AMessage> notify(const sp<AudioDecoder> &decoder, int32_t cbID) {
    sp<AMessage> msg = new AMessage(AudioDecoder::kWhatCodecNotify, Peer::reflector(decoder.get()));
    if (cbID >= 0) msg->setInt32("callbackID", cbID);
    return msg;
}

int32_t pfmtOf(const sp<AudioDecoder> &decoder) {
    int32_t pfmt = -1;
    EXPECT_TRUE(decoder->getFormat()->findInt32(AudioDecoder::kKeyPcmFormat, &pfmt));
    return pfmt;
}

int32_t channelsOf(const sp<AudioDecoder> &decoder) {
    int32_t channels = 0;
    EXPECT_TRUE(decoder->getFormat()->findInt32(kKeyChannelCount, &channels));
    return channels;
}

// The left channel of the 16-bit ramp fixtures counts frames: the frame
// index modulo 2^16.
int64_t rampFrameAt(const uint8_t *frame) {
    int16_t s;
    memcpy(&s, frame, 2);
    return s + 32768;
}

// Bytes of the last sample of |path|'s track, which the raw path gives up when
// the advance past it reports the end of the stream.
size_t lastSampleSize(const std::string &path) {
    sp<NuMediaExtractor> extractor = openExtractor(path);
    sp<ABuffer> buffer = new ABuffer(1 << 20);
    size_t last = 0;
    while (extractor->readSampleData(buffer) == OK) {
        last = buffer->size();
        if (extractor->advance() != OK) break;
    }
    return last;
}

// ---------------------------------------------------------------------------
// Whole files against the ffmpeg tool.

struct FixtureCase {
    const char *name;
    bool lossless;
    bool raw;          // passed through without a codec
    int32_t pfmt;      // expected "pfmt"
    const char *flacProperty = "false";
};

class AudioDecoderFixtureTest : public ::testing::TestWithParam<FixtureCase> {};

TEST_P(AudioDecoderFixtureTest, MatchesReferenceDecodeInAnnouncedFormat) {
    const FixtureCase &c = GetParam();
    const std::string path = fixturePath(c.name);
    ScopedFlacProperty property(c.flacProperty);
    sp<AudioDecoder> decoder = openDecoder(c.name);
    ASSERT_EQ(OK, decoder->start(nullptr));

    const int32_t pfmt = pfmtOf(decoder);
    EXPECT_EQ(c.pfmt, pfmt);
    const char *mime = nullptr;
    ASSERT_TRUE(decoder->getFormat()->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(MEDIA_MIMETYPE_AUDIO_RAW, mime);
    const int channels = channelsOf(decoder);
    ASSERT_GT(channels, 0);

    Decoded d = drain(decoder);
    EXPECT_EQ(ERROR_END_OF_STREAM, d.lastStatus);
    ASSERT_FALSE(d.pcm.empty());
    const size_t frameBytes = layoutOf(pfmt).bytes * channels;
    EXPECT_EQ(0u, d.pcm.size() % frameBytes);
    EXPECT_TRUE(std::is_sorted(d.timesUs.begin(), d.timesUs.end()));

    std::vector<uint8_t> ref = referenceDecode(path, layoutOf(pfmt).ffmpegName);
    ASSERT_FALSE(ref.empty()) << "ffmpeg could not decode " << path;

    if (c.lossless) {
        // The raw path gives up the track's last sample: the extractor
        // reports the end on the advance past it.
        if (c.raw) ref.resize(ref.size() - lastSampleSize(path));
        EXPECT_TRUE(d.pcm == ref) << d.pcm.size() << " vs " << ref.size();
    } else {
        // Lossy: the same signal, to the frame: the encoder delay and
        // padding the stream declares are gone, as in the tool's decode.
        const std::vector<double> a = toDoubles(d.pcm, pfmt, channels, 0);
        const std::vector<double> b = toDoubles(ref, pfmt, channels, 0);
        EXPECT_EQ(b.size(), a.size());
        int lag = 0;
        const double corr = bestCorrelation(a, b, 3000, &lag);
        EXPECT_GT(corr, 0.98) << "lag " << lag;
        EXPECT_EQ(0, lag);
    }
}

INSTANTIATE_TEST_SUITE_P(
        Fixtures, AudioDecoderFixtureTest,
        ::testing::Values(FixtureCase{"flac16.flac", true, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"flac24.flac", true, false, AUDIO_FORMAT_PCM_24_BIT_PACKED,
                                      "true"},
                          FixtureCase{"six.flac", true, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"twotracks.mkv", true, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"alac.m4a", true, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"wav16.wav", true, true, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"wav8.wav", true, true, AUDIO_FORMAT_PCM_8_BIT},
                          FixtureCase{"wav24.wav", true, true, AUDIO_FORMAT_PCM_24_BIT_PACKED},
                          FixtureCase{"wav32.wav", true, true, AUDIO_FORMAT_PCM_32_BIT},
                          FixtureCase{"wavfloat.wav", true, true, AUDIO_FORMAT_PCM_32_BIT},
                          FixtureCase{"aiff16.aiff", true, true, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"aiff24.aiff", true, true, AUDIO_FORMAT_PCM_24_BIT_PACKED},
                          FixtureCase{"mp3.mp3", false, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"aac.m4a", false, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"vorbis.ogg", false, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"opus.opus", false, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"wma.wma", false, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"video.mp4", false, false, AUDIO_FORMAT_PCM_16_BIT},
                          FixtureCase{"dsd.dsf", false, false, AUDIO_FORMAT_PCM_24_BIT_PACKED}),
        [](const ::testing::TestParamInfo<FixtureCase> &info) {
            std::string n = info.param.name;
            for (char &ch : n) if (!isalnum((unsigned char)ch)) ch = '_';
            return n;
        });

TEST(AudioDecoderFormatTest, PcmEncodingChoiceByMime) {
    sp<AudioDecoder> decoder = openDecoder("wav16.wav");  // no codec needed
    struct Case {
        const char *mime;
        int bits;       // 0: no "bits-per-sample"
        bool flacProperty;
        int32_t expected;
        int32_t preset = -1;  // an encoding already in the format is left alone
    } cases[] = {
        {"audio/flac", 24, false, 2},
        {"audio/FLAC", 8, false, 2},
        {"audio/flac", 24, true, 100},
        {"audio/flac", 8, true, 3},
        {"audio/flac", 0, true, 2},
        {"audio/flac", 16, true, 2},
        {"audio/x-ms-wma", 24, false, 2},
        {"AUDIO/X-MS-WMA", 24, true, 2},
        {"audio/x-ms-wma-pro", 24, false, 2},
        {"audio/x-ms-wma-lossless", 24, false, 2},
        {"audio/dsd", 16, false, 100},
        {"audio/DSD", 8, true, 100},
        {"audio/alac", 24, false, 100},
        {"audio/alac", 8, false, 3},
        {"audio/alac", 32, false, 2},
        {"audio/mpeg", 0, false, 2},
        {"audio/x-ape", 24, false, 100},
        {"audio/dsd", 0, false, 3, 3},
    };
    for (const Case &c : cases) {
        ScopedFlacProperty property(c.flacProperty ? "true" : "false");
        sp<AMessage> format = new AMessage;
        format->setString("mime", c.mime);
        if (c.bits != 0) format->setInt32("bits-per-sample", c.bits);
        if (c.preset >= 0) format->setInt32("pcm-encoding", c.preset);
        Peer::setCodecOutputFormat(decoder.get(), format);
        int32_t encoding = -1;
        EXPECT_TRUE(format->findInt32("pcm-encoding", &encoding));
        EXPECT_EQ(c.expected, encoding)
                << c.mime << " bits " << c.bits << " property " << c.flacProperty;
    }
}

TEST(AudioDecoderFormatTest, FormatIsBuiltOnceAndKeepsTrackEntries) {
    sp<AudioDecoder> decoder = openDecoder("flac16.flac");
    ASSERT_EQ(OK, decoder->start(nullptr));
    sp<MetaData> first = decoder->getFormat();
    ASSERT_NE(nullptr, first.get());
    int32_t rate = 0;
    int64_t durationUs = 0;
    EXPECT_TRUE(first->findInt32(kKeySampleRate, &rate));
    EXPECT_EQ(44100, rate);
    EXPECT_EQ(2, channelsOf(decoder));
    EXPECT_TRUE(first->findInt64(kKeyDuration, &durationUs));
    EXPECT_NEAR(3000000, durationUs, 50000);

    // A format change reported by the codec does not reach the readers.
    sp<AMessage> changed = notify(decoder, MediaCodec::CB_OUTPUT_FORMAT_CHANGED);
    sp<AMessage> newFormat = new AMessage;
    newFormat->setInt32("bit-width", 24);
    newFormat->setInt32("pcm-encoding", 100);
    changed->setMessage("format", newFormat);
    decoder->onMessageReceived(changed);

    EXPECT_EQ(AUDIO_FORMAT_PCM_16_BIT, pfmtOf(decoder));
}

// ---------------------------------------------------------------------------
// Construction and failures.

// Priority of the thread behind |looper|, asked on that thread itself.
struct PriorityProbe : public AHandler {
    std::promise<int> priority;
    void onMessageReceived(const sp<AMessage> &) override {
        priority.set_value(androidGetThreadPriority(0));
    }
};

int priorityOf(const sp<ALooper> &looper) {
    sp<PriorityProbe> probe = new PriorityProbe;
    looper->registerHandler(probe);
    (new AMessage(0, probe))->post();
    std::future<int> answer = probe->priority.get_future();
    const bool answered = answer.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    looper->unregisterHandler(probe->id());
    return answered ? answer.get() : INT32_MIN;
}

TEST(AudioDecoderSetupTest, BothLoopersRunAtAudioPriority) {
    if (geteuid() != 0) GTEST_SKIP() << "raising a thread's priority needs privileges";
    sp<AudioDecoder> decoder = openDecoder("mp3.mp3");
    ASSERT_EQ(OK, decoder->start(nullptr));
    EXPECT_EQ(ANDROID_PRIORITY_AUDIO, priorityOf(Peer::looper(decoder.get())));
    EXPECT_EQ(ANDROID_PRIORITY_AUDIO, priorityOf(Peer::codecLooper(decoder.get())));
}

// No track selected, or a track no audio codec takes (the video of
// video.mp4): start answers NO_INIT, reads the status of the failed setup.
TEST(AudioDecoderSetupTest, DecoderWithoutTrackOrCodecGivesItsStatus) {
    for (ssize_t track : {ssize_t(-1), ssize_t(0)}) {
        SCOPED_TRACE(track);
        LogCapture log;
        sp<NuMediaExtractor> extractor = new NuMediaExtractor;
        if (track < 0) {
            ASSERT_EQ(OK, extractor->setDataSource(NULL, fixturePath("flac16.flac").c_str()));
        } else {
            extractor = openExtractor(fixturePath("video.mp4"), track);
        }
        sp<AudioDecoder> decoder = new AudioDecoder(extractor);
        EXPECT_EQ(NO_INIT, decoder->start(nullptr));
        MediaBufferBase *buffer = reinterpret_cast<MediaBufferBase *>(0x1);
        const status_t created = decoder->read(&buffer, nullptr);
        EXPECT_NE(OK, created);
        EXPECT_EQ(nullptr, buffer);
        EXPECT_TRUE(log.contains("AudioDecoder",
                                 track < 0 ? "can't get audio track!"
                                           : "init decoder failed! " + std::to_string(created),
                                 ANDROID_LOG_ERROR));
        MediaSource::ReadOptions options;
        options.setSeekTo(1000000);
        EXPECT_EQ(created, decoder->read(&buffer, &options));
    }
}

TEST(AudioDecoderSetupTest, BadFilesGiveStatusesNotAborts) {
    const char *files[] = {"bad-empty.mp3", "bad-truncated.flac", "bad-truncated.m4a",
                           "bad-garbage.wav", "bad-text.mp3"};
    for (const char *name : files) {
        SCOPED_TRACE(name);
        bool selected = false;
        sp<NuMediaExtractor> extractor = openExtractor(fixturePath(name), -1, &selected);
        sp<AudioDecoder> decoder = new AudioDecoder(extractor);
        const status_t started = decoder->start(nullptr);
        if (!selected) {
            EXPECT_EQ(NO_INIT, started);
            continue;
        }
        if (started != OK) continue;
        // What opens decodes to an end or an error, never an abort or a hang.
        Decoded d = drain(decoder, 100000);
        EXPECT_NE(OK, d.lastStatus);
    }
}

// ---------------------------------------------------------------------------
// Seeks.

// A reader woken by the end-of-stream buffer reports the end before taking
// the buffers queued with it; a caller reads once more.  Near the end of a
// short file the codec can decode the rest before a loaded reader wakes.
status_t readPastEarlyEnd(const sp<AudioDecoder> &decoder, MediaBufferBase **buffer,
                          const MediaSource::ReadOptions *options) {
    status_t err = decoder->read(buffer, options);
    if (err == ERROR_END_OF_STREAM) {
        err = decoder->read(buffer, nullptr);
    }
    return err;
}

TEST(AudioDecoderSeekTest, FirstBufferAfterSeekIsDecodedAtTheNewPosition) {
    for (const char *name : {"flac16.flac", "wav16.wav", "alac.m4a"}) {
        SCOPED_TRACE(name);
        sp<AudioDecoder> decoder = openDecoder(name);
        ASSERT_EQ(OK, decoder->start(nullptr));
        const size_t frameBytes = layoutOf(pfmtOf(decoder)).bytes * channelsOf(decoder);
        int32_t rate = 0;
        ASSERT_TRUE(decoder->getFormat()->findInt32(kKeySampleRate, &rate));

        // Let the queue fill with buffers of the old position first.
        MediaBufferBase *buffer = nullptr;
        ASSERT_EQ(OK, decoder->read(&buffer, nullptr));
        buffer->release();

        for (int64_t targetUs : {2000000LL, 500000LL, 1250000LL, 0LL}) {
            MediaSource::ReadOptions options;
            options.setSeekTo(targetUs, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC);
            ASSERT_EQ(OK, readPastEarlyEnd(decoder, &buffer, &options));
            int64_t timeUs = -1;
            ASSERT_TRUE(buffer->meta_data().findInt64(kKeyTime, &timeUs));
            // The extractor lands on a sync sample at or before the target.
            EXPECT_LE(timeUs, targetUs);
            EXPECT_GT(timeUs, targetUs - 200000);
            // Its samples are those of its time stamp: the ramp counts
            // frames, so the first frame names its own position.
            ASSERT_GE(buffer->range_length(), frameBytes);
            const int64_t frame = rampFrameAt((const uint8_t *)buffer->data());
            const int64_t expected = (timeUs * rate + 500000) / 1000000;
            EXPECT_NEAR((double)(expected % 65536), (double)frame, 1.0) << timeUs;
            buffer->release();

            // Later buffers continue from there.
            ASSERT_EQ(OK, readPastEarlyEnd(decoder, &buffer, nullptr));
            int64_t nextUs = -1;
            ASSERT_TRUE(buffer->meta_data().findInt64(kKeyTime, &nextUs));
            EXPECT_GT(nextUs, timeUs);
            buffer->release();
        }
    }
}

TEST(AudioDecoderSeekTest, SeekAfterEndResumesDecoding) {
    sp<AudioDecoder> decoder = openDecoder("flac16.flac");
    ASSERT_EQ(OK, decoder->start(nullptr));
    Decoded all = drain(decoder);
    ASSERT_EQ(ERROR_END_OF_STREAM, all.lastStatus);
    MediaBufferBase *buffer = nullptr;
    // Options without a seek read like none: the end stays the end.
    MediaSource::ReadOptions noSeek;
    EXPECT_EQ(ERROR_END_OF_STREAM, decoder->read(&buffer, &noSeek));
    EXPECT_EQ(nullptr, buffer);

    MediaSource::ReadOptions options;
    options.setSeekTo(0);
    Decoded again = drain(decoder, 1000000, &options);
    EXPECT_TRUE(again.pcm == all.pcm);
}

// The file can no longer be read (its descriptor has gone bad) while the
// decoder plays: a seek then finds nothing and ends the stream, and every
// read after it, with or without a seek, answers at once.
TEST(AudioDecoderSeekTest, AnUnreadableSourceEndsTheStreamForEveryLaterRead) {
    for (const char *name : {"aac.m4a", "mp3.mp3", "flac16.flac"}) {
        SCOPED_TRACE(name);
        const std::string path = fixturePath(name);
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        const off64_t size = lseek(fd, 0, SEEK_END);
        sp<NuMediaExtractor> extractor = new NuMediaExtractor;
        ASSERT_EQ(OK, extractor->setDataSource(new FileSource(fd, 0, size)));
        ASSERT_EQ(OK, extractor->selectTrack(0));
        sp<AudioDecoder> decoder = new AudioDecoder(extractor);
        ASSERT_EQ(OK, decoder->start(nullptr));
        MediaBufferBase *buffer = nullptr;
        ASSERT_EQ(OK, decoder->read(&buffer, nullptr));
        buffer->release();

        // Same number, now write-only: reads fail with EBADF.
        const int writeOnly = open("/dev/null", O_WRONLY | O_CLOEXEC);
        ASSERT_EQ(fd, dup2(writeOnly, fd));
        close(writeOnly);

        // A read that never returns cannot be joined: give up on the process.
        auto readsOnce = [&](const MediaSource::ReadOptions *options) {
            std::promise<status_t> result;
            std::thread reader([&] {
                MediaBufferBase *b = nullptr;
                result.set_value(decoder->read(&b, options));
                if (b != nullptr) b->release();
            });
            std::future<status_t> answer = result.get_future();
            if (answer.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
                fprintf(stderr, "%s: a read after the source went bad never returned\n", name);
                abort();
            }
            reader.join();
            return answer.get();
        };
        MediaSource::ReadOptions seek;
        seek.setSeekTo(1500000, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC);
        status_t err = readsOnce(&seek);
        if (err != OK && err != ERROR_END_OF_STREAM) {
            // A failure the reader takes as final: it reads no more.
            continue;
        }
        // Whatever was decoded before may still come out; then the end.
        for (int i = 0; i < 64 && err == OK; ++i) err = readsOnce(nullptr);
        EXPECT_EQ(ERROR_END_OF_STREAM, err);
    }
}

// ---------------------------------------------------------------------------
// The handler, driven message by message.  The codec's callbacks are sent to
// a collector instead of the decoder, and the test hands them on.

class AudioDecoderFlowTest : public ::testing::Test {
protected:
    void SetUp() override {
        mCollectorLooper = new ALooper;
        mCollectorLooper->setName("DecoderTestCollector");
        mCollectorLooper->start();
        mCollector = new MessageCollector;
        mCollectorLooper->registerHandler(mCollector);
    }
    void TearDown() override {
        mDecoder.clear();
        mCollectorLooper->unregisterHandler(mCollector->id());
        mCollectorLooper->stop();
    }

    // A compressed decoder whose codec reports to the collector.
    void openRedirected(const char *name) {
        mDecoder = openDecoder(name);
        sp<MediaCodec> codec = Peer::codec(mDecoder.get());
        ASSERT_NE(nullptr, codec.get());
        ASSERT_EQ(OK, codec->setCallback(new AMessage(AudioDecoder::kWhatCodecNotify, mCollector)));
    }

    static int32_t callbackID(const sp<AMessage> &msg) {
        int32_t id = -1;
        msg->findInt32("callbackID", &id);
        return id;
    }

    // Next codec callback of kind |wanted|; callbacks of other kinds met on
    // the way are handed to the decoder (or dropped).
    sp<AMessage> nextCallback(int32_t wanted, bool forwardOthers = true) {
        for (;;) {
            sp<AMessage> msg = mCollector->next();
            if (msg == nullptr) return nullptr;
            if (callbackID(msg) == wanted) return msg;
            if (forwardOthers) mDecoder->onMessageReceived(msg);
        }
    }

    sp<AudioDecoder> mDecoder;
    sp<ALooper> mCollectorLooper;
    sp<MessageCollector> mCollector;
};

TEST_F(AudioDecoderFlowTest, InputIsDeferredAboveTwentyQueuedBuffers) {
    openRedirected("flac16.flac");
    ASSERT_EQ(OK, mDecoder->start(nullptr));
    // The codec offers its input buffers at start; take two of them.
    int32_t index1 = -1, index2 = -1;
    for (int32_t *index : {&index1, &index2}) {
        sp<AMessage> input = nextCallback(MediaCodec::CB_INPUT_AVAILABLE);
        ASSERT_TRUE(input != nullptr && input->findInt32("index", index));
    }

    for (int i = 0; i < 21; ++i) {
        MediaBufferBase *b = MediaBufferBase::Create(4);
        b->meta_data().setInt64(kKeyTime, i);
        Peer::queueBuffer(mDecoder.get(), b);
    }

    // 21 queued: deferred.
    EXPECT_EQ(WOULD_BLOCK, Peer::handleAnInputBuffer(mDecoder.get(), index1));

    // One read: 20 left, and the deferred input comes back through the
    // decoder's looper and is filled this time.
    MediaBufferBase *buffer = nullptr;
    ASSERT_EQ(OK, mDecoder->read(&buffer, nullptr));
    buffer->release();
    // The codec got the first sample: it decodes it and offers the output.
    sp<AMessage> output = nextCallback(MediaCodec::CB_OUTPUT_AVAILABLE, false);
    ASSERT_NE(nullptr, output.get());
    int64_t timeUs = -1;
    ASSERT_TRUE(output->findInt64("timeUs", &timeUs));
    EXPECT_EQ(0, timeUs);

    // 22: a read leaves 21, so the re-posted input is deferred once more.
    for (int i = 0; i < 2; ++i) Peer::queueBuffer(mDecoder.get(), MediaBufferBase::Create(4));
    EXPECT_EQ(WOULD_BLOCK, Peer::handleAnInputBuffer(mDecoder.get(), index2));
    ASSERT_EQ(OK, mDecoder->read(&buffer, nullptr));
    buffer->release();
    syncLooper(Peer::looper(mDecoder.get()));
    EXPECT_EQ(21u, Peer::queuedBuffers(mDecoder.get()));
    EXPECT_EQ(1u, Peer::pendingInputCount(mDecoder.get()));
}

TEST_F(AudioDecoderFlowTest, ReaderWaitingAtTheEndHearsOfItBeforeTheFinalBuffer) {
    openRedirected("flacmono.flac");
    ASSERT_EQ(OK, mDecoder->start(nullptr));
    const std::vector<uint8_t> ref = referenceDecode(fixturePath("flacmono.flac"), "s16le");

    // Hand every callback on, reading each buffer as it is queued, until the
    // codec offers the output flagged end of stream; hold that one.
    std::vector<uint8_t> pcm;
    sp<AMessage> eos;
    while (eos == nullptr) {
        sp<AMessage> msg = mCollector->next();
        ASSERT_NE(nullptr, msg.get()) << "codec went quiet";
        int32_t flags = 0;
        if (callbackID(msg) == MediaCodec::CB_OUTPUT_AVAILABLE &&
                msg->findInt32("flags", &flags) && (flags & MediaCodec::BUFFER_FLAG_EOS)) {
            eos = msg;
            break;
        }
        mDecoder->onMessageReceived(msg);
        if (callbackID(msg) == MediaCodec::CB_OUTPUT_AVAILABLE) {
            MediaBufferBase *buffer = nullptr;
            ASSERT_EQ(OK, mDecoder->read(&buffer, nullptr));
            const uint8_t *p = (const uint8_t *)buffer->data();
            pcm.insert(pcm.end(), p, p + buffer->range_length());
            buffer->release();
        }
    }
    ASSERT_EQ(0u, Peer::queuedBuffers(mDecoder.get()));

    // A reader waits on the empty queue.  A marker among the deferred input
    // tells when it is inside its loop; the lock is free again only once it
    // waits.
    sp<MessageCollector> marker = new MessageCollector;
    mCollectorLooper->registerHandler(marker);
    Peer::addPendingInput(mDecoder.get(), new AMessage('mark', marker));
    status_t readerStatus = OK;
    MediaBufferBase *readerBuffer = reinterpret_cast<MediaBufferBase *>(0x1);
    std::thread reader([&] { readerStatus = mDecoder->read(&readerBuffer, nullptr); });
    ASSERT_NE(nullptr, marker->next().get());
    { Mutex::Autolock l(Peer::lock(mDecoder.get())); }

    mDecoder->onMessageReceived(eos);
    reader.join();
    EXPECT_EQ(ERROR_END_OF_STREAM, readerStatus);
    EXPECT_EQ(nullptr, readerBuffer);
    EXPECT_EQ(1u, Peer::queuedBuffers(mDecoder.get()));

    // The final buffer is still there for the next read, then the end again.
    MediaBufferBase *buffer = nullptr;
    ASSERT_EQ(OK, mDecoder->read(&buffer, nullptr));
    const uint8_t *p = (const uint8_t *)buffer->data();
    pcm.insert(pcm.end(), p, p + buffer->range_length());
    buffer->release();
    EXPECT_EQ(ERROR_END_OF_STREAM, mDecoder->read(&buffer, nullptr));
    EXPECT_EQ(nullptr, buffer);
    EXPECT_EQ(ERROR_END_OF_STREAM, mDecoder->read(&buffer, nullptr));

    // Nothing was lost or reordered on the way.
    EXPECT_TRUE(pcm == ref) << pcm.size() << " vs " << ref.size();

    // Once the end is known, later outputs are left with the codec.
    mDecoder->onMessageReceived(eos);
    EXPECT_EQ(0u, Peer::queuedBuffers(mDecoder.get()));
    mCollectorLooper->unregisterHandler(marker->id());
}

TEST_F(AudioDecoderFlowTest, BufferCallbacksDuringASeekAreIgnored) {
    openRedirected("flac16.flac");
    ASSERT_EQ(OK, mDecoder->start(nullptr));
    sp<AMessage> input = nextCallback(MediaCodec::CB_INPUT_AVAILABLE);
    sp<AMessage> staleInput = nextCallback(MediaCodec::CB_INPUT_AVAILABLE);
    ASSERT_NE(nullptr, input.get());
    ASSERT_NE(nullptr, staleInput.get());
    mDecoder->onMessageReceived(input);  // one sample in
    sp<AMessage> output = nextCallback(MediaCodec::CB_OUTPUT_AVAILABLE, false);
    ASSERT_NE(nullptr, output.get());

    // Hold the decoder's looper so the seek waits behind the gate.
    sp<LooperGate> gate = new LooperGate;
    gate->close(Peer::looper(mDecoder.get()));
    gate->waitClosed();

    MediaBufferBase *afterSeek = nullptr;
    status_t seekStatus = UNKNOWN_ERROR;
    std::atomic<bool> readerDone(false);
    std::thread reader([&] {
        MediaSource::ReadOptions options;
        options.setSeekTo(1500000);
        // The file ends 1.5 s past the target: the decoder can reach its end
        // before a slow reader wakes.
        seekStatus = readPastEarlyEnd(mDecoder, &afterSeek, &options);
        readerDone = true;
    });
    // The reader marks the seek before it posts; nothing else to wait on.
    while (!Peer::seeking(mDecoder.get())) std::this_thread::yield();

    // Callbacks of the old position change nothing now.
    int64_t sampleUsBefore = -1, sampleUsAfter = -2;
    ASSERT_EQ(OK, Peer::extractor(mDecoder.get())->getSampleTime(&sampleUsBefore));
    mDecoder->onMessageReceived(output);
    mDecoder->onMessageReceived(staleInput);
    ASSERT_EQ(OK, Peer::extractor(mDecoder.get())->getSampleTime(&sampleUsAfter));
    EXPECT_EQ(sampleUsBefore, sampleUsAfter);
    EXPECT_EQ(0u, Peer::queuedBuffers(mDecoder.get()));
    int32_t index = -1;
    ASSERT_TRUE(output->findInt32("index", &index));
    sp<MediaCodecBuffer> stillOwned;
    EXPECT_EQ(OK, Peer::codec(mDecoder.get())->getOutputBuffer(index, &stillOwned));

    // What the codec offered before the seek names its old state.
    while (mCollector->next(std::chrono::milliseconds(0)) != nullptr) {}

    gate->open();
    // After the flush and restart, the codec's new callbacks are handled.
    while (!readerDone) {
        sp<AMessage> msg = mCollector->next(std::chrono::milliseconds(100));
        if (msg != nullptr) mDecoder->onMessageReceived(msg);
    }
    reader.join();
    Peer::looper(mDecoder.get())->unregisterHandler(gate->id());
    ASSERT_EQ(OK, seekStatus);
    afterSeek->release();
}

TEST_F(AudioDecoderFlowTest, CodecErrorOnlyLogsAndDecodingGoesOn) {
    LogCapture log;
    openRedirected("flac16.flac");
    ASSERT_EQ(OK, mDecoder->start(nullptr));
    sp<AMessage> err = notify(mDecoder, MediaCodec::CB_ERROR);
    err->setInt32("err", (int32_t)0x80001001);
    mDecoder->onMessageReceived(err);
    EXPECT_TRUE(log.contains("AudioDecoder", "Decoder reported error : 0x80001001",
                             ANDROID_LOG_ERROR));

    // Decoding goes on as before.
    sp<AMessage> input = nextCallback(MediaCodec::CB_INPUT_AVAILABLE);
    ASSERT_NE(nullptr, input.get());
    mDecoder->onMessageReceived(input);
    sp<AMessage> output = nextCallback(MediaCodec::CB_OUTPUT_AVAILABLE);
    ASSERT_NE(nullptr, output.get());
    mDecoder->onMessageReceived(output);
    EXPECT_EQ(1u, Peer::queuedBuffers(mDecoder.get()));
}

// ---------------------------------------------------------------------------
// Raw PCM.

TEST(AudioDecoderRawTest, LargeSamplesAreReadWholeAndTheLastIsDropped) {
    // PCM in Matroska with 20000-frame blocks: 80000-byte samples, beyond two
    // doublings of the read buffer.
    const std::string path = ::testing::TempDir() + "rotavox-decoder-bigblocks.mkv";
    const std::string cmd =
            "ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi -i "
            "\"aevalsrc=exprs='mod(n,65536)/32768-1|(65535-mod(n,65536))/32768-1':s=44100:d=2\" "
            "-af asetnsamples=n=20000:p=0 -c:a pcm_s16le '" + path + "'";
    ASSERT_EQ(0, system(cmd.c_str()));

    LogCapture log;
    sp<AudioDecoder> decoder = new AudioDecoder(openExtractor(path));
    ASSERT_EQ(OK, decoder->start(nullptr));
    EXPECT_EQ(AUDIO_FORMAT_PCM_16_BIT, pfmtOf(decoder));

    Decoded d = drain(decoder);
    EXPECT_EQ(ERROR_END_OF_STREAM, d.lastStatus);
    // 88200 frames in blocks of 20000: four whole blocks and one of 8200
    // frames, which the raw path gives up when the advance past it reports
    // the end.
    const std::vector<uint8_t> ref = referenceDecode(path, "s16le");
    ASSERT_EQ(88200u * 4, ref.size());
    ASSERT_EQ(std::vector<size_t>(4, 80000u), d.sizes);
    EXPECT_TRUE(std::equal(d.pcm.begin(), d.pcm.end(), ref.begin()));
    for (size_t i = 0; i < d.timesUs.size(); ++i) {
        EXPECT_NEAR(i * 20000 * 1000000.0 / 44100, (double)d.timesUs[i], 1000.0);
    }
    EXPECT_EQ(1, log.count("AudioDecoder", "Extractor advance reach end of stream!",
                           ANDROID_LOG_WARN));

    // A seek clears the end and reads the same blocks again.
    MediaSource::ReadOptions options;
    options.setSeekTo(0);
    Decoded again = drain(decoder, 100, &options);
    EXPECT_TRUE(again.pcm == d.pcm);
    unlink(path.c_str());
}

// ---------------------------------------------------------------------------
// Abort texts for broken messages.

class AudioDecoderDeathTest : public ::testing::Test {
protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        mDecoder = openDecoder("wav16.wav");
    }
    sp<AudioDecoder> mDecoder;
};

#define RV_PREFIX "frameworks/av/media/librotavox/AudioDecoder:"

TEST_F(AudioDecoderDeathTest, MissingCallbackEntriesAbortWithTheirLine) {
    EXPECT_DEATH(mDecoder->onMessageReceived(notify(mDecoder, -1)),
                 RV_PREFIX "487 CHECK\\(msg->findInt32\\(\"callbackID\", &cbID\\)\\) failed\\.");
    EXPECT_DEATH(mDecoder->onMessageReceived(notify(mDecoder, 1)),
                 RV_PREFIX "498 CHECK\\(msg->findInt32\\(\"index\", &index\\)\\) failed\\.");
    sp<AMessage> out = notify(mDecoder, 2);
    EXPECT_DEATH(mDecoder->onMessageReceived(out),
                 RV_PREFIX "515 CHECK\\(msg->findInt32\\(\"index\", &index\\)\\) failed\\.");
    out->setInt32("index", 0);
    EXPECT_DEATH(mDecoder->onMessageReceived(out),
                 RV_PREFIX "516 CHECK\\(msg->findSize\\(\"offset\", &offset\\)\\) failed\\.");
    out->setSize("offset", 0);
    EXPECT_DEATH(mDecoder->onMessageReceived(out),
                 RV_PREFIX "517 CHECK\\(msg->findSize\\(\"size\", &size\\)\\) failed\\.");
    out->setSize("size", 0);
    EXPECT_DEATH(mDecoder->onMessageReceived(out),
                 RV_PREFIX "518 CHECK\\(msg->findInt64\\(\"timeUs\", &timeUs\\)\\) failed\\.");
    out->setInt64("timeUs", 0);
    EXPECT_DEATH(mDecoder->onMessageReceived(out),
                 RV_PREFIX "519 CHECK\\(msg->findInt32\\(\"flags\", &flags\\)\\) failed\\.");
    EXPECT_DEATH(mDecoder->onMessageReceived(notify(mDecoder, 4)),
                 RV_PREFIX "528 CHECK\\(msg->findMessage\\(\"format\", &format\\)\\) failed\\.");
    EXPECT_DEATH(mDecoder->onMessageReceived(notify(mDecoder, 3)),
                 RV_PREFIX "538 CHECK\\(msg->findInt32\\(\"err\", &err\\)\\) failed\\.");
}

TEST_F(AudioDecoderDeathTest, UnknownCallbacksAndMessagesAreIgnored) {
    mDecoder->onMessageReceived(notify(mDecoder, 5));
    mDecoder->onMessageReceived(notify(mDecoder, 99));
    mDecoder->onMessageReceived(new AMessage('what', Peer::reflector(mDecoder.get())));
    EXPECT_EQ(0u, Peer::queuedBuffers(mDecoder.get()));
}

TEST_F(AudioDecoderDeathTest, SeekWithoutReplyTokenOrEntriesAborts) {
    sp<AMessage> seek = new AMessage(AudioDecoder::kWhatSeek, Peer::reflector(mDecoder.get()));
    seek->setInt64("seekToUs", 0);
    seek->setInt32("seekMode", 0);
    EXPECT_DEATH(mDecoder->onMessageReceived(seek),
                 RV_PREFIX "477 CHECK\\(msg->senderAwaitsResponse\\(&replyID\\)\\) failed\\.");

    // Posted with a reply token, each without one of its entries.
    auto postSeekWithout = [&](const char *missing) {
        sp<AMessage> m = new AMessage(AudioDecoder::kWhatSeek, Peer::reflector(mDecoder.get()));
        if (strcmp(missing, "seekToUs") != 0) m->setInt64("seekToUs", 0);
        if (strcmp(missing, "seekMode") != 0) m->setInt32("seekMode", 0);
        sp<AMessage> response;
        m->postAndAwaitResponse(&response);
    };
    EXPECT_DEATH(postSeekWithout("seekToUs"),
                 RV_PREFIX "438 CHECK\\(msg->findInt64\\(\"seekToUs\", &seekUs\\)\\) failed\\.");
    EXPECT_DEATH(postSeekWithout("seekMode"),
                 RV_PREFIX "439 CHECK\\(msg->findInt32\\(\"seekMode\", \\(int32_t\\*\\)&mode\\)\\) failed\\.");
}

TEST_F(AudioDecoderDeathTest, FormatOfAnUnselectedTrackAborts) {
    sp<NuMediaExtractor> extractor = new NuMediaExtractor;
    ASSERT_EQ(OK, extractor->setDataSource(NULL, fixturePath("flac16.flac").c_str()));
    sp<AudioDecoder> decoder = new AudioDecoder(extractor);
    EXPECT_DEATH(decoder->getFormat(),
                 RV_PREFIX "184 CHECK_EQ\\( err,\\(status_t\\)OK\\) failed: -?[0-9]+ vs\\. 0");
}

}  // namespace
}  // namespace android
