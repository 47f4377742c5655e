// How far the camera has moved, from reduced frames.
#pragma once

#include <opencv2/core.hpp>

namespace kov::panorama {

/// A step of the camera: positive is right and down, in pixels of the full frame.
struct Motion {
    cv::Point2d offset;
    double confidence;  // 0 to 1
};

/// Follows the luma of one frame after the other. One thread.
class MotionMeter {
public:
    explicit MotionMeter(cv::Size frameSize);

    /// The camera's motion since the frame before; none for the first frame.
    Motion follow(const cv::Mat& luma);

private:
    const double mScale;  // full pixels for each reduced one
    const cv::Mat mWindow;
    cv::Mat mBefore;
};

/// The camera's motion between two equally large luma pictures, to about a pixel.
Motion measure(const cv::Mat& before, const cv::Mat& after);

/// The same from a motion known to about a pixel, to a few hundredths; different exposures do not matter.
cv::Point2d sharpen(const cv::Mat& before, const cv::Mat& after, cv::Point2d rough);

}  // namespace kov::panorama
