// The guide that is drawn over the preview during a sweep: where its lines and arrows are.
#pragma once

#include <panoramax/panoramax.h>

#include <cstdint>

namespace android {

/// 0xRRGGBB; kPanoramaNoColor draws nothing.
using px_color = uint32_t;
constexpr px_color kPanoramaNoColor = 0xFFFF;

/// The arrow to draw: bits 1 right, 2 left, 4 up, 8 down; 0 none.
using px_direction = int32_t;

/// Frames with a side below this are not marked.
constexpr int32_t kPanoramaLeastMarkedSide = 64;

/// The colour of the position rectangle for a capture status.
px_color panoramaRectColor(uint32_t status);

/// The arrow for a capture status: towards the offset of the current frame.
px_direction panoramaArrows(const px_status& status);

/// Blends the arrow into a frame of at least 64 x 64 pixels, with the next opacity of the pulse. The pulse is the
/// process's and goes on with every call, also when there is no arrow.
void drawFadingArrows(const px_image& image, px_direction code);

}  // namespace android
