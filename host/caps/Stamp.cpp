// Stamp: ink on paper, two tones.

#include <opencv2/imgproc.hpp>

#include "host/caps/Field.h"
#include "host/caps/Lines.h"
#include "host/caps/Look.h"

namespace kov::caps {

namespace {

constexpr uint8_t kInk = 16, kPaper = 248;  // luma
constexpr double kSharpening = 6;

class Stamp : public Look {
public:
    Stamp(const Picture& picture, int smoothness, int threshold);
    void draw(Picture& band, int row) const override;

private:
    const cv::Size mWork;
    const Sampler mSampler;
    cv::Mat mInk;  // positive where there is ink
};

Stamp::Stamp(const Picture& picture, int smoothness, int threshold)
    : mWork(workSize(picture.size())), mSampler(mWork, picture.size()) {
    const double unit = workUnit(mWork);
    cv::Mat luma = lumaField(picture.y, mWork);
    stretch(luma, 2);
    const double sigma = (0.5 + 0.5 * smoothness) * unit;
    cv::Mat fine, wide;
    cv::GaussianBlur(luma, fine, {}, sigma, sigma, cv::BORDER_REPLICATE);
    cv::GaussianBlur(luma, wide, {}, 1.6 * sigma, 1.6 * sigma, cv::BORDER_REPLICATE);
    mInk = threshold - (fine + (fine - wide) * kSharpening);
    const int least = cvRound(12 * sigma * sigma);
    dropSpecks(mInk, 0, least, -1);
    cv::Mat paper = -mInk;
    dropSpecks(paper, 0, least, -1);
    mInk = -paper;
}

void Stamp::draw(Picture& band, int row) const {
    std::vector<float> room;
    for (int y = 0; y < band.y.rows; ++y) {
        const float* const ink = mSampler.row(mInk, row + y, room);
        uint8_t* const out = band.y.ptr(y);
        for (int x = 0; x < band.y.cols; ++x)
            out[x] = ink[x] > 0 ? kInk : kPaper;
    }
    band.u = 128;
    band.v = 128;
}

}  // namespace

std::unique_ptr<Look> makeStamp(const Picture& picture, int smoothness, int threshold) {
    return std::make_unique<Stamp>(picture, smoothness, threshold);
}

}  // namespace kov::caps
