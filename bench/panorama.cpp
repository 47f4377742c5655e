// The panorama: a marked preview frame, and stitching against OpenCV's Stitcher.

#include <benchmark/benchmark.h>
#include <panoramax/panoramax.h>

#include <cstdlib>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching.hpp>
#include <vector>

#include "host/camera/scenes/Landscape.h"
#include "shots/Commands.h"
#include "shots/panorama/ShotPanorama.h"
#include "tests/support/FakeCameraHardware.h"
#include "tests/support/HandHeldSweep.h"
#include "tests/support/SceneFrames.h"
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

/// An engine for 640x480 frames, within a capture.
px_instance capturing() {
    static const px_allocator process = {std::malloc, std::free};
    px_instance engine = nullptr;
    px_init(&process, nullptr, 0, &engine);
    px_setParams(engine, 640, 480, 0, 640, 480, 0, kFrames, 15, 15, 100 << 20);
    px_start(engine);
    px_beginCapture(engine, 0);
    return engine;
}

void ownStitch(benchmark::State& state) {
    std::vector<sp<IMemory>> frames;
    for (const cv::Mat& view : views({640, 480}, kFrames, 0.45))
        frames.push_back(toMemory(view));
    for (auto _ : state) {
        state.PauseTiming();
        const px_instance engine = capturing();
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

/// A photograph as a wide (or tall) picture: enlarged until its short side suffices, mirrored on along the other.
cv::Mat photograph(const std::string& file, cv::Size size) {
    cv::Mat picture = cv::imread(file);
    if (picture.empty())
        return picture;
    const double scale =
        std::max(1.0, static_cast<double>(std::min(size.width, size.height)) / std::min(picture.cols, picture.rows));
    cv::resize(picture, picture, {}, scale, scale, cv::INTER_CUBIC);
    cv::copyMakeBorder(picture, picture, 0, std::max(0, size.height - picture.rows), 0,
                       std::max(0, size.width - picture.cols), cv::BORDER_REFLECT);
    return picture(cv::Rect({}, size)).clone();
}

struct Film {
    const char* name;
    const char* file;  // of a Debian package; empty for the drawn valley
    bool upright;      // swept down rather than to the right
};

/// The time is that of the stitching; the counters tell what came out.
void film(benchmark::State& state, Film film, kov::test::Hand hand) {
    cv::Mat wide;
    if (*film.file) {
        wide = photograph(film.file, film.upright ? cv::Size(720, 2300) : cv::Size(3000, 560));
    } else {
        kov::camera::SourceOptions options(film.upright ? "direction=down" : "");
        wide = kov::camera::Landscape(options).widePicture({740, 560});
    }
    if (wide.empty()) {
        state.SkipWithError("the photograph is not installed");
        return;
    }
    kov::test::Fit fit;
    for (auto _ : state) {
        state.PauseTiming();
        kov::test::HandHeldSweep sweep(wide, {640, 480}, film.upright ? cv::Point2d(0, 27) : cv::Point2d(36, 0), hand);
        const px_instance engine = capturing();
        px_status status = {};
        for (int i = 0; i < sweep.count() && status.frame_count < kFrames; ++i) {
            auto bytes = kov::test::toFrame(sweep.frame(i));
            const px_image image = {0, 640, 480, {bytes.data(), bytes.data() + 640 * 480, nullptr}};
            px_handleFrame(engine, &image, 0, &status);
            if (status.status == 2)
                px_addFrame(engine, &image, 0, &status);
        }
        px_endCapture(engine);
        state.ResumeTiming();
        uint32_t progress = 0;
        while (progress < 100 && px_createPanorama(engine, &progress) == 0) {
        }
        state.PauseTiming();
        px_image made = {};
        if (px_getPanoramaImage(engine, &made) == 0)
            fit = kov::test::fitOf(cv::Mat(made.height, made.width, CV_8U, made.plane[0]), kov::test::lumaOf(wide));
        px_free(engine);
        state.ResumeTiming();
    }
    state.counters["dB"] = fit.psnr;
    state.counters["worst line (levels)"] = fit.worst;
}

const bool filmsRegistered = [] {
    const char* const doc = "/usr/share/doc/opencv-doc/examples/data/";
    const char* const skimage = "/usr/lib/python3/dist-packages/skimage/data/";
    static const std::string files[] = {"", std::string(doc) + "building.jpg", std::string(doc) + "aloeL.jpg",
                                        std::string(skimage) + "motorcycle_left.png"};
    const char* const names[] = {"valley", "building", "plant", "motorcycle"};
    const std::pair<const char*, kov::test::Hand> hands[] = {{"straight", {}}, {"turned by 2 degrees", {2, 3, 0.1, 3}}};
    for (size_t i = 0; i < std::size(files); ++i)
        for (const bool upright : {false, true})
            for (const auto& [how, hand] : hands)
                benchmark::RegisterBenchmark(
                    (std::string("panorama film, 8 of 640x480/") + names[i] + (upright ? " down, " : " right, ") + how)
                        .c_str(),
                    film, Film{names[i], files[i].c_str(), upright}, hand)
                    ->Unit(benchmark::kMillisecond)
                    ->Iterations(1)
                    ->Repetitions(2)
                    ->UseRealTime();
    return true;
}();

}  // namespace
