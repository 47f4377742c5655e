// The one copy of a frame.

#include "tools/gst/FrameCopy.h"

#include <cstring>

namespace kov::gst {

namespace {

/// One plane; a plane whose rows follow each other in both at once.
const uint8_t* copyPlane(const uint8_t* from, GstVideoFrame* to, guint plane) {
    const GstVideoInfo& info = to->info;
    // NV21's second plane has U and V in each row; the planes of I420 have one component each.
    const gint component = static_cast<gint>(plane);
    const auto rows = static_cast<size_t>(GST_VIDEO_INFO_COMP_HEIGHT(&info, component));
    const size_t row = static_cast<size_t>(GST_VIDEO_INFO_COMP_WIDTH(&info, component)) *
                       static_cast<size_t>(GST_VIDEO_INFO_COMP_PSTRIDE(&info, component));
    const auto stride = static_cast<size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(to, plane));
    auto* target = static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(to, plane));
    if (stride == row) {
        std::memcpy(target, from, row * rows);
    } else {
        for (size_t y = 0; y < rows; ++y)
            std::memcpy(target + y * stride, from + y * row, row);
    }
    return from + row * rows;
}

}  // namespace

bool copyFrame(const cam::Frame& frame, const GstVideoInfo& info, GstBuffer* buffer) {
    GstVideoFrame target;
    if (!gst_video_frame_map(&target, &info, buffer, GST_MAP_WRITE))
        return false;
    const uint8_t* from = frame.bytes;
    for (guint plane = 0; plane < GST_VIDEO_FRAME_N_PLANES(&target); ++plane)
        from = copyPlane(from, &target, plane);
    gst_video_frame_unmap(&target);
    return true;
}

}  // namespace kov::gst
