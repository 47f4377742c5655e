// Saying what went wrong in the camera.
#pragma once

#include <utils/Errors.h>

#include <string>

namespace kov::camera {

/// Writes the reason as an error line of the camera (after `prefix`, where there is one) and tells it to the service,
/// which reads it when the operation under way on this thread has returned, or in the notification that follows.
void fail(const std::string& reason, const char* prefix = "");

/// `fail`, for an operation that is not possible now; returns INVALID_OPERATION.
android::status_t refuse(const char* reason);

}  // namespace kov::camera
