// Laying the moments of a subject over a clean background.

#include "host/actionshot/Compose.h"
#include "host/pictures/SemiPlanar.h"

#include <algorithm>
#include <array>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#include <utility>

namespace kov::action {

using pictures::fullChroma;
using pictures::lumaOf;

namespace {

constexpr double kDifferent = 12;  // levels in any channel
constexpr int kReach = 24;         // pixels round the subject's box where it may still be
constexpr int kClose = 9;          // pixels
constexpr int kGrow = 5;
constexpr int kBeyond = 8;  // pixels beyond the box that are still the subject's
constexpr int kSoft = 7;
constexpr double kLeastShift = 0.1;  // pixels
constexpr size_t kMostMoments = 32;

/// The shift to a fraction of a pixel.
cv::Point2d sharpened(const cv::Mat& first, const cv::Mat& luma, cv::Point2d shift) {
    cv::Mat transform = (cv::Mat_<float>(2, 3) << 1, 0, shift.x, 0, 1, shift.y);
    try {
        cv::findTransformECC(first, luma, transform, cv::MOTION_TRANSLATION,
                             {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 20, 1e-4}, cv::noArray(), 5);
    } catch (const cv::Exception&) {
        return shift;
    }
    const cv::Point2d fine(transform.at<float>(0, 2), transform.at<float>(1, 2));
    return cv::norm(fine - shift) < 4 ? fine : shift;
}

cv::Mat ellipse(int size) {
    return cv::getStructuringElement(cv::MORPH_ELLIPSE, {size, size});
}

/// Fills what an outline encloses.
void fillHoles(cv::Mat& mask) {
    std::vector<std::vector<cv::Point>> outlines;
    cv::findContours(mask.clone(), outlines, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    cv::drawContours(mask, outlines, -1, 255, cv::FILLED);
}

/// Drops what lies mostly outside `box`: somebody else who was near.
void keepWithin(cv::Mat& mask, const cv::Rect& box) {
    cv::Mat labels;
    cv::Mat stats;
    cv::Mat centers;
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centers);
    for (int i = 1; i < count; ++i) {
        const cv::Mat piece = labels == i;
        if (2 * cv::countNonZero(piece(box)) < stats.at<int>(i, cv::CC_STAT_AREA))
            mask.setTo(0, piece);
    }
}

}  // namespace

Compose::Compose(std::vector<Moment> moments) : mMoments(std::move(moments)), mAligned(mMoments.size()) {}

void Compose::step() {
    const size_t count = mMoments.size();
    const size_t current = mDone++;
    if (current < count)
        align(current);
    else if (current == count)
        findBackground();
    else
        layOver(current - count - 1);
}

void Compose::align(size_t index) {
    Moment& moment = mMoments[index];
    mAligned[index] = fullChroma(moment.yuv);
    if (index == 0)
        return;
    moment.shift = sharpened(lumaOf(mMoments[0].yuv), lumaOf(moment.yuv), moment.shift);
    if (cv::norm(moment.shift) < kLeastShift)
        return;
    const cv::Matx23d back(1, 0, -moment.shift.x, 0, 1, -moment.shift.y);
    cv::warpAffine(mAligned[index], mAligned[index], back, mAligned[index].size(), cv::INTER_CUBIC,
                   cv::BORDER_REPLICATE);
}

/// The median of all moments, channel by channel: no place shows the subject in most of them.
void Compose::findBackground() {
    const size_t count = std::min(mAligned.size(), kMostMoments);
    mBackground.create(mAligned[0].size(), CV_8UC3);
    cv::parallel_for_({0, mBackground.rows}, [&](const cv::Range& rows) {
        std::array<const uint8_t*, kMostMoments> from{};
        std::array<uint8_t, kMostMoments> values{};
        for (int row = rows.start; row < rows.end; ++row) {
            for (size_t i = 0; i < count; ++i)
                from[i] = mAligned[i].ptr(row);
            uint8_t* const to = mBackground.ptr(row);
            for (int byte = 0; byte < mBackground.cols * 3; ++byte) {
                for (size_t i = 0; i < count; ++i)
                    values[i] = from[i][byte];
                std::nth_element(values.begin(), values.begin() + count / 2, values.begin() + count);
                to[byte] = values[count / 2];
            }
        }
    });
    mPicture = mBackground.clone();
}

/// Cuts the subject out where its moment differs from the background, and lays it over the picture.
void Compose::layOver(size_t index) {
    const Moment& moment = mMoments[index];
    if (moment.subject.empty())
        return;
    const cv::Rect around = (moment.subject - cv::Point(cvRound(moment.shift.x), cvRound(moment.shift.y)));
    const cv::Rect area =
        cv::Rect(around.x - kReach, around.y - kReach, around.width + 2 * kReach, around.height + 2 * kReach) &
        cv::Rect({}, mPicture.size());
    const cv::Mat subject = mAligned[index](area);
    cv::Mat difference;
    cv::absdiff(subject, mBackground(area), difference);
    std::array<cv::Mat, 3> channels;
    cv::split(difference, channels);
    cv::Mat mask = cv::max(channels[0], cv::max(channels[1], channels[2])) > kDifferent;
    cv::morphologyEx(mask, mask, cv::MORPH_OPEN, ellipse(3));
    cv::morphologyEx(mask, mask, cv::MORPH_CLOSE, ellipse(kClose));
    fillHoles(mask);
    keepWithin(mask, (cv::Rect(around.x - kBeyond, around.y - kBeyond, around.width + 2 * kBeyond,
                               around.height + 2 * kBeyond) &
                      area) -
                         area.tl());
    cv::dilate(mask, mask, ellipse(kGrow));
    cv::GaussianBlur(mask, mask, {kSoft, kSoft}, 0);

    cv::Mat target = mPicture(area);
    for (int row = 0; row < area.height; ++row) {
        const uint8_t* weight = mask.ptr(row);
        const uint8_t* from = subject.ptr(row);
        uint8_t* to = target.ptr(row);
        for (int column = 0; column < area.width; ++column) {
            for (int channel = 0; channel < 3; ++channel) {
                const int byte = 3 * column + channel;
                to[byte] =
                    static_cast<uint8_t>((from[byte] * weight[column] + to[byte] * (255 - weight[column]) + 127) / 255);
            }
        }
    }
}

}  // namespace kov::action
