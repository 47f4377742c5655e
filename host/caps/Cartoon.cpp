// Cartoon: flat colours within dark outlines.

#include <algorithm>
#include <array>
#include <opencv2/imgproc.hpp>

#include "host/caps/Field.h"
#include "host/caps/Lines.h"
#include "host/caps/Look.h"

namespace kov::caps {

namespace {

constexpr int kFlattenings = 4;
constexpr double kColorReach = 24;  // grey levels that flattening joins
constexpr double kSoftness = 0.8;   // pixels at half the work size: no stairs where a tone is drawn larger
constexpr float kStep = 28;         // grey levels of luma from one flat tone to the next
constexpr float kStepSharpness = 4.4f;
constexpr double kLeastFlatness = 0.3;  // share of the steps in luma where it changes slowly: skies keep their gradient
constexpr float kVividness = 1.3f;
constexpr float kLineFrom = 1.3f, kLineTo = 2.4f;  // percent of a line: nothing, and full ink
constexpr double kLeastLine = 90;                  // pixels of a 640 x 480 picture; shorter ones are texture
constexpr float kInk = 20;                         // luma

class Cartoon : public Look {
public:
    void prepare(const Picture& picture, const Effect& effect, int detail) override;
    void draw(Picture& band, int row) const override;

private:
    void flatten(const Picture& picture, cv::Size small, double unit);
    void findStepShare(double unit);
    void findLines(const cv::Mat& luma, cv::Size work, double unit);
    void drawLuma(cv::Mat& luma, int row) const;
    void drawChroma(Picture& band, int row) const;

    Sampler mCoarse;        // from the small size to luma
    Sampler mFine;          // from the work size to luma
    Sampler mFineToChroma;  // and to chroma
    Sampler mSmallToChroma;
    cv::Mat mTone;       // flat luma
    cv::Mat mStepShare;  // how much of the steps luma takes at each place, small
    cv::Mat mLines;
    cv::Mat mU, mV;  // flat chroma about 0, small

