#pragma once

// Several players in one process, several threads issuing random transport
// calls at them (speeds, seeks, pauses, resets, new data sources good and
// bad, preparation, destruction and re-creation), for a set time, with a
// progress line and a watchdog that fails the run when a call stops
// returning.  Among the calls, the world changes under a player: the file
// it plays is cut short, emptied, replaced by another format or given a
// burst of garbage.  Calls on one player are serialised as the Java class
// serialises them; the players run concurrently.  Crashes, leaks and
// sanitizer reports end the process by themselves; the runner's own
// verdict is the watchdog's.

#include <stdint.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

namespace android {

class Rotavox;

struct SoakOptions {
    double seconds = 60;
    int players = 3;
    int threads = 4;
    uint64_t seed = 0;
    // A call that has not returned after this long is a stuck call.
    double stuckSeconds = 30;
    std::string fixturesDir;
};

class SoakRunner {
public:
    explicit SoakRunner(const SoakOptions& options);
    ~SoakRunner();

    // Runs to the end; returns 0, or 2 when the watchdog saw a stuck call
    // (it also ends the process at once then, as a stuck call cannot be
    // joined).
    int run();

    // How the calls went, for the summary line.
    struct Counts {
        std::atomic<int64_t> calls{0};
        std::atomic<int64_t> failures{0};   // calls answered with a status other than OK
        std::atomic<int64_t> recreated{0};  // players destroyed and made again
        std::atomic<int64_t> faults{0};     // changes made to a file a player may be playing
        std::atomic<int64_t> slowestCallUs{0};
    };

private:
    struct Slot {
        // As in the Java class: every call takes the player alone, except
        // the position query, which shares it.
        std::shared_mutex lock;
        std::unique_ptr<Rotavox> player;  // guarded by lock
        // The player's own copy of a file, which faults change under it;
        // file changes are not player calls and do not wait for one.
        std::mutex fileLock;
        std::string workFile;  // set at construction, then read-only
    };
    // What one worker is doing, for the watchdog.
    struct Activity {
        std::atomic<int64_t> sinceUs{-1};  // start of the call in progress, -1 none
        std::atomic<const char*> what{""};
        std::atomic<int> player{-1};
    };

    void worker(int index, uint64_t seed);
    void watchdog();
    std::string pickFile(uint64_t r) const;
    void call(int index, int slotIndex, uint64_t r, uint64_t arg);
    // One change to the slot's file, or to the cache size new players get.
    void fault(Slot& slot, uint64_t arg);

    const SoakOptions mOptions;
    std::vector<std::string> mFiles;
    std::vector<std::string> mFaultFiles;  // what a work file is copied from
    std::string mWorkDir;
    std::vector<std::unique_ptr<Slot>> mSlots;
    std::vector<std::unique_ptr<Activity>> mActivity;
    Counts mCounts;

    std::mutex mLock;  // guards mStop
    std::condition_variable mStopped;
    bool mStop = false;
};

}  // namespace android
