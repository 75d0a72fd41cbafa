// The renderer as a user runs it: the binary, its WAV, its JSON and its
// messages.

#include <gtest/gtest.h>

#include <math.h>

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Fixtures.h"

namespace {

std::string fixture(const char* name) {
    return std::string(getenv("ROTAVOX_FIXTURES")) + "/" + name;
}

struct PlayRun {
    int exitCode = -1;
    std::string out;
    std::string err;
};

// Runs rotavox-play with the given arguments (shell-quoted by the caller).
PlayRun play(const std::string& args) {
    char dir[] = "/tmp/rotavox-play-run-XXXXXX";
    mkdtemp(dir);
    std::string errPath = std::string(dir) + "/stderr";
    // A runaway render must not fill the disk: at most 64 MiB a file.
    std::string cmd = "ulimit -f 131072; " + std::string(getenv("ROTAVOX_PLAY")) + " " + args +
                      " 2>" + errPath;
    PlayRun run;
    FILE* p = popen(cmd.c_str(), "r");
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) run.out.append(buf, n);
    int status = pclose(p);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
    std::ifstream e(errPath);
    run.err.assign((std::istreambuf_iterator<char>(e)), std::istreambuf_iterator<char>());
    unlink(errPath.c_str());
    rmdir(dir);
    return run;
}

