// The built-in scenes as the camera's frames, for tests of the engines that look at them.
#pragma once

#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace kov::test {

/// BGR as a full-range frame, V first.
inline std::vector<uint8_t> toFrame(const cv::Mat& bgr) {
    cv::Mat picture;
    cv::cvtColor(bgr, picture, cv::COLOR_BGR2YCrCb);
    std::vector<uint8_t> frame(bgr.total() * 3 / 2);
    cv::Mat luma(bgr.size(), CV_8U, frame.data());
    cv::extractChannel(picture, luma, 0);
    cv::Mat pairs(bgr.size(), CV_8UC2);
    const int order[] = {1, 0, 2, 1};
    cv::mixChannels(&picture, 1, &pairs, 1, order, 2);
    cv::Mat chroma(bgr.size() / 2, CV_8UC2, frame.data() + bgr.total());
    cv::resize(pairs, chroma, chroma.size(), 0, 0, cv::INTER_AREA);
    return frame;
}

/// The luma of such a frame.
inline cv::Mat lumaOf(const cv::Mat& bgr) {
    cv::Mat luma;
    cv::cvtColor(bgr, luma, cv::COLOR_BGR2YCrCb);
    cv::extractChannel(luma, luma, 0);
    return luma;
}

}  // namespace kov::test
