// Where the moving subject is.

#include "host/actionshot/SubjectTracker.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace kov::action {

namespace {

constexpr double kReducedWidth = 320;
constexpr double kMostShift = 0.1;    // of the frame
constexpr double kMostStep = 1.5;     // reduced pixels that the rough shift may be off
constexpr double kStill = 0.4;        // reduced pixels; a smaller shift is measuring noise
constexpr float kDifferent = 16;      // grey levels
constexpr float kDifferentColor = 8;  // levels of chroma
constexpr float kShadowColor = 5;
constexpr float kShadowDarkest = 0.55F;   // of the brightness without it
constexpr double kLeastSubject = 0.0012;  // of the frame
constexpr double kLearnStill = 0.1;       // weight of a new frame where nothing moves
constexpr double kLearnMoving = 0.004;
constexpr int kMovingEvery = 4;  // frames between two that teach the background where something moves
constexpr int kEdge = 2;         // reduced pixels

// A pixel that shows the same for so long is background, whatever was there when the series began.
constexpr float kSame = 8;    // levels
constexpr int kSettled = 45;  // frames
constexpr int kMoving = 10;   // frames; what changed less long ago moves

constexpr int kJoin = 7;  // reduced pixels between parts of a body
constexpr int kStep = 6;  // reduced pixels by which a subject may be off from where its way leads
constexpr double kLearnPace = 0.3;
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
// Parts of the frame's width and height that it moves, before its way is told to be sideways, or up or down.
constexpr double kClearWay = 0.03;
constexpr double kClearRise = 0.25;

cv::Mat hanning(cv::Size size) {
    cv::Mat window;
    cv::createHanningWindow(window, size, CV_32F);
    return window;
}

cv::Point2d centerOf(const cv::Rect& box) {
    return cv::Point2d(box.tl() + box.br()) / 2;
}

cv::Mat ellipse(int size) {
    return cv::getStructuringElement(cv::MORPH_ELLIPSE, {size, size});
}

}  // namespace

SubjectTracker::SubjectTracker(cv::Size frameSize)
    : mFrame(frameSize),
      mScale(std::max(1.0, frameSize.width / kReducedWidth)),
      mReduced(cvRound(frameSize.width / mScale), cvRound(frameSize.height / mScale)),
      mWindow(hanning(mReduced / 2)) {}

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
        cv::resize(mFirst, mFirstHalf, mReduced / 2, 0, 0, cv::INTER_AREA);
        cv::Sobel(mFirst, mSlopeX, CV_32F, 1, 0, 1, 0.5);
        cv::Sobel(mFirst, mSlopeY, CV_32F, 0, 1, 1, 0.5);
        mBackground = small;
        mSteady = small.clone();
        mStillFor = cv::Mat(mReduced, CV_8U, cv::Scalar(kMoving));
        return sighting;
    }
    const cv::Point2d shift = shiftOf(smallLuma);
    mShift = {cvRound(shift.x), cvRound(shift.y)};
    sighting.shift = shift * mScale;
    cv::Mat aligned = small;
    if (shift != cv::Point2d())
        cv::warpAffine(small, aligned, cv::Matx23d(1, 0, -shift.x, 0, 1, -shift.y), mReduced, cv::INTER_LINEAR,
                       cv::BORDER_REPLICATE);
    cv::Mat changed;
    watchStillness(aligned);
    cv::Mat mask = difference(aligned, &changed);
    clearBeyond(shift, &mask);
    const Piece piece = choose(aligned, piecesOf(mask));
    learn(aligned, changed);
    if (piece.area == 0) {
        lose();
        return sighting;
    }
    const bool usual = follow(aligned, piece);
    sighting.number = mNumber;
    sighting.outline = piece.outline;
    const cv::Rect here = mLast + mShift;
    sighting.whole = usual && !atEdge(mLast);
    sighting.subject = cv::Rect(cvFloor(here.x * mScale), cvFloor(here.y * mScale), cvCeil(here.width * mScale),
                                cvCeil(here.height * mScale)) &
                       cv::Rect({}, mFrame);
    return sighting;
}

