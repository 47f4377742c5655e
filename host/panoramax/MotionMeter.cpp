// How far the camera has moved, from reduced frames.

#include "host/panoramax/MotionMeter.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace kov::panorama {

namespace {

constexpr double kReducedSide = 160;  // of the longer side, in pixels

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
    small.convertTo(small, CV_32F);
    Motion motion = {{}, 1};
    if (!mBefore.empty()) {
        // The scene moves against the camera.
        motion.offset = -cv::phaseCorrelate(mBefore, small, mWindow, &motion.confidence) * mScale;
    }
    mBefore = small;
    return motion;
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
