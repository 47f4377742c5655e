// Putting shifted and turned frames together into one picture.
//
// Frames are joined pair by pair: the offset that the sweep was followed with is corrected by phase correlation and
// then, with the angle between the two, by maximising the correlation (ECC) over two sizes. A pair that is not alike in
// its details where the two overlap does not fit: the panorama ends before it, or, when it is the first pair, begins
// after it.

#include "host/panoramax/Stitch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#include <utility>

#include "host/panoramax/MotionMeter.h"
#include "host/pictures/SemiPlanar.h"

namespace kov::panorama {

using pictures::fullChroma;
using pictures::lumaOf;

namespace {

constexpr int kLeastOverlap = 16;        // pixels of the half size, in each direction
constexpr double kMostTurn = 8;          // degrees between two frames
constexpr double kMostCorrection = 0.1;  // of the frame's longer side, by which the followed offset may be off
constexpr double kLeastAlike = 0.3;      // correlation of the details of two frames that fit
constexpr double kDetail = 3;            // pixels of the half size: coarser is no detail
constexpr int kCorrelations = 2;

// Grey levels between which a pixel tells the exposure.
constexpr double kDarkest = 12;
constexpr double kBrightest = 244;

constexpr int kBlendBands = 5;
constexpr int kBeyondSeam = 2 << kBlendBands;  // pixels beyond its seams that the blender sees of a frame

/// What a grey pixel has in the three channels besides its luma; a gain scales the distance from it.
const cv::Scalar kNeutral(0, 128, 128);

cv::Mat halved(const cv::Mat& picture) {
    cv::Mat half;
    cv::resize(picture, half, picture.size() / 2, 0, 0, cv::INTER_AREA);
    return half;
}

cv::Matx33d shift(cv::Point2d by) {
    return {1, 0, by.x, 0, 1, by.y, 0, 0, 1};
}

/// Pixels of a picture of half the size, as pixels of the full one.
const cv::Matx33d kFromHalf(2, 0, 0.5, 0, 2, 0.5, 0, 0, 1);

double turnOf(const cv::Matx33d& pose) {
    return std::atan2(pose(1, 0), pose(0, 0));
}

cv::Point2d placed(const cv::Matx33d& pose, cv::Point2d point) {
    const cv::Vec3d at = pose * cv::Vec3d(point.x, point.y, 1);
    return {at[0], at[1]};
}

/// Corrects where the template's pixels are in the picture. False when there is nothing to hold on to.
bool align(const cv::Mat& model, const cv::Mat& picture, cv::Matx33d* where, int steps, double change) {
    cv::Matx23f found(static_cast<float>((*where)(0, 0)), static_cast<float>((*where)(0, 1)),
                      static_cast<float>((*where)(0, 2)), static_cast<float>((*where)(1, 0)),
                      static_cast<float>((*where)(1, 1)), static_cast<float>((*where)(1, 2)));
    try {
        cv::findTransformECC(model, picture, found, cv::MOTION_EUCLIDEAN,
                             {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, steps, change}, cv::noArray(), 3);
    } catch (const cv::Exception&) {
        return false;
    }
    *where = {found(0, 0), found(0, 1), found(0, 2), found(1, 0), found(1, 1), found(1, 2), 0, 0, 1};
    return true;
}

/// The details of a picture, around 0.
cv::Mat details(const cv::Mat& picture) {
    cv::Mat fine;
    picture.convertTo(fine, CV_32F);
    cv::Mat coarse;
    cv::GaussianBlur(fine, coarse, {}, kDetail);
    return fine - coarse;
}

/// How alike two pictures are in their details, where the mask is set: -1 to 1.
double alikeness(const cv::Mat& one, const cv::Mat& other, const cv::Mat& mask) {
    cv::Mat a = details(one);
    cv::Mat b = details(other);
    a.setTo(0, ~mask);
    b.setTo(0, ~mask);
    return a.dot(b) / std::max(cv::norm(a) * cv::norm(b), 1.0);
}

}  // namespace

Stitch::Stitch(const std::vector<PlacedFrame>& frames, bool sideways)
    : mSideways(sideways), mSize(lumaOf(frames.front().yuv).size()), mBlender(false, kBlendBands) {
    for (const PlacedFrame& frame : frames) {
        mParts.emplace_back();
        mParts.back().yuv = frame.yuv;
        mParts.back().offset = frame.offset;
        mParts.back().pose = cv::Matx33d::eye();
    }
}

int Stitch::left() const {
    return static_cast<int>(2 * mParts.size() - mJoined - mFed) + (mSettled ? 0 : 1);
}

bool Stitch::step() {
    if (mJoined < mParts.size()) {
        Part& before = mParts[mJoined - 1];
        if (join(before, mParts[mJoined])) {
            ++mJoined;
        } else if (mJoined > 1) {
            mParts.resize(mJoined);
        } else {
            mParts.erase(mParts.begin());
        }
        return mParts.size() > 1;
    }
    if (!std::exchange(mSettled, true))
        settle();
    else
        feed(mParts[mFed++]);
    return true;
}

/// Finds the pose of a frame against the one before it, and its gain from where they overlap. False when they do not
/// fit.
bool Stitch::join(Part& before, Part& after) const {
    for (Part* part : {&before, &after}) {
        if (part->half.empty())
            part->half = halved(lumaOf(part->yuv));
    }
    const cv::Rect frame({}, after.half.size());
    const auto common = [&](cv::Point offset) { return frame & (frame + offset); };  // as the frame before has it
    const auto enough = [&](const cv::Rect& rect) {
        return rect.width >= kLeastOverlap && rect.height >= kLeastOverlap;
    };

    const cv::Point2d followed = after.offset / 2;
    cv::Point offset(cvRound(followed.x), cvRound(followed.y));
    for (int i = 0; i < kCorrelations; ++i) {
        const cv::Rect in = common(offset);
        if (!enough(in))
            return false;
        const Motion rest = measure(before.half(in), after.half(in - offset));
        if (rest.confidence >= kLeastConfidence)
            offset += cv::Point(cvRound(rest.offset.x), cvRound(rest.offset.y));
    }
    const cv::Rect in = common(offset);
    if (!enough(in))
        return false;

    // From the pixels of the part of the frame before that both see, to those of the frame.
    const cv::Mat model = before.half(in);
    cv::Matx33d where = shift(in.tl() - offset);
    const cv::Matx33d coarse = kFromHalf.inv() * where * kFromHalf;
    cv::Matx33d rough = coarse;
    if (align(halved(model), halved(after.half), &rough, 30, 1e-4))
        where = kFromHalf * rough * kFromHalf.inv();
    if (!align(model, after.half, &where, 30, 1e-5))
        return false;
    const cv::Matx33d back = shift(in.tl()) * where.inv();  // from the frame's pixels to those of the one before
    const cv::Point2d middle = cv::Point2d(frame.width, frame.height) / 2;
    if (std::abs(turnOf(back)) > kMostTurn * CV_PI / 180 ||
        cv::norm(placed(back, middle) - middle - followed) > kMostCorrection * std::max(frame.width, frame.height))
        return false;

    cv::Mat seen;
    cv::Mat mask;
    const cv::Matx23d map = where.get_minor<2, 3>(0, 0);
    cv::warpAffine(after.half, seen, map, in.size(), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP);
    cv::warpAffine(cv::Mat(frame.size(), CV_8U, cv::Scalar(255)), mask, map, in.size(),
                   cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
    if (alikeness(model, seen, mask) < kLeastAlike)
        return false;
    mask &= (model > kDarkest) & (model < kBrightest) & (seen > kDarkest) & (seen < kBrightest);
    const double brightness = cv::mean(seen, mask)[0];
    after.gain = before.gain * (brightness > 0 ? cv::mean(model, mask)[0] / brightness : 1);
    after.pose = before.pose * kFromHalf * back * kFromHalf.inv();
    before.half.release();
    return true;
}

/// Makes the gains 1 and the angles 0 on average: the whole is as bright and as level as the frames were.
void Stitch::settle() {
    double gains = 0;
    double turns = 0;
    for (const Part& part : mParts) {
        gains += std::log(part.gain);
        turns += turnOf(part.pose);
    }
    const auto count = static_cast<double>(mParts.size());
    const double turn = turns / count;
    const cv::Matx33d level(std::cos(turn), std::sin(turn), 0, -std::sin(turn), std::cos(turn), 0, 0, 0, 1);
    for (Part& part : mParts) {
        part.gain /= std::exp(gains / count);
        part.pose = level * part.pose;
        mAll |= area(part);
    }
    findSeams();
    mBlender.prepare(mAll);
}

/// Each frame shows up to the middle between its own and the next one's place.
void Stitch::findSeams() {
    const cv::Point2d middle = cv::Point2d(mSize) / 2;
    const auto along = [&](const Part& part) {
        const cv::Point2d at = placed(part.pose, middle);
        return mSideways ? at.x : at.y;
    };
    std::vector<Part*> inOrder;
    for (Part& part : mParts) {
        part.begin = mSideways ? mAll.x : mAll.y;
        part.end = mSideways ? mAll.br().x : mAll.br().y;
        inOrder.push_back(&part);
    }
    std::ranges::stable_sort(inOrder, [&](const Part* one, const Part* other) { return along(*one) < along(*other); });
    for (size_t i = 1; i < inOrder.size(); ++i)
        inOrder[i - 1]->end = inOrder[i]->begin = cvRound((along(*inOrder[i - 1]) + along(*inOrder[i])) / 2);
}

/// Where the frame's pixels end up, without the outermost ones, which have no neighbours to be interpolated with.
std::vector<cv::Point2f> Stitch::corners(const Part& part) const {
    std::vector<cv::Point2f> all;
    for (const cv::Point2d corner : {cv::Point2d(1, 1), cv::Point2d(mSize.width - 2, 1),
                                     cv::Point2d(mSize.width - 2, mSize.height - 2), cv::Point2d(1, mSize.height - 2)})
        all.emplace_back(placed(part.pose, corner));
    return all;
}

cv::Rect Stitch::area(const Part& part) const {
    return cv::boundingRect(corners(part));
}

void Stitch::feed(const Part& part) {
    // The part of the panorama that the blender needs of this frame: where it shows, and some pixels more.
    const int from = part.begin - kBeyondSeam;
    const int length = part.end + kBeyondSeam - from;
    const cv::Rect strip = area(part) & (mSideways ? cv::Rect(from, mAll.y, length, mAll.height)
                                                   : cv::Rect(mAll.x, from, mAll.width, length));
    if (strip.empty())
        return;
    const cv::Matx23d pose = (shift(-cv::Point2d(strip.tl())) * part.pose).get_minor<2, 3>(0, 0);
    cv::Mat picture;
    cv::warpAffine(fullChroma(part.yuv), picture, pose, strip.size(), cv::INTER_LANCZOS4, cv::BORDER_REFLECT);
    cv::Mat wide;
    picture.convertTo(wide, CV_16SC3, part.gain);
    wide += kNeutral * (1 - part.gain);

    cv::Mat mask(strip.size(), CV_8U, cv::Scalar(0));
    std::vector<cv::Point> outline;
    for (const cv::Point2f& corner : corners(part))
        outline.emplace_back(cvRound(corner.x) - strip.x, cvRound(corner.y) - strip.y);
    cv::fillConvexPoly(mask, outline, 255);
    cv::Mat shown(strip.size(), CV_8U, cv::Scalar(0));
    const cv::Rect between = mSideways ? cv::Rect(part.begin - strip.x, 0, part.end - part.begin, strip.height)
                                       : cv::Rect(0, part.begin - strip.y, strip.width, part.end - part.begin);
    shown(between & cv::Rect({}, strip.size())).setTo(255);
    mBlender.feed(wide, mask & shown, strip.tl());
}

namespace {

/// The mask's part without gaps at its sides: the side that has most of them gives a line up, until none has.
cv::Rect filledPart(const cv::Mat& mask) {
    cv::Rect part({}, mask.size());
    while (!part.empty()) {
        const std::array<cv::Rect, 4> sides = {
            cv::Rect(part.x, part.y, 1, part.height), cv::Rect(part.br().x - 1, part.y, 1, part.height),
            cv::Rect(part.x, part.y, part.width, 1), cv::Rect(part.x, part.br().y - 1, part.width, 1)};
        std::array<double, 4> gaps{};
        for (size_t i = 0; i < sides.size(); ++i)
            gaps[i] = 1 - static_cast<double>(cv::countNonZero(mask(sides[i]))) / sides[i].area();
        const auto worst = std::ranges::max_element(gaps) - gaps.begin();
        if (gaps[worst] == 0)
            break;
        (worst < 2 ? part.width : part.height) -= 1;
        part.x += worst == 0;
        part.y += worst == 2;
    }
    return part;
}

}  // namespace

cv::Mat Stitch::result() {
    cv::Mat blended;
    cv::Mat mask;
    mBlender.blend(blended, mask);
    cv::Rect crop = filledPart(mask);
    crop.width &= ~1;
    crop.height &= ~1;
    cv::Mat picture;
    blended(crop).convertTo(picture, CV_8UC3);
    return picture;
}

}  // namespace kov::panorama
