// Outlines of a picture, and what keeps them clean.

#include "host/caps/Lines.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <vector>

namespace kov::caps {

cv::Mat findLines(const cv::Mat& luma, double sigma) {
    cv::Mat fine, wide;
    cv::GaussianBlur(luma, fine, {}, sigma, sigma, cv::BORDER_REPLICATE);
    cv::GaussianBlur(luma, wide, {}, 1.6 * sigma, 1.6 * sigma, cv::BORDER_REPLICATE);
    return wide - fine;
}

void dropSpecks(cv::Mat& field, float level, int leastArea, float value) {
    cv::Mat labels, stats, centroids;
    const int pieces = cv::connectedComponentsWithStats(field > level, labels, stats, centroids, 8, CV_32S);
    std::vector<uint8_t> small(pieces, 0);
    for (int piece = 1; piece < pieces; ++piece)
        small[piece] = stats.at<int>(piece, cv::CC_STAT_AREA) < leastArea;
    for (int y = 0; y < field.rows; ++y) {
        float* const values = field.ptr<float>(y);
        const int* const label = labels.ptr<int>(y);
        for (int x = 0; x < field.cols; ++x)
            if (small[label[x]])
                values[x] = value;
    }
}

cv::Mat lumaField(const cv::Mat& luma, cv::Size size) {
    cv::Mat result;
    cv::resize(luma, result, size, 0, 0, cv::INTER_AREA);
    result.convertTo(result, CV_32F);
    return result;
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
    const double middle = (low + high) / 2.0;
    luma = luma * gain + (127.5 - middle * gain + (middle - 127.5) * (gain < mostGain ? 0.0 : 1.0));
}

}  // namespace kov::caps
