// Calls of libPanoraMax1.so.

#include <panoramax/panoramax.h>

#include "host/calls/Relay.h"

namespace {

constexpr char kLibrary[] = "libPanoraMax1.so";

std::string size(const px_image& image) {
    return std::to_string(image.width) + "x" + std::to_string(image.height);
}

}  // namespace

static std::string shown(const px_image* image) {
    return image ? size(*image) : "";
}
static std::string shown(const px_status* status) {
    if (!status)
        return {};
    return std::to_string(status->status) + " (frames " + std::to_string(status->frame_count) + ", direction " +
           std::to_string(status->direction) + ", dx " + std::to_string(status->dx) + ", dy " +
           std::to_string(status->dy) + ")";
}

KOV_RELAY_4(px_init, ",,buffer_size,")
KOV_RELAY_11(px_setParams,
             ",width,height,rotation,out_width,out_height,mode,max_frames,frame_rate,quality,memory_budget")
KOV_RELAY_1(px_start, "")
KOV_RELAY_2(px_beginCapture, ",mode")
KOV_RELAY_4(px_handleFrame, ",frame,time_ms,status")
KOV_RELAY_4(px_addFrame, ",frame,time_ms,status")
KOV_RELAY_1(px_endCapture, "")
KOV_RELAY_2(px_createPanorama, ",progress")
KOV_RELAY_2(px_getPanoramaImage, ",image")
KOV_RELAY_1(px_abort, "")
KOV_RELAY_1(px_free, "")
