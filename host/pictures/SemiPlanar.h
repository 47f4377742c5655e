// Frames of 4:2:0 with interleaved chroma, V first, as one matrix of one and a half times their height.
#pragma once

#include <opencv2/imgproc.hpp>

namespace kov::pictures {

inline cv::Mat lumaOf(const cv::Mat& yuv) {
    return yuv.rowRange(0, yuv.rows * 2 / 3);
}

/// Luma, V and U for every pixel, in the range that the frame has.
inline cv::Mat fullChroma(const cv::Mat& yuv) {
    const cv::Mat luma = lumaOf(yuv);
    const cv::Mat pairs(luma.rows / 2, luma.cols / 2, CV_8UC2, const_cast<uint8_t*>(yuv.ptr(luma.rows)));
    cv::Mat chroma;
    cv::resize(pairs, chroma, luma.size(), 0, 0, cv::INTER_LINEAR);
    cv::Mat picture(luma.size(), CV_8UC3);
    const cv::Mat from[] = {luma, chroma};
    const int order[] = {0, 0, 1, 1, 2, 2};
    cv::mixChannels(from, 2, &picture, 1, order, 3);
    return picture;
}

}  // namespace kov::pictures
