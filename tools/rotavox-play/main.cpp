// rotavox-play: plays or renders one file through the Rotavox engine under a
// timed transport script.  See tools/README.md.

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include <cutils/properties.h>

#include "RenderPlot.h"
#include "Renderer.h"
#include "RotavoxSource.h"
#include "TransportScript.h"

using namespace rotavox;

namespace {

const char kUsage[] =
        "usage: rotavox-play [--script \"T:op arg; ...\"] [--duration S] [--out FILE.wav]\n"
        "                    [--freewheel] [--plot FILE.png] [--cache-params L/H/P] [--stats] FILE\n"
        "\n"
        "  --script       operations at seconds of output: forward N, rewind N, rate N\n"
        "                 (thousandths of normal speed), seek MS, pause, stop\n"
        "  --duration S   end after S seconds of output\n"
        "  --out FILE     write the output to a WAV file instead of the audio device\n"
        "  --freewheel    render as fast as the engine delivers (with --out, or silently)\n"
        "  --plot FILE    draw position over time (and the waveform, with --out) as PNG\n"
        "  --cache-params low-water/high-water/preroll in microseconds\n"
        "  --stats        print one JSON object of figures at the end\n";

int usage(const char* problem) {
    if (problem != nullptr) fprintf(stderr, "rotavox-play: %s\n\n", problem);
    fputs(kUsage, stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    RenderOptions options;
    std::string plotPath, cacheParams;
    bool stats = false;

    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) return nullptr;
            (void)name;
            return argv[++i];
        };
        if (arg == "--help" || arg == "-h") {
            fputs(kUsage, stdout);
            return 0;
        } else if (arg == "--script") {
            const char* v = value("--script");
            if (v == nullptr) return usage("--script needs a script");
            std::string error;
            if (!parseTransportScript(v, &options.ops, &error)) {
                return usage(("bad script: " + error).c_str());
            }
        } else if (arg == "--duration") {
            const char* v = value("--duration");
            char* end = nullptr;
            options.durationS = v ? strtod(v, &end) : -1;
            if (v == nullptr || *end != '\0' || !std::isfinite(options.durationS) ||
                options.durationS <= 0) {
                return usage("--duration needs a positive number of seconds");
            }
        } else if (arg == "--out") {
            const char* v = value("--out");
            if (v == nullptr || !*v) return usage("--out needs a file name");
            options.outPath = v;
        } else if (arg == "--freewheel") {
            options.freewheel = true;
        } else if (arg == "--plot") {
            const char* v = value("--plot");
            if (v == nullptr || !*v) return usage("--plot needs a file name");
            plotPath = v;
        } else if (arg == "--cache-params") {
            const char* v = value("--cache-params");
            long a, b, c;
            char tail;
            if (v == nullptr || sscanf(v, "%ld/%ld/%ld%c", &a, &b, &c, &tail) != 3) {
                return usage("--cache-params needs L/H/P, three numbers of microseconds");
            }
            cacheParams = v;
        } else if (arg == "--stats") {
            stats = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return usage(("unknown option " + arg).c_str());
        } else if (options.file.empty()) {
            options.file = arg;
        } else {
            return usage("only one FILE can be played");
        }
    }
    if (options.file.empty()) return usage("no FILE given");
    if (!cacheParams.empty() &&
        property_set("media.rotavox.cache-params", cacheParams.c_str()) != 0) {
        fprintf(stderr, "rotavox-play: cannot set the cache parameters\n");
        return 1;
    }
    // The output would drop a track it cannot write, and the run would then
    // wait for audio that never comes: refuse such paths before playing.
    for (const std::string* path : {&options.outPath, &plotPath}) {
        if (path->empty()) continue;
        FILE* f = fopen(path->c_str(), "ab");
        if (f == NULL) {
            fprintf(stderr, "rotavox-play: cannot write '%s': %s\n", path->c_str(), strerror(errno));
            return 1;
        }
        fclose(f);
    }
    options.progress = isatty(STDERR_FILENO);

    RenderResult result;
    Renderer renderer;
    if (!renderer.run(options, &result)) {
        fprintf(stderr, "rotavox-play: %s\n", result.error.c_str());
        return 1;
    }

    int status = 0;
    if (!plotPath.empty()) {
        std::string error;
        if (!writeRenderPlot(result, options.outPath, plotPath, &error)) {
            fprintf(stderr, "rotavox-play: %s\n", error.c_str());
            status = 1;
        }
    }

    if (stats) {
        struct rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        double cpuS = usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 +
                      usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
        printf("{\"underrun_frames\": %lld, \"reader_stalls\": %lld, \"decoded_seconds\": %.6f, "
               "\"cpu_seconds\": %.6f, \"peak_rss_bytes\": %lld, \"final_position_us\": %lld, "
               "\"frames_written\": %lld, \"sample_rate\": %u, \"channels\": %d}\n",
               (long long)result.underrunFrames,
               (long long)android::RotavoxSource::totalDataWaits(),
               (double)android::RotavoxSource::totalDecodedFrames() / result.sampleRate, cpuS,
               (long long)usage.ru_maxrss * 1024, (long long)result.finalPositionUs,
               (long long)result.framesWritten, result.sampleRate, result.channels);
    }
    return status;
}
