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
    std::vector<cv::Mat> views(30);
    for (size_t i = 0; i < views.size(); ++i)
        cv::cvtColor(scene.frame(static_cast<double>(i) / 30, size), views[i], cv::COLOR_BGR2GRAY);
    const sp<IMemory> frame = kov::test::makeMemory(views[0].total() * 3 / 2, 128);
    auto* const pixels = static_cast<uint8_t*>(frame->pointer());
    double worst = 0;
    int marked = 0;
    size_t next = 0;
    for (auto _ : state) {
        // The marks are drawn into the frame, so each one is fresh; the copy is not counted.
        const cv::Mat& view = views[next++ % views.size()];
        std::copy_n(view.data, view.total(), pixels);
        const nsecs_t begin = systemTime();
        vendor->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        const double seconds = static_cast<double>(systemTime() - begin) / 1e9;
        state.SetIterationTime(seconds);
        worst = std::max(worst, seconds * 1e3);
        marked += !std::equal(pixels, pixels + view.total(), view.data);
    }
    if (marked < 0.9 * kFrames)
        state.SkipWithError("the face was not found");
    state.counters["worst of 300, ms:"] = worst;
    retireShot(shot, shot->gate());
}

BENCHMARK(preview)->Name("smile preview frame/640x480 with one face")->Iterations(kFrames)->UseManualTime();

}  // namespace
