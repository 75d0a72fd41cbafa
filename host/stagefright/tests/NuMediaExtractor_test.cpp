// NuMediaExtractor on FFmpeg: track formats of every fixture, raw PCM against
// the ffmpeg tool's decode, seek modes checked with samples that tell their
// own position, descriptors with offset and length, data sources, bad files.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <media/DataSource.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/NuMediaExtractor.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>

#include "Fixtures.h"
#include "LogCapture.h"
#include "MemoryDataSource.h"

namespace android {
namespace {

using testing::fixtureExists;
using testing::fixturePath;
using testing::referenceDecode;
using SeekMode = MediaSource::ReadOptions::SeekMode;

class ExtractorTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!fixtureExists("wav16.wav")) GTEST_SKIP() << "fixtures missing: build target 'fixtures'";
    }

    static sp<NuMediaExtractor> open(const std::string& name, status_t* err = nullptr) {
        sp<NuMediaExtractor> ex = new NuMediaExtractor;
        status_t e = ex->setDataSource(NULL, fixturePath(name).c_str());
        if (err != nullptr) *err = e;
        return e == OK ? ex : nullptr;
    }

    // Every sample of the selected tracks, concatenated.
    static std::vector<uint8_t> readAll(const sp<NuMediaExtractor>& ex,
                                        std::vector<int64_t>* times = nullptr) {
        std::vector<uint8_t> out;
        sp<ABuffer> buffer = new ABuffer(1 << 20);
        while (ex->readSampleData(buffer) == OK) {
            int64_t t = -1;
            EXPECT_EQ(OK, ex->getSampleTime(&t));
            if (times != nullptr) times->push_back(t);
            out.insert(out.end(), buffer->data(), buffer->data() + buffer->size());
            if (ex->advance() != OK) break;
        }
        return out;
    }
};

// ---- Track formats. ----

struct FormatCase {
    const char* file;
    size_t track;
    const char* mime;
    int32_t rate;
    int32_t channels;
    int64_t durationUs;
    int64_t toleranceUs;  // one codec frame, and the encoder delay for MP3
    int32_t bits;         // 0: the container does not know
};

class FormatTest : public ExtractorTest, public ::testing::WithParamInterface<FormatCase> {};

TEST_P(FormatTest, ReportsTheTrack) {
    const FormatCase& c = GetParam();
    sp<NuMediaExtractor> ex = open(c.file);
    ASSERT_NE(nullptr, ex.get());
    ASSERT_GT(ex->countTracks(), c.track);
    sp<AMessage> format;
    ASSERT_EQ(OK, ex->getTrackFormat(c.track, &format));
    AString mime;
    int32_t bits = 0, maxInputSize = 0;
    int64_t durationUs = -1;
    ASSERT_TRUE(format->findString("mime", &mime));
    EXPECT_STREQ(c.mime, mime.c_str());
    int32_t rate = 0, channels = 0;
    EXPECT_TRUE(format->findInt32("sample-rate", &rate) && format->findInt32("channel-count", &channels));
    EXPECT_EQ(std::make_pair(c.rate, c.channels), std::make_pair(rate, channels));
    EXPECT_TRUE(format->findInt64("durationUs", &durationUs));
    EXPECT_NEAR(c.durationUs, durationUs, c.toleranceUs);
    EXPECT_TRUE(format->findInt32("max-input-size", &maxInputSize));
    if (c.bits > 0) {
        EXPECT_TRUE(format->findInt32("bits-per-sample", &bits));
        EXPECT_EQ(c.bits, bits);
    }

    // The first sample of the track is at time 0.
    ASSERT_EQ(OK, ex->selectTrack(c.track));
    int64_t firstUs = -1;
    ASSERT_EQ(OK, ex->getSampleTime(&firstUs));
    EXPECT_EQ(0, firstUs);
    // Every sample fits the announced maximum input size.
    sp<ABuffer> buffer = new ABuffer(maxInputSize);
    status_t advanceErr = OK;
    int64_t lastUs = -1;
    while (ex->readSampleData(buffer) == OK) {
        int64_t t;
        ASSERT_EQ(OK, ex->getSampleTime(&t));
        EXPECT_GE(t, lastUs);
        lastUs = t;
        if ((advanceErr = ex->advance()) != OK) break;
    }
    // As on the platform, stepping off the last sample is the end of the stream.
    EXPECT_EQ(ERROR_END_OF_STREAM, advanceErr);
    EXPECT_EQ(ERROR_END_OF_STREAM, ex->readSampleData(buffer));
    // Times count from the first sample, priming included.
    EXPECT_LE(lastUs, durationUs + c.toleranceUs);
}

