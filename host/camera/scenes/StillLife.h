// The scene of a cup and fruit on a table.
#pragma once

#include "host/camera/SourceOptions.h"
#include "host/camera/scenes/SteadyScene.h"

namespace kov::camera {

/// Colourful things with clear outlines, in the light of a window.
class StillLife : public SteadyScene {
public:
    static SceneInfo info();
    explicit StillLife(SourceOptions& options);

    cv::Mat frame(double seconds, cv::Size size) override { return cut(seconds, size, 0); }

protected:
    cv::Mat draw(const View& view, int state) override;
};

}  // namespace kov::camera
