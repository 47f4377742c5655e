// Stamp: ink on paper, two tones.

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "host/caps/Field.h"
#include "host/caps/Lines.h"
#include "host/caps/Look.h"

namespace kov::caps {

namespace {

constexpr float kInk = 16, kPaper = 248;  // luma
constexpr double kGlobal = 0.5;           // share of the threshold; the rest is what is around
constexpr double kBelow = 24;             // grey levels that a place must be darker than what is around
constexpr double kClip = 12;              // grey levels round the threshold that count
constexpr double kLeastLine = 1.1;        // percent that a line must be darker than what is beside it
constexpr double kLineGain = 6;
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

/// Turns a smooth field into distances from where it is 0, in pixels, up to `kFar`.
void toDistances(cv::Mat& field) {
    cv::Mat x, y, slope;
    cv::Sobel(field, x, CV_32F, 1, 0, 3, 1 / 8.0);
    cv::Sobel(field, y, CV_32F, 0, 1, 3, 1 / 8.0);
    cv::magnitude(x, y, slope);
    cv::divide(field, slope + 1e-3, field);
    field = cv::max(cv::min(field, kFar), -kFar);
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
    stretch(luma, 1.6);
    const cv::Mat around = surroundings(luma, 50 * unit);
    mInk = (threshold * kGlobal + (around - kBelow) * (1 - kGlobal)) - luma;
    mInk = cv::max(mInk, (lines - kLeastLine) * kLineGain);
    mInk = cv::max(cv::min(mInk, kClip), -kClip);
    cv::GaussianBlur(mInk, mInk, {}, sigma);
    toDistances(mInk);
    const int least = cvRound(kLeastShape * (smoothness + 1) * unit * unit);
    dropSpecks(mInk, -1, least, -kFar);
    mInk = -mInk;
    dropSpecks(mInk, -1, least, -kFar);
    mInk = -mInk;
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
