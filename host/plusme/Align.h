// Finding how the second picture lies over the first.
#pragma once

#include <opencv2/core.hpp>
#include <optional>

namespace kov::plusme {

/// The homography that takes pixels of `second` to pixels of `first`, both luma of one size. Nothing when the pictures
/// do not show the same scene from about the same place.
std::optional<cv::Matx33d> align(const cv::Mat& first, const cv::Mat& second);

}  // namespace kov::plusme
