// The scene of a face that begins to smile.
#pragma once

#include "host/camera/SourceOptions.h"
#include "host/camera/scenes/SteadyScene.h"

namespace kov::camera {

/// A person looks at the camera, neutral for `neutral` seconds; then the face changes to a full smile within 0.7
/// seconds and keeps it.
class Portrait : public SteadyScene {
public:
    static SceneInfo info();
    explicit Portrait(SourceOptions& options);

    cv::Mat frame(double seconds, cv::Size size) override;

    // Ground truth.
    /// 0 neutral, 1 full smile.
    double smile(double seconds) const;
    /// From the hair line to the chin, ear to ear.
    cv::Rect faceBox(double seconds, cv::Size size) const;

protected:
    cv::Mat draw(const View& view, int state) override;

private:
    const double mNeutral;
};

}  // namespace kov::camera
