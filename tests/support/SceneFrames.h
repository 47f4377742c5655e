// Pictures as the camera's frames, and how they compare, for tests of what sees or makes them.
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

inline cv::Mat reduced(const cv::Mat& picture, cv::Size size) {
    cv::Mat small;
    cv::resize(picture, small, size, 0, 0, cv::INTER_AREA);
    return small;
}

/// Mean absolute difference of two pictures where `mask` is set, in levels of a channel.
inline double difference(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask = {}) {
    return cv::mean(cv::abs(a - b), mask).dot(cv::Scalar::all(1.0 / a.channels()));
}

}  // namespace kov::test
