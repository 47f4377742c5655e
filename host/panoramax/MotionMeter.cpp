// How far the camera has moved, from reduced frames.

#include "host/panoramax/MotionMeter.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace kov::panorama {

namespace {

constexpr double kReducedSide = 160;  // of the longer side, in pixels
constexpr double kKeyReach = 0.15;    // of the frame: how far it may move from the key frame before that is replaced

cv::Size reduced(cv::Size size, double scale) {
    return {cvRound(size.width / scale), cvRound(size.height / scale)};
}

cv::Mat hanning(cv::Size size) {
    cv::Mat window;
    cv::createHanningWindow(window, size, CV_32F);
    return window;
}

}  // namespace

MotionMeter::MotionMeter(cv::Size frameSize)
    : mScale(std::max(1.0, std::max(frameSize.width, frameSize.height) / kReducedSide)),
      mWindow(hanning(reduced(frameSize, mScale))) {}

Motion MotionMeter::follow(const cv::Mat& luma) {
    cv::Mat small;
    cv::resize(luma, small, mWindow.size(), 0, 0, cv::INTER_AREA);
    small.convertTo(mNow, CV_32F);
    // Not left to the correlation, which may do it in place, and each time again.
    cv::multiply(mNow, mWindow, mNow);
    if (mKey.empty())
        mark();
    Motion motion{};
    // The scene moves against the camera.
    const cv::Point2d step = -cv::phaseCorrelate(mKey, mNow, cv::noArray(), &motion.confidence) * mScale;
    motion.offset = mKeyPlace + step;
    if (motion.confidence >= kLeastConfidence &&
        std::max(std::abs(step.x) / luma.cols, std::abs(step.y) / luma.rows) > kKeyReach) {
        mKey = mNow.clone();
        mKeyPlace = motion.offset;
    }
    return motion;
}

void MotionMeter::mark() {
    mKey = mNow.clone();
    mKeyPlace = {};
}

Motion measure(const cv::Mat& before, const cv::Mat& after) {
    cv::Mat first;
    cv::Mat second;
    before.convertTo(first, CV_32F);
    after.convertTo(second, CV_32F);
    Motion motion{};
    motion.offset = -cv::phaseCorrelate(first, second, hanning(first.size()), &motion.confidence);
    return motion;
}

}  // namespace kov::panorama
