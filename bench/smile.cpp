// The smile preview: a frame with one face through shot and engines.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "host/camera/scenes/Portrait.h"
#include "shots/Commands.h"
#include "shots/smile/ShotSmile.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/ShotTest.h"

namespace {

using namespace android;

constexpr int kFrames = 300;

void preview(benchmark::State& state) {
    const cv::Size size(640, 480);
    kov::camera::SourceOptions options("neutral=100");
    kov::camera::Portrait scene(options);
    const sp<kov::test::FakeCameraHardware> vendor = new kov::test::FakeCameraHardware;
    ShotSmile* shot = makeShot<ShotSmile>(vendor.get());
    shot->setCallbacks([](int32_t, int32_t, int32_t, void*) {}, [](int32_t, const sp<IMemory>&, void*) {},
                       [](int64_t, int32_t, const sp<IMemory>&, void*) {}, nullptr);
    shot->sendCommand(SMILE_SHOT_DETECTION_START, 0, 0);
    std::vector<sp<IMemory>> frames;
    for (int i = 0; i < 30; ++i) {
        cv::Mat luma;
        cv::cvtColor(scene.frame(i / 30.0, size), luma, cv::COLOR_BGR2GRAY);
        frames.push_back(kov::test::makeMemory(luma.total() * 3 / 2, 128));
        std::copy_n(luma.data, luma.total(), static_cast<uint8_t*>(frames.back()->pointer()));
    }
    double worst = 0;
    size_t next = 0;
    for (auto _ : state) {
        const nsecs_t begin = systemTime();
        vendor->data(CAMERA_MSG_PREVIEW_FRAME, frames[next++ % frames.size()]);
        worst = std::max(worst, static_cast<double>(systemTime() - begin) / 1e6);
    }
    state.counters["worst of 300, ms:"] = worst;
    retireShot(shot, shot->gate());
}

BENCHMARK(preview)->Name("smile preview frame/640x480 with one face")->Iterations(kFrames)->UseRealTime();

}  // namespace
