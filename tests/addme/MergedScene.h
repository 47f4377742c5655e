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
    return cv::mean(cv::abs(a - b), mask).dot(cv::Scalar::all(1. / 3));
}

/// Share of the pixels that are clearly other than they should be: a lost hand, a ghost, a speck. Edges that lie a
/// pixel off, as after compression and interpolation, do not count.
inline double wrongShare(const cv::Mat& picture, const cv::Mat& wanted, const cv::Mat& mask = {}) {
    cv::Mat wrong;
    cv::transform(cv::Mat(cv::abs(picture - wanted)), wrong, cv::Matx13f(1.F / 3, 1.F / 3, 1.F / 3));
    const int reach = std::max(3, picture.cols / 400) | 1;
    cv::morphologyEx(wrong > 40, wrong, cv::MORPH_OPEN, cv::Mat::ones(reach, reach, CV_8U));
    return cv::mean(wrong, mask)[0] / 255;
}

/// As many pixels as the longest straight seam has: those of one column or row at which the error of a picture steps,
/// though nothing of what is wanted has an edge near.
inline int straightSeam(const cv::Mat& picture, const cv::Mat& wanted) {
    cv::Mat error, edges;
    cv::subtract(picture, wanted, error, {}, CV_32F);
    cv::transform(error, error, cv::Matx13f(1.F / 3, 1.F / 3, 1.F / 3));
    cv::morphologyEx(wanted, edges, cv::MORPH_GRADIENT, cv::Mat::ones(7, 7, CV_8U));
    cv::transform(edges, edges, cv::Matx13f(1.F / 3, 1.F / 3, 1.F / 3));
    double longest = 0;
    for (int turned = 0; turned < 2; ++turned, error = error.t(), edges = edges.t()) {
        const cv::Mat steps = (cv::abs(error.colRange(1, error.cols) - error.colRange(0, error.cols - 1)) > 15) &
                              (edges.colRange(1, edges.cols) < 20);
        cv::Mat lengths;
        cv::reduce(steps, lengths, 0, cv::REDUCE_SUM, CV_32S);
        double most = 0;
        cv::minMaxLoc(lengths, nullptr, &most);
        longest = std::max(longest, most / 255);
    }
    return static_cast<int>(longest);
}

/// Share of the pixels whose colour nothing near in what is wanted has: an outline that is darker, or redder, than what
/// it lies between.
inline double strangeShare(const cv::Mat& picture, const cv::Mat& wanted, const cv::Mat& mask) {
    constexpr double kNoise = 25;  // grey levels
    cv::Mat least, most, smooth, strange;
    cv::erode(wanted, least, cv::Mat::ones(7, 7, CV_8U));
    cv::dilate(wanted, most, cv::Mat::ones(7, 7, CV_8U));
    cv::blur(picture, smooth, {2, 2});
    cv::inRange(smooth, least - cv::Scalar::all(kNoise), most + cv::Scalar::all(kNoise), strange);
    return cv::mean(~strange, mask)[0] / 255;
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

    cv::Mat first, second;
    cv::Mat straight;   // the second picture, brought over the first
    cv::Rect boxes[2];  // around the people, who do not overlap
};

/// Expects both people whole, and the rest as in the first picture. `most`: grey levels.
inline void expectBothPeopleWhole(const cv::Mat& merged, const MergedScene& scene, double most = 3) {
    ASSERT_EQ(merged.size(), scene.first.size());
    cv::Mat rest(merged.size(), CV_8U, cv::Scalar(255));
    for (const auto& [wanted, box] : {std::pair(scene.first, scene.boxes[0]), {scene.straight, scene.boxes[1]}}) {
        EXPECT_LT(difference(merged(box), wanted(box)), most) << box;
        EXPECT_LT(wrongShare(merged(box), wanted(box)), 0.001) << box;
        rest(box) = 0;
    }
    EXPECT_LT(difference(merged, scene.first, rest), 3);
    EXPECT_LT(wrongShare(merged, scene.first, rest), 0.0002);
}

}  // namespace kov::test
