#include "SoakRunner.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include <android/log.h>

#include "LogCapture.h"
#include "Rotavox.h"

namespace android {

namespace {

int64_t nowUs() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
}

// The good file every player must still play once the soak is over.
const char* kGoodFile = "flac16.flac";

}  // namespace

SoakRunner::SoakRunner(const SoakOptions& options) : mOptions(options) {
    // Every fixture, the bad ones included, plus names that do not open.
    if (DIR* d = opendir(options.fixturesDir.c_str())) {
        while (dirent* e = readdir(d)) {
            const std::string name = e->d_name;
            if (name[0] == '.' || name == "embedded.txt") continue;
            mFiles.push_back(options.fixturesDir + "/" + name);
        }
        closedir(d);
    }
    std::sort(mFiles.begin(), mFiles.end());  // the seed alone picks files
    mFiles.push_back(options.fixturesDir + "/does-not-exist.flac");
    mFiles.push_back(options.fixturesDir);
    for (int i = 0; i < options.players; ++i) {
        mSlots.emplace_back(new Slot);
        mSlots.back()->player.reset(new Rotavox);
    }
    for (int i = 0; i < options.threads; ++i) mActivity.emplace_back(new Activity);
}

SoakRunner::~SoakRunner() {}

std::string SoakRunner::pickFile(uint64_t r) const {
    return mFiles[r % mFiles.size()];
}

void SoakRunner::call(int index, int slotIndex, uint64_t r, uint64_t arg) {
    Activity& activity = *mActivity[index];
    Slot& slot = *mSlots[slotIndex];
    activity.player.store(slotIndex);
    const int op = (int)(r % 100);
    status_t err = OK;
    auto begin = [&](const char* what) {
        activity.what.store(what);
        activity.sinceUs.store(nowUs());
    };
    const int64_t speed = (int64_t)(arg % 26001) - 13000;  // past the limits both ways
    if (op < 6) {
        // Destroy and make again, alone with the player.
        begin("finalize");
        std::unique_lock<std::shared_mutex> l(slot.lock);
        slot.player.reset(new Rotavox);
        mCounts.recreated++;
    } else {
        std::shared_lock<std::shared_mutex> l(slot.lock);
        Rotavox& p = *slot.player;
        if (op < 14) {
            begin("setDataSource(path)");
            err = p.setDataSource(pickFile(arg).c_str());
        } else if (op < 20) {
            begin("setDataSource(fd)");
            const std::string path = pickFile(arg);
            const int fd = open(path.c_str(), O_RDONLY);
            struct stat st = {};
            if (fd >= 0) fstat(fd, &st);
            // Mostly the whole file; now and then a range past its end.
            const int64_t length = (arg >> 20) % 4 == 0 ? st.st_size + 100000 : st.st_size;
            const int64_t offset = (arg >> 24) % 8 == 0 ? st.st_size / 2 : 0;
            err = p.setDataSource(fd, offset, length);
            if (fd >= 0) close(fd);
        } else if (op < 26) {
            begin("prepare");
            err = p.prepare();
        } else if (op < 30) {
            begin("prepareAsync");
            err = p.prepareAsync();
        } else if (op < 42) {
            begin("forward");
            err = p.forward((int)speed);
        } else if (op < 50) {
            begin("rewind");
            err = p.rewind((int)speed);
        } else if (op < 60) {
            begin("setPlaybackRatePermille");
            err = p.setPlaybackRatePermille((int)speed);
        } else if (op < 70) {
            begin("setPosition");
            err = p.setPosition((int64_t)(arg % 5000) - 500);
        } else if (op < 80) {
            begin("getPosition");
            (void)p.getPosition();
            int64_t durationUs;
            err = p.getDuration(&durationUs);
        } else if (op < 86) {
            begin("pause");
            err = p.pause();
        } else if (op < 92) {
            begin("play");
            err = p.play();
        } else {
            begin("reset");
            p.reset();
        }
    }
    const int64_t tookUs = nowUs() - activity.sinceUs.load();
    activity.sinceUs.store(-1);
    mCounts.calls++;
    if (err != OK) mCounts.failures++;
    int64_t slowest = mCounts.slowestCallUs.load();
    while (tookUs > slowest && !mCounts.slowestCallUs.compare_exchange_weak(slowest, tookUs)) {
    }
}

