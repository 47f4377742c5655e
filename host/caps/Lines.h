// Outlines of a picture, and what keeps them clean.
#pragma once

#include <opencv2/core.hpp>

namespace kov::caps {

/// Luma (bytes) as float, scaled to `size`.
cv::Mat lumaField(const cv::Mat& luma, cv::Size size);

/// How dark each place of `luma` (float, 0 to 255) is against its surroundings of 1.6 `sigma` pixels: float, in
/// percent, positive on lines and on the dark side of edges. Responses are averaged along the direction of the
/// picture's edges over about 10 `sigma`, which joins lines and leaves noise behind.
cv::Mat findLines(const cv::Mat& luma, double sigma);

/// Sets `field` to `value` wherever it is above `level` in a piece of fewer than `leastArea` pixels.
void dropSpecks(cv::Mat& field, float level, int leastArea, float value);

/// Stretches `luma` (float) so that all but a hundredth at each end spreads over 0 to 255, by at most `mostGain`.
void stretch(cv::Mat& luma, double mostGain);

}  // namespace kov::caps
