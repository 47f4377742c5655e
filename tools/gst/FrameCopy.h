// The one copy of a frame.
#pragma once

#include <gst/video/video.h>

#include "tools/session/Listener.h"

namespace kov::gst {

/// Copies a frame into a buffer's memory, which may have padded rows. False when the memory cannot be had. The frame is
/// of the size and format of `info`.
bool copyFrame(const cam::Frame& frame, const GstVideoInfo& info, GstBuffer* buffer);

}  // namespace kov::gst