constexpr int64_t k3s = 3000000;
INSTANTIATE_TEST_SUITE_P(
        Fixtures, FormatTest,
        ::testing::Values(
                FormatCase{"wav16.wav", 0, "audio/raw", 44100, 2, k3s, 100, 16},
                FormatCase{"wav8.wav", 0, "audio/raw", 44100, 2, k3s, 100, 8},
                FormatCase{"wav24.wav", 0, "audio/raw", 44100, 2, k3s, 100, 24},
                FormatCase{"wav32.wav", 0, "audio/raw", 44100, 2, k3s, 100, 32},
                FormatCase{"wavfloat.wav", 0, "audio/raw", 44100, 2, k3s, 100, 32},
                FormatCase{"wav16mono.wav", 0, "audio/raw", 22050, 1, k3s, 100, 16},
                FormatCase{"aiff16.aiff", 0, "audio/raw", 44100, 2, k3s, 100, 16},
                FormatCase{"aiff24.aiff", 0, "audio/raw", 48000, 2, k3s, 100, 24},
                FormatCase{"flac16.flac", 0, "audio/flac", 44100, 2, k3s, 104490, 16},
                FormatCase{"flac24.flac", 0, "audio/flac", 96000, 2, k3s, 48000, 24},
                FormatCase{"flacmono.flac", 0, "audio/flac", 44100, 1, k3s, 104490, 16},
                FormatCase{"six.flac", 0, "audio/flac", 44100, 6, k3s, 104490, 16},
                FormatCase{"alac.m4a", 0, "audio/alac", 44100, 2, k3s, 92880, 16},
                FormatCase{"mp3.mp3", 0, "audio/mpeg", 44100, 2, k3s, 52244, 0},
                FormatCase{"mp3mono.mp3", 0, "audio/mpeg", 22050, 1, k3s, 78367, 0},
                FormatCase{"aac.m4a", 0, "audio/mp4a-latm", 44100, 2, k3s, 23220, 0},
                FormatCase{"vorbis.ogg", 0, "audio/vorbis", 44100, 2, k3s, 46440, 0},
                FormatCase{"opus.opus", 0, "audio/opus", 48000, 2, k3s, 20000, 0},
                FormatCase{"wma.wma", 0, "audio/x-ms-wma", 44100, 2, k3s, 46440, 0},
                FormatCase{"twotracks.mkv", 0, "audio/flac", 44100, 2, k3s, 104490, 16},
                FormatCase{"twotracks.mkv", 1, "audio/flac", 44100, 2, k3s, 104490, 16},
                FormatCase{"video.mp4", 1, "audio/mp4a-latm", 44100, 2, k3s, 23220, 0},
                FormatCase{"dsd.dsf", 0, "audio/dsd", 352800, 2, 1000000, 11610, 0}),
        [](const ::testing::TestParamInfo<FormatCase>& info) {
            std::string n = info.param.file;
            for (char& ch : n) if (!isalnum((unsigned char)ch)) ch = '_';
            return n + "_" + std::to_string(info.param.track);
        });

TEST_F(ExtractorTest, VideoTrackHasAVideoMime) {
    sp<NuMediaExtractor> ex = open("video.mp4");
    ASSERT_NE(nullptr, ex.get());
    sp<AMessage> format;
    AString mime;
    ASSERT_EQ(OK, ex->getTrackFormat(0, &format));
    ASSERT_TRUE(format->findString("mime", &mime));
    EXPECT_STREQ("video/mp4v-es", mime.c_str());
}

// Raw PCM against the ffmpeg tool's decode: AudioDecoder_test, every raw
// fixture; DataSourceFeedsTheDemuxer below, to the last sample.

// ---- Seeking, checked against the position the samples carry. ----

// The left channel of wav16.wav is the frame index as a 16-bit ramp.
int64_t frameOfFirstSample(const sp<ABuffer>& buffer) {
    const int16_t left = (int16_t)(buffer->data()[0] | (buffer->data()[1] << 8));
    return left + 32768;  // modulo 65536
}

TEST_F(ExtractorTest, CompressedSeekLandsOnThePacketHoldingTheTarget) {
    for (const char* file : {"flac16.flac", "mp3.mp3", "aac.m4a", "vorbis.ogg", "opus.opus",
                             "twotracks.mkv", "alac.m4a"}) {
        SCOPED_TRACE(file);
        sp<NuMediaExtractor> ex = open(file);
        ASSERT_NE(nullptr, ex.get());
        ASSERT_EQ(OK, ex->selectTrack(0));
        // The packet grid, read straight through.
        std::vector<int64_t> grid;
        readAll(ex, &grid);
        ASSERT_GT(grid.size(), 4u);
        for (int64_t targetUs : {2100000LL, 400000LL, 1500000LL}) {
            ASSERT_EQ(OK, ex->seekTo(targetUs, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC));
            int64_t timeUs = -1;
            ASSERT_EQ(OK, ex->getSampleTime(&timeUs));
            // The last packet starting at or before the target.
            int64_t expected = grid[0];
            for (int64_t t : grid) if (t <= targetUs) expected = t;
            EXPECT_EQ(expected, timeUs) << "target " << targetUs;
        }
    }
}

