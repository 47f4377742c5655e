// The outdoor scenery that several scenes share: sky, mountains, woods, houses, meadow.
#pragma once

#include "host/camera/scenes/Canvas.h"

namespace kov::camera {

/// Mountains over a valley with a village: `kValleyWidth` x kViewHeight units from (0, 0), drawn a little beyond the
/// edges so that an unsteady hand sees no border.
constexpr double kValleyWidth = 3200.0;
constexpr double kSceneMargin = 16.0;
cv::Mat drawValley(const View& view);

/// A village street with a pavement in front, centre at (0, 240), about 920 units wide: the place where people walk
/// and stand. The pavement's near edge lies at `kStreetFeet`.
constexpr double kStreetFeet = 440.0;
cv::Mat drawStreet(const View& view);

// The parts. `base` is the middle of the lower edge; `seed` varies them.
void drawSky(Canvas& canvas, double horizon);
void drawTree(Canvas& canvas, cv::Point2d base, double height, uint32_t seed);
void drawFir(Canvas& canvas, cv::Point2d base, double height, uint32_t seed);
void drawHouse(Canvas& canvas, cv::Point2d base, double width, uint32_t seed);

}  // namespace kov::camera
