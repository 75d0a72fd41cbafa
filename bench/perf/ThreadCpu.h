#pragma once

#include <map>
#include <string>

namespace rotavox {

// CPU time of every live thread of this process, summed by thread name
// ("AudioTrack", "RotavoxSource", ...), read through each thread's own CPU
// clock so that short windows still get nanosecond figures.
class ThreadCpu {
public:
    static ThreadCpu snapshot();

    // Seconds per thread name in |later| minus those in |earlier|; threads
    // that started in between count from zero.
    static std::map<std::string, double> delta(const ThreadCpu& earlier, const ThreadCpu& later);

    // User plus system CPU seconds of the whole process (getrusage), which
    // also counts threads that have already exited.
    static double processSeconds();

private:
    std::map<int, std::pair<std::string, double>> mByTid;
};

}  // namespace rotavox
