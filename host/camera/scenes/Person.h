// People in the scenes.
#pragma once

#include "host/camera/scenes/Canvas.h"

namespace kov::camera {

/// The colours of a person.
struct Look {
    Colour skin, hair, top, trousers, shoes;
    bool longHair = false;

    /// All white, for masks.
    static Look mask();
};

/// A person who walks to the right, seen from the side. `feet` is the ground below the middle of the body; `stride`
/// 0..1 is the place in the walking cycle.
void drawWalker(Canvas& canvas, cv::Point2d feet, double height, double stride, const Look& look);

/// A person who stands and looks at the camera.
void drawStander(Canvas& canvas, cv::Point2d feet, double height, const Look& look);

/// How far a walker of `height` gets in one cycle.
double strideLength(double height);

}  // namespace kov::camera
