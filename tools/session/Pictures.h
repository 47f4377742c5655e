// Frames as pictures, for clients that use OpenCV.
#pragma once

#include <opencv2/core.hpp>

#include "tools/session/Listener.h"

namespace kov::cam {

/// A frame as BGR, with pixels of its own; empty for a frame without bytes or of unknown size.
cv::Mat toBgr(const Frame& frame);

}  // namespace kov::cam
