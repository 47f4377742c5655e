// Finding how the second picture lies over the first: features give a first guess, optical flow makes it exact.

#include "host/plusme/Align.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/features2d.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#include <set>
#include <vector>

namespace kov::plusme {

namespace {

using Points = std::vector<cv::Point2f>;

constexpr int kCoarseWidth = 800;
constexpr int kFineWidth = 1280;
constexpr int kFeatures = 2500;
constexpr float kRatio = 0.8F;      // a match must be this much better than the second best
constexpr double kCoarseReach = 4;  // pixels
constexpr double kFineReach = 0.8;  // pixels
constexpr size_t kLeastInliers = 30;
constexpr double kLeastShare = 0.2;  // of the matches
constexpr int kGrid = 4;
constexpr size_t kLeastCells = 5;  // of kGrid x kGrid, with inliers in them
constexpr double kLeastOverlap = 0.6;
constexpr double kMostShear = 0.35;  // of the lengths of the picture's sides

cv::Mat shrunk(const cv::Mat& picture, int width) {
    if (picture.cols <= width)
        return picture;
    cv::Mat small;
    const double scale = static_cast<double>(width) / picture.cols;
    cv::resize(picture, small, {width, cvRound(picture.rows * scale)}, 0, 0, cv::INTER_AREA);
    return small;
}

/// A homography between pictures of `from` as one between pictures of `to`, which have the same shape.
cv::Matx33d rescaled(const cv::Matx33d& matrix, cv::Size from, cv::Size to) {
    const double x = static_cast<double>(to.width) / from.width;
    const double y = static_cast<double>(to.height) / from.height;
    // Pixel centres, not corners, have whole coordinates.
    const cv::Matx33d up(x, 0, (x - 1) / 2, 0, y, (y - 1) / 2, 0, 0, 1);
    return up * matrix * up.inv();
}

/// Points of `second` and where `first` shows the same.
void matchFeatures(const cv::Mat& first, const cv::Mat& second, Points* from, Points* to) {
    const cv::Ptr<cv::ORB> orb = cv::ORB::create(kFeatures, 1.2F, 8, 31, 0, 2, cv::ORB::HARRIS_SCORE, 31, 10);
    std::vector<cv::KeyPoint> keys[2];
    cv::Mat descriptors[2];
    orb->detectAndCompute(first, {}, keys[0], descriptors[0]);
    orb->detectAndCompute(second, {}, keys[1], descriptors[1]);
    if (keys[0].size() < 2 || keys[1].size() < 2)
        return;
    std::vector<std::vector<cv::DMatch>> matches;
    cv::BFMatcher(cv::NORM_HAMMING).knnMatch(descriptors[1], descriptors[0], matches, 2);
    for (const auto& pair : matches) {
        if (pair.size() == 2 && pair[0].distance < kRatio * pair[1].distance) {
            from->push_back(keys[1][static_cast<size_t>(pair[0].queryIdx)].pt);
            to->push_back(keys[0][static_cast<size_t>(pair[0].trainIdx)].pt);
        }
    }
}

/// Whether the inliers are many, a fair share, and spread over the picture.
bool convincing(const Points& points, const cv::Mat& inliers, cv::Size size) {
    size_t count = 0;
    std::set<int> cells;
    for (size_t i = 0; i < points.size(); ++i) {
        if (!inliers.at<uint8_t>(static_cast<int>(i)))
            continue;
        ++count;
        cells.insert(static_cast<int>(points[i].x) * kGrid / size.width +
                     kGrid * (static_cast<int>(points[i].y) * kGrid / size.height));
    }
    return count >= kLeastInliers && static_cast<double>(count) >= kLeastShare * static_cast<double>(points.size()) &&
           cells.size() >= kLeastCells;
}

/// Whether a hand could have moved the camera so between two pictures of one scene.
bool plausible(const cv::Matx33d& matrix, cv::Size size) {
    const float w = static_cast<float>(size.width);
    const float h = static_cast<float>(size.height);
    const Points frame = {{0, 0}, {w, 0}, {w, h}, {0, h}};
    Points moved;
    cv::perspectiveTransform(frame, moved, matrix);
    if (!cv::isContourConvex(moved))
        return false;
    Points common;
    if (cv::intersectConvexConvex(frame, moved, common) < kLeastOverlap * w * h)
        return false;
    for (size_t i = 0; i < frame.size(); ++i) {
        const size_t next = (i + 1) % frame.size();
        const cv::Point2f side = frame[next] - frame[i];
        if (cv::norm(moved[next] - moved[i] - side) > kMostShear * cv::norm(side))
            return false;
    }
    return true;
}

/// Follows corners of the scene from where `guess` puts them to where they are, to a fraction of a pixel. Returns
/// `guess` when too few can be followed.
cv::Matx33d refine(const cv::Mat& first, const cv::Mat& second, const cv::Matx33d& guess) {
    cv::Mat straight;
    cv::warpPerspective(second, straight, guess, second.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    Points corners;
    cv::goodFeaturesToTrack(straight, corners, kFeatures / 2, 0.005, 8);
    if (corners.size() < kLeastInliers)
        return guess;
    Points found;
    std::vector<uint8_t> good;
    cv::calcOpticalFlowPyrLK(straight, first, corners, found, good, cv::noArray(), {15, 15}, 2);
    Points from;
    Points to;
    for (size_t i = 0; i < corners.size(); ++i) {
        if (good[i]) {
            from.push_back(corners[i]);
            to.push_back(found[i]);
        }
    }
    if (from.size() < kLeastInliers)
        return guess;
    cv::Mat inliers;
    const cv::Mat correction = cv::findHomography(from, to, cv::RANSAC, kFineReach, inliers, 2000, 0.999);
    if (correction.empty() || !convincing(to, inliers, first.size()))
        return guess;
    return cv::Matx33d(correction) * guess;
}

}  // namespace

std::optional<cv::Matx33d> align(const cv::Mat& first, const cv::Mat& second) {
    const cv::Mat coarse[] = {shrunk(first, kCoarseWidth), shrunk(second, kCoarseWidth)};
    Points from;
    Points to;
    matchFeatures(coarse[0], coarse[1], &from, &to);
    if (from.size() < kLeastInliers)
        return std::nullopt;
    cv::Mat inliers;
    const cv::Mat found = cv::findHomography(from, to, cv::RANSAC, kCoarseReach, inliers, 3000, 0.999);
    if (found.empty() || !convincing(to, inliers, coarse[0].size()) || !plausible(found, coarse[0].size()))
        return std::nullopt;
    const cv::Mat fine[] = {shrunk(first, kFineWidth), shrunk(second, kFineWidth)};
    const cv::Matx33d exact = refine(fine[0], fine[1], rescaled(found, coarse[0].size(), fine[0].size()));
    return rescaled(exact, fine[0].size(), first.size());
}

}  // namespace kov::plusme
