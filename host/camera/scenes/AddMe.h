// The scene of two people who photograph each other at the same place.
#pragma once

#include "host/camera/SourceOptions.h"
#include "host/camera/scenes/SteadyScene.h"

namespace kov::camera {

/// First a person stands on the left. After a picture was taken, the other person holds the camera: it has moved by a
/// few units and turned a little, and the one who took the first picture stands on the right. After the next picture
/// it begins again.
class AddMe : public SteadyScene {
public:
    static SceneInfo info();
    explicit AddMe(SourceOptions& options);

    cv::Mat frame(double seconds, cv::Size size) override { return cut(seconds, size, mAct); }
    void pictureTaken() override { mAct = 1 - mAct; }

    // Ground truth, for frames without shake.
    /// 0: the first person on the left; 1: the second on the right.
    int act() const { return mAct; }
    /// Bounds of an act's person in its frames.
    cv::Rect personBox(int act, cv::Size size) const;
    /// Takes pixels of frames of act 0 to pixels of frames of act 1.
    static cv::Matx23d movement(cv::Size size);

protected:
    cv::Mat draw(const View& view, int state) override;

private:
    int mAct = 0;
};

}  // namespace kov::camera
