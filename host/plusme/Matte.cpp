// The soft edge of a cut: a guided filter, whose result is in every window a linear function of the picture's colours.

#include "host/plusme/Matte.h"

#include <array>
#include <opencv2/imgproc.hpp>
#include <utility>

namespace kov::plusme {

namespace {

constexpr int kWindow = 13;        // pixels
constexpr float kEven = 6e-4F;     // variance, of colours 0 to 1, below which the picture counts as even
constexpr float kFrom = 0.4F;      // shares below are nothing: the outline's outermost pixels are half background
constexpr float kTo = 0.9F;        // and above, all
constexpr int kPad = 2 * kWindow;  // pixels around the edge that are looked at
constexpr int kPairs[6][2] = {{0, 0}, {0, 1}, {0, 2}, {1, 1}, {1, 2}, {2, 2}};

void mean(const cv::Mat& from, cv::Mat& to) {
    cv::boxFilter(from, to, CV_32F, {kWindow, kWindow}, {-1, -1}, true, cv::BORDER_REPLICATE);
}

/// Solves for the slopes of `share` over the three colours: `s` is the symmetric matrix of the colours' covariances in
/// the order of `kPairs`, `c` the colours' covariances with the share.
cv::Vec3f slopes(const std::array<float, 6>& s, const cv::Vec3f& c) {
    const float xx = s[3] * s[5] - s[4] * s[4], xy = s[4] * s[2] - s[1] * s[5], xz = s[1] * s[4] - s[3] * s[2];
    const float yy = s[0] * s[5] - s[2] * s[2], yz = s[1] * s[2] - s[0] * s[4], zz = s[0] * s[3] - s[1] * s[1];
    const float determinant = s[0] * xx + s[1] * xy + s[2] * xz;  // positive: the diagonal has kEven added
    return cv::Vec3f(xx * c[0] + xy * c[1] + xz * c[2], xy * c[0] + yy * c[1] + yz * c[2],
                     xz * c[0] + yz * c[1] + zz * c[2]) /
           determinant;
}

/// The guided filter of `share` by `colours`, three planes.
cv::Mat guided(const std::array<cv::Mat, 3>& colours, const cv::Mat& share) {
    std::array<cv::Mat, 3> means, with, slope;
    std::array<cv::Mat, 6> products;
    cv::Mat meanShare;
    mean(share, meanShare);
    for (size_t i = 0; i < 3; ++i) {
        mean(colours[i], means[i]);
        mean(colours[i].mul(share), with[i]);
        slope[i].create(share.size(), CV_32F);
    }
    for (size_t i = 0; i < 6; ++i)
        mean(colours[static_cast<size_t>(kPairs[i][0])].mul(colours[static_cast<size_t>(kPairs[i][1])]), products[i]);
    cv::Mat rest(share.size(), CV_32F);
    for (int y = 0; y < share.rows; ++y) {
        for (int x = 0; x < share.cols; ++x) {
            const float p = meanShare.at<float>(y, x);
            cv::Vec3f m, c;
            for (int i = 0; i < 3; ++i) {
                m[i] = means[static_cast<size_t>(i)].at<float>(y, x);
                c[i] = with[static_cast<size_t>(i)].at<float>(y, x) - m[i] * p;
            }
            std::array<float, 6> s;
            for (size_t i = 0; i < 6; ++i)
                s[i] = products[i].at<float>(y, x) - m[kPairs[i][0]] * m[kPairs[i][1]] +
                       (kPairs[i][0] == kPairs[i][1] ? kEven : 0);
            const cv::Vec3f a = slopes(s, c);
            for (int i = 0; i < 3; ++i)
                slope[static_cast<size_t>(i)].at<float>(y, x) = a[i];
            rest.at<float>(y, x) = p - a.dot(m);
        }
    }
    cv::Mat result;
    mean(rest, result);
    for (size_t i = 0; i < 3; ++i) {
        mean(slope[i], slope[i]);
        result += slope[i].mul(colours[i]);
    }
    return result;
}

}  // namespace

cv::Mat matte(const cv::Mat& picture, const cv::Mat& taken) {
    cv::Mat hard, share, edge;
    cv::resize(taken, hard, picture.size(), 0, 0, cv::INTER_LINEAR);
    hard.convertTo(share, CV_32F, 1 / 255.0);
    cv::morphologyEx(hard, edge, cv::MORPH_GRADIENT, cv::Mat::ones(3, 3, CV_8U));
    cv::Rect box = cv::boundingRect(edge);
    if (box.empty())
        return share;
    box = (box + cv::Size(2 * kPad, 2 * kPad) - cv::Point(kPad, kPad)) & cv::Rect({}, picture.size());
    cv::Mat colours;
    picture(box).convertTo(colours, CV_32F, 1 / 255.0);
    std::array<cv::Mat, 3> planes;
    cv::split(colours, planes.data());
    cv::Mat soft = guided(planes, share(box));
    soft.convertTo(soft, -1, 1 / (kTo - kFrom), -kFrom / (kTo - kFrom));
    cv::min(cv::max(soft, 0), 1, soft);
    soft.copyTo(share(box));
    return share;
}

}  // namespace kov::plusme
