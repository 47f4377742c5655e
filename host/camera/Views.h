// Pictures from frames, and frames cut out of pictures.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

#include "host/camera/CameraSettings.h"

namespace kov::camera {

/// The largest part of `picture` with the shape of `size` around its centre, scaled to `size`; pixels of its own.
cv::Mat fill(const cv::Mat& picture, cv::Size size);

/// A full-range 4:2:0 frame (even size, width x height x 3 / 2 bytes) as BGR. OpenCV's own conversions assume the
/// narrow range of video.
cv::Mat frameToBgr(const uint8_t* frame, cv::Size size, PixelLayout layout);

}  // namespace kov::camera
