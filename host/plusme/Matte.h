// The soft edge of a cut: where it follows somebody's outline, it does so to the pixel.
#pragma once

#include <opencv2/core.hpp>

namespace kov::plusme {

/// How much of each place is the front picture's: float, 0 to 1, of the size of `picture`, which is the front picture
/// (8-bit, three channels) at the size at which the edge is wanted. `taken` says the same with a hard edge, possibly at
/// a smaller size: 255 or 0. Within a few pixels of that edge the result follows the colours of `picture`: a person's
/// outline stays sharp, and nothing of what is behind them there comes along; where the picture is even, it fades.
cv::Mat matte(const cv::Mat& picture, const cv::Mat& taken);

}  // namespace kov::plusme
