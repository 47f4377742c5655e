// The add-me encoder against TurboJPEG at the same quality, DCT and restart setting.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench/TurboJpeg.h"
#include "shots/addme/JpegEncoderAddMe.h"

namespace {

constexpr int kQuality = 90;

std::vector<uint8_t> detailedFrame(int width, int height) {
    std::vector<uint8_t> frame(static_cast<size_t>(width) * height * 3 / 2);
    cv::Mat all(height * 3 / 2, width, CV_8U, frame.data());
    cv::theRNG().state = 7;
    cv::randu(all, 40, 210);
    cv::GaussianBlur(all, all, {7, 7}, 2);
    return frame;
}

void turboJpeg(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0));
    const int height = static_cast<int>(state.range(1));
    const auto frame = detailedFrame(width, height);
    setenv("TJ_RESTART", "1", 1);  // a marker after every row of MCUs, as the add-me encoder has
    kov::bench::timeTurboJpeg(state, frame, width, height, kQuality, TJFLAG_FASTDCT);
    unsetenv("TJ_RESTART");
}

void addMe(benchmark::State& state) {
    const auto width = static_cast<unsigned>(state.range(0));
    const auto height = static_cast<unsigned>(state.range(1));
    auto frame = detailedFrame(static_cast<int>(width), static_cast<int>(height));
    std::vector<uint8_t> block(frame.size() * 2);
    for (auto _ : state) {
        const int size = android::jpeg_compress_yuv420sp_AddMe(block.data(), static_cast<unsigned>(block.size()),
                                                               frame.data(), width, height);
        if (size <= 0)
            state.SkipWithError("not encoded");
    }
}

BENCHMARK(turboJpeg)->Name("add-me JPEG, 640x480/TurboJPEG with de-interleaving")->Args({640, 480});
BENCHMARK(addMe)->Name("add-me JPEG, 640x480/add-me encoder")->Args({640, 480});
BENCHMARK(turboJpeg)->Name("add-me JPEG, 1280x720/TurboJPEG with de-interleaving")->Args({1280, 720});
BENCHMARK(addMe)->Name("add-me JPEG, 1280x720/add-me encoder")->Args({1280, 720});
BENCHMARK(turboJpeg)->Name("add-me JPEG, 2560x1920/TurboJPEG with de-interleaving")->Args({2560, 1920});
BENCHMARK(addMe)->Name("add-me JPEG, 2560x1920/add-me encoder")->Args({2560, 1920});

}  // namespace
