// The action shot: a preview frame, the copy into its own heap, and the making of the result.

#include <actionshot/actionshot.h>
#include <benchmark/benchmark.h>

#include <cstring>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "host/camera/scenes/Crossing.h"
#include "shots/Commands.h"
#include "shots/action/ShotAction.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/ShotTest.h"

namespace {

using namespace android;

const cv::Size kSize(640, 480);
constexpr size_t kFrameBytes = 460800;

/// Frames of the crossing scene, `step` seconds apart.
const std::vector<sp<IMemory>>& frames() {
    static const std::vector<sp<IMemory>> all = [] {
        kov::camera::SourceOptions options("");
        kov::camera::Crossing scene(options);
        std::vector<sp<IMemory>> made;
        for (int i = 0; i < 120; ++i) {
            cv::Mat luma;
            cv::cvtColor(scene.frame(0.7 + i / 15.0, kSize), luma, cv::COLOR_BGR2GRAY);
            made.push_back(kov::test::makeMemory(kFrameBytes, 128));
            std::copy_n(luma.data, luma.total(), static_cast<uint8_t*>(made.back()->pointer()));
        }
        return made;
    }();
    return all;
}

ShotAction* makeShotOver(const sp<kov::test::FakeCameraHardware>& vendor) {
    ShotAction* shot = makeShot<ShotAction>(vendor.get());
    shot->setCallbacks([](int32_t, int32_t, int32_t, void*) {}, [](int32_t, const sp<IMemory>&, void*) {},
                       [](int64_t, int32_t, const sp<IMemory>&, void*) {}, nullptr);
    shot->startPreview();
    return shot;
}

void plainCopy(benchmark::State& state) {
    const auto& source = frames();  // drawn before the clock runs
    std::vector<uint8_t> ring(3 * kFrameBytes);
    size_t next = 0;
    for (auto _ : state) {
        std::memcpy(ring.data() + next % 3 * kFrameBytes, source[next % source.size()]->pointer(), kFrameBytes);
        ++next;
        benchmark::DoNotOptimize(ring.data());
    }
}

/// Without a series a frame costs the copy and the way through the shot.
void idleFrame(benchmark::State& state) {
    const auto& source = frames();
    const sp<kov::test::FakeCameraHardware> vendor = new kov::test::FakeCameraHardware;
    ShotAction* shot = makeShotOver(vendor);
    size_t next = 0;
    for (auto _ : state)
        vendor->data(CAMERA_MSG_PREVIEW_FRAME, source[next++ % source.size()]);
    retireShot(shot, shot->gate());
}

void seriesFrame(benchmark::State& state) {
    const auto& source = frames();
    const sp<kov::test::FakeCameraHardware> vendor = new kov::test::FakeCameraHardware;
    ShotAction* shot = makeShotOver(vendor);
    shot->sendCommand(ACTION_SHOT_START_CAPTURE, 0, 0);
    size_t next = 0;
    for (auto _ : state) {
        vendor->data(CAMERA_MSG_PREVIEW_FRAME, source[next % 60]);
        if (++next % 60 == 0) {  // before the series ends by itself
            state.PauseTiming();
            shot->sendCommand(ACTION_SHOT_CANCEL_CAPTURE, 0, 0);
            shot->sendCommand(ACTION_SHOT_START_CAPTURE, 0, 0);
            state.ResumeTiming();
        }
    }
    retireShot(shot, shot->gate());
}

void result(benchmark::State& state) {
    const ActionShot_MemoryFunctions functions = {std::memcpy, std::memset};
    std::vector<uint8_t> memory(25 * kFrameBytes);
    for (auto _ : state) {
        state.PauseTiming();
        ActionShot_SetMemoryFunctions(&functions);
        ActionShot_Handle engine = nullptr;
        ActionShot_Initialize(&engine, kSize.width, kSize.height, memory.data(), static_cast<uint32_t>(memory.size()));
        ActionShot_StartSeries(engine);
        for (const auto& frame : frames()) {
            auto* bytes = static_cast<uint8_t*>(frame->pointer());
            const OPT_API_ASImage image = {0, kSize.width, kSize.height, {bytes, bytes + kSize.area(), nullptr}};
            ActionShot_HandleFrame(engine, &image);
        }
        state.ResumeTiming();
        int32_t progress = 0;
        OPT_API_ASImage made = {};
        while (ActionShot_CreateResult(engine, &progress, &made)) {
        }
        if (progress != 100)
            state.SkipWithError("no result");
        state.PauseTiming();
        ActionShot_Finalize(&engine);
        state.ResumeTiming();
    }
}

BENCHMARK(plainCopy)->Name("action preview frame, 640x480/memcpy into a ring of three")->UseRealTime();
BENCHMARK(idleFrame)->Name("action preview frame, 640x480/through the shot, no series")->UseRealTime();
BENCHMARK(seriesFrame)->Name("action preview frame, 640x480/through shot and engine")->UseRealTime();
BENCHMARK(result)->Name("action result, 640x480/all steps")->UseRealTime();

}  // namespace
