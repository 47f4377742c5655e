// Where the moving subject is.

#include "host/actionshot/SubjectTracker.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace kov::action {

namespace {

constexpr double kReducedWidth = 320;
constexpr double kMostShift = 0.1;    // of the frame
constexpr double kStill = 0.4;        // reduced pixels; a smaller shift is measuring noise
constexpr float kDifferent = 16;      // grey levels
constexpr float kDifferentColor = 8;  // levels of chroma
constexpr float kShadowColor = 5;
constexpr float kShadowDarkest = 0.55F;   // of the brightness without it
constexpr double kLeastSubject = 0.0012;  // of the frame
constexpr double kLearnStill = 0.1;       // weight of a new frame where nothing moves
constexpr double kLearnMoving = 0.004;
constexpr int kEdge = 2;  // reduced pixels

// A pixel that shows the same for so long is background, whatever was there when the series began.
constexpr float kSame = 8;    // levels
constexpr int kSettled = 45;  // frames
constexpr int kMoving = 10;   // frames; what changed less long ago moves

constexpr int kJoin = 7;     // reduced pixels between parts of a body
constexpr int kStep = 6;     // reduced pixels that a subject may move between two frames
constexpr int kForget = 20;  // frames without the subject, after which it is given up
// What a piece may differ from the subject and still be it: its area, as a factor, and its colour, in levels.
constexpr double kLeastSame = 0.6;
constexpr double kMostSame = 1.6;
constexpr double kMostUnlike = 24;
// And to be seen as a whole and alone.
constexpr double kLeastWhole = 0.75;
constexpr double kMostWhole = 1.3;
constexpr double kColorWeight = 0.02;  // of a level, against the share of the places that overlap
constexpr double kLearnLook = 0.06;
constexpr double kLeastWay = 5;  // reduced pixels from where it began

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
        mSteady = small.clone();
        mStillFor = cv::Mat(mReduced, CV_8U, cv::Scalar(kMoving));
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
    watchStillness(aligned);
    const cv::Mat mask = difference(aligned, &changed);
    const Piece piece = choose(aligned, piecesOf(mask));
    learn(aligned, changed);
    if (piece.area == 0) {
        lose();
        return sighting;
    }
    const bool usual = follow(aligned, piece);
    sighting.number = mNumber;
    sighting.outline = piece.outline;
    const cv::Rect edge(kEdge, kEdge, mReduced.width - 2 * kEdge, mReduced.height - 2 * kEdge);
    const cv::Rect here = mLast + cv::Point(cvRound(shift.x), cvRound(shift.y));
    sighting.whole = usual && (here & edge) == here;
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
    cv::morphologyEx(mask, mask, cv::MORPH_CLOSE, ellipse(kJoin));
    return mask;
}

/// Counts for how long each pixel has shown the same.
void SubjectTracker::watchStillness(const cv::Mat& aligned) {
    for (int row = 0; row < mReduced.height; ++row) {
        const auto* now = aligned.ptr<cv::Vec3f>(row);
        auto* steady = mSteady.ptr<cv::Vec3f>(row);
        uint8_t* stillFor = mStillFor.ptr(row);
        for (int column = 0; column < mReduced.width; ++column) {
            const cv::Vec3f change = now[column] - steady[column];
            if (std::max({std::abs(change[0]), std::abs(change[1]), std::abs(change[2])}) < kSame) {
                stillFor[column] = static_cast<uint8_t>(std::min(stillFor[column] + 1, 255));
                continue;
            }
            steady[column] = now[column];
            stillFor[column] = 0;
        }
    }
}

std::vector<SubjectTracker::Piece> SubjectTracker::piecesOf(const cv::Mat& mask) const {
    cv::Mat labels;
    cv::Mat stats;
    cv::Mat centers;
    const int count = cv::connectedComponentsWithStats(mask, labels, stats, centers);
    std::vector<Piece> pieces;
    for (int i = 1; i < count; ++i) {
        const int area = stats.at<int>(i, cv::CC_STAT_AREA);
        if (area < kLeastSubject * mReduced.area())
            continue;
        pieces.push_back({{stats.at<int>(i, cv::CC_STAT_LEFT), stats.at<int>(i, cv::CC_STAT_TOP),
                           stats.at<int>(i, cv::CC_STAT_WIDTH), stats.at<int>(i, cv::CC_STAT_HEIGHT)},
                          area,
                          labels == i});
    }
    return pieces;
}

