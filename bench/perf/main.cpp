// rotavox-perf: the end-to-end measurements behind `make bench`.  Each
// subcommand runs one experiment on the engine's player (or on FFmpeg alone,
// for the floor) and prints one JSON object on stdout; scripts/bench puts the
// figures side by side in docs/benchmarks.md.
//
//   rotavox-perf floor FILE
//   rotavox-perf latency [--reps N] [--seeks N] FILE
//   rotavox-perf play --pattern NAME [--warmup S] [--window S] FILE...
//   rotavox-perf rss FILE
//   rotavox-perf reversal FILE
//
// Log lines of the engine go to stderr.

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <HostMediaStats.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <media/HostAudioSink.h>

#include "DecodeFloor.h"
#include "PlayerDriver.h"
#include "Rotavox.h"
#include "SpeedPattern.h"
#include "ThreadCpu.h"

using namespace rotavox;
using Clock = std::chrono::steady_clock;

namespace {

constexpr uint32_t kTrackRateHz = 44100;  // the benchmark's tracks
constexpr const char* kDriverThreadName = "perf-driver";

int fail(const std::string& message) {
    fprintf(stderr, "rotavox-perf: %s\n", message.c_str());
    return 1;
}

double msBetween(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double, std::milli>(b - a).count();
}

// One measurement: one JSON object on a line of its own.
void emit(const nlohmann::json& j) {
    printf("%s\n", j.dump().c_str());
}

// Paces a driver loop on the wall clock: the speed gestures are timed.
void sleepUntil(Clock::time_point t) {
    std::this_thread::sleep_until(t);
}

int cmdFloor(const std::string& path) {
    // The best of three: the floor is what decoding costs, not what the
    // machine's other load adds to it.
    DecodeFloor::Result best;
    for (int i = 0; i < 3; ++i) {
        DecodeFloor::Result r = DecodeFloor::measure(path);
        if (!r.error.empty()) return fail(r.error);
        if (i == 0 || r.cpuS < best.cpuS) best = r;
    }
    emit({{"file", path}, {"codec", best.codec}, {"cpu_s", best.cpuS}, {"media_s", best.mediaS}});
    return 0;
}

int cmdLatency(const std::string& path, int reps, int seeks) {
    std::vector<double> startMs, seekMs, setDataSourceMs, prepareMs;
    std::mt19937 rng(8);
    for (int r = 0; r < reps; ++r) {
        PlayerDriver driver(path);
        std::string error;
        if (!driver.open(&error)) return fail(error);
        driver.armAudible(-1);
        driver.setSpeed(1000);
        Clock::time_point at;
        if (!driver.waitAudible(std::chrono::seconds(10), &at)) {
            return fail("no audible block within 10 s of setDataSource");
        }
        startMs.push_back(msBetween(driver.setDataSourceAt(), at));
        setDataSourceMs.push_back(msBetween(driver.setDataSourceAt(), driver.setDataSourceDoneAt()));
        prepareMs.push_back(msBetween(driver.setDataSourceDoneAt(), driver.prepareDoneAt()));

        const int64_t durationMs = driver.durationUs() / 1000;
        std::uniform_int_distribution<int64_t> where(10000, std::max<int64_t>(10001, durationMs - 10000));
        for (int s = 0; s < seeks; ++s) {
            sleepUntil(Clock::now() + std::chrono::milliseconds(300));  // play a while first
            const int64_t targetMs = where(rng);
            driver.armAudible(targetMs * 1000);
            const Clock::time_point t0 = Clock::now();
            driver.seek(targetMs);
            driver.setSpeed(1000);
            if (!driver.waitAudible(std::chrono::seconds(10), &at)) {
                return fail("no audible block within 10 s of a seek to " + std::to_string(targetMs) + " ms");
            }
            seekMs.push_back(msBetween(t0, at));
        }
        driver.close();
    }
    emit({{"file", path}, {"start_ms", startMs}, {"set_data_source_ms", setDataSourceMs},
          {"prepare_ms", prepareMs}, {"seek_ms", seekMs}});
    return 0;
}

// Runs |patternName| on one player per file, all in this process, on the
// real-time null sink; measures the window after the warm-up.
int cmdPlay(const std::string& patternName, double warmupS, double windowS,
            const std::vector<std::string>& files) {
    SpeedPattern pattern;
    if (!SpeedPattern::byName(patternName, &pattern)) return fail("unknown pattern " + patternName);
    const size_t n = files.size();
    std::vector<std::unique_ptr<PlayerDriver>> drivers;
    for (const std::string& f : files) {
        drivers.emplace_back(new PlayerDriver(f));
        std::string error;
        if (!drivers.back()->open(&error)) return fail(error);
    }
    std::mt19937 rng(4);
    std::vector<double> nextSeekS(n);
    std::vector<int> lastSpeed(n, 0);
    for (size_t i = 0; i < n; ++i) {
        PlayerDriver& d = *drivers[i];
        d.seek(pattern.startPositionMs(d.durationUs() / 1000));
        // Several players seek at staggered times, as independent users would.
        nextSeekS[i] = pattern.seekIntervalS() * (1 + (double)i / n);
    }

    const double periodS = pattern.kind() == SpeedPattern::kSine ? 0.01 : 0.1;
    const double endS = warmupS + windowS;
    const Clock::time_point start = Clock::now();
    bool measuring = false;
    double cpuBefore = 0;
    ThreadCpu threadsBefore;
    int64_t decodedBefore = 0, waitsBefore = 0;
    std::vector<PlayerDriver::Totals> totalsBefore(n);
    Clock::time_point windowStart;
    for (long tick = 0;; ++tick) {
        const double t = tick * periodS;
        if (t >= endS) break;
        if (!measuring && t >= warmupS) {
            measuring = true;
            windowStart = Clock::now();
            cpuBefore = ThreadCpu::processSeconds();
            threadsBefore = ThreadCpu::snapshot();
            decodedBefore = android::hostMediaDecodedFrames();
            waitsBefore = android::hostAudioGetTotals().stalledCallbacks;
            for (size_t i = 0; i < n; ++i) totalsBefore[i] = drivers[i]->totals();
        }
        for (size_t i = 0; i < n; ++i) {
            PlayerDriver& d = *drivers[i];
            if (pattern.kind() == SpeedPattern::kRandomSeeks && t >= nextSeekS[i]) {
                nextSeekS[i] += pattern.seekIntervalS();
                const int64_t durationMs = d.durationUs() / 1000;
                std::uniform_int_distribution<int64_t> where(0, std::max<int64_t>(1, durationMs - 10000));
                d.seek(where(rng));
                d.setSpeed(1000);
                continue;
            }
            // Each player is at its own phase of a sine.
            const int speed = pattern.speedPermilleAt(t + (double)i / (n * 7.0));
            if (pattern.kind() != SpeedPattern::kSine || speed != lastSpeed[i]) {
                d.setSpeed(speed);
                lastSpeed[i] = speed;
            }
        }
        sleepUntil(start + std::chrono::microseconds((long)((tick + 1) * periodS * 1e6)));
    }
    const double cpuS = ThreadCpu::processSeconds() - cpuBefore;
    const std::map<std::string, double> byThread = ThreadCpu::delta(threadsBefore, ThreadCpu::snapshot());
    const double wallS = msBetween(windowStart, Clock::now()) / 1000;
    // This thread stands in for the application: its own timer wake-ups are
    // not the engine's (the speed calls it makes are, but cost microseconds).
    double driverCpuS = 0;
    if (auto it = byThread.find(kDriverThreadName); it != byThread.end()) driverCpuS = it->second;
    const int64_t decoded = android::hostMediaDecodedFrames() - decodedBefore;
    const int64_t waits = android::hostAudioGetTotals().stalledCallbacks - waitsBefore;

    double outputS = 0;
    int64_t underrunsWindow = 0, underrunsRun = 0, worstRun = 0;
    for (size_t i = 0; i < n; ++i) {
        const PlayerDriver::Totals after = drivers[i]->totals();
        outputS += (double)(after.streamFrames - totalsBefore[i].streamFrames) / kTrackRateHz;
        underrunsWindow += after.underrunFrames() - totalsBefore[i].underrunFrames();
        underrunsRun += after.underrunFrames();
        worstRun = std::max(worstRun, after.underrunFrames());
    }
    for (auto& d : drivers) d->close();

    nlohmann::json threads = nlohmann::json::object();
    for (const auto& [name, seconds] : byThread) {
        if (seconds >= 0.0005) threads[name] = seconds;
    }
    emit({{"pattern", patternName}, {"players", n}, {"window_s", wallS}, {"output_s", outputS},
          {"cpu_s", cpuS}, {"driver_cpu_s", driverCpuS}, {"played_media_s", pattern.meanAbsSpeed() * outputS},
          {"decoded_media_s", (double)decoded / kTrackRateHz}, {"stalled_callbacks", waits},
          {"underrun_frames_window", underrunsWindow}, {"underrun_frames_run", underrunsRun},
          {"underrun_frames_worst_player", worstRun}, {"threads", threads}});
    return 0;
}

long statusKb(const char* field) {
    FILE* f = fopen("/proc/self/status", "r");
    if (f == nullptr) return -1;
    char line[256];
    long kb = -1;
    const size_t len = strlen(field);
    while (fgets(line, sizeof(line), f)) {
        if (strncmp(line, field, len) == 0 && line[len] == ':') kb = atol(line + len + 1);
    }
    fclose(f);
    return kb;
}

// One player in this process through every kind of movement; the peak
// resident set is read at the end.
int cmdRss(const std::string& path) {
    const long baselineKb = statusKb("VmRSS");
    PlayerDriver d(path);
    std::string error;
    if (!d.open(&error)) return fail(error);
    const int64_t durationMs = d.durationUs() / 1000;
    auto play = [&](int64_t fromMs, int speed, double seconds) {
        if (fromMs >= 0) d.seek(fromMs);
        const Clock::time_point end = Clock::now() + std::chrono::milliseconds((long)(seconds * 1000));
        while (Clock::now() < end) {
            d.setSpeed(speed);
            sleepUntil(std::min(end, Clock::now() + std::chrono::milliseconds(100)));
        }
    };
    play(0, 1000, 4);
    play(durationMs / 2, 10000, 3);
    play(-1, -10000, 3);
    play(durationMs - 20000, -1000, 3);
    for (int i = 1; i <= 3; ++i) play(durationMs * i / 4, 1000, 2);
    d.close();
    emit({{"file", path}, {"baseline_kb", baselineKb}, {"peak_kb", statusKb("VmHWM")}});
    return 0;
}

// Direction reversals at 1x, 4x and 10x on a freewheeling sink, with the
// speed calls made at exact output frames; compares the largest step between
// neighbouring samples right after each reversal with the largest step of
// the same signal at the same speed just before it.
int cmdReversal(const std::string& path) {
    struct Step {
        double atS;
        int speed;
    };
    const std::vector<Step> script = {
            {0.0, 1000},  {1.0, -1000},  {2.0, 1000},  {3.0, 4000},  {3.5, -4000},
            {4.0, 4000},  {4.5, 10000},  {4.8, -10000}, {5.1, 10000}, {5.4, 0},
    };
    PlayerDriver d(path);
    android::HostAudioOptions sink;
    sink.sink = "null";
    sink.clock = std::make_shared<android::HostManualClock>();
    d.useSink(sink);
    std::mutex lock;
    std::condition_variable done;
    bool finished = false;
    size_t next = 1;
    d.setPeriodAction([&](PlayerDriver& driver, const android::HostAudioPeriod& period) {
        std::lock_guard<std::mutex> l(lock);
        while (next < script.size() && period.streamFrames >= (int64_t)(script[next].atS * kTrackRateHz)) {
            if (script[next].speed == 0) {
                finished = true;
                done.notify_all();
            } else {
                driver.setSpeed(script[next].speed);
            }
            ++next;
        }
    });
    std::string error;
    if (!d.open(&error)) return fail(error);
    d.seek(5000);
    d.recordJumps(true);
    d.setSpeed(script[0].speed);
    {
        std::unique_lock<std::mutex> l(lock);
        if (!done.wait_for(l, std::chrono::seconds(60), [&] { return finished; })) {
            return fail("the reversal script did not finish within 60 s");
        }
    }
    const std::vector<PlayerDriver::PeriodJump> jumps = d.jumps();
    d.close();

    auto maxJump = [&](double fromS, double toS) {
        int m = 0;
        for (const auto& j : jumps) {
            const double t = (double)j.streamFrames / kTrackRateHz;
            if (t > fromS && t <= toS) m = std::max(m, j.maxJump);
        }
        return m;
    };
    // A reversal is the call plus the ramp through zero after it; the
    // steady-state reference is the stretch before the call, past the
    // previous change's ramp.
    nlohmann::json reversals = nlohmann::json::array();
    for (size_t i = 1; i + 1 < script.size(); ++i) {
        if ((script[i].speed > 0) == (script[i - 1].speed > 0)) continue;
        const double at = script[i].atS;
        reversals.push_back({{"speed", script[i].speed}, {"at_s", at}, {"max_jump", maxJump(at, at + 0.25)},
                             {"steady_max_jump", maxJump(script[i - 1].atS + 0.15, at)}});
    }
    emit({{"file", path}, {"reversals", reversals}});
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    pthread_setname_np(pthread_self(), kDriverThreadName);
    CLI::App app("The engine's end-to-end measurements, one JSON object each.", "rotavox-perf");
    app.require_subcommand(1);
    std::vector<std::string> files;
    std::string pattern;
    int reps = 10, seeks = 3;
    double warmupS = 3, windowS = 20;
    auto* floor = app.add_subcommand("floor", "CPU of a plain FFmpeg decode of FILE");
    auto* latency = app.add_subcommand("latency", "start and seek latency");
    auto* play = app.add_subcommand("play", "CPU and underruns of a speed pattern, one player per FILE");
    auto* rss = app.add_subcommand("rss", "peak memory");
    auto* reversal = app.add_subcommand("reversal", "smoothness of direction reversals");
    for (CLI::App* sub : {floor, latency, rss, reversal}) {
        sub->add_option("FILE", files, "the track")->required()->expected(1);
    }
    play->add_option("FILE", files, "the tracks")->required();
    latency->add_option("--reps", reps, "players opened")->check(CLI::PositiveNumber);
    latency->add_option("--seeks", seeks, "seeks per player")->check(CLI::NonNegativeNumber);
    play->add_option("--pattern", pattern, "the speed pattern")
            ->required()
            ->check(CLI::IsMember({"1x", "-1x", "10x", "-10x", "sine4", "sine10", "seeks"}));
    play->add_option("--warmup", warmupS, "seconds before measuring")->check(CLI::NonNegativeNumber);
    play->add_option("--window", windowS, "seconds measured")->check(CLI::PositiveNumber);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }
    if (*floor) return cmdFloor(files[0]);
    if (*latency) return cmdLatency(files[0], reps, seeks);
    if (*play) return cmdPlay(pattern, warmupS, windowS, files);
    if (*rss) return cmdRss(files[0]);
    return cmdReversal(files[0]);
}
