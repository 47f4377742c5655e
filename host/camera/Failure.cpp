// Saying what went wrong in the camera.

#include "host/camera/Failure.h"

#include <android/log.h>

#include "host/control/Control.h"

namespace kov::camera {

void fail(const std::string& reason, const char* prefix) {
    __android_log_print(ANDROID_LOG_ERROR, "VendorCamera", "%s%s", prefix, reason.c_str());
    kov::host::reportFailure(reason);
}

android::status_t refuse(const char* reason) {
    fail(reason);
    return android::INVALID_OPERATION;
}

}  // namespace kov::camera