/// The piece that continues the subject; while there is none, the one that moves most. What somebody has left behind
/// who was in the first frame does not move.
SubjectTracker::Piece SubjectTracker::choose(const cv::Mat& aligned, const std::vector<Piece>& pieces) const {
    Piece best;
    double bestScore = 0;
    for (const Piece& piece : pieces) {
        const double score =
            mLast.empty() ? cv::countNonZero((mStillFor < kMoving) & piece.outline) : continuity(aligned, piece);
        if (score > bestScore) {
            bestScore = score;
            best = piece;
        }
    }
    return best;
}

/// How well the piece continues the subject; 0 when it cannot be it, as when two people meet and make one piece.
double SubjectTracker::continuity(const cv::Mat& aligned, const Piece& piece) const {
    const int step = kStep + mMissing;
    const cv::Rect near(mLast.x - step, mLast.y - step, mLast.width + 2 * step, mLast.height + 2 * step);
    const int common = (piece.box & near).area();
    const bool enters = atEdge(mLast) || atEdge(piece.box);
    if (common == 0 || (!enters && (piece.area < kLeastSame * mUsualArea || piece.area > kMostSame * mUsualArea)))
        return 0;
    const double unlike = unlikeness(aligned, piece);
    if (unlike > kMostUnlike)
        return 0;
    return std::exp(static_cast<double>(common) / (piece.box | near).area() - kColorWeight * unlike);
}

bool SubjectTracker::atEdge(const cv::Rect& box) const {
    return box.x <= kEdge || box.y <= kEdge || box.br().x >= mReduced.width - kEdge ||
           box.br().y >= mReduced.height - kEdge;
}

/// How far the piece's colour is from the subject's, in levels.
double SubjectTracker::unlikeness(const cv::Mat& aligned, const Piece& piece) const {
    const cv::Scalar mean = cv::mean(aligned, piece.outline);
    return cv::norm(cv::Vec3d(mean[0], mean[1], mean[2]) - mColor);
}

/// Takes the piece for the subject's new place. True when it looks like the whole subject and nothing else, and has
/// moved.
bool SubjectTracker::follow(const cv::Mat& aligned, const Piece& piece) {
    const cv::Scalar mean = cv::mean(aligned, piece.outline);
    const cv::Vec3d color(mean[0], mean[1], mean[2]);
    const cv::Point2d center(piece.box.x + piece.box.width / 2.0, piece.box.y + piece.box.height / 2.0);
    if (mLast.empty()) {
        ++mNumber;
        mBegan = center;
        mUsualArea = piece.area;
        mColor = color;
    }
    mLast = piece.box;
    mMissing = 0;
    if (atEdge(piece.box)) {  // it enters or leaves
        mUsualArea = piece.area;
        mColor = color;
        return false;
    }
    const bool usual = piece.area >= kLeastWhole * mUsualArea && piece.area <= kMostWhole * mUsualArea;
    mUsualArea += kLearnLook * (piece.area - mUsualArea);
    mColor += kLearnLook * (color - mColor);
    return usual && cv::norm(center - mBegan) >= kLeastWay;
}

void SubjectTracker::lose() {
    if (!mLast.empty() && ++mMissing >= kForget)
        mLast = {};
}

void SubjectTracker::learn(const cv::Mat& aligned, const cv::Mat& changed) {
    cv::Mat still;
    cv::Mat wide;
    cv::dilate(changed, wide, ellipse(7));
    cv::bitwise_not(wide, still);
    cv::accumulateWeighted(aligned, mBackground, kLearnStill, still);
    cv::accumulateWeighted(aligned, mBackground, kLearnMoving, wide);
    mSteady.copyTo(mBackground, mStillFor >= kSettled);
}

}  // namespace kov::action
