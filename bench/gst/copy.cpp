// The element's one copy of a frame, with the pool's buffer that it goes into, against memcpy of as many bytes.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "tools/gst/FrameCopy.h"
#include "tools/gst/Pointers.h"

using namespace kov;

namespace {

constexpr size_t kPlaces = 6;  // of the camera's ring

/// What the camera delivers, and a pool as the element has it.
struct Frames {
    GstVideoInfo info;
    std::vector<uint8_t> ring;
    gst::PoolPtr pool;

    Frames(int width, int height) {
        gst_init(nullptr, nullptr);
        gst_video_info_set_format(&info, GST_VIDEO_FORMAT_NV21, static_cast<guint>(width), static_cast<guint>(height));
        ring.assign(info.size * kPlaces, 1);
        pool.reset(gst_video_buffer_pool_new());
        GstCaps* const caps = gst_video_info_to_caps(&info);
        GstStructure* const config = gst_buffer_pool_get_config(pool.get());
        gst_buffer_pool_config_set_params(config, caps, static_cast<guint>(info.size), 0, 0);
        gst_buffer_pool_set_config(pool.get(), config);
        gst_buffer_pool_set_active(pool.get(), TRUE);
        gst_caps_unref(caps);
    }
    const uint8_t* frame(size_t number) const { return ring.data() + number % kPlaces * info.size; }
};

void plain(benchmark::State& state, int width, int height) {
    const Frames frames(width, height);
    std::vector<uint8_t> target(frames.info.size);
    size_t number = 0;
    for (auto _ : state) {
        std::memcpy(target.data(), frames.frame(number++), target.size());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
}

void pooled(benchmark::State& state, int width, int height) {
    const Frames frames(width, height);
    size_t number = 0;
    for (auto _ : state) {
        const cam::Frame frame = {
            0, frames.frame(number++), frames.info.size, width, height, cam::PixelLayout::Yuv420sp, 0, 0};
        GstBuffer* buffer = nullptr;
        if (gst_buffer_pool_acquire_buffer(frames.pool.get(), &buffer, nullptr) != GST_FLOW_OK ||
            !gst::copyFrame(frame, frames.info, buffer))
            return state.SkipWithError("there is no buffer");
        gst_buffer_unref(buffer);
    }
}

BENCHMARK_CAPTURE(plain, vga, 640, 480)->Name("a frame of 640x480/memcpy");
BENCHMARK_CAPTURE(pooled, vga, 640, 480)->Name("a frame of 640x480/into a buffer of the pool");
BENCHMARK_CAPTURE(plain, hd, 1920, 1080)->Name("a frame of 1920x1080/memcpy");
BENCHMARK_CAPTURE(pooled, hd, 1920, 1080)->Name("a frame of 1920x1080/into a buffer of the pool");

}  // namespace
