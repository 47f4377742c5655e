// What the scenes share in which the camera is held still.
#pragma once

#include <vector>

#include "host/camera/Sources.h"
#include "host/camera/scenes/Canvas.h"

namespace kov::camera {

/// Keeps drawn pictures of the whole scene, a little larger than the frame, and cuts each frame out where the hand
/// holds the camera at that moment. The centre of the view is (0, kViewHeight / 2).
class SteadyScene : public FrameSource {
public:
    /// Where frames of `size` are cut from `backdrop(size, ...)`.
    cv::Rect crop(double seconds, cv::Size size) const;
    /// The scene coordinates of a frame.
    View viewAt(double seconds, cv::Size size) const;

protected:
    /// `shake`: reach of the hand in units.
    explicit SteadyScene(double shake) : mShake(shake) {}

    /// Draws one state of the scene; `state` is the scene's own number.
    virtual cv::Mat draw(const View& view, int state) = 0;
    /// The drawn picture of a state, kept for the sizes in use; frames are cut out of it.
    const cv::Mat& backdrop(cv::Size size, int state);
    cv::Mat cut(double seconds, cv::Size size, int state) { return backdrop(size, state)(crop(seconds, size)).clone(); }

private:
    static View wholeView(cv::Size size);

    struct Kept {
        cv::Size size;
        int state;
        cv::Mat picture;
    };
    const double mShake;
    std::vector<Kept> mKept;  // used last comes last
};

}  // namespace kov::camera