std::vector<int16_t> readPcm(const std::string& path, int* channels, int* rate) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> b((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<int16_t> pcm;
    if (b.size() < 44) return pcm;
    *channels = (unsigned char)b[22] | (unsigned char)b[23] << 8;
    *rate = (int)((unsigned char)b[24] | (unsigned char)b[25] << 8 | (unsigned char)b[26] << 16);
    pcm.resize((b.size() - 44) / 2);
    memcpy(pcm.data(), b.data() + 44, pcm.size() * 2);
    return pcm;
}

long long jsonInt(const std::string& json, const std::string& key) {
    size_t at = json.find("\"" + key + "\":");
    if (at == std::string::npos) return -999999;
    return atoll(json.c_str() + at + key.size() + 3);
}

class RotavoxPlayTest : public ::testing::Test {
protected:
    void SetUp() override {
        char dir[] = "/tmp/rotavox-play-test-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(dir));
        mDir = dir;
    }
    void TearDown() override { system(("rm -rf " + mDir).c_str()); }
    std::string mDir;
};

// Two seconds forward, then back over the last part of it: the ramp fixture
// makes the output say where the record was at every frame.
TEST_F(RotavoxPlayTest, ForwardThenRewindRendersTheFileThenItsReversal) {
    std::string wav = mDir + "/x.wav", png = mDir + "/x.png";
    // Freewheeling: the reader runs far ahead of real time, so this also
    // checks that the render waits for the decoder instead of meeting the
    // tail of the cache (which would repeat its last decoded block).
    PlayRun run = play("--freewheel --out " + wav + " --plot " + png + " --stats --script \"0:forward 1000; 2:rewind 1000; 3.5:stop\" " +
                   fixture("flac16.flac"));
    ASSERT_EQ(0, run.exitCode) << run.err;
    int channels = 0, rate = 0;
    std::vector<int16_t> pcm = readPcm(wav, &channels, &rate);
    ASSERT_EQ(2, channels);
    ASSERT_EQ(44100, rate);
    const size_t frames = pcm.size() / 2;
    // 3.5 s of output, to within one period of the sink.
    EXPECT_NEAR(3.5 * 44100, (double)frames, 512);
    EXPECT_EQ((long long)frames, jsonInt(run.out, "frames_written"));
    EXPECT_EQ(44100, jsonInt(run.out, "sample_rate"));
    EXPECT_EQ(2, jsonInt(run.out, "channels"));

    auto pos = [&](size_t f) { return (int)pcm[2 * f] + 32768; };
    // The first two seconds: the file from its start, frame after frame.
    const size_t turn = 2 * 44100;
    for (size_t f = 0; f + 1 < turn - 512; ++f) {
        ASSERT_EQ((pos(f) + 1) % 65536, pos(f + 1)) << "frame " << f;
    }
    // The last second: backward at normal speed over what was just played.
    size_t backward = 0;
    for (size_t f = turn + 4096; f + 1 < frames; ++f) backward += pos(f + 1) == (pos(f) + 65535) % 65536;
    EXPECT_GT(backward, (frames - turn - 4096) * 9 / 10);
    // The position went back too: a little before the turn's 2 s.
    long long finalUs = jsonInt(run.out, "final_position_us");
    EXPECT_GT(finalUs, 400000);
    EXPECT_LT(finalUs, 2000000);
    // The picture was written.
    std::ifstream p(png, std::ios::binary);
    char magic[8] = {};
    p.read(magic, 8);
    EXPECT_EQ(0, memcmp(magic, "\x89PNG\r\n\x1a\n", 8));
}

// The renderer waits for the engine's decoder before every period, so a
// freewheeling render is the same on every run, in sanitizer builds too.
TEST_F(RotavoxPlayTest, FreewheelRendersAreRepeatable) {
    std::string a = mDir + "/a.wav", b = mDir + "/b.wav";
    const std::string script = "\"0:forward 1000; 0.5:rate 1700; 1:rewind 800; 1.6:seek 500; 1.6:forward 1300; 2.4:stop\"";
    ASSERT_EQ(0, play("--freewheel --out " + a + " --script " + script + " " + fixture("mp3.mp3")).exitCode);
    ASSERT_EQ(0, play("--freewheel --out " + b + " --script " + script + " " + fixture("mp3.mp3")).exitCode);
    int c, r;
    std::vector<int16_t> pa = readPcm(a, &c, &r), pb = readPcm(b, &c, &r);
    ASSERT_FALSE(pa.empty());
    EXPECT_EQ(pa.size(), pb.size());
    size_t same = 0, n = std::min(pa.size(), pb.size());
    for (size_t i = 0; i < n; ++i) same += pa[i] == pb[i];
    EXPECT_EQ(n, same);
}

TEST_F(RotavoxPlayTest, WithoutAScriptItPlaysToTheEnd) {
    std::string wav = mDir + "/all.wav";
    // Real-time pace: a freewheeling reader may overtake the decoder under
    // load and write a block twice (see above).
    PlayRun run = play("--out " + wav + " --stats " + fixture("wav16mono.wav"));
    ASSERT_EQ(0, run.exitCode) << run.err;
    int channels = 0, rate = 0;
    std::vector<int16_t> pcm = readPcm(wav, &channels, &rate);
    EXPECT_EQ(1, channels);
    EXPECT_EQ(22050, rate);
    // The whole 3 s file (less the last raw sample, which the decoder's raw
    // path drops), then the source's last buffer over again for the half
    // second it takes to tell that the position stands still.
    EXPECT_GE((double)pcm.size(), 3 * 22050 - 4096);
    EXPECT_LE((double)pcm.size(), 4 * 22050);
    for (size_t f = 1; f < 2 * 22050; ++f) {
        ASSERT_EQ((pcm[f - 1] + 32768 + 1) % 65536, pcm[f] + 32768) << "frame " << f;
    }
    EXPECT_GT(jsonInt(run.out, "final_position_us"), 2500000);
}

// A speed of zero in the file's last second holds the record there until
// the next operation; it is not taken for the end of the file.
TEST_F(RotavoxPlayTest, AHoldAtZeroSpeedNearTheEndLastsUntilTheNextOperation) {
    std::string wav = mDir + "/hold.wav";
    PlayRun run = play("--freewheel --out " + wav +
                       " --script \"0:forward 1000; 2.4:forward 0; 3.6:forward 1000; 4.2:stop\" " +
                       fixture("flac16.flac"));
    ASSERT_EQ(0, run.exitCode) << run.err;
    int channels = 0, rate = 0;
    std::vector<int16_t> pcm = readPcm(wav, &channels, &rate);
    ASSERT_EQ(2, channels);
    // Cut short, the hold would let the last operations come early and the
    // run end about 0.2 s sooner.
    EXPECT_NEAR(4.2 * 44100, (double)(pcm.size() / 2), 512);
    // Held from shortly after 2.4 s to 3.6 s: the record creeps on at the
    // thousandth of normal speed that stands in for zero, about 40 frames of
    // the ramp in 0.9 s, where normal speed would cover 39 690.
    int lo = 65536, hi = -1;
    for (size_t f = (size_t)(2.6 * 44100); f < (size_t)(3.5 * 44100) && 2 * f < pcm.size(); ++f) {
        lo = std::min(lo, pcm[2 * f] + 32768);
        hi = std::max(hi, pcm[2 * f] + 32768);
    }
    EXPECT_LE(hi - lo, 60) << "the output moved during the hold";
}

TEST_F(RotavoxPlayTest, DurationEndsTheRun) {
    std::string wav = mDir + "/d.wav";
    PlayRun run = play("--freewheel --duration 1.5 --out " + wav + " --stats " + fixture("vorbis.ogg"));
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_NEAR(1.5 * 44100, (double)jsonInt(run.out, "frames_written"), 512);
}

TEST_F(RotavoxPlayTest, BadInputGivesOneClearMessage) {
    struct Case {
        std::string args;
        const char* says;
    } cases[] = {
            {"", "no FILE given"},
            {"--bogus " + fixture("wav16.wav"), "unknown option --bogus"},
            {"--script \"1:jump\" " + fixture("wav16.wav"), "unknown operation"},
            {"--duration -3 " + fixture("wav16.wav"), "--duration"},
            {"--cache-params 1/2 " + fixture("wav16.wav"), "--cache-params"},
            {mDir + "/missing.flac", "cannot open"},
            {fixture("bad-text.mp3"), "not a playable media file"},
            {fixture("six.flac"), "6 channels"},
            // Without a track the player plays on in silence: these used to
            // wait for ever.
            {"--out " + mDir + "/no/such/dir/x.wav " + fixture("wav16.wav"), "cannot write"},
            {fixture("dsd.dsf"), "at most 192000 Hz"},
            {fixture("bad-noise.m4a"), "does not decode"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        PlayRun run = play("--freewheel " + c.args);
        EXPECT_NE(0, run.exitCode);
        EXPECT_NE(std::string::npos, run.err.find(c.says)) << run.err;
        EXPECT_EQ(std::string::npos, run.err.find("CHECK")) << run.err;
    }
}

// The shift, in frames, that best lines up |n| frames of |ref| from |at| with
// |out| (first channels of interleaved data): out[at + shift] ~ ref[at].
int bestShift(const std::vector<int16_t>& ref, const std::vector<int16_t>& out, int channels,
              size_t at, size_t n, int maxShift) {
    double best = -2;
    int bestShift = maxShift + 1;
    for (int shift = -maxShift; shift <= maxShift; ++shift) {
        double ab = 0, aa = 0, bb = 0;
        for (size_t i = at; i < at + n; ++i) {
            const long j = (long)i + shift;
            if (j < 0 || (size_t)(j + 1) * channels > out.size()) continue;
            const double a = ref[i * channels], b = out[j * channels];
            ab += a * b;
            aa += a * a;
            bb += b * b;
        }
        if (aa > 0 && bb > 0 && ab / sqrt(aa * bb) > best) {
            best = ab / sqrt(aa * bb);
            bestShift = shift;
        }
    }
    return bestShift;
}

// A render of a lossy file lines up with the ffmpeg tool's decode of it, at
// its start and at its end: the encoder delay the stream declares is not
// played (MP3's LAME delay, AAC's priming, Opus's pre-skip).  The engine's
// resampler puts its output one frame ahead of its input.
class RenderAlignmentTest : public RotavoxPlayTest,
                            public ::testing::WithParamInterface<const char*> {};

TEST_P(RenderAlignmentTest, LinesUpWithTheToolsDecodeToTheFrame) {
    const std::string wav = mDir + "/r.wav";
    PlayRun run = play("--freewheel --out " + wav + " " + fixture(GetParam()));
    ASSERT_EQ(0, run.exitCode) << run.err;
    int channels = 0, rate = 0;
    std::vector<int16_t> out = readPcm(wav, &channels, &rate);
    ASSERT_GT(channels, 0);
    std::vector<uint8_t> bytes = android::testing::referenceDecode(
            fixture(GetParam()), "s16le", 0, "-ac " + std::to_string(channels));
    std::vector<int16_t> ref(bytes.size() / 2);
    memcpy(ref.data(), bytes.data(), ref.size() * 2);
    const size_t frames = ref.size() / channels;
    ASSERT_GT(frames, 8000u);
    EXPECT_EQ(-1, bestShift(ref, out, channels, 3000, 1500, 1500)) << "at the start";
    EXPECT_EQ(-1, bestShift(ref, out, channels, frames - 1600, 1500, 1500)) << "at the end";
}

INSTANTIATE_TEST_SUITE_P(Lossy, RenderAlignmentTest,
                         ::testing::Values("mp3.mp3", "aac.m4a", "opus.opus", "vorbis.ogg"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             std::string n = info.param;
                             for (char& c : n) if (!isalnum((unsigned char)c)) c = '_';
                             return n;
                         });

}  // namespace
