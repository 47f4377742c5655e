// What a capture is in each mode.

#include "tools/gst/Capture.h"

#include <camera/Camera.h>

#include "shots/Commands.h"

namespace kov::gst {

namespace {

using namespace android;

constexpr CaptureWay kPicture = {0, 0, 0, 0, CAMERA_MSG_COMPRESSED_IMAGE, 0, false};
constexpr CaptureWay kWays[] = {
    {KOV_MODE_PANORAMA, PANORAMA_SHOT_START, PANORAMA_SHOT_STOP, PANORAMA_SHOT_CANCEL, CAMERA_MSG_COMPRESSED_IMAGE,
     CAMERA_MSG_PANORAMA_ERROR, true},
    {KOV_MODE_CONTINUOUS, CONTINUOUS_SHOT_START_CAPTURE, CONTINUOUS_SHOT_STOP_CAPTURE, CONTINUOUS_SHOT_TERMINATE,
     CAMERA_MSG_CONTINUOUS_DELIVERED, 0, true},
    {KOV_MODE_ACTION, ACTION_SHOT_START_CAPTURE, ACTION_SHOT_STOP_CAPTURE, ACTION_SHOT_CANCEL_CAPTURE,
     CAMERA_MSG_COMPRESSED_IMAGE, CAMERA_MSG_ACTION_CREATION_END, true},
    // Waiting for a smile; the picture is taken when it comes.
    {KOV_MODE_SMILE, SMILE_SHOT_DETECTION_START, SMILE_SHOT_DETECTION_STOP, SMILE_SHOT_DETECTION_STOP,
     CAMERA_MSG_COMPRESSED_IMAGE, 0, false},
};

}  // namespace

const CaptureWay& captureWay(int32_t mode) {
    for (const CaptureWay& way : kWays) {
        if (way.mode == mode)
            return way;
    }
    return kPicture;
}

}  // namespace kov::gst
