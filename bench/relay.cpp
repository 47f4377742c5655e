// What the way through shot and adaptor costs, and what a switch of modes costs.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "adaptor/KovCameraHardwareInterface.h"
#include "shots/Commands.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::FakeCameraHardware;

namespace {

void onData(int32_t, const sp<IMemory>& data, void* cookie) {
    benchmark::DoNotOptimize(data.get());
    benchmark::DoNotOptimize(cookie);
}

/// A vendor layer, the adaptor on it in single mode, and a service that is registered. Made once.
struct Stack {
    sp<FakeCameraHardware> vendor = new FakeCameraHardware;
    sp<CameraHardwareInterface> adaptor;
    sp<IMemory> frame = kov::test::makeMemory(640 * 480 * 3 / 2);

    Stack() {
        FakeCameraHardware::setNext(vendor.get());
        adaptor = openKovCameraHardware();
        adaptor->setCallbacks([](int32_t, int32_t, int32_t, void*) {}, onData,
                              [](int64_t, int32_t, const sp<IMemory>&, void*) {}, this);
    }
    static Stack& get() {
        static Stack* const stack = new Stack;
        return *stack;
    }
};

void direct(benchmark::State& state) {
    const Stack& stack = Stack::get();
    data_callback callback = onData;
    benchmark::DoNotOptimize(callback);
    for (auto _ : state)
        callback(CAMERA_MSG_PREVIEW_FRAME, stack.frame, nullptr);
}

void relay(benchmark::State& state) {
    Stack& stack = Stack::get();
    const nsecs_t begin = systemTime();
    for (auto _ : state)
        stack.vendor->data(CAMERA_MSG_PREVIEW_FRAME, stack.frame);
    const double each = static_cast<double>(systemTime() - begin) / static_cast<double>(state.iterations());
    state.counters["on each thread, ns:"] = benchmark::Counter(each, benchmark::Counter::kAvgThreads);
}

BENCHMARK(direct)->Name("preview message/direct call of the service")->UseRealTime();
BENCHMARK(relay)->Name("preview message/through shot and adaptor")->UseRealTime();
BENCHMARK(direct)->Name("preview message from 2 threads/direct call of the service")->Threads(2)->UseRealTime();
BENCHMARK(relay)->Name("preview message from 2 threads/through shot and adaptor")->Threads(2)->UseRealTime();

void switchIdle(benchmark::State& state) {
    const Stack& stack = Stack::get();
    for (auto _ : state)
        stack.adaptor->sendCommand(KOV_MODE_SINGLE, 0, 0);
}

void switchBusy(benchmark::State& state) {
    Stack& stack = Stack::get();
    // The registration as it stands, used throughout: the messages that come too late are part of the load.
    const data_callback callback = stack.vendor->dataCb;
    void* const user = stack.vendor->user;
    std::atomic<bool> stop{false};
    std::thread delivering([&] {
        while (!stop)
            callback(CAMERA_MSG_PREVIEW_FRAME, stack.frame, user);
    });
    for (auto _ : state)
        stack.adaptor->sendCommand(KOV_MODE_SINGLE, 0, 0);
    stop = true;
    delivering.join();
}

double residentKiB() {
    std::ifstream file("/proc/self/statm");
    double total = 0;
    double resident = 0;
    file >> total >> resident;
    return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

void tenThousandSwitches(benchmark::State& state) {
    const Stack& stack = Stack::get();
    double growth = 0;
    for (auto _ : state) {
        const double before = residentKiB();
        for (int i = 0; i < 10000; ++i)
            stack.adaptor->sendCommand(i % 2 ? KOV_MODE_SINGLE : KOV_MODE_LAST, 0, 0);
        growth = residentKiB() - before;
    }
    stack.adaptor->sendCommand(KOV_MODE_SINGLE, 0, 0);
    state.counters["growth of resident memory, KiB:"] = growth;
}

BENCHMARK(switchIdle)->Name("switch of modes/idle")->UseRealTime();
BENCHMARK(switchBusy)->Name("switch of modes/while frames are delivered")->UseRealTime();
BENCHMARK(tenThousandSwitches)->Name("switch of modes/10,000 of them")->UseRealTime()->Iterations(1);

}  // namespace
