// TurboJPEG on the frames that our encoders take, to measure them against.
#pragma once

#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <vector>

namespace kov::bench {

/// Encodes a frame with interleaved chroma, V first, again and again: its chroma has to be taken apart for TurboJPEG.
inline void timeTurboJpeg(benchmark::State& state, const std::vector<uint8_t>& frame, int width, int height,
                          int quality, int flags) {
    const size_t luma = static_cast<size_t>(width) * height;
    std::vector<uint8_t> u(luma / 4);
    std::vector<uint8_t> v(luma / 4);
    tjhandle encoder = tjInitCompress();
    std::vector<uint8_t> block(tjBufSize(width, height, TJSAMP_420));
    for (auto _ : state) {
        const uint8_t* pair = frame.data() + luma;
        for (size_t i = 0; i < luma / 4; ++i) {
            v[i] = pair[2 * i];
            u[i] = pair[2 * i + 1];
        }
        const uint8_t* planes[] = {frame.data(), u.data(), v.data()};
        unsigned char* destination = block.data();
        unsigned long size = block.size();
        tjCompressFromYUVPlanes(encoder, planes, width, nullptr, height, TJSAMP_420, &destination, &size, quality,
                                TJFLAG_NOREALLOC | flags);
        benchmark::DoNotOptimize(size);
    }
    tjDestroy(encoder);
}

}  // namespace kov::bench
