// MediaCodec on FFmpeg, driven in asynchronous mode the way a platform client
// drives it.  The oracle for every decode is the ffmpeg command-line tool:
// bit-exact for lossless formats, highly correlated for lossy ones.

#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <media/stagefright/MediaCodec.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>

#include "CodecClient.h"
#include "Fixtures.h"
#include "LogCapture.h"

namespace android {
namespace {

using testing::CodecClient;
using testing::fixtureExists;
using testing::fixturePath;
using testing::referenceDecode;

// Decodes a whole fixture through extractor + codec.
struct Decoded {
    status_t err = UNKNOWN_ERROR;
    bool eos = false;
    std::vector<uint8_t> pcm;
    std::vector<CodecClient::Output> outputs;
    sp<AMessage> outputFormat;
    int errors = 0;
};

Decoded decodeFixture(const std::string& name, int audioIndex = 0, int32_t pcmEncoding = -1) {
    Decoded d;
    sp<CodecClient> client = new CodecClient;
    d.err = client->open(fixturePath(name), audioIndex, pcmEncoding);
    if (d.err == OK) d.err = client->start();
    if (d.err == OK) {
        d.eos = client->waitForEos();
        d.pcm = client->pcm();
        d.outputs = client->outputs();
        d.errors = client->errors();
        client->mCodec->getOutputFormat(&d.outputFormat);
    }
    client->shutdown();
    return d;
}

class CodecTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!fixtureExists("flac16.flac")) GTEST_SKIP() << "fixtures missing: build target 'fixtures'";
    }
};

// ---- Lossless: bit-exact against the ffmpeg tool.  Only the conversions and
// tracks AudioDecoder_test does not already take through this codec. ----

struct LosslessCase {
    const char* file;
    int audioIndex;
    int32_t pcmEncoding;
    const char* refFormat;
    int bitWidth;
};

// Named by their file: gtest would otherwise print the structs' bytes,
// padding included, which memcheck rightly calls uninitialised.
void PrintTo(const LosslessCase& c, std::ostream* os) { *os << c.file; }

class LosslessTest : public CodecTest, public ::testing::WithParamInterface<LosslessCase> {};

TEST_P(LosslessTest, MatchesFfmpegBitForBit) {
    const LosslessCase& c = GetParam();
    Decoded d = decodeFixture(c.file, c.audioIndex, c.pcmEncoding);
    ASSERT_EQ(OK, d.err);
    ASSERT_TRUE(d.eos) << "no end of stream";
    EXPECT_EQ(0, d.errors);
    std::vector<uint8_t> ref = referenceDecode(fixturePath(c.file), c.refFormat, c.audioIndex);
    ASSERT_FALSE(ref.empty());
    ASSERT_EQ(ref.size(), d.pcm.size());
    EXPECT_TRUE(ref == d.pcm);

    int32_t bitWidth = 0, encoding = 0;
    AString mime;
    ASSERT_NE(nullptr, d.outputFormat.get());
    EXPECT_TRUE(d.outputFormat->findString("mime", &mime));
    EXPECT_STREQ("audio/raw", mime.c_str());
    EXPECT_TRUE(d.outputFormat->findInt32("bit-width", &bitWidth));
    EXPECT_EQ(c.bitWidth, bitWidth);
    EXPECT_TRUE(d.outputFormat->findInt32("pcm-encoding", &encoding));
}

INSTANTIATE_TEST_SUITE_P(
        Fixtures, LosslessTest,
        ::testing::Values(
                LosslessCase{"flac16.flac", 0, 3, "u8", 8},
                LosslessCase{"flac24.flac", 0, 2, "s16le", 16},
                LosslessCase{"flacmono.flac", 0, 2, "s16le", 16},
                LosslessCase{"twotracks.mkv", 1, 2, "s16le", 16},
                LosslessCase{"dsd.dsf", 0, 100, "s24le", 24}),
        [](const ::testing::TestParamInfo<LosslessCase>& info) {
            std::string n = info.param.file;
            for (char& ch : n) if (!isalnum((unsigned char)ch)) ch = '_';
            return n + "_track" + std::to_string(info.param.audioIndex) + "_" +
                    info.param.refFormat;
        });

// Lossy files go through the codec in AudioDecoder_test, against the same
// tool and to the frame.

// ---- Time stamps, lifecycle, errors. ----
// Flushing and restarting at a new position: AudioDecoder_test, against the
// ramp the samples carry.

TEST_F(CodecTest, OutputTimesFollowTheDecodedFrames) {
    Decoded d = decodeFixture("flac16.flac", 0, 2);
    ASSERT_EQ(OK, d.err);
    ASSERT_GT(d.outputs.size(), 10u);
    EXPECT_EQ(0, d.outputs[0].timeUs);
    for (const CodecClient::Output& o : d.outputs) {
        // Each buffer's stamp is the time of its first frame.
        const int64_t frame = o.offset / 4;
        EXPECT_NEAR(frame * 1000000.0 / 44100, (double)o.timeUs, 1.0) << "at frame " << frame;
    }
}