// Random seeks in every mode and random steps: each sample's time stamp tells
// the truth about its content, and each seek lands where its mode says.
TEST_F(ExtractorTest, RandomSeeksAndStepsKeepTimeAndContentInStep) {
    sp<NuMediaExtractor> ex = open("wav16.wav");
    ASSERT_NE(nullptr, ex.get());
    ASSERT_EQ(OK, ex->selectTrack(0));
    std::mt19937 rng(1234);
    sp<ABuffer> buffer = new ABuffer(1 << 16);
    for (int step = 0; step < 600; ++step) {
        SCOPED_TRACE(::testing::Message() << "step " << step);
        int64_t targetUs = -1;
        SeekMode mode = MediaSource::ReadOptions::SEEK_CLOSEST;
        if (rng() % 2 == 0) {
            targetUs = rng() % 3100000;
            mode = (SeekMode)(rng() % 4);
            ex->seekTo(targetUs, mode);
        } else {
            for (int n = rng() % 8; n > 0; --n) ex->advance();
        }
        int64_t timeUs;
        size_t index;
        if (ex->getSampleTime(&timeUs) != OK) {
            EXPECT_EQ(ERROR_END_OF_STREAM, ex->getSampleTrackIndex(&index));
            EXPECT_EQ(ERROR_END_OF_STREAM, ex->readSampleData(buffer));
            EXPECT_TRUE(targetUs < 0 || targetUs > 2900000) << targetUs;
            continue;
        }
        ASSERT_EQ(OK, ex->getSampleTrackIndex(&index));
        ASSERT_EQ(OK, ex->readSampleData(buffer));
        const int64_t frame = (timeUs * 44100 + 500000) / 1000000;
        ASSERT_EQ(frame % 65536, frameOfFirstSample(buffer));
        if (targetUs < 0 || targetUs >= 3000000) continue;  // a step, or past the last frame
        const int64_t endUs = timeUs + (int64_t)buffer->size() / 4 * 1000000 / 44100;
        if (mode == MediaSource::ReadOptions::SEEK_NEXT_SYNC) {
            EXPECT_GE(timeUs, targetUs);
            EXPECT_LT(timeUs - targetUs, 100000);
        } else {  // the sample that holds the target
            EXPECT_LE(timeUs, targetUs);
            EXPECT_GT(endUs, targetUs);
        }
    }
    EXPECT_EQ(ERROR_END_OF_STREAM, ex->seekTo(10000000, MediaSource::ReadOptions::SEEK_NEXT_SYNC));
    EXPECT_EQ(OK, ex->seekTo(0, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC));
}

// A buffer too small for the sample is refused and the sample stays.
TEST_F(ExtractorTest, TooSmallBufferLosesNothing) {
    sp<NuMediaExtractor> ex = open("wav16.wav");
    ASSERT_NE(nullptr, ex.get());
    ASSERT_EQ(OK, ex->selectTrack(0));
    ASSERT_EQ(OK, ex->advance());
    size_t size = 0;
    int64_t timeUs = -1;
    ASSERT_EQ(OK, ex->getSampleSize(&size));
    ASSERT_EQ(OK, ex->getSampleTime(&timeUs));
    sp<ABuffer> small = new ABuffer(size - 1), big = new ABuffer(size);
    EXPECT_EQ(NO_MEMORY, ex->readSampleData(small));
    ASSERT_EQ(OK, ex->readSampleData(big));
    EXPECT_EQ(size, big->size());
    EXPECT_EQ((timeUs * 44100 + 500000) / 1000000 % 65536, frameOfFirstSample(big));
}

// ---- Descriptors, byte ranges and data sources. ----

