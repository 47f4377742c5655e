// The panorama: a marked preview frame, and stitching against OpenCV's Stitcher.

#include <benchmark/benchmark.h>
#include <panoramax/panoramax.h>

#include <cstdlib>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching.hpp>
#include <vector>

#include "host/camera/scenes/Landscape.h"
#include "shots/Commands.h"
#include "shots/panorama/ShotPanorama.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/ShotTest.h"

namespace {

using namespace android;

constexpr int kFrames = 8;

/// Views of a pan to the right, `step` of the width apart.
std::vector<cv::Mat> views(cv::Size size, int count, double step) {
    kov::camera::SourceOptions options("");
    kov::camera::Landscape scene(options);
    const cv::Mat& wide = scene.widePicture(size);
    std::vector<cv::Mat> all;
    for (int i = 0; i < count; ++i) {
        const int x = std::min(cvRound(i * step * size.width), wide.cols - size.width);
        all.push_back(wide(cv::Rect({x, 0}, size)).clone());
    }
    return all;
}

/// A frame with V first, in shared memory.
sp<IMemory> toMemory(const cv::Mat& bgr) {
    cv::Mat planar;
    cv::cvtColor(bgr, planar, cv::COLOR_BGR2YUV_YV12);
    const size_t luma = bgr.total();
    sp<IMemory> memory = kov::test::makeMemory(luma * 3 / 2);
    auto* bytes = static_cast<uint8_t*>(memory->pointer());
    std::copy_n(planar.data, luma, bytes);
    for (size_t i = 0; i < luma / 4; ++i) {
        bytes[luma + 2 * i] = planar.data[luma + i];
        bytes[luma + 2 * i + 1] = planar.data[luma + luma / 4 + i];
    }
    return memory;
}

void preview(benchmark::State& state) {
    const cv::Size size(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    const sp<kov::test::FakeCameraHardware> vendor = new kov::test::FakeCameraHardware;
    vendor->params.setPreviewSize(size.width, size.height);
    ShotPanorama* shot = makeShot<ShotPanorama>(vendor.get());
    shot->setCallbacks([](int32_t, int32_t, int32_t, void*) {}, [](int32_t, const sp<IMemory>&, void*) {},
                       [](int64_t, int32_t, const sp<IMemory>&, void*) {}, nullptr);
    std::vector<sp<IMemory>> frames;
    for (const cv::Mat& view : views(size, 12, 0.01))
        frames.push_back(toMemory(view));
    shot->sendCommand(PANORAMA_SHOT_START, 0, 0);
    size_t next = 0;
    for (auto _ : state)
        vendor->data(CAMERA_MSG_PREVIEW_FRAME, frames[next++ % frames.size()]);
    shot->sendCommand(PANORAMA_SHOT_CANCEL, 0, 0);
    retireShot(shot, shot->gate());
}

BENCHMARK(preview)->Name("panorama preview frame/640x480 through shot and engine")->Args({640, 480})->UseRealTime();
BENCHMARK(preview)->Name("panorama preview frame/1280x720 through shot and engine")->Args({1280, 720})->UseRealTime();

void openCvStitcher(benchmark::State& state) {
    const auto all = views({640, 480}, kFrames, 0.45);
    for (auto _ : state) {
        cv::Mat panorama;
        const auto result = cv::Stitcher::create(cv::Stitcher::SCANS)->stitch(all, panorama);
        if (result != cv::Stitcher::OK)
            state.SkipWithError("cv::Stitcher gave up");
    }
}

void ownStitch(benchmark::State& state) {
    const px_allocator process = {std::malloc, std::free};
    std::vector<sp<IMemory>> frames;
    for (const cv::Mat& view : views({640, 480}, kFrames, 0.45))
        frames.push_back(toMemory(view));
    for (auto _ : state) {
        state.PauseTiming();
        px_instance engine = nullptr;
        px_init(&process, nullptr, 0, &engine);
        px_setParams(engine, 640, 480, 0, 640, 480, 0, kFrames, 15, 15, 100 << 20);
        px_start(engine);
        px_beginCapture(engine, 0);
        px_status status = {};
        for (const auto& frame : frames) {
            auto* bytes = static_cast<uint8_t*>(frame->pointer());
            const px_image image = {0, 640, 480, {bytes, bytes + 640 * 480, nullptr}};
            px_handleFrame(engine, &image, 0, &status);
            px_addFrame(engine, &image, 0, &status);
        }
        px_endCapture(engine);
        state.ResumeTiming();
        uint32_t progress = 0;
        while (progress < 100) {
            if (px_createPanorama(engine, &progress) != 0) {
                state.SkipWithError("the frames do not match");
                break;
            }
        }
        state.PauseTiming();
        px_free(engine);
        state.ResumeTiming();
    }
}

BENCHMARK(openCvStitcher)
    ->Name("stitching eight 640x480 frames/cv::Stitcher, SCANS")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(ownStitch)
    ->Name("stitching eight 640x480 frames/libPanoraMax1")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