    std::array<cv::Mat, 3> mPlanes;  // small
    cv::Mat mFlat, mNext;            // of all planes, small
    cv::Mat mSmallTone, mX, mY;
    cv::Mat mReduced, mSmooth, mSmoothField;
    LineFinder mLineFinder;
};

void Cartoon::flatten(const Picture& picture, cv::Size small, double unit) {
    cv::resize(picture.y, mPlanes[0], small, 0, 0, cv::INTER_AREA);
    cv::resize(picture.u, mPlanes[1], small, 0, 0, cv::INTER_AREA);
    cv::resize(picture.v, mPlanes[2], small, 0, 0, cv::INTER_AREA);
    cv::merge(mPlanes.data(), mPlanes.size(), mFlat);
    for (int i = 0; i < kFlattenings; ++i) {
        cv::bilateralFilter(mFlat, mNext, 2 * cvRound(1.5 * unit) + 1, kColorReach, 2.5 * unit);
        std::swap(mFlat, mNext);
    }
}

void Cartoon::findStepShare(double unit) {
    cv::Sobel(mSmallTone, mX, CV_32F, 1, 0, 3, 1 / 8.0);
    cv::Sobel(mSmallTone, mY, CV_32F, 0, 1, 3, 1 / 8.0);
    mStepShare.create(mSmallTone.size(), CV_32F);
    const float gain = static_cast<float>(0.2 * unit);
    for (int y = 0; y < mStepShare.rows; ++y) {
        const float* const across = mX.ptr<float>(y);
        const float* const down = mY.ptr<float>(y);
        float* const share = mStepShare.ptr<float>(y);
        for (int x = 0; x < mStepShare.cols; ++x)
            share[x] = kLeastFlatness + (std::abs(across[x]) + std::abs(down[x])) * gain;
    }
    cv::GaussianBlur(mStepShare, mStepShare, {}, 1.5 * unit);
    cv::min(mStepShare, 1.0, mStepShare);
}

/// Outlines of luma without the fine grain that makes none.
void Cartoon::findLines(const cv::Mat& luma, cv::Size work, double unit) {
    cv::resize(luma, mReduced, work, 0, 0, cv::INTER_AREA);
    cv::bilateralFilter(mReduced, mSmooth, 2 * cvRound(1.5 * unit) + 1, 30, 2 * unit);
    mSmooth.convertTo(mSmoothField, CV_32F);
    mLines = mLineFinder.find(mSmoothField, 1.1 * unit);
    mLineFinder.dropSpecks(mLines, kLineFrom, cvRound(kLeastLine * unit * unit), 0);
}

void Cartoon::prepare(const Picture& picture, const Effect&, int detail) {
    const cv::Size work = workSize(picture.size(), detail), small = halved(work);
    const double unit = workUnit(work);
    mCoarse.set(small, picture.size());
    mFine.set(work, picture.size());
    mFineToChroma.set(work, picture.u.size());
    mSmallToChroma.set(small, picture.u.size());
    flatten(picture, small, unit);
    cv::split(mFlat, mPlanes.data());
    mPlanes[0].convertTo(mSmallTone, CV_32F);
    cv::GaussianBlur(mSmallTone, mSmallTone, {}, kSoftness * unit);
    findStepShare(unit);
    cv::resize(mSmallTone, mTone, work, 0, 0, cv::INTER_CUBIC);
    findLines(picture.y, work, unit);
    mPlanes[1].convertTo(mU, CV_32F, 1, -128);
    mPlanes[2].convertTo(mV, CV_32F, 1, -128);
}

/// Luma in steps with soft edges.
float stepped(float tone) {
    const float place = std::max(tone, 0.0f) * (1 / kStep);
    const auto whole = static_cast<float>(static_cast<int>(place));
    const float t = std::clamp((place - whole - 0.5f) * kStepSharpness + 0.5f, 0.0f, 1.0f);
    return (whole + t * t * (3 - 2 * t)) * kStep;
}

void Cartoon::drawLuma(cv::Mat& luma, int row) const {
    std::vector<float> toneRoom, shareRoom, lineRoom;
    for (int y = 0; y < luma.rows; ++y) {
        const float* const tone = mFine.row(mTone, row + y, toneRoom);
        const float* const share = mCoarse.row(mStepShare, row + y, shareRoom);
        const float* const lines = mFine.row(mLines, row + y, lineRoom);
        uint8_t* const out = luma.ptr(y);
        for (int x = 0; x < luma.cols; ++x) {
            const float flat = tone[x] + (stepped(tone[x]) - tone[x]) * share[x];
            out[x] = toByte(flat + (std::min(flat, kInk) - flat) * ramp(lines[x], kLineFrom, kLineTo));
        }
    }
}

void Cartoon::drawChroma(Picture& band, int row) const {
    std::vector<float> lineRoom, uRoom, vRoom;
    for (int y = 0; y < band.u.rows; ++y) {
        const float* const lines = mFineToChroma.row(mLines, row / 2 + y, lineRoom);
        const float* const u = mSmallToChroma.row(mU, row / 2 + y, uRoom);
        const float* const v = mSmallToChroma.row(mV, row / 2 + y, vRoom);
        uint8_t* const outU = band.u.ptr(y);
        uint8_t* const outV = band.v.ptr(y);
        for (int x = 0; x < band.u.cols; ++x) {
            const float strength = kVividness * (1 - 0.8f * ramp(lines[x], kLineFrom, kLineTo));
            outU[x] = toByte(128 + u[x] * strength);
            outV[x] = toByte(128 + v[x] * strength);
        }
    }
}

void Cartoon::draw(Picture& band, int row) const {
    drawLuma(band.y, row);
    drawChroma(band, row);
}

}  // namespace

std::unique_ptr<Look> makeCartoon() {
    return std::make_unique<Cartoon>();
}

}  // namespace kov::caps