void SoakRunner::worker(int index, uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::unique_lock<std::mutex> l(mLock);
    while (!mStop) {
        l.unlock();
        const uint64_t r = rng(), arg = rng();
        call(index, (int)(r / 100 % mSlots.size()), r, arg);
        l.lock();
        // A human pace between calls: up to 30 ms, cut short by the end.
        mStopped.wait_for(l, std::chrono::milliseconds(rng() % 31), [&] { return mStop; });
    }
}

void SoakRunner::watchdog() {
    testing::LogCapture log;  // the engine's lines are counted, not kept
    int64_t warnings = 0, errors = 0;
    const int64_t startUs = nowUs();
    const int64_t stuckUs = (int64_t)(mOptions.stuckSeconds * 1e6);
    std::unique_lock<std::mutex> l(mLock);
    while (!mStop) {
        mStopped.wait_for(l, std::chrono::seconds(1), [&] { return mStop; });
        for (const testing::LogLine& line : log.lines()) {
            warnings += line.priority == ANDROID_LOG_WARN;
            errors += line.priority >= ANDROID_LOG_ERROR;
        }
        log.clear();
        const int64_t now = nowUs();
        bool stuck = false;
        for (size_t i = 0; i < mActivity.size(); ++i) {
            const int64_t since = mActivity[i]->sinceUs.load();
            stuck |= since >= 0 && now - since > stuckUs;
        }
        if (stuck) {
            // Every call in progress, as one stuck call often holds up others.
            for (size_t i = 0; i < mActivity.size(); ++i) {
                const int64_t since = mActivity[i]->sinceUs.load();
                if (since < 0) continue;
                fprintf(stderr, "rotavox-soak: FAIL: worker %zu in %s on player %d for %.1f s\n",
                        i, mActivity[i]->what.load(), mActivity[i]->player.load(),
                        (now - since) / 1e6);
            }
            fprintf(stderr, "rotavox-soak: FAIL: a call stopped returning (seed %llu)\n",
                    (unsigned long long)mOptions.seed);
            fflush(stderr);
            // A stuck call cannot be joined; end here with the verdict.
            _exit(2);
        }
        fprintf(stderr,
                "rotavox-soak: %5.0f/%.0f s  calls %lld  refused %lld  recreated %lld  "
                "slowest %lld ms  log W %lld E %lld\n",
                (now - startUs) / 1e6, mOptions.seconds, (long long)mCounts.calls.load(),
                (long long)mCounts.failures.load(), (long long)mCounts.recreated.load(),
                (long long)mCounts.slowestCallUs.load() / 1000, (long long)warnings,
                (long long)errors);
    }
}

int SoakRunner::run() {
    fprintf(stderr, "rotavox-soak: %d players, %d threads, %.0f s, seed %llu, %zu files\n",
            mOptions.players, mOptions.threads, mOptions.seconds,
            (unsigned long long)mOptions.seed, mFiles.size());
    std::thread dog([this] { watchdog(); });
    std::vector<std::thread> workers;
    for (int i = 0; i < mOptions.threads; ++i) {
        workers.emplace_back([this, i] { worker(i, mOptions.seed * 1000003 + i); });
    }
    {
        std::unique_lock<std::mutex> l(mLock);
        mStopped.wait_for(l, std::chrono::microseconds((int64_t)(mOptions.seconds * 1e6)),
                          [&] { return mStop; });
        mStop = true;
    }
    mStopped.notify_all();
    for (std::thread& t : workers) t.join();
    dog.join();

    // Nothing was lost: every player plays a good file after all that.
    int bad = 0;
    const std::string good = mOptions.fixturesDir + "/" + kGoodFile;
    for (size_t i = 0; i < mSlots.size(); ++i) {
        Rotavox& p = *mSlots[i]->player;
        p.reset();
        status_t a = p.setDataSource(good.c_str()), b = p.prepare(), c = p.forward(1000);
        if (a != OK || b != OK || c != OK) {
            fprintf(stderr, "rotavox-soak: FAIL: player %zu no longer plays %s (%d %d %d)\n", i,
                    kGoodFile, a, b, c);
            ++bad;
        }
    }
    mSlots.clear();
    fprintf(stderr, "rotavox-soak: %lld calls, %lld refused with a status, %lld players recreated, "
            "slowest call %lld ms: %s\n",
            (long long)mCounts.calls.load(), (long long)mCounts.failures.load(),
            (long long)mCounts.recreated.load(), (long long)mCounts.slowestCallUs.load() / 1000,
            bad ? "FAIL" : "passed");
    return bad ? 1 : 0;
}

}  // namespace android
