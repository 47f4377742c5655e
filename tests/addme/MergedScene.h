// What the merge of the add-me scene's two pictures must show.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "host/camera/SourceOptions.h"
#include "host/camera/scenes/AddMe.h"

namespace kov::test {

/// Mean absolute difference of two pictures where `mask` is set, in grey levels.
inline double difference(const cv::Mat& a, const cv::Mat& b, const cv::Mat& mask = {}) {
    cv::Mat all;
    cv::absdiff(a, b, all);
    const cv::Scalar mean = cv::mean(all, mask);
    return (mean[0] + mean[1] + mean[2]) / 3;
}

/// Share of the pixels that are clearly other than they should be: a lost hand, a ghost, a speck. Edges that lie a
/// pixel off, as after compression and interpolation, do not count.
inline double wrongShare(const cv::Mat& picture, const cv::Mat& wanted, const cv::Mat& mask = {}) {
    constexpr double kClearly = 40;
    cv::Mat wrong;
    cv::absdiff(picture, wanted, wrong);
    cv::transform(wrong, wrong, cv::Matx13f(1.F / 3, 1.F / 3, 1.F / 3));
    wrong = wrong > kClearly;
    const int reach = std::max(3, picture.cols / 400) | 1;
    cv::morphologyEx(wrong, wrong, cv::MORPH_OPEN, cv::Mat::ones(reach, reach, CV_8U));
    if (!mask.empty())
        wrong &= mask;
    return cv::countNonZero(wrong) / static_cast<double>(mask.empty() ? wrong.total() : cv::countNonZero(mask));
}

/// The scene as the first picture sees it.
struct MergedScene {
    explicit MergedScene(cv::Size size) {
        camera::SourceOptions options("");
        camera::AddMe scene(options);
        first = scene.frame(0, size);
        boxes[0] = scene.personBox(0, size);
        scene.pictureTaken();
        second = scene.frame(0, size);
        const cv::Matx23d movement = camera::AddMe::movement(size);
        cv::warpAffine(second, straight, movement, size, cv::INTER_CUBIC | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        cv::Mat moved = cv::Mat::zeros(size, CV_8U);
        moved(scene.personBox(1, size)) = 255;
        cv::warpAffine(moved, moved, movement, size, cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
        boxes[1] = cv::boundingRect(moved);
    }

    cv::Mat first;
    cv::Mat second;
    cv::Mat straight;   // the second picture, brought over the first
    cv::Rect boxes[2];  // around the people, who do not overlap
};

/// Expects both people whole, and the rest as in the first picture.
inline void expectBothPeopleWhole(const cv::Mat& merged, const MergedScene& scene) {
    ASSERT_EQ(merged.size(), scene.first.size());
    cv::Mat rest(merged.size(), CV_8U, cv::Scalar(255));
    for (int who : {0, 1}) {
        SCOPED_TRACE(who);
        const cv::Mat wanted = (who == 0 ? scene.first : scene.straight)(scene.boxes[who]);
        const cv::Mat got = merged(scene.boxes[who]);
        EXPECT_LT(difference(got, wanted), 3);
        EXPECT_LT(wrongShare(got, wanted), 0.001);
        rest(scene.boxes[who]) = 0;
    }
    EXPECT_LT(difference(merged, scene.first, rest), 3);
    EXPECT_LT(wrongShare(merged, scene.first, rest), 0.0002);
}

}  // namespace kov::test