// The exact range plays the embedded file.  As on the platform, a range that
// does not fit the file is cut down to what it covers, with a warning, rather
// than refused: from the embedded file's start, a megabyte asked for gives the
// file and the padding behind it, which FLAC ignores.
TEST_F(ExtractorTest, DescriptorRangesPlayTheEmbeddedFileAndAreCutToTheFile) {
    // embedded.bin holds flac16.flac between padding; embedded.txt says where.
    long long offset = 0, length = 0;
    std::ifstream(fixturePath("embedded.txt")) >> offset >> length;
    ASSERT_GT(length, 0) << "embedded.txt is unreadable";
    int fd = ::open(fixturePath("embedded.bin").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    const off64_t size = lseek(fd, 0, SEEK_END);
    sp<NuMediaExtractor> plain = open("flac16.flac");
    ASSERT_NE(nullptr, plain.get());
    ASSERT_EQ(OK, plain->selectTrack(0));
    const std::vector<uint8_t> direct = readAll(plain);
    ASSERT_FALSE(direct.empty());
    for (long long asked : {length, 1LL << 20}) {
        testing::LogCapture log;
        sp<NuMediaExtractor> ex = new NuMediaExtractor;
        ASSERT_EQ(OK, ex->setDataSource(fd, offset, asked));
        ASSERT_EQ(1u, ex->countTracks());
        ASSERT_EQ(OK, ex->selectTrack(0));
        // The padding the longer range takes in rides on the last packet.
        const std::vector<uint8_t> got = readAll(ex);
        ASSERT_GE(got.size(), direct.size());
        EXPECT_TRUE(std::equal(direct.begin(), direct.end(), got.begin())) << "range of " << asked;
        EXPECT_EQ(asked == length, got.size() == direct.size()) << "range of " << asked;
        const std::string adjusted = "offset/length adjusted from " + std::to_string(offset) +
                                     "/" + std::to_string(asked) + " to " +
                                     std::to_string(offset) + "/" + std::to_string(size - offset);
        EXPECT_EQ(asked != length, log.contains("FileSource", adjusted, ANDROID_LOG_WARN))
                << adjusted;
    }
    ::close(fd);  // the extractors keep their own descriptors
}

TEST_F(ExtractorTest, BadDescriptorsAndRangesAreRefused) {
    testing::LogCapture log;
    int fd = ::open(fixturePath("embedded.bin").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    const off64_t size = lseek(fd, 0, SEEK_END);
    int dir = ::open(getenv("ROTAVOX_FIXTURES"), O_RDONLY | O_DIRECTORY);
    ASSERT_GE(dir, 0);
    int closed = ::dup(fd);
    ::close(closed);
    const struct {
        int fd;
        off64_t offset, length;
    } cases[] = {
            {fd, size - 100, 200},  // cut down to the padding at the end
            {fd, size + 10, 10},    // empty: starts past the end
            {fd, -5, 10},           // padding from the start
            {fd, 0, -1},            // empty
            {fd, 0, 4096},          // only padding bytes
            {closed, 0, 100},
            {-1, 0, 100},
            {dir, 0, 100},
    };
    for (const auto& c : cases) {
        sp<NuMediaExtractor> ex = new NuMediaExtractor;
        EXPECT_NE(OK, ex->setDataSource(c.fd, c.offset, c.length)) << c.offset << "/" << c.length;
        EXPECT_EQ(0u, ex->countTracks());
    }
    ::close(fd);
    ::close(dir);
    EXPECT_GE(log.count("", "", ANDROID_LOG_ERROR), 6);
}

std::vector<uint8_t> fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

TEST_F(ExtractorTest, DataSourceFeedsTheDemuxer) {
    sp<NuMediaExtractor> ex = new NuMediaExtractor;
    ASSERT_EQ(OK, ex->setDataSource(new testing::MemoryDataSource(fileBytes(fixturePath("aiff16.aiff")))));
    ASSERT_EQ(OK, ex->selectTrack(0));
    std::vector<uint8_t> ours = readAll(ex);
    EXPECT_TRUE(ours == referenceDecode(fixturePath("aiff16.aiff"), "s16le"));

    // A source that fails to read is an error status, not a crash.
    ex = new NuMediaExtractor;
    EXPECT_NE(OK, ex->setDataSource(new testing::MemoryDataSource(fileBytes(fixturePath("mp3.mp3")), 0)));
    EXPECT_NE(OK, ex->setDataSource(NULL, nullptr));
}

// ---- Bad files: a status and a log line, never a crash. ----

TEST_F(ExtractorTest, BadFilesGiveAnErrorStatus) {
    for (const char* file : {"bad-empty.mp3", "bad-truncated.flac", "bad-truncated.m4a",
                             "bad-garbage.wav", "bad-text.mp3", "no-such-file.wav"}) {
        SCOPED_TRACE(file);
        testing::LogCapture log;
        status_t err = OK;
        open(file, &err);
        EXPECT_NE(OK, err);
        EXPECT_TRUE(log.contains("NuMediaExtractor", "setDataSource", ANDROID_LOG_ERROR));
        // Also through a descriptor.
        int fd = ::open(fixturePath(file).c_str(), O_RDONLY);
        if (fd < 0) continue;  // the missing file has no descriptor
        sp<NuMediaExtractor> byFd = new NuMediaExtractor;
        EXPECT_NE(OK, byFd->setDataSource(fd, 0, lseek(fd, 0, SEEK_END)));
        ::close(fd);
        EXPECT_EQ(0u, byFd->countTracks());
        size_t index;
        EXPECT_NE(OK, byFd->getSampleTrackIndex(&index));
    }
}

}  // namespace
}  // namespace android
