// JPEG into pictures, through libjpeg-turbo.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>

#include "host/caps/Picture.h"

namespace kov::caps {

/// Size of the JPEG's picture; empty when the stream does not begin as a JPEG that can be decoded, in grey or YCbCr and
/// with sides up to `kMostSide`.
cv::Size jpegSize(const uint8_t* jpeg, size_t bytes);

/// The picture of a JPEG, with odd sides made even by repeating the edge. Nothing when the stream ends early or is
/// damaged.
std::optional<Picture> readJpeg(const uint8_t* jpeg, size_t bytes);

}  // namespace kov::caps
