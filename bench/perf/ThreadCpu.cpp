#include "ThreadCpu.h"

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>

namespace rotavox {

namespace {

// The kernel's CPU clock of one thread of this process: the clock id that
// pthread_getcpuclockid() would build, from a thread id rather than a
// pthread_t (the engine's threads are not ours to ask).
clockid_t threadCpuClock(int tid) {
    return (clockid_t)(((unsigned)~tid << 3) | 6);
}

std::string threadName(int tid) {
    char path[64];
    snprintf(path, sizeof(path), "/proc/self/task/%d/comm", tid);
    FILE* f = fopen(path, "r");
    if (f == nullptr) return "?";
    char name[64] = {0};
    if (fgets(name, sizeof(name), f) == nullptr) name[0] = '\0';
    fclose(f);
    name[strcspn(name, "\n")] = '\0';
    return name;
}

}  // namespace

ThreadCpu ThreadCpu::snapshot() {
    ThreadCpu result;
    DIR* dir = opendir("/proc/self/task");
    if (dir == nullptr) return result;
    while (struct dirent* entry = readdir(dir)) {
        const int tid = atoi(entry->d_name);
        if (tid <= 0) continue;
        struct timespec ts;
        if (clock_gettime(threadCpuClock(tid), &ts) != 0) continue;  // exited meanwhile
        result.mByTid[tid] = {threadName(tid), ts.tv_sec + ts.tv_nsec / 1e9};
    }
    closedir(dir);
    return result;
}

std::map<std::string, double> ThreadCpu::delta(const ThreadCpu& earlier, const ThreadCpu& later) {
    std::map<std::string, double> byName;
    for (const auto& [tid, entry] : later.mByTid) {
        double before = 0;
        auto it = earlier.mByTid.find(tid);
        if (it != earlier.mByTid.end()) before = it->second.second;
        byName[entry.first] += entry.second - before;
    }
    return byName;
}

double ThreadCpu::processSeconds() {
    struct rusage ru;
    getrusage(RUSAGE_SELF, &ru);
    return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec +
           (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

}  // namespace rotavox
