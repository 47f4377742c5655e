// The scene of a camera that pans over a wide valley.
#pragma once

#include "host/camera/SourceOptions.h"
#include "host/camera/Sources.h"

namespace kov::camera {

/// The camera stands still for half a second, pans evenly over the whole width, and rests at the end. With direction
/// up or down the camera is held upright, so that the valley lies on its side in the frames.
class Landscape : public FrameSource {
public:
    static SceneInfo info();
    explicit Landscape(SourceOptions& options);

    cv::Mat frame(double seconds, cv::Size size) override;

    // Ground truth. Frames without shake are exactly `widePicture(size)(crop(seconds, size))`.
    /// The whole of what the pan shows, at the scale of frames of `size`.
    const cv::Mat& widePicture(cv::Size size);
    cv::Rect crop(double seconds, cv::Size size) const;
    /// When the pan ends.
    double panEnd() const { return kPanStart + mSeconds; }

private:
    static constexpr double kPanStart = 0.5;

    bool upright() const { return mDirection == "up" || mDirection == "down"; }
    /// The size that the valley is drawn for, the camera being held level.
    cv::Size levelSize(cv::Size size) const { return upright() ? cv::Size(size.height, size.width) : size; }

    std::string mDirection;
    double mSeconds;
    double mShake;
    cv::Size mWideFor;  // frame size that mWide was drawn for
    cv::Mat mWide;
};

}  // namespace kov::camera
