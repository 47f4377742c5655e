// Outlines of a picture, and what keeps them clean.

#include "host/caps/Lines.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace kov::caps {

namespace {

constexpr int kAlong = 4;       // samples to each side along an edge
constexpr float kDarkest = 24;  // grey levels: keeps the noise of black places from counting as lines

/// Three sigma to each side are enough here, and faster.
void blur(const cv::Mat& from, cv::Mat& to, double sigma) {
    const int side = 2 * cvCeil(3 * sigma) + 1;
    cv::GaussianBlur(from, to, {side, side}, sigma, sigma, cv::BORDER_REPLICATE);
}

/// The directions of edges at half the size of `luma`, as unit vectors along them; zero where there is no edge.
cv::Mat edgeDirections(const cv::Mat& luma, double sigma) {
    cv::Mat half, x, y;
    cv::resize(luma, half, {(luma.cols + 1) / 2, (luma.rows + 1) / 2}, 0, 0, cv::INTER_LINEAR);
    cv::Sobel(half, x, CV_32F, 1, 0);
    cv::Sobel(half, y, CV_32F, 0, 1);
    // A gradient and its opposite are one direction: their products can be averaged, they themselves cannot.
    cv::Mat products;
    const cv::Mat all[] = {x.mul(x), x.mul(y), y.mul(y)};
    cv::merge(all, 3, products);
    blur(products, products, sigma / 2);
    cv::Mat directions(half.size(), CV_32FC2);
    for (int row = 0; row < half.rows; ++row) {
        const auto* const in = products.ptr<cv::Vec3f>(row);
        auto* const out = directions.ptr<cv::Vec2f>(row);
        for (int i = 0; i < half.cols; ++i) {
            const float xx = in[i][0], xy = in[i][1], yy = in[i][2];
            const float strongest = (xx + yy + std::sqrt((xx - yy) * (xx - yy) + 4 * xy * xy)) / 2;
            const float alongX = xx - strongest;
            const float length = std::sqrt(alongX * alongX + xy * xy);
            // Without a mixed product an edge that is not level is upright.
            out[i] = length > 1e-3f ? cv::Vec2f(alongX / length, xy / length) : cv::Vec2f(0, xx > yy ? 1.0f : 0.0f);
        }
    }
    return directions;
}

/// Averages `field` along `directions`, which has half its size, over `kAlong` samples to each side, `step` pixels
/// apart. `result` has the size of `field`.
void averageAlong(const cv::Mat& field, const cv::Mat& directions, float step, cv::Mat& result) {
    float weights[kAlong + 1] = {1};
    float sum = 1;
    for (int i = 1; i <= kAlong; ++i) {
        weights[i] = std::exp(-3.0f * i * i / (kAlong * kAlong));
        sum += 2 * weights[i];
    }
    const int margin = cvCeil(step * kAlong) + 1;
    cv::Mat wide;
    cv::copyMakeBorder(field, wide, margin, margin, margin, margin, cv::BORDER_REPLICATE);
    const auto stride = static_cast<int>(wide.step1());
    cv::parallel_for_({0, field.rows}, [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            const float* const in = wide.ptr<float>(y + margin) + margin;
            const auto* const along = directions.ptr<cv::Vec2f>(y / 2);
            float* const out = result.ptr<float>(y);
            for (int x = 0; x < field.cols; ++x) {
                const cv::Vec2f reach = along[x / 2] * step;
                float total = in[x];
                for (int i = 1; i <= kAlong; ++i) {
                    const int offset = cvRound(reach[1] * i) * stride + cvRound(reach[0] * i);
                    total += weights[i] * (in[x + offset] + in[x - offset]);
                }
                out[x] = total / sum;
            }
        }
    });
}

}  // namespace

cv::Mat lumaField(const cv::Mat& luma, cv::Size size) {
    cv::Mat result;
    cv::resize(luma, result, size, 0, 0, cv::INTER_AREA);
    result.convertTo(result, CV_32F);
    return result;
}

cv::Mat findLines(const cv::Mat& luma, double sigma) {
    cv::Mat fine, wide;
    blur(luma, fine, sigma);
    blur(luma, wide, 1.6 * sigma);
    const cv::Mat directions = edgeDirections(fine, 1.2 * sigma);
    cv::Mat& darkness = wide;  // memory is what takes time here: it is used again
    for (int y = 0; y < luma.rows; ++y) {
        const float* const place = fine.ptr<float>(y);
        float* const around = wide.ptr<float>(y);
        for (int x = 0; x < luma.cols; ++x)
            around[x] = (around[x] - place[x]) * 100 / (around[x] + kDarkest);
    }
    averageAlong(darkness, directions, static_cast<float>(1.2 * sigma), fine);
    return fine;
}

void dropSpecks(cv::Mat& field, float level, int leastArea, float value) {
    cv::Mat labels;
    std::vector<int> areas(cv::connectedComponents(field > level, labels, 8, CV_32S), 0);
    for (int y = 0; y < field.rows; ++y)
        for (int x = 0; x < field.cols; ++x)
            ++areas[labels.ptr<int>(y)[x]];
    areas[0] = leastArea;  // what is not above the level
    for (int y = 0; y < field.rows; ++y) {
        float* const values = field.ptr<float>(y);
        const int* const label = labels.ptr<int>(y);
        for (int x = 0; x < field.cols; ++x)
            if (areas[label[x]] < leastArea)
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
    luma = luma * gain + (target - middle * gain);
}

}  // namespace kov::caps
