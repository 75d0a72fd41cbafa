// rotavox-play: plays or renders one file through the Rotavox engine under a
// timed transport script.  See tools/README.md and rotavox-play(1).

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <HostMediaStats.h>
#include <cutils/properties.h>

#include "Console.h"
#include "RenderPlot.h"
#include "Renderer.h"
#include "TransportScript.h"

using namespace rotavox;

namespace {

const char kFooter[] = R"(Speeds are thousandths of normal speed, signed (negative plays backward),
limited by the player to -10000..10000: a larger value is clamped and said so.

Script: "TIME:OP [ARG]; TIME:OP [ARG]; ..." where TIME is seconds of rendered
output and OP is one of
  forward N   play at speed N, direction forward (N = 0 holds the record)
  rewind N    play at speed N backward (rewind 1000 = normal speed backward)
  rate N      play at speed N as given; rate 0 pauses
  seek MS     jump to MS milliseconds and pause (a seek within 300 ms of the
              position does not move, and a seek past the end is ignored)
  pause       pause
  stop        end the run
Examples:
  --script "0:forward 1000; 2:rewind 1000; 3.5:stop"
  --script "0:forward 1000; 1:seek 500; 1:forward 2000; 4:stop"
Without a script the file plays forward at normal speed to its end.

Formats: whatever the host's FFmpeg decodes (FLAC, MP3, AAC/M4A, Ogg Vorbis,
Opus, WAV and other PCM, ALAC, APE, WMA, ...), mono or stereo, up to 192 kHz.

Exit status: 0 done; 1 the file, the device or the output failed; 2 bad
arguments.

Properties (ROTAVOX_PROPERTIES="k=v,..." or the file $ROTAVOX_PROPERTIES_FILE):
  media.rotavox.cache-params  low/high/preroll in us (default 1500000/15000000/4000000)
  flac.sw.decoder.24bit.support  decode FLAC to 24 bits (default false)
  host.audio.sink             auto, sdl, null (default auto; --sink wins)
  host.audio.device.rate      rate asked of the device, 0 = the track's
Log: warnings and errors by default, -v everything, -q errors only;
ANDROID_LOG_TAGS="*:w RotavoxSource:v" sets levels per tag.
)";

// Three whole numbers of microseconds, low water below high water.
bool validCacheParams(const std::string& text, std::string* why) {
    long long v[3];
    int used = 0;
    if (sscanf(text.c_str(), "%lld/%lld/%lld%n", &v[0], &v[1], &v[2], &used) != 3 ||
        used != (int)text.size() || text.find_first_of(" +\t") != std::string::npos) {
        *why = "needs LOW/HIGH/PRELOAD, three whole numbers of microseconds";
        return false;
    }
    if (v[0] < 0 || v[1] < 0 || v[2] < 0) {
        *why = "takes no negative values";
        return false;
    }
    if (v[0] >= v[1]) {
        *why = "needs the low-water mark below the high-water mark";
        return false;
    }
    return true;
}