/// By how much the frame is shifted against the first one, in reduced pixels; nothing when that is out of bounds.
cv::Point2d SubjectTracker::shiftOf(const cv::Mat& luma) const {
    cv::Mat half;
    cv::resize(luma, half, mReduced / 2, 0, 0, cv::INTER_AREA);
    // A copy: the correlation applies the window in place where no padding is needed.
    const cv::Point2d rough = 2 * cv::phaseCorrelate(mFirstHalf.clone(), half, mWindow);
    const auto inBounds = [&](cv::Point2d shift) {
        return std::abs(shift.x) <= kMostShift * mReduced.width && std::abs(shift.y) <= kMostShift * mReduced.height;
    };
    if (!inBounds(rough))
        return {};
    // One step of Gauss and Newton brings the fraction of a pixel. What moves has no say in it.
    cv::Mat moved;
    cv::warpAffine(luma, moved, cv::Matx23d(1, 0, -rough.x, 0, 1, -rough.y), mReduced, cv::INTER_LINEAR,
                   cv::BORDER_REPLICATE);
    cv::Matx22d slopes = cv::Matx22d::zeros();
    cv::Vec2d errors(0, 0);
    const cv::Point beyond(cvCeil(std::abs(rough.x)) + 1, cvCeil(std::abs(rough.y)) + 1);
    for (int row = beyond.y; row < mReduced.height - beyond.y; ++row) {
        const auto* first = mFirst.ptr<float>(row);
        const auto* now = moved.ptr<float>(row);
        const auto* slopeX = mSlopeX.ptr<float>(row);
        const auto* slopeY = mSlopeY.ptr<float>(row);
        float xx = 0, xy = 0, yy = 0, xe = 0, ye = 0;
        for (int column = beyond.x; column < mReduced.width - beyond.x; ++column) {
            const float error = now[column] - first[column];
            const float counts = std::abs(error) < kDifferent ? 1.0F : 0.0F;
            const float x = counts * slopeX[column];
            const float y = counts * slopeY[column];
            xx += x * x;
            xy += x * y;
            yy += y * y;
            xe += x * error;
            ye += y * error;
        }
        slopes += cv::Matx22d(xx, xy, xy, yy);
        errors += cv::Vec2d(xe, ye);
    }
    cv::Vec2d step(0, 0);
    if (std::abs(cv::determinant(slopes)) > 1)
        step = slopes.inv() * errors;
    const cv::Point2d shift = cv::norm(step) < kMostStep ? rough - cv::Point2d(step[0], step[1]) : rough;
    return cv::norm(shift) >= kStill && inBounds(shift) ? shift : cv::Point2d();
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
        uint8_t* differing = changed->ptr(row);
        for (int column = 0; column < mReduced.width; ++column) {
            const cv::Vec3f change = now[column] - then[column];
            const float color = std::max(std::abs(change[1]), std::abs(change[2]));
            const bool shadow = color < kShadowColor && change[0] < 0 &&
                                now[column][0] > kShadowDarkest * std::max(then[column][0], 1.0F);
            const bool differs = std::abs(change[0]) > kDifferent || color > kDifferentColor;
            differing[column] = differs ? 255 : 0;
            to[column] = differs && !shadow ? 255 : 0;
        }
    }
    cv::morphologyEx(mask, mask, cv::MORPH_OPEN, ellipse(3));
    cv::morphologyEx(mask, mask, cv::MORPH_CLOSE, ellipse(kJoin));
    return mask;
}

/// What the shifted frame does not reach is no change.
void SubjectTracker::clearBeyond(cv::Point2d shift, cv::Mat* mask) const {
    if (shift == cv::Point2d())
        return;
    const cv::Point reach(cvCeil(std::abs(shift.x)) + 1, cvCeil(std::abs(shift.y)) + 1);
    if (const int columns = std::min(reach.x, mReduced.width); shift.x > 0)
        mask->colRange(mReduced.width - columns, mReduced.width).setTo(0);
    else
        mask->colRange(0, columns).setTo(0);
    if (const int rows = std::min(reach.y, mReduced.height); shift.y > 0)
        mask->rowRange(mReduced.height - rows, mReduced.height).setTo(0);
    else
        mask->rowRange(0, rows).setTo(0);
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
        const cv::Rect box(stats.at<int>(i, cv::CC_STAT_LEFT), stats.at<int>(i, cv::CC_STAT_TOP),
                           stats.at<int>(i, cv::CC_STAT_WIDTH), stats.at<int>(i, cv::CC_STAT_HEIGHT));
        cv::Mat outline(mReduced, CV_8U, cv::Scalar(0));
        outline(box).setTo(255, labels(box) == i);
        pieces.push_back({box, area, outline});
    }
    return pieces;
}

