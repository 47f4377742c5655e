// Where the moving subject is.

#include "host/actionshot/SubjectTracker.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace kov::action {

namespace {

constexpr double kReducedWidth = 320;
constexpr double kMostShift = 0.1;    // of the frame
constexpr double kStill = 0.4;        // reduced pixels; a smaller shift is measuring noise
constexpr float kDifferent = 16;      // grey levels
constexpr float kDifferentColor = 8;  // levels of chroma
constexpr float kShadowColor = 5;
constexpr float kShadowDarkest = 0.55F;  // of the brightness without it
constexpr double kLeastSubject = 0.005;  // of the frame
constexpr double kLearnStill = 0.1;      // weight of a new frame where nothing moves
constexpr double kLearnMoving = 0.004;
constexpr int kEdge = 2;  // reduced pixels

cv::Mat hanning(cv::Size size) {
    cv::Mat window;
    cv::createHanningWindow(window, size, CV_32F);
    return window;
}

cv::Mat ellipse(int size) {
    return cv::getStructuringElement(cv::MORPH_ELLIPSE, {size, size});
}

}  // namespace

SubjectTracker::SubjectTracker(cv::Size frameSize)
    : mFrame(frameSize),
      mScale(std::max(1.0, frameSize.width / kReducedWidth)),
      mReduced(cvRound(frameSize.width / mScale), cvRound(frameSize.height / mScale)),
      mWindow(hanning(mReduced)) {}

/// Luma and both chroma channels, smoothed.
cv::Mat SubjectTracker::reduce(const cv::Mat& luma, const cv::Mat& chroma) const {
    cv::Mat smallLuma;
    cv::Mat smallChroma;
    cv::resize(luma, smallLuma, mReduced, 0, 0, cv::INTER_AREA);
    cv::resize(chroma, smallChroma, mReduced, 0, 0, cv::INTER_AREA);
    cv::Mat small(mReduced, CV_8UC3);
    const cv::Mat from[] = {smallLuma, smallChroma};
    const int order[] = {0, 0, 1, 1, 2, 2};
    cv::mixChannels(from, 2, &small, 1, order, 3);
    small.convertTo(small, CV_32F);
    cv::GaussianBlur(small, small, {3, 3}, 0);
    return small;
}

Sighting SubjectTracker::look(const cv::Mat& luma, const cv::Mat& chroma) {
    const cv::Mat small = reduce(luma, chroma);
    cv::Mat smallLuma;
    cv::extractChannel(small, smallLuma, 0);
    Sighting sighting;
    if (mFrames++ == 0) {
        mFirst = smallLuma;
        mBackground = small;
        return sighting;
    }
    // Copies: the correlation applies the window in place where no padding is needed.
    cv::Point2d shift = cv::phaseCorrelate(mFirst.clone(), smallLuma, mWindow);
    if (cv::norm(shift) < kStill || std::abs(shift.x) > kMostShift * mReduced.width ||
        std::abs(shift.y) > kMostShift * mReduced.height)
        shift = {};
    sighting.shift = shift * mScale;
    cv::Mat aligned = small;
    if (shift != cv::Point2d())
        cv::warpAffine(small, aligned, cv::Matx23d(1, 0, -shift.x, 0, 1, -shift.y), mReduced, cv::INTER_LINEAR,
                       cv::BORDER_REPLICATE);
    cv::Mat changed;
    const cv::Mat mask = difference(aligned, &changed);
    mLast = choose(mask, &sighting.outline);
    learn(aligned, changed);
    if (mLast.empty())
        return sighting;
    const cv::Rect edge(kEdge, kEdge, mReduced.width - 2 * kEdge, mReduced.height - 2 * kEdge);
    const cv::Rect here = mLast + cv::Point(cvRound(shift.x), cvRound(shift.y));
    sighting.whole = (here & edge) == here;
    sighting.subject = cv::Rect(cvFloor(here.x * mScale), cvFloor(here.y * mScale), cvCeil(here.width * mScale),
                                cvCeil(here.height * mScale)) &
                       cv::Rect({}, mFrame);
    return sighting;
}

/// Where the frame differs from the background in brightness or colour. A shadow is a bit darker and of the same
/// colour, and is no part of the subject.
cv::Mat SubjectTracker::difference(const cv::Mat& aligned, cv::Mat* changed) const {
    cv::Mat mask(mReduced, CV_8U);
    changed->create(mReduced, CV_8U);
    for (int row = 0; row < mReduced.height; ++row) {
        const auto* now = aligned.ptr<cv::Vec3f>(row);
        const auto* then = mBackground.ptr<cv::Vec3f>(row);
        uint8_t* to = mask.ptr(row);
        for (int column = 0; column < mReduced.width; ++column) {
            const cv::Vec3f change = now[column] - then[column];
            const float color = std::max(std::abs(change[1]), std::abs(change[2]));
            const float brightness = now[column][0] / std::max(then[column][0], 1.0F);
            const bool shadow = color < kShadowColor && brightness > kShadowDarkest && brightness < 1;
            const bool differs = std::abs(change[0]) > kDifferent || color > kDifferentColor;
            changed->at<uint8_t>(row, column) = differs ? 255 : 0;
            to[column] = differs && !shadow ? 255 : 0;
        }
    }
    cv::morphologyEx(mask, mask, cv::MORPH_OPEN, ellipse(3));
    cv::morphologyEx(mask, mask, cv::MORPH_CLOSE, ellipse(11));
    return mask;
}

/// The piece that lies where the subject was, else the largest one.
cv::Rect SubjectTracker::choose(const cv::Mat& mask, cv::Mat* outline) const {
    cv::Mat labels;
    cv::Mat stats;
    cv::Mat centers;
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centers);
    cv::Rect best;
    double bestScore = 0;
    for (int i = 1; i < count; ++i) {
        const double area = stats.at<int>(i, cv::CC_STAT_AREA);
        if (area < kLeastSubject * mReduced.area())
            continue;
        const cv::Rect box(stats.at<int>(i, cv::CC_STAT_LEFT), stats.at<int>(i, cv::CC_STAT_TOP),
                           stats.at<int>(i, cv::CC_STAT_WIDTH), stats.at<int>(i, cv::CC_STAT_HEIGHT));
        const double score = area + 20.0 * (box & mLast).area();
        if (score > bestScore) {
            bestScore = score;
            best = box;
            *outline = labels == i;
        }
    }
    return best;
}

void SubjectTracker::learn(const cv::Mat& aligned, const cv::Mat& changed) {
    cv::Mat still;
    cv::Mat wide;
    cv::dilate(changed, wide, ellipse(7));
    cv::bitwise_not(wide, still);
    cv::accumulateWeighted(aligned, mBackground, kLearnStill, still);
    cv::accumulateWeighted(aligned, mBackground, kLearnMoving, wide);
}

}  // namespace kov::action
