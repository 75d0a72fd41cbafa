// The renderer as a user runs it: the binary, its WAV, its JSON and its
// messages.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <math.h>

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "Fixtures.h"
#include "WavReader.h"

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
PlayRun play(const std::string& args, const std::string& env = "") {
    char dir[] = "/tmp/rotavox-play-run-XXXXXX";
    mkdtemp(dir);
    std::string errPath = std::string(dir) + "/stderr";
    // A runaway render must not fill the disk: at most 64 MiB a file.
    std::string cmd = "ulimit -f 131072; " + env + " " + std::string(getenv("ROTAVOX_PLAY")) + " " + args +
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
    android::testing::Wav wav = android::testing::readWav(path);
    *channels = wav.channels;
    *rate = wav.sampleRate;
    return wav.pcm16();
}

nlohmann::json stats(const PlayRun& run) {
    return nlohmann::json::parse(run.out, nullptr, false);
}

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
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
    EXPECT_EQ((long long)frames, stats(run)["frames_written"].get<long long>());
    EXPECT_EQ(44100, stats(run)["sample_rate"].get<long long>());
    EXPECT_EQ(2, stats(run)["channels"].get<long long>());

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
    long long finalUs = stats(run)["final_position_us"].get<long long>();
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

// The file's audio and nothing after it: not the last decoded buffer over
// again, which the engine hands out at the end of the data.
TEST_F(RotavoxPlayTest, WithoutAScriptItPlaysToTheEndOfTheMusicAndStops) {
    struct Case {
        const char* file;
        const char* mode;
    } cases[] = {
            // Real time: a freewheeling reader may overtake the decoder under
            // load and write a block twice.
            {"wav16mono.wav", ""},
            {"flac16.flac", "--freewheel"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        std::string wav = mDir + "/all.wav";
        PlayRun run = play(std::string(c.mode) + " --out " + wav + " --stats " + fixture(c.file));
        ASSERT_EQ(0, run.exitCode) << run.err;
        int channels = 0, rate = 0;
        std::vector<int16_t> pcm = readPcm(wav, &channels, &rate);
        ASSERT_GT(channels, 0);
        const size_t frames = pcm.size() / channels;
        // The whole 3 s file (the decoder's raw path drops the last sample),
        // ending within one decoded buffer of its end.
        EXPECT_GE((double)frames, 3.0 * rate - 4096);
        EXPECT_LE((double)frames, 3.0 * rate + 64);
        // The ramp runs on to the last frame: no repeated block at the tail.
        for (size_t f = 1; f < frames; ++f) {
            ASSERT_EQ((pcm[(f - 1) * channels] + 32768 + 1) % 65536, pcm[f * channels] + 32768)
                    << "frame " << f << " of " << frames;
        }
        EXPECT_TRUE(stats(run)["end_of_music"].get<bool>());
        EXPECT_GT(stats(run)["final_position_us"].get<long long>(), 2500000);
        EXPECT_NE(std::string::npos, run.err.find("end of the music")) << run.err;
    }
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
    EXPECT_NEAR(1.5 * 44100, (double)stats(run)["frames_written"].get<long long>(), 512);
}

TEST_F(RotavoxPlayTest, BadInputGivesOneClearMessageAndLeavesNoFiles) {
    const std::string out = mDir + "/x.wav", plot = mDir + "/x.png";
    const std::string outputs = " --out " + out + " --plot " + plot + " ";
    struct Case {
        std::string args;
        int exitCode;
        const char* says;
        std::string env = "";
    } cases[] = {
            {"", 2, "FILE is required"},
            {"--bogus " + fixture("wav16.wav"), 2, "--bogus"},
            {"--script \"1:jump\" " + fixture("wav16.wav"), 2, "unknown operation"},
            {"--duration -3 " + fixture("wav16.wav"), 2, "--duration"},
            {"--sink alsa " + fixture("wav16.wav"), 2, "--sink"},
            {"-v -q " + fixture("wav16.wav"), 2, "excludes"},
            {"--cache-params 1/2 " + fixture("wav16.wav"), 2, "--cache-params needs"},
            {"--cache-params 1/2/3x " + fixture("wav16.wav"), 2, "--cache-params needs"},
            {"--cache-params 5000000/1000000/0 " + fixture("wav16.wav"), 2, "below the high-water"},
            {"--cache-params -1/2000000/0 " + fixture("wav16.wav"), 2, "no negative"},
            {fixture("wav16.wav"), 2, "ANDROID_LOG_TAGS", "ANDROID_LOG_TAGS='*:loud'"},
            {outputs + mDir + "/missing.flac", 1, "cannot open"},
            {outputs + fixture("bad-text.mp3"), 1, "not a playable media file: ERROR_UNSUPPORTED (-1010)"},
            {outputs + fixture("six.flac"), 1, "6 channels"},
            // Without a track the player plays on in silence: these used to
            // wait for ever.
            {"--out " + mDir + "/no/such/dir/x.wav " + fixture("wav16.wav"), 1, "cannot write"},
            {outputs + fixture("dsd.dsf"), 1, "at most 192000 Hz"},
            {outputs + fixture("bad-noise.m4a"), 1, "does not decode"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        PlayRun run = play("--freewheel " + c.args, c.env);
        EXPECT_EQ(c.exitCode, run.exitCode);
        EXPECT_NE(std::string::npos, run.err.find(c.says)) << run.err;
        EXPECT_EQ(std::string::npos, run.err.find("CHECK")) << run.err;
        EXPECT_FALSE(exists(out));
        EXPECT_FALSE(exists(plot));
    }
}

// Without an audio device a real-time run refuses, as other players do,
// unless the user asked for silence or a file.
TEST_F(RotavoxPlayTest, NoAudioDeviceIsRefusedUnlessSilenceOrAFileWasAskedFor) {
    const std::string noDevice = "SDL_AUDIODRIVER=no-such-driver ROTAVOX_PROPERTIES=";
    PlayRun refused = play("--duration 0.3 " + fixture("wav16.wav"), noDevice);
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_NE(std::string::npos, refused.err.find("no audio device")) << refused.err;
    for (const std::string& ok : {std::string("--sink null"), "--out " + mDir + "/rt.wav"}) {
        SCOPED_TRACE(ok);
        PlayRun run = play("--duration 0.3 " + ok + " " + fixture("wav16.wav"), noDevice);
        EXPECT_EQ(0, run.exitCode) << run.err;
    }
    EXPECT_NE(std::string::npos, play("--duration 0.3 --out " + mDir + "/rt.wav " + fixture("wav16.wav"))
                                         .err.find("in real time"));
}

// Every operation says what came of it under the player's rules.
TEST_F(RotavoxPlayTest, EachOperationReportsWhatCameOfIt) {
    struct Case {
        const char* script;
        const char* says;
    } cases[] = {
            {"0:forward 25000; 0.5:stop", "forward 25000: clamped to the limit of 10000: plays at 10000"},
            {"0:rewind 20000; 0.5:stop", "rewind 20000: clamped to the limit of 10000: plays at -10000 (backward)"},
            {"0:forward 1000; 1:seek 9000; 1.5:stop", "seek 9000 ms: ignored: at or past the end (3.000 s)"},
            {"0:forward 1000; 1:seek 1100; 1.5:stop", "seek 1100 ms: did not move: within the engine's 300 ms of the position 0."},
            {"0:forward 1000; 1:seek 2500; 1:stop", "seek 2500 ms: now at 2.500 s, paused"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.script);
        PlayRun run = play(std::string("--freewheel --script \"") + c.script + "\" " + fixture("flac16.flac"));
        EXPECT_EQ(0, run.exitCode) << run.err;
        EXPECT_NE(std::string::npos, run.err.find(c.says)) << run.err;
    }
}

// Quiet by default: the tool's own lines, the engine's warnings and errors
// only; and an application's regular speed calls keep the player's
// watchdog quiet during a real-time run.
TEST_F(RotavoxPlayTest, LogLevelsFollowTheFlagsAndAndroidLogTags) {
    const std::string file = " --duration 1.3 --sink null " + fixture("flac16.flac");
    struct Case {
        std::string args;
        std::string env;
        bool engineInfo;  // "I Rotavox..." lines shown
        bool toolLines;   // the tool's own lines shown
    } cases[] = {
            {file, "", false, true},
            {"-v" + file, "", true, true},
            {"-q" + file, "", false, false},
            {file, "ANDROID_LOG_TAGS='*:w AudioTrack:i'", true, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args + " " + c.env);
        PlayRun run = play(c.args, c.env);
        EXPECT_EQ(0, run.exitCode) << run.err;
        EXPECT_EQ(c.engineInfo, run.err.find("\nI ") != std::string::npos || run.err.rfind("I ", 0) == 0)
                << run.err;
        EXPECT_EQ(c.toolLines, run.err.find("forward 1000") != std::string::npos) << run.err;
        EXPECT_EQ(std::string::npos, run.err.find("no call from app")) << run.err;
    }
}

// On a terminal: an mpv-like status line, and log lines (the engine's, and
// the tool's own report of an operation made while the status is shown)
// that each get a line of their own instead of landing inside it.
TEST_F(RotavoxPlayTest, OnATerminalLogLinesNeverBreakTheProgressLine) {
    const std::string log = mDir + "/tty.log";
    const std::string cmd = "script -qec \"" + std::string(getenv("ROTAVOX_PLAY")) +
                            " -v --sink null --script '0:forward 1000; 0.5:forward 1200; 0.9:stop' " +
                            fixture("flac16.flac") + "\" " + log + " > /dev/null 2>&1";
    ASSERT_EQ(0, system(cmd.c_str()));
    std::ifstream in(log);
    std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(std::string::npos, all.find("Playing 0:0")) << all;
    EXPECT_NE(std::string::npos, all.find(" / 0:03.00 (")) << all;
    EXPECT_NE(std::string::npos, all.find("forward 1200")) << all;
    // A status ends with its output time; the next thing written is a
    // carriage return (an erase or a redraw) or the end of the line.
    const std::string mark = "  output 0:";
    for (size_t at = all.find(mark); at != std::string::npos; at = all.find(mark, at + 1)) {
        const size_t end = all.find_first_not_of("0123456789.", at + mark.size());
        ASSERT_NE(std::string::npos, end);
        EXPECT_TRUE(all[end] == '\r' || all[end] == '\n')
                << "after a status: " << all.substr(at, 80);
    }
}

TEST_F(RotavoxPlayTest, HelpAndVersionAnswerAndExitZero) {
    struct Case {
        const char* args;
        std::vector<const char*> says;
    } cases[] = {
            {"--version", {"rotavox-play "}},
            {"--help",
             {"-10000..10000", "rewind N", "Examples:", "mono or stereo, up to 192 kHz", "Exit status",
              "media.rotavox.cache-params", "--freewheel", "ANDROID_LOG_TAGS"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        PlayRun run = play(c.args);
        EXPECT_EQ(0, run.exitCode);
        for (const char* text : c.says) EXPECT_NE(std::string::npos, run.out.find(text)) << text;
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
