// Putting shifted frames together into one picture.

#include "host/panoramax/Stitch.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "host/panoramax/MotionMeter.h"

namespace kov::panorama {

namespace {

constexpr int kLeastOverlap = 32;       // pixels, in each direction
constexpr double kLeastRefined = 0.03;  // confidence
constexpr double kMostCorrection = 24;  // pixels by which the rough place may be off
constexpr int kBlendBands = 5;
constexpr int kRefinements = 2;

cv::Mat lumaOf(const cv::Mat& yuv) {
    return yuv.rowRange(0, yuv.rows * 2 / 3);
}

/// The part of a frame at (0, 0) that a frame at `offset` overlaps, and the same part seen from that frame.
std::pair<cv::Rect, cv::Rect> overlap(cv::Size size, cv::Point offset) {
    const cv::Rect frame({}, size);
    const cv::Rect common = frame & (frame + offset);
    return {common, common - offset};
}

/// What a grey pixel has in the three channels besides its luma; a gain scales the distance from it.
const cv::Scalar kNeutral(0, 128, 128);

/// Luma, V and U for every pixel. The frames have the full range, and so has the result.
cv::Mat fullChroma(const cv::Mat& yuv) {
    const cv::Mat luma = lumaOf(yuv);
    const cv::Mat pairs(luma.rows / 2, luma.cols / 2, CV_8UC2, const_cast<uint8_t*>(yuv.ptr(luma.rows)));
    cv::Mat chroma;
    cv::resize(pairs, chroma, luma.size(), 0, 0, cv::INTER_LINEAR);
    cv::Mat picture(luma.size(), CV_8UC3);
    const cv::Mat from[] = {luma, chroma};
    const int order[] = {0, 0, 1, 1, 2, 2};
    cv::mixChannels(from, 2, &picture, 1, order, 3);
    return picture;
}

cv::Point rounded(cv::Point2d point) {
    return {cvRound(point.x), cvRound(point.y)};
}

}  // namespace

Stitch::Stitch(std::vector<PlacedFrame> frames, bool sideways)
    : mFrames(std::move(frames)),
      mSideways(sideways),
      mSize(lumaOf(mFrames.front().yuv).size()),
      mBlender(false, kBlendBands) {}

bool Stitch::step() {
    const size_t count = mFrames.size();
    const size_t current = mDone++;
    if (current + 1 < count)
        return refine(current + 1);
    if (current + 1 == count) {
        settleGains();
        prepareBlender();
        return true;
    }
    feed(current - count);
    return true;
}

/// Corrects the place of a frame against the one before it, at full size, and takes its gain from where they overlap.
bool Stitch::refine(size_t second) {
    const PlacedFrame& before = mFrames[second - 1];
    PlacedFrame& after = mFrames[second];
    const cv::Point2d rough = after.place - before.place;
    cv::Point2d offset = rough;
    for (int i = 0; i < kRefinements; ++i) {
        const auto [inBefore, inAfter] = overlap(mSize, rounded(offset));
        if (inBefore.width < kLeastOverlap || inBefore.height < kLeastOverlap)
            return false;
        const Motion rest = measure(lumaOf(before.yuv)(inBefore), lumaOf(after.yuv)(inAfter));
        if (rest.confidence < kLeastRefined)
            return false;
        offset = cv::Point2d(rounded(offset)) + rest.offset;
    }
    if (cv::norm(offset - rough) > kMostCorrection)
        return false;
    const auto [inBefore, inAfter] = overlap(mSize, rounded(offset));
    offset = cv::Point2d(rounded(offset)) +
             sharpen(lumaOf(before.yuv)(inBefore), lumaOf(after.yuv)(inAfter), offset - cv::Point2d(rounded(offset)));
    const cv::Point2d moved = before.place + offset - after.place;
    for (size_t i = second; i < mFrames.size(); ++i)
        mFrames[i].place += moved;
    const double brightness = cv::mean(lumaOf(after.yuv)(inAfter))[0];
    after.gain = before.gain * cv::mean(lumaOf(before.yuv)(inBefore))[0] / std::max(brightness, 1.0);
    return true;
}

/// Makes the gains 1 on average, so that the whole is as bright as the frames were.
void Stitch::settleGains() {
    double sum = 0;
    for (const PlacedFrame& frame : mFrames)
        sum += std::log(frame.gain);
    const double common = std::exp(sum / static_cast<double>(mFrames.size()));
    for (PlacedFrame& frame : mFrames)
        frame.gain /= common;
}

cv::Rect Stitch::area(size_t index) const {
    return {cv::Point(static_cast<int>(std::floor(mFrames[index].place.x)),
                      static_cast<int>(std::floor(mFrames[index].place.y))),
            mSize};
}

void Stitch::prepareBlender() {
    cv::Rect all = area(0);
    for (size_t i = 1; i < mFrames.size(); ++i)
        all |= area(i);
    mBlender.prepare(all);
}

/// Where the frame shows: up to the middle between its place and those of its neighbours. Both neighbours find the same
/// pixel for that middle, so that no gap is left between them.
cv::Mat Stitch::seamMask(size_t index) const {
    cv::Mat mask(mSize, CV_8U, cv::Scalar(255));
    const auto along = [&](size_t i) { return mSideways ? mFrames[i].place.x : mFrames[i].place.y; };
    const int length = mSideways ? mSize.width : mSize.height;
    const int begin = mSideways ? area(index).x : area(index).y;
    const auto cut = [&](int from, int to) {
        from = std::clamp(from, 0, length);
        to = std::clamp(to, 0, length);
        if (from < to)
            (mSideways ? mask.colRange(from, to) : mask.rowRange(from, to)).setTo(0);
    };
    for (size_t other = 0; other < mFrames.size(); ++other) {
        if (other == index)
            continue;
        const int middle =
            cvRound((std::min(along(other), along(index)) + std::max(along(other), along(index)) + length) / 2) - begin;
        if (along(other) > along(index))
            cut(middle, length);
        else
            cut(0, middle);
    }
    return mask;
}

void Stitch::feed(size_t index) {
    const PlacedFrame& frame = mFrames[index];
    cv::Mat picture = fullChroma(frame.yuv);
    const cv::Rect place = area(index);
    const cv::Point2d fraction = frame.place - cv::Point2d(place.tl());
    const cv::Matx23d shift(1, 0, fraction.x, 0, 1, fraction.y);
    cv::warpAffine(picture, picture, shift, mSize, cv::INTER_LANCZOS4, cv::BORDER_REPLICATE);
    cv::Mat wide;
    picture.convertTo(wide, CV_16SC3, frame.gain);
    wide += kNeutral * (1 - frame.gain);
    mBlender.feed(wide, seamMask(index), place.tl());
}

cv::Mat Stitch::result() {
    cv::Mat blended;
    cv::Mat mask;
    mBlender.blend(blended, mask);
    cv::Rect all = area(0);
    cv::Rect full = all;  // what every frame fills across the sweep
    for (size_t i = 1; i < mFrames.size(); ++i) {
        const cv::Rect one = area(i);
        all |= one;
        if (mSideways)
            full = cv::Rect(cv::Point(full.x, std::max(full.y, one.y)),
                            cv::Point(full.x + 1, std::min(full.br().y, one.br().y)));
        else
            full = cv::Rect(cv::Point(std::max(full.x, one.x), full.y),
                            cv::Point(std::min(full.br().x, one.br().x), full.y + 1));
    }
    cv::Rect crop = mSideways ? cv::Rect(0, full.y - all.y, all.width, full.height)
                              : cv::Rect(full.x - all.x, 0, full.width, all.height);
    crop &= cv::Rect({}, blended.size());
    crop.width &= ~1;
    crop.height &= ~1;
    cv::Mat picture;
    blended(crop).convertTo(picture, CV_8UC3);
    return picture;
}

}  // namespace kov::panorama
