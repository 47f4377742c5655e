// Private command codes and notification types, shared by the library and the applications that use it.
#pragma once

#include <cstdint>

namespace android {

/// Codes of `sendCommand` that the adaptor and the shots understand. Arguments that are not named are ignored.
enum KovCameraCommand : int32_t {
    // Mode selection. Codes of the range that are not named here release the current shot only.
    KOV_MODE_FIRST = 1000,
    KOV_MODE_SINGLE = 1000,
    KOV_MODE_CONTINUOUS = 1001,
    KOV_MODE_PANORAMA = 1002,
    KOV_MODE_SMILE = 1003,
    KOV_MODE_SELF = 1006,
    KOV_MODE_ADDME = 1009,
    KOV_MODE_ACTION = 1010,
    KOV_MODE_CARTOON = 1013,
    KOV_MODE_LAST = 1016,

    SMILE_SHOT_DETECTION_START = 1017,
    SMILE_SHOT_DETECTION_STOP = 1018,

    PANORAMA_SHOT_START = 1019,
    PANORAMA_SHOT_STOP = 1020,
    PANORAMA_SHOT_CANCEL = 1022,

    CONTINUOUS_SHOT_START_CAPTURE = 1023,
    CONTINUOUS_SHOT_STOP_CAPTURE = 1024,
    CONTINUOUS_SHOT_TERMINATE = 1025,
    CONTINUOUS_SHOT_SOUND = 1026,  // arg1: above 0 turns the sound on, anything else off

    ACTION_SHOT_START_CAPTURE = 1029,
    ACTION_SHOT_CANCEL_CAPTURE = 1030,
    ACTION_SHOT_STOP_CAPTURE = 1031,

    ADDME_SHOT_INIT = 1033,
    ADDME_SHOT_START_CAPTURE = 1034,
    ADDME_SHOT_SWITCH_FIRST_PERSON = 1035,  // arg1: the position
    ADDME_SHOT_NOTHING = 1036,
    ADDME_SHOT_CANCEL_CAPTURE = 1037,
    ADDME_SHOT_RELEASE = 1038,

    CARTOON_SHOT_SELECT_EFFECT = 1039,  // arg1: the effect
};

/// Message types of the private notifications. ext1 and ext2 are 0 unless named.
enum KovCameraMessage : int32_t {
    CAMERA_MSG_PANORAMA_ERROR = 0x200,
    CAMERA_MSG_PANORAMA_FIRST_FRAME = 0x800,
    CAMERA_MSG_PANORAMA_PROGRESS = 0xA00,  // ext1: percent stitched
    CAMERA_MSG_PANORAMA_FRAME_ADDED = 0xC00,

    CAMERA_MSG_CONTINUOUS_FRAME_TAKEN = 0xE00,  // ext1: frames taken, ext2: frames of a full burst
    CAMERA_MSG_CONTINUOUS_STOPPED = 0x1000,     // ext1: frames taken
    CAMERA_MSG_CONTINUOUS_DELIVERED = 0x2800,

    CAMERA_MSG_ACTION_CREATION_BEGIN = 0x1200,
    CAMERA_MSG_ACTION_CREATION_PROGRESS = 0x1400,     // ext1: percent
    CAMERA_MSG_ACTION_CREATION_END = 0x1600,          // ext1: 1 when a picture was made, else 0
    CAMERA_MSG_ACTION_ACQUISITION_PROGRESS = 0x1800,  // ext1: progress
    CAMERA_MSG_ACTION_FRAME_ACCEPTED = 0x1A00,

    CAMERA_MSG_ADDME_ERROR = 0x1C00,      // ext1: 0 or 1
    CAMERA_MSG_ADDME_NO_RESULT = 0x1E00,  // a picture without merged result
    CAMERA_MSG_ADDME_PROGRESS = 0x2000,   // ext1: percent merged

    CAMERA_MSG_SMILE_DETECTED = 0x2200,
    CAMERA_MSG_CARTOON_PROGRESS = 0x2400,  // ext1: percent rendered
};

}  // namespace android
