// How far the camera has moved, from reduced frames.
#pragma once

#include <opencv2/core.hpp>

namespace kov::panorama {

/// A step of the camera: positive is right and down, in pixels of the full frame.
struct Motion {
    cv::Point2d offset;
    double confidence;  // 0 to 1
};

/// Follows the luma of one frame after the other, each against a key frame further back: added up from frame to frame,
/// the small errors of a slow sweep become large. One thread.
class MotionMeter {
public:
    explicit MotionMeter(cv::Size frameSize);

    /// The camera's motion since the frame marked last (the first one, when none was marked). With little confidence
    /// the camera is lost; it is found again where it was seen before.
    Motion follow(const cv::Mat& luma);
    /// Motion counts from the frame followed last.
    void mark();

private:
    const double mScale;  // full pixels for each reduced one
    const cv::Mat mWindow;
    cv::Mat mNow;  // reduced, under the window
    cv::Mat mKey;
    cv::Point2d mKeyPlace;  // from the marked frame
};

/// Motion is believed from this confidence on.
constexpr double kLeastConfidence = 0.05;

/// The camera's motion between two equally large luma pictures, to about a pixel.
Motion measure(const cv::Mat& before, const cv::Mat& after);

}  // namespace kov::panorama
