// The unsteadiness of a hand that holds the camera.

#include "host/camera/scenes/Hand.h"

#include <algorithm>

#include "host/camera/scenes/Canvas.h"

namespace kov::camera {

cv::Point2d handShake(double seconds, double reach) {
    constexpr double kSway = 0.45;  // seconds
    return {reach * (2 * noise1(seconds, kSway, 2, 901) - 1), reach * (2 * noise1(seconds, kSway, 2, 902) - 1)};
}

double ease(double value, double from, double to) {
    const double part = std::clamp((value - from) / (to - from), 0.0, 1.0);
    return part * part * (3 - 2 * part);
}

}  // namespace kov::camera
