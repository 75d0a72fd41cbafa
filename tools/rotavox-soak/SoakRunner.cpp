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
#include <cutils/properties.h>

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

// What a player's own file is copied from: the long demo track and every
// compressed format, so that a fault can land ahead of what is cached.
const char* kFaultSources[] = {"demo.flac", "mp3.mp3", "aac.m4a", "flac16.flac",
                               "vorbis.ogg", "wav16.wav"};

// A small cache keeps the decoder close behind the play position, where a
// change to the file is met at once; the default one caches a short file
// whole.  New players take whichever the last fault chose.
const char* kSmallCacheParams = "300000/1000000/500000";

bool copyFile(const std::string& from, const std::string& to) {
    const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return false;
    const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    bool ok = out >= 0;
    char buffer[65536];
    ssize_t n;
    while (ok && (n = read(in, buffer, sizeof(buffer))) > 0) {
        ok = write(out, buffer, (size_t)n) == n;
    }
    if (out >= 0) close(out);
    close(in);
    return ok;
}

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
    for (const char* name : kFaultSources) {
        mFaultFiles.push_back(options.fixturesDir + "/" + name);
    }
    char dir[] = "/tmp/rotavox-soak-XXXXXX";
    if (mkdtemp(dir) != NULL) mWorkDir = dir;
    for (int i = 0; i < options.players; ++i) {
        mSlots.emplace_back(new Slot);
        Slot& slot = *mSlots.back();
        slot.workFile = mWorkDir + "/player-" + std::to_string(i);
        copyFile(mFaultFiles[i % mFaultFiles.size()], slot.workFile);
        slot.player.reset(new Rotavox);
    }
    for (int i = 0; i < options.threads; ++i) mActivity.emplace_back(new Activity);
}

SoakRunner::~SoakRunner() {
    // run() has dropped the slots by now; their files are named by index.
    for (size_t i = 0; i < (size_t)mOptions.players; ++i) {
        unlink((mWorkDir + "/player-" + std::to_string(i)).c_str());
    }
    if (!mWorkDir.empty()) rmdir(mWorkDir.c_str());
}

void SoakRunner::fault(Slot& slot, uint64_t arg) {
    std::lock_guard<std::mutex> l(slot.fileLock);
    const std::string& path = slot.workFile;
    struct stat st = {};
    if (stat(path.c_str(), &st) != 0) st.st_size = 0;
    switch (arg % 6) {
        case 0:  // cut to half
            (void)truncate(path.c_str(), st.st_size / 2);
            break;
        case 1:  // emptied
            (void)truncate(path.c_str(), 0);
            break;
        case 2:  // deleted, and another file (often of another format) put in its place
        case 3:
            unlink(path.c_str());
            copyFile(mFaultFiles[(arg >> 8) % mFaultFiles.size()], path);
            break;
        case 4: {  // a few KiB of garbage somewhere in the middle
            const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
            if (fd < 0 || st.st_size < 16) {
                if (fd >= 0) close(fd);
                break;
            }
            std::mt19937_64 rng(arg);
            char garbage[4096 * 3];
            const size_t length = 1024 + (size_t)(arg >> 16) % (sizeof(garbage) - 1024);
            for (char& c : garbage) c = (char)rng();
            const off_t at = st.st_size / 4 + (off_t)((arg >> 32) % (uint64_t)(st.st_size / 2));
            (void)pwrite(fd, garbage, std::min<size_t>(length, (size_t)(st.st_size - at)), at);
            close(fd);
            break;
        }
        default:  // the cache size of the next players
            property_set("media.rotavox.cache-params", (arg >> 8) % 2 ? kSmallCacheParams : "");
            return;
    }
    mCounts.faults++;
}

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
    // Half the new data sources open the player's own file, the one faults
    // change; the rest any fixture, bad ones included.
    auto pickSource = [&]() { return (arg >> 48) % 2 ? slot.workFile : pickFile(arg); };
    if (op >= 70 && op < 76) {
        // Not a call: the file changes under whatever the player does.
        begin("fault");
        fault(slot, arg);
    } else if (op >= 76 && op < 80) {
        // The one query the Java class lets run beside another call.
        begin("getPosition");
        std::shared_lock<std::shared_mutex> l(slot.lock);
        (void)slot.player->getPosition();
        int64_t durationUs;
        err = slot.player->getDuration(&durationUs);
    } else if (op < 6) {
        // Released and made again, as the Java class releases: a reset,
        // then the player goes.
        begin("finalize");
        std::unique_lock<std::shared_mutex> l(slot.lock);
        slot.player->reset();
        slot.player.reset(new Rotavox);
        mCounts.recreated++;
    } else {
        std::unique_lock<std::shared_mutex> l(slot.lock);
        Rotavox& p = *slot.player;
        if (op < 14) {
            begin("setDataSource(path)");
            err = p.setDataSource(pickSource().c_str());
        } else if (op < 20) {
            begin("setDataSource(fd)");
            const std::string path = pickSource();
            const int fd = open(path.c_str(), O_RDONLY);
            struct stat st = {};
            if (fd >= 0) fstat(fd, &st);
            // Mostly the whole file; now and then a range past its end.
            const int64_t length = (arg >> 20) % 4 == 0 ? st.st_size + 100000 : st.st_size;
            const int64_t offset = (arg >> 24) % 8 == 0 ? st.st_size / 2 : 0;
            err = p.setDataSource(fd, offset, length);
            // The application's descriptor goes at once; the player reads on.
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
            err = p.setPosition((int64_t)(arg % 30000) - 500);
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
                "faults %lld  slowest %lld ms  log W %lld E %lld\n",
                (now - startUs) / 1e6, mOptions.seconds, (long long)mCounts.calls.load(),
                (long long)mCounts.failures.load(), (long long)mCounts.recreated.load(),
                (long long)mCounts.faults.load(),
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
            "%lld faults injected, slowest call %lld ms: %s\n",
            (long long)mCounts.calls.load(), (long long)mCounts.failures.load(),
            (long long)mCounts.recreated.load(), (long long)mCounts.faults.load(),
            (long long)mCounts.slowestCallUs.load() / 1000,
            bad ? "FAIL" : "passed");
    return bad ? 1 : 0;
}

}  // namespace android
