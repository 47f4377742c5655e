// Status results of the platform.
#pragma once

#include <cstdint>

namespace android {

/// Result of an operation: 0 is success, a negative number tells what went wrong.
typedef int32_t status_t;

enum : status_t {
    NO_ERROR = 0,
    OK = 0,
    UNKNOWN_ERROR = INT32_MIN,
    BAD_VALUE = -22,
    INVALID_OPERATION = -38,
};

}  // namespace android
