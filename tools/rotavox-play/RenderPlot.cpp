#include "RenderPlot.h"

#include <limits.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

extern char** environ;

namespace rotavox {

namespace {

// The script sits in share/rotavox beside the tool's bin/, in the build tree
// as where it is installed.
std::string plotScript() {
    char exe[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    if (n <= 0) return "rotavox-plot";
    exe[n] = '\0';
    std::string dir(exe);
    dir = dir.substr(0, dir.rfind('/'));
    return dir + "/../share/rotavox/rotavox-plot";
}

}  // namespace

nlohmann::json plotData(const RenderResult& result, const std::string& title,
                        const std::string& wavPath) {
    const double rate = result.sampleRate ? result.sampleRate : 1;
    nlohmann::json data;
    data["title"] = title;
    data["sample_rate"] = result.sampleRate;
    data["duration_s"] = result.durationUs >= 0 ? nlohmann::json(result.durationUs / 1e6) : nlohmann::json();
    data["output_s"] = result.framesWritten / rate;
    data["positions"] = nlohmann::json::array();
    for (const PositionSample& s : result.positions) {
        data["positions"].push_back({s.outputFrames / rate, s.positionUs / 1e6});
    }
    data["operations"] = nlohmann::json::array();
    for (const AppliedOp& op : result.applied) {
        data["operations"].push_back(
                {{"t", op.outputFrames / rate}, {"label", op.label}, {"note", op.note}, {"speed", op.speed}});
    }
    data["wav"] = wavPath.empty() ? nlohmann::json() : nlohmann::json(wavPath);
    return data;
}

bool writeRenderPlot(const nlohmann::json& data, const std::string& pngPath, std::string* error) {
    char dataPath[] = "/tmp/rotavox-plot-XXXXXX.json";
    int fd = mkstemps(dataPath, 5);
    if (fd < 0) {
        *error = "cannot write the plot's data";
        return false;
    }
    close(fd);
    {
        std::ofstream out(dataPath);
        out << data.dump();
    }
    const std::string script = plotScript();
    // Debian's Python, where python3-matplotlib is installed, whatever else
    // the PATH may hold.
    const char* argv[] = {"/usr/bin/python3", script.c_str(), dataPath, pngPath.c_str(), nullptr};
    pid_t pid;
    int status = -1;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, const_cast<char**>(argv), environ) == 0) {
        waitpid(pid, &status, 0);
    }
    unlink(dataPath);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        *error = "drawing " + pngPath + " failed (" + script +
                 " needs python3 with matplotlib: apt install python3-matplotlib)";
        return false;
    }
    return true;
}

}  // namespace rotavox
