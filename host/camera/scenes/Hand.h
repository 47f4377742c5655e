// The unsteadiness of a hand that holds the camera.
#pragma once

#include <opencv2/core.hpp>

namespace kov::camera {

/// A smooth wander of at most `reach` units in each direction, the same for the same time.
cv::Point2d handShake(double seconds, double reach);

/// 0 below `from`, 1 above `to`, smooth between.
double ease(double value, double from, double to);

}  // namespace kov::camera
