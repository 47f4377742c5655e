// Drawing against OpenCV's, the host's JPEG encoder against TurboJPEG's.

#include <arccamera/jpeg.h>
#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench/TurboJpeg.h"
#include "imaging/Overlay.h"

namespace {

using namespace android;

const cv::Size kFull(1920, 1080);

void openCvRectangle(benchmark::State& state) {
    cv::Mat luma(kFull, CV_8U, cv::Scalar(90));
    cv::Mat chroma(kFull / 2, CV_8UC2, cv::Scalar(128, 128));
    for (auto _ : state) {
        cv::rectangle(luma, {400, 200}, {1000, 800}, 149, 4);
        cv::rectangle(chroma, {200, 100}, {500, 400}, {43, 21}, 2);
    }
}

void ownRectangle(benchmark::State& state) {
    std::vector<uint8_t> frame(static_cast<size_t>(kFull.area()) * 3 / 2);
    const OverlayImage image = {
        kFull.width, kFull.height, {frame.data(), frame.data() + kFull.area(), frame.data() + kFull.area() + 1}};
    for (auto _ : state)
        drawRectangle(image, OverlayLayout::SemiPlanar, 400, 200, 1000, 800, overlayColor(0x00FF00),
                      OverlayFrame::Inward4);
}

BENCHMARK(openCvRectangle)->Name("rectangle, 4 pixels wide, 1920x1080/cv::rectangle on luma and chroma");
BENCHMARK(ownRectangle)->Name("rectangle, 4 pixels wide, 1920x1080/overlay");

/// A detailed frame, V first.
std::vector<uint8_t> detailedFrame(int width, int height) {
    std::vector<uint8_t> frame(static_cast<size_t>(width) * height * 3 / 2);
    cv::Mat luma(height, width, CV_8U, frame.data());
    cv::theRNG().state = 7;
    cv::randu(luma, 0, 255);
    cv::GaussianBlur(luma, luma, {7, 7}, 2);
    cv::Mat chroma(height / 2, width, CV_8U, frame.data() + luma.total());
    cv::randu(chroma, 90, 160);
    cv::GaussianBlur(chroma, chroma, {9, 9}, 3);
    return frame;
}

constexpr int kQuality = 90;

void turboJpeg(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    const auto frame = detailedFrame(width, height);
    kov::bench::timeTurboJpeg(state, frame, width, height, kQuality, TJFLAG_ACCURATEDCT);
}

void vendorJpeg(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    auto frame = detailedFrame(width, height);
    uint8_t* const chroma = frame.data() + static_cast<size_t>(width) * height;
    MHandle manager = nullptr;
    AMCM_Create(nullptr, &manager);
    AMCM_RegisterEx(manager, 0, 0, 0, 0, reinterpret_cast<void*>(MEncoder_AJL2Create));
    for (auto _ : state) {
        MHandle stream = MStreamOpenFromMemoryBlock(nullptr, 3 * width * height);
        MBITMAP bitmap = {
            ARC_FORMAT_YUV420_SEMIPLANAR, width, height, {width, width, width}, {frame.data(), chroma + 1, chroma}};
        MdBitmapSaveEx(manager, stream, 2, &bitmap, kQuality, ARC_FORMAT_YUV420_SEMIPLANAR);
        benchmark::DoNotOptimize(MStreamGetSize(stream));
        MStreamClose(stream);
    }
    if (AMCM_Destroy)
        AMCM_Destroy(manager);
}

BENCHMARK(turboJpeg)->Name("JPEG of a 640x480 frame/TurboJPEG with de-interleaving")->Args({640, 480});
BENCHMARK(vendorJpeg)->Name("JPEG of a 640x480 frame/libarccamera")->Args({640, 480});
BENCHMARK(turboJpeg)->Name("JPEG of a 2560x1920 frame/TurboJPEG with de-interleaving")->Args({2560, 1920});
BENCHMARK(vendorJpeg)->Name("JPEG of a 2560x1920 frame/libarccamera")->Args({2560, 1920});

}  // namespace
