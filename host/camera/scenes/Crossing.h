// The scene of a person who crosses a village street.
#pragma once

#include "host/camera/SourceOptions.h"
#include "host/camera/scenes/SteadyScene.h"

namespace kov::camera {

/// The street is empty for `delay` seconds, then a person walks through the view from left to right in `seconds`; then
/// it begins again.
class Crossing : public SteadyScene {
public:
    static SceneInfo info();
    explicit Crossing(SourceOptions& options);

    cv::Mat frame(double seconds, cv::Size size) override;

    // Ground truth.
    /// The frame without the person.
    cv::Mat background(double seconds, cv::Size size) { return cut(seconds, size, 0); }
    /// 255 where the frame shows the person.
    cv::Mat subjectMask(double seconds, cv::Size size) const;
    /// The person's bounds in the frame; empty while the street is.
    cv::Rect subjectBox(double seconds, cv::Size size) const;

protected:
    cv::Mat draw(const View& view, int state) override;

private:
    /// Where the person walks; false while the street is empty.
    bool feetAt(double seconds, cv::Size size, cv::Point2d* feet) const;
    double stride(cv::Point2d feet) const;

    const double mDelay;
    const double mSeconds;
};

}  // namespace kov::camera
