// The scene of a camera that pans over a wide valley.

#include "host/camera/scenes/Landscape.h"

#include <algorithm>
#include <cmath>

#include "host/camera/scenes/Hand.h"
#include "host/camera/scenes/Outdoors.h"

namespace kov::camera {

namespace {

/// The whole valley with its margin at `scale` pixels a unit.
View valley(double scale) {
    View view;
    view.scale = scale;
    view.origin = {-kSceneMargin, -kSceneMargin};
    view.size = cv::Size(static_cast<int>((kValleyWidth + 2 * kSceneMargin) * scale),
                         static_cast<int>((kViewHeight + 2 * kSceneMargin) * scale));
    return view;
}

double scaleFor(cv::Size level) {
    return level.height / kViewHeight;
}

/// The whole valley, in strips that are drawn side by side: it is many times as wide as what a frame shows of it.
cv::Mat drawWholeValley(const View& view) {
    constexpr int kStrips = 16;  // whatever the machine, so that the picture is the same
    cv::Mat picture(view.size, CV_8UC3);
    cv::parallel_for_({0, kStrips}, [&](const cv::Range& strips) {
        for (int i = strips.start; i < strips.end; ++i) {
            const int left = view.size.width * i / kStrips;
            const cv::Rect strip(left, 0, view.size.width * (i + 1) / kStrips - left, view.size.height);
            drawValley(view.part(strip)).copyTo(picture(strip));
        }
    });
    return picture;
}

}  // namespace

SceneInfo Landscape::info() {
    return {"landscape", "a slow pan over a wide valley with mountains, woods and a village",
            "direction=right|left|up|down, seconds=8, shake=0"};
}

Landscape::Landscape(SourceOptions& options)
    : mDirection(options.choice("direction", {"right", "left", "up", "down"})),
      mSeconds(options.number("seconds", 8, 0.5, 600)),
      mShake(options.number("shake", 0, 0, kSceneMargin)) {}

cv::Rect Landscape::crop(double seconds, cv::Size size) const {
    const cv::Size level = levelSize(size);
    const double scale = scaleFor(level);
    const double range = kValleyWidth - level.width / scale;
    double part = std::clamp((seconds - kPanStart) / mSeconds, 0.0, 1.0);
    if (mDirection == "left" || mDirection == "up")
        part = 1 - part;
    const cv::Point2d corner = (cv::Point2d(part * range, 0) + handShake(seconds, mShake)) * scale;
    const cv::Point margin(static_cast<int>(kSceneMargin * scale), static_cast<int>(kSceneMargin * scale));
    const cv::Rect flat(
        cv::Point(static_cast<int>(std::lround(corner.x)), static_cast<int>(std::lround(corner.y))) + margin, level);
    // Held upright, the valley is transposed: its left end is up.
    return upright() ? cv::Rect(flat.y, flat.x, flat.height, flat.width) : flat;
}

const cv::Mat& Landscape::widePicture(cv::Size size) {
    if (mWideFor != size) {
        mWide = drawWholeValley(valley(scaleFor(levelSize(size))));
        if (upright())
            mWide = mWide.t();
        mWideFor = size;
    }
    return mWide;
}

cv::Mat Landscape::frame(double seconds, cv::Size size) {
    // A still is seldom repeated: only its own part of the valley is drawn, and the preview's picture is kept.
    const cv::Rect seen = crop(seconds, size);
    if (mWideFor == size || mWideFor.area() == 0)
        return widePicture(size)(seen).clone();
    const cv::Rect level = upright() ? cv::Rect(seen.y, seen.x, seen.height, seen.width) : seen;
    const cv::Mat picture = drawValley(valley(scaleFor(level.size())).part(level));
    return upright() ? cv::Mat(picture.t()) : picture;
}

}  // namespace kov::camera
