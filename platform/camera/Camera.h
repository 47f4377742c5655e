// Message types that a camera hardware layer sends and that can be enabled and disabled.
#pragma once

#include <cstdint>

namespace android {

enum : int32_t {
    CAMERA_MSG_ERROR = 0x001,
    CAMERA_MSG_SHUTTER = 0x002,
    CAMERA_MSG_FOCUS = 0x004,
    CAMERA_MSG_ZOOM = 0x008,
    CAMERA_MSG_PREVIEW_FRAME = 0x010,
    CAMERA_MSG_VIDEO_FRAME = 0x020,
    CAMERA_MSG_POSTVIEW_FRAME = 0x040,
    CAMERA_MSG_RAW_IMAGE = 0x080,
    CAMERA_MSG_COMPRESSED_IMAGE = 0x100,
    CAMERA_MSG_ALL_MSGS = 0x1FF,
};

}  // namespace android
