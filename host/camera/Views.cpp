// Pictures from frames, and frames cut out of pictures.

#include "host/camera/Views.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace kov::camera {

cv::Mat fill(const cv::Mat& picture, cv::Size size) {
    const double scale =
        std::min(static_cast<double>(picture.cols) / size.width, static_cast<double>(picture.rows) / size.height);
    const cv::Size part(std::max(1, static_cast<int>(size.width * scale)),
                        std::max(1, static_cast<int>(size.height * scale)));
    const cv::Rect box((picture.cols - part.width) / 2, (picture.rows - part.height) / 2, part.width, part.height);
    cv::Mat filled;
    cv::resize(picture(box), filled, size, 0, 0, scale > 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
    return filled;
}

cv::Mat frameToBgr(const uint8_t* frame, cv::Size size, PixelLayout layout) {
    auto* bytes = const_cast<uint8_t*>(frame);  // only read
    const cv::Mat luma(size, CV_8U, bytes);
    const cv::Size half = size / 2;
    uint8_t* const chroma = bytes + size.area();
    cv::Mat v;
    cv::Mat u;
    if (layout == PixelLayout::Yuv420p) {
        u = cv::Mat(half, CV_8U, chroma);
        v = cv::Mat(half, CV_8U, chroma + half.area());
    } else {
        const cv::Mat pairs(half, CV_8UC2, chroma);
        cv::extractChannel(pairs, v, 0);
        cv::extractChannel(pairs, u, 1);
    }
    cv::resize(v, v, size);
    cv::resize(u, u, size);
    cv::Mat picture;
    cv::merge(std::vector<cv::Mat>{luma, v, u}, picture);
    cv::cvtColor(picture, picture, cv::COLOR_YCrCb2BGR);
    return picture;
}

}  // namespace kov::camera
