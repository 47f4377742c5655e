// Stamp: ink on paper, two tones.

#include <algorithm>
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

/// The mean luma round each place, `reach` pixels far.
cv::Mat surroundings(const cv::Mat& luma, double reach) {
    constexpr int kPart = 8;
    cv::Mat small, result;
    const cv::Size size(std::max(1, luma.cols / kPart), std::max(1, luma.rows / kPart));
    cv::resize(luma, small, size, 0, 0, cv::INTER_AREA);
    cv::GaussianBlur(small, small, {}, reach / kPart, reach / kPart, cv::BORDER_REFLECT);
    cv::resize(small, result, luma.size(), 0, 0, cv::INTER_LINEAR);
    return result;
}

/// How much ink each place takes: grey levels that it is below its threshold, or lines are above theirs, to `kClip`.
/// In the memory of `luma`.
cv::Mat inkOf(cv::Mat luma, const cv::Mat& around, const cv::Mat& lines, float threshold) {
    for (int y = 0; y < luma.rows; ++y) {
        float* const values = luma.ptr<float>(y);
        const float* const near = around.ptr<float>(y);
        const float* const line = lines.ptr<float>(y);
        for (int x = 0; x < luma.cols; ++x) {
            const float tone = threshold * kGlobal + (near[x] - kBelow) * (1 - kGlobal) - values[x];
            values[x] = std::clamp(std::max(tone, (line[x] - kLeastLine) * kLineGain), -kClip, kClip);
        }
    }
    return luma;
}

/// Turns a smooth field into distances from where it is 0, in pixels, up to `kFar`.
void toDistances(cv::Mat& field) {
    cv::Mat x, y, slope;
    cv::Sobel(field, x, CV_32F, 1, 0, 3, 1 / 8.0);
    cv::Sobel(field, y, CV_32F, 0, 1, 3, 1 / 8.0);
    cv::magnitude(x, y, slope);
    for (int row = 0; row < field.rows; ++row) {
        float* const values = field.ptr<float>(row);
        const float* const steep = slope.ptr<float>(row);
        for (int i = 0; i < field.cols; ++i)
            values[i] = std::clamp(values[i] / (steep[i] + 1e-3f), -kFar, kFar);
    }
}

class Stamp : public Look {
public:
    Stamp(const Picture& picture, int smoothness, int threshold);
    void draw(Picture& band, int row) const override;

private:
    const cv::Size mWork;
    const Sampler mSampler;
    cv::Mat mInk;     // pixels from the edge of a shape, positive within
    float mEdge = 0;  // half a pixel of the picture
};

Stamp::Stamp(const Picture& picture, int smoothness, int threshold)
    : mWork(workSize(picture.size())), mSampler(mWork, picture.size()) {
    const double unit = workUnit(mWork);
    const double sigma = (0.4 + 0.4 * smoothness) * unit;
    cv::Mat reduced, flat, luma;
    cv::resize(picture.y, reduced, mWork, 0, 0, cv::INTER_AREA);
    cv::bilateralFilter(reduced, flat, 2 * cvRound(2 * unit) + 1, 40, 3 * unit);
    flat.convertTo(luma, CV_32F);
    const cv::Mat lines = findLines(luma, sigma);
    stretch(luma, kMostContrast);
    const cv::Mat around = surroundings(luma, kReach * unit);
    mInk = inkOf(luma, around, lines, static_cast<float>(threshold));
    cv::GaussianBlur(mInk, mInk, {}, sigma);
    toDistances(mInk);
    const int least = cvRound(kLeastShape * (smoothness + 1) * unit * unit);
    dropSpecks(mInk, -1, least, -kFar);
    mInk *= -1;  // the same for specks of paper
    dropSpecks(mInk, -1, least, -kFar);
    mInk *= -1;
    mEdge = 0.5f * mWork.width / picture.size().width;
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

std::unique_ptr<Look> makeStamp(const Picture& picture, int smoothness, int threshold) {
    return std::make_unique<Stamp>(picture, smoothness, threshold);
}

}  // namespace kov::caps
