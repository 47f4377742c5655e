// Stamp: ink on paper, two tones.

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "host/caps/Field.h"
#include "host/caps/Lines.h"
#include "host/caps/Look.h"

namespace kov::caps {

namespace {

constexpr float kInk = 16, kPaper = 248;  // luma
constexpr float kGlobal = 0.5f;           // share of the threshold; the rest is what is around
constexpr float kBelow = 24;              // grey levels that a place must be darker than what is around
constexpr float kClip = 12;               // grey levels round the threshold that count
constexpr double kMostContrast = 1.6;
constexpr double kReach = 50;       // pixels of a 640 x 480 picture that count as around
constexpr float kLeastLine = 1.1f;  // percent that a line must be darker than what is beside it
constexpr float kLineGain = 6;
constexpr double kLeastShape = 20;  // pixels of a 640 x 480 picture, for each degree of smoothness
constexpr float kFar = 4;           // pixels

/// How much ink each place takes: grey levels that it is below its threshold, or lines are above theirs, to `kClip`.
/// In place of `luma`.
void inkOf(cv::Mat& luma, const cv::Mat& around, const cv::Mat& lines, float threshold) {
    for (int y = 0; y < luma.rows; ++y) {
        float* const values = luma.ptr<float>(y);
        const float* const near = around.ptr<float>(y);
        const float* const line = lines.ptr<float>(y);
        for (int x = 0; x < luma.cols; ++x) {
            const float tone = threshold * kGlobal + (near[x] - kBelow) * (1 - kGlobal) - values[x];
            values[x] = std::clamp(std::max(tone, (line[x] - kLeastLine) * kLineGain), -kClip, kClip);
        }
    }
}

class Stamp : public Look {
public:
    void prepare(const Picture& picture, const Effect& effect, int detail) override;
    void draw(Picture& band, int row) const override;

private:
    void findSurroundings(double reach);
    void toDistances();

    Sampler mSampler;
    cv::Mat mInk;     // pixels from the edge of a shape, positive within
    float mEdge = 0;  // half a pixel of the picture

    cv::Mat mReduced, mFlat, mLuma, mSmall, mAround, mX, mY;
    LineFinder mLineFinder;
};

/// The mean luma round each place, `reach` pixels far.
void Stamp::findSurroundings(double reach) {
    constexpr int kPart = 8;
    const cv::Size size(std::max(1, mLuma.cols / kPart), std::max(1, mLuma.rows / kPart));
    cv::resize(mLuma, mSmall, size, 0, 0, cv::INTER_AREA);
    cv::GaussianBlur(mSmall, mSmall, {}, reach / kPart, reach / kPart, cv::BORDER_REFLECT);
    cv::resize(mSmall, mAround, mLuma.size(), 0, 0, cv::INTER_LINEAR);
}

/// Turns the smooth field of ink into distances from where it is 0, in pixels, up to `kFar`.
void Stamp::toDistances() {
    cv::Sobel(mInk, mX, CV_32F, 1, 0, 3, 1 / 8.0);
    cv::Sobel(mInk, mY, CV_32F, 0, 1, 3, 1 / 8.0);
    for (int row = 0; row < mInk.rows; ++row) {
        float* const values = mInk.ptr<float>(row);
        const float* const x = mX.ptr<float>(row);
        const float* const y = mY.ptr<float>(row);
        for (int i = 0; i < mInk.cols; ++i)
            values[i] = std::clamp(values[i] / (std::sqrt(x[i] * x[i] + y[i] * y[i]) + 1e-3f), -kFar, kFar);
    }
}

void Stamp::prepare(const Picture& picture, const Effect& effect, int detail) {
    const cv::Size work = workSize(picture.size(), detail);
    const double unit = workUnit(work);
    const double sigma = (0.4 + 0.4 * effect.smoothness) * unit;
    mSampler.set(work, picture.size());
    cv::resize(picture.y, mReduced, work, 0, 0, cv::INTER_AREA);
    cv::bilateralFilter(mReduced, mFlat, 2 * cvRound(2 * unit) + 1, 40, 3 * unit);
    mFlat.convertTo(mLuma, CV_32F);
    const cv::Mat& lines = mLineFinder.find(mLuma, sigma);
    stretch(mLuma, kMostContrast);
    findSurroundings(kReach * unit);
    inkOf(mLuma, mAround, lines, static_cast<float>(effect.threshold));
    cv::GaussianBlur(mLuma, mInk, {}, sigma);
    toDistances();
    const int least = cvRound(kLeastShape * (effect.smoothness + 1) * unit * unit);
    mLineFinder.dropSpecks(mInk, -1, least, -kFar);
    mInk.convertTo(mInk, -1, -1);  // the same for specks of paper
    mLineFinder.dropSpecks(mInk, -1, least, -kFar);
    mInk.convertTo(mInk, -1, -1);
    mEdge = 0.5f * work.width / picture.size().width;
}

void Stamp::draw(Picture& band, int row) const {
    std::vector<float> room;
    for (int y = 0; y < band.y.rows; ++y) {
        const float* const ink = mSampler.row(mInk, row + y, room);
        uint8_t* const out = band.y.ptr(y);
        for (int x = 0; x < band.y.cols; ++x)
            out[x] = toByte(kPaper + (kInk - kPaper) * ramp(ink[x], -mEdge, mEdge));
    }
    band.u = 128;
    band.v = 128;
}

}  // namespace

std::unique_ptr<Look> makeStamp() {
    return std::make_unique<Stamp>();
}

}  // namespace kov::caps
