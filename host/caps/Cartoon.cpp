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
constexpr float kStep = 28;         // grey levels of luma from one flat tone to the next
constexpr float kStepSharpness = 4.4f;
constexpr double kLeastFlatness = 0.3;  // share of the steps in luma where it changes slowly: skies keep their gradient
constexpr float kVividness = 1.3f;
constexpr float kLineFrom = 1.3f, kLineTo = 2.4f;  // percent of a line: nothing, and full ink
constexpr double kLeastLine = 90;                  // pixels of a 640 x 480 picture; shorter ones are texture
constexpr float kInk = 20;                         // luma

class Cartoon : public Look {
public:
    explicit Cartoon(const Picture& picture);
    void draw(Picture& band, int row) const override;

private:
    void drawLuma(cv::Mat& luma, int row) const;
    void drawChroma(Picture& band, int row) const;

    const cv::Size mWork;
    const cv::Size mSmall;
    const Sampler mCoarse;        // from the small size to luma
    const Sampler mFine;          // from the work size to luma
    const Sampler mFineToChroma;  // and to chroma
    const Sampler mSmallToChroma;
    cv::Mat mTone;       // flat luma
    cv::Mat mStepShare;  // small
    cv::Mat mLines;
    cv::Mat mU, mV;  // flat chroma about 0, small
};

/// How much of the steps luma takes at each place.
cv::Mat stepShare(const cv::Mat& tone, double unit) {
    cv::Mat x, y;
    cv::Sobel(tone, x, CV_32F, 1, 0, 3, 1 / 8.0);
    cv::Sobel(tone, y, CV_32F, 0, 1, 3, 1 / 8.0);
    cv::Mat share = kLeastFlatness + (cv::abs(x) + cv::abs(y)) * (0.2 * unit);
    cv::GaussianBlur(share, share, {}, 1.5 * unit);
    return cv::min(share, 1.0);
}

/// Luma without the fine grain that makes no outline.
cv::Mat smoothLuma(const cv::Mat& luma, cv::Size work, double unit) {
    cv::Mat reduced, smooth;
    cv::resize(luma, reduced, work, 0, 0, cv::INTER_AREA);
    cv::bilateralFilter(reduced, smooth, 2 * cvRound(1.5 * unit) + 1, 30, 2 * unit);
    smooth.convertTo(smooth, CV_32F);
    return smooth;
}

Cartoon::Cartoon(const Picture& picture)
    : mWork(workSize(picture.size())),
      mSmall(halved(mWork)),
      mCoarse(mSmall, picture.size()),
      mFine(mWork, picture.size()),
      mFineToChroma(mWork, picture.u.size()),
      mSmallToChroma(mSmall, picture.u.size()) {
    const double unit = workUnit(mWork);
    std::array<cv::Mat, 3> planes;
    cv::resize(picture.y, planes[0], mSmall, 0, 0, cv::INTER_AREA);
    cv::resize(picture.u, planes[1], mSmall, 0, 0, cv::INTER_AREA);
    cv::resize(picture.v, planes[2], mSmall, 0, 0, cv::INTER_AREA);
    cv::Mat flat, next;
    cv::merge(planes.data(), planes.size(), flat);
    const double reach = 2.5 * unit;
    for (int i = 0; i < kFlattenings; ++i) {
        cv::bilateralFilter(flat, next, 2 * cvRound(1.5 * unit) + 1, kColorReach, reach);
        std::swap(flat, next);
    }
    cv::split(flat, planes.data());
    planes[0].convertTo(mTone, CV_32F);
    cv::GaussianBlur(mTone, mTone, {}, 0.5 * unit);
    mStepShare = stepShare(mTone, unit);
    cv::resize(mTone, mTone, mWork, 0, 0, cv::INTER_CUBIC);
    mLines = findLines(smoothLuma(picture.y, mWork, unit), 1.1 * unit);
    dropSpecks(mLines, kLineFrom, cvRound(kLeastLine * unit * unit), 0);
    planes[1].convertTo(mU, CV_32F, 1, -128);
    planes[2].convertTo(mV, CV_32F, 1, -128);
}

/// Luma in steps with soft edges.
float stepped(float tone) {
    const float place = std::max(tone, 0.0f) / kStep;
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

std::unique_ptr<Look> makeCartoon(const Picture& picture) {
    return std::make_unique<Cartoon>(picture);
}

}  // namespace kov::caps
