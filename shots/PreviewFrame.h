// Sizes and layouts of preview frames.
#pragma once

#include <camera/CameraParameters.h>

#include <cstddef>
#include <cstdint>

#include "imaging/TaggedLog.h"

namespace android {

/// Bytes of a preview frame by the vendor layer's parameters. 0 when they have no format or no sensible size, and,
/// with a line in `log`, when the format is not known.
size_t previewFrameSize(const CameraParameters& params, const TaggedLog& log);

/// Bytes of a 4:2:0 frame, planar or semi-planar; 0 for a side that is not positive.
uint64_t yuv420FrameSize(int32_t width, int32_t height);

/// Copies a planar 4:2:0 frame (luma, U, V) as a semi-planar one (luma, then pairs with V first). Even sides; `to` has
/// the size of `from` and does not overlap it.
void planarToSemiPlanar(const uint8_t* from, int32_t width, int32_t height, uint8_t* to);
/// The other way round.
void semiPlanarToPlanar(const uint8_t* from, int32_t width, int32_t height, uint8_t* to);

}  // namespace android
