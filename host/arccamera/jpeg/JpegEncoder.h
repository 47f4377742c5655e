// JPEG from 4:2:0 frames with interleaved chroma, through libjpeg-turbo's raw-data interface.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kov::arc {

/// Luma rows of `width` bytes, then chroma rows of `width` bytes, V first. Borrowed.
struct SemiPlanarFrame {
    const uint8_t* luma;
    const uint8_t* chroma;
    int32_t width;
    int32_t height;
    int32_t lumaPitch;
    int32_t chromaPitch;
};

/// Writes a JPEG of `quality` (1 to 100) into `destination`. Returns its size, or 0 when it does not fit `capacity` or
/// the frame's sides are not even and positive. Never writes past the capacity. Any thread.
size_t encodeJpeg(const SemiPlanarFrame& frame, int quality, uint8_t* destination, size_t capacity);

}  // namespace kov::arc
