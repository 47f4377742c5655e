// The camera's preview as caps.
#pragma once

#include <gst/video/video.h>

#include <map>
#include <string>

#include "tools/gst/Pointers.h"
#include "tools/session/Listener.h"

namespace kov::gst {

using Parameters = std::map<std::string, std::string>;

/// What may stand in the caps of any camera's preview.
inline constexpr char kPreviewTemplate[] =
    "video/x-raw, format=(string){ NV21, I420 }, width=(int)[ 2, 8192 ], height=(int)[ 2, 8192 ], "
    "framerate=(fraction)[ 1/1, 240/1 ]";

/// The sizes, formats and rates that the camera's parameters list, first the one that is set.
CapsPtr previewCaps(const Parameters& parameters);
/// Fixed caps out of `ours` that `theirs` allow, with size and rate as near as can be to what is set, and NV21 where it
/// can be, which all modes take; empty when there are none.
CapsPtr fixated(const CapsPtr& ours, const CapsPtr& theirs);
/// The parameters that make the camera give such frames.
Parameters previewParameters(const GstVideoInfo& info);
/// Whether a frame is of this size and format.
bool fits(const cam::Frame& frame, const GstVideoInfo& info);

}  // namespace kov::gst
