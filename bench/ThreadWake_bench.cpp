// What one thread wake-up costs on this machine, the unit every real-time
// period and every looper message of the engine pays at least once:
//   - a timed wait that runs out (the null sink's pacing, once per period);
//   - a message to a looper thread and its reply (a codec callback, a decode
//     request): two wake-ups, one each way.
// The figure is CPU time of the whole process per wake-up, both threads
// included, so it can be set against the decode floor's CPU per second.

#include <media/stagefright/foundation/AHandler.h>
#include <media/stagefright/foundation/ALooper.h>
#include <media/stagefright/foundation/AMessage.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

namespace {

using android::AHandler;
using android::ALooper;
using android::AMessage;
using android::AReplyToken;
using android::sp;

double processCpuUs() {
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e6 + ts.tv_nsec / 1e3;
}

void BM_TimedWaitExpires(benchmark::State& state) {
    std::mutex lock;
    std::condition_variable never;
    const double startUs = processCpuUs();
    for (auto _ : state) {
        std::unique_lock<std::mutex> held(lock);
        never.wait_for(held, std::chrono::milliseconds(1));
    }
    state.counters["CPU us/wake"] = (processCpuUs() - startUs) / state.iterations();
}
BENCHMARK(BM_TimedWaitExpires)->Name("ThreadWake/timed-wait-expires")->Iterations(2000)->UseRealTime();

class Echo : public AHandler {
protected:
    void onMessageReceived(const sp<AMessage>& msg) override {
        sp<AReplyToken> replyId;
        if (msg->senderAwaitsResponse(&replyId)) {
            (new AMessage)->postReply(replyId);
        }
    }
};

void BM_LooperRoundTrip(benchmark::State& state) {
    sp<ALooper> looper = new ALooper;
    looper->setName("wake-bench");
    sp<Echo> echo = new Echo;
    looper->registerHandler(echo);
    looper->start();
    const double startUs = processCpuUs();
    for (auto _ : state) {
        sp<AMessage> response;
        (new AMessage(0, echo))->postAndAwaitResponse(&response);
    }
    state.counters["CPU us/wake"] = (processCpuUs() - startUs) / (2.0 * state.iterations());
    looper->stop();
    looper->unregisterHandler(echo->id());
}
BENCHMARK(BM_LooperRoundTrip)->Name("ThreadWake/looper-round-trip")->Iterations(20000)->UseRealTime();

}  // namespace
