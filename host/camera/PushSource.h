// A source that shows what the program pushes.
#pragma once

#include "host/camera/Sources.h"
#include "host/control/Control.h"

namespace kov::camera {

/// The frame that was pushed last, cut to the shape of the view around its middle; a grey wall before the first.
class PushSource : public FrameSource {
public:
    cv::Mat frame(double seconds, cv::Size size) override;

private:
    std::shared_ptr<const kov::host::PushedFrame> mFrame;  // what mPicture was made from
    cv::Mat mPicture;                                      // BGR, in its own size
};

}  // namespace kov::camera
