// Outlines of a picture, and what keeps them clean.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace kov::caps {

/// Finds outlines. Its memory is kept from one picture to the next: taking fresh memory for every frame of a preview
/// would cost more than the arithmetic.
class LineFinder {
public:
    /// How dark each place of `luma` (float, 0 to 255) is against its surroundings of 1.6 `sigma` pixels: float, in
    /// percent, positive on lines and on the dark side of edges. Responses are averaged along the direction of the
    /// picture's edges over about 10 `sigma`, which joins lines and leaves noise behind. Valid until the next call.
    cv::Mat& find(const cv::Mat& luma, double sigma);

    /// Sets `field` to `value` wherever it is above `level` in a piece of fewer than `leastArea` pixels.
    void dropSpecks(cv::Mat& field, float level, int leastArea, float value);

private:
    void findDirections(double sigma);
    void averageAlong(float step);

    cv::Mat mFine, mWide;              // luma, blurred
    cv::Mat mHalf, mX, mY, mProducts;  // half of its size
    cv::Mat mDirections;               // of edges, half of its size: unit vectors along them
    cv::Mat mBordered;
    cv::Mat mAbove, mLabels;  // of specks
    std::vector<int> mAreas;
};

/// Luma (bytes) as float, scaled to `size`, by way of `reduced`.
void toField(const cv::Mat& luma, cv::Size size, cv::Mat& reduced, cv::Mat& field);

/// Stretches `luma` (float) so that all but a hundredth at each end spreads over 0 to 255, by at most `mostGain`.
void stretch(cv::Mat& luma, double mostGain);

}  // namespace kov::caps
