// The scene of a person who crosses a village street.

#include "host/camera/scenes/Crossing.h"

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "host/camera/scenes/Outdoors.h"
#include "host/camera/scenes/Person.h"

namespace kov::camera {

namespace {
constexpr double kHeight = 300;
constexpr double kReach = 110;  // from the middle of the body to where nothing of it is seen
constexpr int kMaskThreshold = 48;

const Look& walker() {
    static const Look kLook = {rgb(0xE8B996), rgb(0x4A2F20), rgb(0xC8352E), rgb(0x2C3E66), rgb(0x2A2A2C), false};
    return kLook;
}
}  // namespace

SceneInfo Crossing::info() {
    return {"crossing", "a person crosses a still village street from left to right, over and over",
            "delay=1, seconds=6, shake=0"};
}

Crossing::Crossing(SourceOptions& options)
    : SteadyScene(options.number("shake", 0, 0, kSceneMargin)),
      mDelay(options.number("delay", 1, 0, 600)),
      mSeconds(options.number("seconds", 6, 0.5, 600)) {}

bool Crossing::feetAt(double seconds, cv::Size size, cv::Point2d* feet) const {
    const double time = std::fmod(seconds, mDelay + mSeconds) - mDelay;
    if (time < 0)
        return false;
    const double half = kViewHeight * size.width / size.height / 2 + kReach;
    *feet = {-half + 2 * half * time / mSeconds, kStreetFeet};
    return true;
}

double Crossing::stride(cv::Point2d feet) const {
    return feet.x / strideLength(kHeight);
}

cv::Mat Crossing::draw(const View& view, int) {
    return drawStreet(view);
}

cv::Mat Crossing::frame(double seconds, cv::Size size) {
    cv::Mat picture = background(seconds, size);
    cv::Point2d feet;
    if (!feetAt(seconds, size, &feet))
        return picture;
    Canvas canvas(picture, viewAt(seconds, size));
    canvas.ellipse(feet + cv::Point2d(24, 2), {72, 6}, rgb(0x77736C));
    drawWalker(canvas, feet, kHeight, stride(feet), walker());
    return picture;
}

cv::Mat Crossing::subjectMask(double seconds, cv::Size size) const {
    cv::Mat shape = cv::Mat::zeros(size, CV_8UC3);
    cv::Point2d feet;
    if (feetAt(seconds, size, &feet)) {
        Canvas canvas(shape, viewAt(seconds, size));
        drawWalker(canvas, feet, kHeight, stride(feet), Look::mask());
    }
    cv::Mat mask;
    cv::extractChannel(shape, mask, 1);
    return mask > kMaskThreshold;
}

cv::Rect Crossing::subjectBox(double seconds, cv::Size size) const {
    return cv::boundingRect(subjectMask(seconds, size));
}

}  // namespace kov::camera