// Stopped, the codec needs configure() and a callback again; at the end it
// refuses buffers the client does not own.
TEST_F(CodecTest, StopLeavesTheCodecUnconfigured) {
    sp<CodecClient> client = new CodecClient;
    ASSERT_EQ(OK, client->open(fixturePath("mp3.mp3"), 0, 2));
    ASSERT_EQ(OK, client->start());
    ASSERT_TRUE(client->waitForBytes(16384));
    ASSERT_EQ(OK, client->mCodec->stop());
    // As on a device: no start() without configure(), and the callback is gone.
    EXPECT_EQ(INVALID_OPERATION, client->mCodec->start());
    sp<AMessage> format;
    EXPECT_EQ(INVALID_OPERATION, client->mCodec->getOutputFormat(&format));
    ASSERT_EQ(OK, client->mCodec->configure(client->mTrackFormat, NULL, NULL, 0));
    ASSERT_EQ(OK, client->mCodec->setCallback(new AMessage(CodecClient::kWhatCallback, client)));
    ASSERT_EQ(OK, client->mCodec->start());
    ASSERT_TRUE(client->waitForEos());

    // Every output buffer went back to the codec.
    sp<MediaCodec> codec = client->mCodec;
    EXPECT_EQ(-EACCES, codec->releaseOutputBuffer(0));
    sp<MediaCodecBuffer> buffer;
    EXPECT_EQ(INVALID_OPERATION, codec->getOutputBuffer(0, &buffer));
    EXPECT_EQ(nullptr, buffer.get());
    client->shutdown();
}

TEST_F(CodecTest, BadPacketsAreReportedAndDecodingGoesOn) {
    sp<CodecClient> client = new CodecClient;
    ASSERT_EQ(OK, client->open(fixturePath("flac16.flac"), 0, 2));
    // Wreck every tenth frame (keeping the sync code, so the decoder
    // notices a bad frame rather than no frame).
    client->mCorrupt = [](size_t index, uint8_t* data, size_t size) {
        if (index % 10 == 5) {
            for (size_t i = 6; i < size; ++i) data[i] ^= 0x5a;
        }
    };
    ASSERT_EQ(OK, client->start());
    ASSERT_TRUE(client->waitForEos());
    EXPECT_GT(client->errors(), 0);
    EXPECT_EQ(0, client->incompleteErrors());
    EXPECT_EQ(ERROR_MALFORMED, client->lastError());
    // The good frames still decode: most of the file comes out.
    std::vector<uint8_t> ref = referenceDecode(fixturePath("flac16.flac"), "s16le");
    EXPECT_GT(client->pcm().size(), ref.size() * 8 / 10);
    client->shutdown();
}

TEST_F(CodecTest, FileCutShortEndsCleanly) {
    Decoded d = decodeFixture("cut-flac16.flac", 0, 2);
    ASSERT_EQ(OK, d.err);
    EXPECT_TRUE(d.eos);
    EXPECT_GT(d.pcm.size(), 0u);
    // What came out is the start of the file.
    std::vector<uint8_t> ref = referenceDecode(fixturePath("flac16.flac"), "s16le");
    ASSERT_GE(ref.size(), d.pcm.size());
    size_t common = 0;
    while (common < d.pcm.size() && d.pcm[common] == ref[common]) ++common;
    EXPECT_GT(common, d.pcm.size() * 9 / 10);
}

// ---- Creation and the lifecycle contract. ----

class CodecCreationTest : public ::testing::Test {
protected:
    void SetUp() override {
        mLooper = new ALooper;
        mLooper->setName("codec-test");
        mLooper->start();
    }
    void TearDown() override { mLooper->stop(); }
    sp<ALooper> mLooper;
};

TEST_F(CodecCreationTest, UnknownComponentNameFailsWithStatus) {
    testing::LogCapture log;
    status_t err = OK;
    sp<MediaCodec> codec = MediaCodec::CreateByComponentName(mLooper, "OMX.acme.audio.decoder.xyz",
                                                             &err);
    EXPECT_EQ(nullptr, codec.get());
    EXPECT_EQ(NAME_NOT_FOUND, err);
    EXPECT_TRUE(log.contains("MediaCodec", "OMX.acme.audio.decoder.xyz"));

    codec = MediaCodec::CreateByType(mLooper, "audio/x-no-such-thing", false, &err);
    EXPECT_EQ(nullptr, codec.get());
    EXPECT_EQ(NAME_NOT_FOUND, err);
}

TEST_F(CodecCreationTest, ApeComponentConfiguresWithoutAFile) {
    status_t err = UNKNOWN_ERROR;
    sp<MediaCodec> codec = MediaCodec::CreateByComponentName(mLooper, "OMX.qcom.audio.decoder.ape",
                                                             &err);
    ASSERT_NE(nullptr, codec.get());
    ASSERT_EQ(OK, err);

    // What an APE demuxer reports: version 3990, compression "normal",
    // no flags, 16-bit stereo.
    sp<AMessage> format = new AMessage;
    format->setString("mime", "audio/x-ape");
    format->setInt32("sample-rate", 44100);
    format->setInt32("channel-count", 2);
    format->setInt32("bits-per-sample", 16);
    format->setInt32("pcm-encoding", 100);
    const uint8_t extradata[6] = {0x96, 0x0f, 0xd0, 0x07, 0x00, 0x00};
    format->setBuffer("csd-0", ABuffer::CreateAsCopy(extradata, sizeof(extradata)));
    ASSERT_EQ(OK, codec->configure(format, NULL, NULL, 0));
    sp<AMessage> out;
    ASSERT_EQ(OK, codec->getOutputFormat(&out));
    for (const auto& kv : {std::make_pair("sample-rate", 44100), std::make_pair("channel-count", 2),
                           std::make_pair("bit-width", 24), std::make_pair("pcm-encoding", 100)}) {
        int32_t value = 0;
        EXPECT_TRUE(out->findInt32(kv.first, &value)) << kv.first;
        EXPECT_EQ(kv.second, value) << kv.first;
    }
    EXPECT_EQ(OK, codec->release());
}

}  // namespace
}  // namespace android