bool writableDirectoryOf(const std::string& path, std::string* why) {
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    if (access(dir.c_str(), W_OK) != 0) {
        *why = "cannot write '" + path + "': " + strerror(errno);
        return false;
    }
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        *why = "cannot write '" + path + "': it is a directory";
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    RenderOptions options;
    std::string script, plotPath, cacheParams;
    bool stats = false, verbose = false, quiet = false;

    CLI::App app("Plays or renders FILE through the Rotavox turntable engine, driven by a "
                 "timed transport script.",
                 "rotavox-play");
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("rotavox-play ") + ROTAVOX_VERSION);
    app.add_option("FILE", options.file, "the audio file to play")->required();
    app.add_option("--script", script, "operations at seconds of output (see below)");
    app.add_option("--duration", options.durationS, "end after S seconds of output")
            ->check(CLI::PositiveNumber)
            ->type_name("S");
    app.add_option("-o,--out", options.outPath,
                   "write the output to a 16-bit WAV file instead of playing it")
            ->type_name("FILE.wav");
    app.add_flag("--freewheel", options.freewheel,
                 "render as fast as the engine delivers (with --out, or silently)");
    app.add_option("--plot", plotPath,
                   "draw position, speed and (with --out) the waveform over output time")
            ->type_name("FILE.png");
    app.add_option("--sink", options.sink, "where the sound goes without --out")
            ->check(CLI::IsMember({"auto", "sdl", "null"}));
    app.add_option("--cache-params", cacheParams,
                   "the engine's cache: low-water/high-water/preroll in microseconds")
            ->type_name("L/H/P");
    app.add_flag("--stats", stats, "print one JSON object of figures at the end");
    auto* v = app.add_flag("-v,--verbose", verbose, "show every log line of the engine");
    app.add_flag("-q,--quiet", quiet, "show errors only")->excludes(v);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }
    auto usage = [](const std::string& problem) {
        fprintf(stderr, "rotavox-play: %s\nRun with --help for more information.\n", problem.c_str());
        return 2;
    };
    if (!script.empty()) {
        std::string error;
        if (!parseTransportScript(script, &options.ops, &error)) return usage("bad script: " + error);
    }
    if (!cacheParams.empty()) {
        std::string why;
        if (!validCacheParams(cacheParams, &why)) return usage("--cache-params " + why);
    }
    options.progress = isatty(STDERR_FILENO) && !quiet;
    std::string logError;
    if (!console::setUp(verbose ? console::kVerbose : quiet ? console::kQuiet : console::kNormal,
                        options.progress, &logError)) {
        return usage(logError);
    }
    if (!cacheParams.empty() &&
        property_set("media.rotavox.cache-params", cacheParams.c_str()) != 0) {
        console::error("cannot set the cache parameters");
        return 1;
    }
    // Refused before anything plays: a run that cannot keep its output is
    // no use, and leaves nothing behind.
    for (const std::string* path : {&options.outPath, &plotPath}) {
        std::string why;
        if (!path->empty() && !writableDirectoryOf(*path, &why)) {
            console::error("%s", why.c_str());
            return 1;
        }
    }
    if (!options.outPath.empty() && !options.freewheel) {
        console::info("rendering to %s in real time (--freewheel renders as fast as it can)",
                      options.outPath.c_str());
    }

    RenderResult result;
    Renderer renderer;
    const bool ok = renderer.run(options, &result);
    int status = 0;
    if (!ok) {
        console::error("%s", result.error.c_str());
        status = 1;
    }
    if (ok && result.endOfMusic) {
        console::info("end of the music at %.3f s of output",
                      (double)result.framesWritten / result.sampleRate);
    }
    if (ok && !plotPath.empty()) {
        std::string error;
        const std::string title = options.file.substr(options.file.rfind('/') + 1) +
                                  (script.empty() ? "" : ": " + script);
        if (!writeRenderPlot(plotData(result, title, options.outPath), plotPath, &error)) {
            console::error("%s", error.c_str());
            status = 1;
        }
    }
    if (status != 0) {
        // A failed run leaves no half-made files.
        if (!options.outPath.empty()) unlink(options.outPath.c_str());
        if (!plotPath.empty()) unlink(plotPath.c_str());
        return status;
    }

    if (stats) {
        struct rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        const double cpuS = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 +
                            usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
        nlohmann::json j;
        j["underrun_frames"] = result.underrunFrames;
        j["stalled_callbacks"] = result.stalledCallbacks;
        j["decoded_seconds"] = (double)android::hostMediaDecodedFrames() / result.sampleRate;
        j["cpu_seconds"] = cpuS;
        j["peak_rss_bytes"] = (int64_t)usage.ru_maxrss * 1024;
        j["final_position_us"] = result.finalPositionUs;
        j["frames_written"] = result.framesWritten;
        j["end_of_music"] = result.endOfMusic;
        j["sample_rate"] = result.sampleRate;
        j["channels"] = result.channels;
        printf("%s\n", j.dump().c_str());
    }
    return 0;
}