/// The piece that continues the subject; while there is none, the one that moves most. What somebody has left behind
/// who was in the first frame does not move.
SubjectTracker::Piece SubjectTracker::choose(const cv::Mat& aligned, const std::vector<Piece>& pieces) const {
    Piece best;
    double bestScore = 0;
    for (const Piece& piece : pieces) {
        const double score = mLast.empty()
                                 ? cv::countNonZero((mStillFor(piece.box) < kMoving) & piece.outline(piece.box))
                                 : continuity(aligned, piece);
        if (score > bestScore) {
            bestScore = score;
            best = piece;
        }
    }
    return best;
}

/// How well the piece continues the subject; 0 when it cannot be it, as when two people meet and make one piece.
double SubjectTracker::continuity(const cv::Mat& aligned, const Piece& piece) const {
    // A subject that was hidden for a while has gone on.
    const cv::Rect due = mLast + cv::Point(mPace * (mMissing + 1));
    const int step = kStep + mMissing;
    const cv::Rect near(due.x - step, due.y - step, due.width + 2 * step, due.height + 2 * step);
    const int common = (piece.box & near).area();
    const bool enters = atEdge(mLast) || atEdge(piece.box);
    if (common == 0 || (!enters && (piece.area < kLeastSame * mUsualArea || piece.area > kMostSame * mUsualArea)))
        return 0;
    const double unlike = unlikeness(aligned, piece);
    if (unlike > kMostUnlike)
        return 0;
    return std::exp(static_cast<double>(common) / (piece.box | near).area() - kColorWeight * unlike);
}

/// Whether the piece is at an edge by which the subject may come in or go out. The ground under somebody who passes by
/// is none, nor are the sides of the frame for something that falls or rises. That takes a clear way to tell: while
/// somebody comes in, the middle of what is seen moves up and down with the parts of the body.
bool SubjectTracker::atEdge(const cv::Rect& box) const {
    const cv::Point2d way = mLast.empty() ? cv::Point2d() : centerOf(mLast) - mBegan;
    const double x = std::abs(way.x);
    const double y = std::abs(way.y);
    const bool across = x >= kClearWay * mReduced.width && 2 * x > y;
    const bool upright = y >= kClearRise * mReduced.height && y > 2 * x;
    // At an edge of this frame, or of the first one, beyond which nothing is known.
    const cv::Rect both = box | (box + mShift);
    return (!upright && (both.x <= kEdge || both.br().x >= mReduced.width - kEdge)) ||
           (!across && (both.y <= kEdge || both.br().y >= mReduced.height - kEdge));
}

/// How far the piece's colour is from the subject's, in levels.
double SubjectTracker::unlikeness(const cv::Mat& aligned, const Piece& piece) const {
    const cv::Scalar mean = cv::mean(aligned(piece.box), piece.outline(piece.box));
    return cv::norm(cv::Vec3d(mean[0], mean[1], mean[2]) - mColor);
}

/// Takes the piece for the subject's new place. True when it looks like the whole subject and nothing else, and has
/// moved.
bool SubjectTracker::follow(const cv::Mat& aligned, const Piece& piece) {
    const cv::Scalar mean = cv::mean(aligned(piece.box), piece.outline(piece.box));
    const cv::Vec3d color(mean[0], mean[1], mean[2]);
    const cv::Point2d center = centerOf(piece.box);
    if (mLast.empty()) {
        // One who was given up and looks the same is back; who comes in by the edge is new.
        const bool back = mNumber > 0 && piece.area >= kLeastWhole * mUsualArea &&
                          piece.area <= kMostWhole * mUsualArea && cv::norm(color - mColor) <= kMostUnlike;
        mNumber += !back;
        mBegan = center;
        mPace = {};
        mUsualArea = piece.area;
        mColor = color;
    }
    if (!mLast.empty())
        mPace += kLearnPace * ((center - centerOf(mLast)) / (mMissing + 1) - mPace);
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
    if (mFrames % kMovingEvery == 0)
        cv::accumulateWeighted(aligned, mBackground, kMovingEvery * kLearnMoving, wide);
    mSteady.copyTo(mBackground, mStillFor >= kSettled);
}

}  // namespace kov::action
