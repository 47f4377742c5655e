// The time that kovcam measures and waits by.
#pragma once

#include <utils/Timers.h>

namespace kov::cam {

/// Seconds, monotonic.
inline double now() {
    return static_cast<double>(systemTime()) / 1e9;
}

}  // namespace kov::cam
