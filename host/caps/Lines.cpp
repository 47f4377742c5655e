// Outlines of a picture, and what keeps them clean.

#include "host/caps/Lines.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "host/caps/Field.h"

namespace kov::caps {

namespace {

constexpr int kAlong = 4;       // samples to each side along an edge
constexpr float kDarkest = 24;  // grey levels: keeps the noise of black places from counting as lines

/// Three sigma to each side are enough here, and faster.
void blur(const cv::Mat& from, cv::Mat& to, double sigma) {
    const int side = 2 * cvCeil(3 * sigma) + 1;
    cv::GaussianBlur(from, to, {side, side}, sigma, sigma, cv::BORDER_REPLICATE);
}

}  // namespace

void toField(const cv::Mat& luma, cv::Size size, cv::Mat& reduced, cv::Mat& field) {
    cv::resize(luma, reduced, size, 0, 0, cv::INTER_AREA);
    reduced.convertTo(field, CV_32F);
}

/// The directions of the edges of `mFine` at half its size; zero where there is no edge.
void LineFinder::findDirections(double sigma) {
    cv::resize(mFine, mHalf, {(mFine.cols + 1) / 2, (mFine.rows + 1) / 2}, 0, 0, cv::INTER_LINEAR);
    cv::Sobel(mHalf, mX, CV_32F, 1, 0);
    cv::Sobel(mHalf, mY, CV_32F, 0, 1);
    // A gradient and its opposite are one direction: their products can be averaged, they themselves cannot.
    mProducts.create(mHalf.size(), CV_32FC3);
    for (int row = 0; row < mHalf.rows; ++row) {
        const float* const x = mX.ptr<float>(row);
        const float* const y = mY.ptr<float>(row);
        auto* const out = mProducts.ptr<cv::Vec3f>(row);
        for (int i = 0; i < mHalf.cols; ++i)
            out[i] = {x[i] * x[i], x[i] * y[i], y[i] * y[i]};
    }
    blur(mProducts, mProducts, sigma / 2);
    mDirections.create(mHalf.size(), CV_32FC2);
    forRows(mHalf.rows, [&](int row) {
        const auto* const in = mProducts.ptr<cv::Vec3f>(row);
        auto* const out = mDirections.ptr<cv::Vec2f>(row);
        for (int i = 0; i < mHalf.cols; ++i) {
            const float xx = in[i][0], xy = in[i][1], yy = in[i][2];
            const float strongest = (xx + yy + std::sqrt((xx - yy) * (xx - yy) + 4 * xy * xy)) / 2;
            const float alongX = xx - strongest;
            const float length = std::sqrt(alongX * alongX + xy * xy);
            // Without a mixed product an edge that is not level is upright.
            out[i] = length > 1e-3f ? cv::Vec2f(alongX / length, xy / length) : cv::Vec2f(0, xx > yy ? 1.0f : 0.0f);
        }
    });
}

/// Averages `mWide` along the directions over `kAlong` samples to each side, `step` pixels apart, into `mFine`.
void LineFinder::averageAlong(float step) {
    float weights[kAlong + 1] = {1};
    float sum = 1;
    for (int i = 1; i <= kAlong; ++i) {
        weights[i] = std::exp(-3.0f * i * i / (kAlong * kAlong));
        sum += 2 * weights[i];
    }
    for (float& weight : weights)
        weight /= sum;
    const int margin = cvCeil(step * kAlong) + 1;
    cv::copyMakeBorder(mWide, mBordered, margin, margin, margin, margin, cv::BORDER_REPLICATE);
    const auto stride = static_cast<int>(mBordered.step1());
    const auto averaged = [&](const float* in, const int* offsets) {
        float total = in[0] * weights[0];
        for (int i = 1; i <= kAlong; ++i)
            total += weights[i] * (in[offsets[i]] + in[-offsets[i]]);
        return total;
    };
    forRows(mDirections.rows, [&](int half) {
        const auto* const along = mDirections.ptr<cv::Vec2f>(half);
        const int y = 2 * half;
        const float* const in = mBordered.ptr<float>(y + margin) + margin;
        float* const out = mFine.ptr<float>(y);
        float* const below = y + 1 < mFine.rows ? mFine.ptr<float>(y + 1) : nullptr;
        int offsets[kAlong + 1] = {};
        for (int x = 0; x < mFine.cols; ++x) {
            if (x % 2 == 0)  // a direction counts for two by two pixels
                for (int i = 1; i <= kAlong; ++i)
                    offsets[i] = cvRound(along[x / 2][1] * step * i) * stride + cvRound(along[x / 2][0] * step * i);
            out[x] = averaged(in + x, offsets);
            if (below)
                below[x] = averaged(in + stride + x, offsets);
        }
    });
}

cv::Mat& LineFinder::find(const cv::Mat& luma, double sigma) {
    blur(luma, mFine, sigma);
    blur(luma, mWide, 1.6 * sigma);
    findDirections(1.2 * sigma);
    for (int y = 0; y < luma.rows; ++y) {
        const float* const place = mFine.ptr<float>(y);
        float* const around = mWide.ptr<float>(y);
        for (int x = 0; x < luma.cols; ++x)
            around[x] = (around[x] - place[x]) * 100 / (around[x] + kDarkest);
    }
    averageAlong(static_cast<float>(1.2 * sigma));
    return mFine;
}

void LineFinder::dropSpecks(cv::Mat& field, float level, int leastArea, float value) {
    cv::compare(field, level, mAbove, cv::CMP_GT);
    mAreas.assign(static_cast<size_t>(cv::connectedComponents(mAbove, mLabels, 8, CV_32S)), 0);
    for (int y = 0; y < field.rows; ++y)
        for (int x = 0; x < field.cols; ++x)
            ++mAreas[static_cast<size_t>(mLabels.ptr<int>(y)[x])];
    mAreas[0] = leastArea;  // what is not above the level
    for (int y = 0; y < field.rows; ++y) {
        float* const values = field.ptr<float>(y);
        const int* const label = mLabels.ptr<int>(y);
        for (int x = 0; x < field.cols; ++x)
            if (mAreas[static_cast<size_t>(label[x])] < leastArea)
                values[x] = value;
    }
}

void stretch(cv::Mat& luma, double mostGain) {
    int counts[256] = {};
    for (int y = 0; y < luma.rows; ++y)
        for (int x = 0; x < luma.cols; ++x)
            ++counts[std::clamp(static_cast<int>(luma.ptr<float>(y)[x]), 0, 255)];
    const int tail = static_cast<int>(luma.total() / 100);
    int low = 0, high = 255;
    for (int sum = counts[0]; sum <= tail && low < 255; sum += counts[++low]) {
    }
    for (int sum = counts[255]; sum <= tail && high > 0; sum += counts[--high]) {
    }
    const double gain = std::clamp(255.0 / std::max(high - low, 1), 1.0, mostGain);
    // The middle of the range moves only as far as its ends need to stay within.
    const double middle = (low + high) / 2.0;
    const double reach = (high - low) * gain / 2;
    const double target = reach >= 127.5 ? 127.5 : std::clamp(middle, reach, 255 - reach);
    luma.convertTo(luma, -1, gain, target - middle * gain);
}

}  // namespace kov::caps
