// The platform's clock.
#pragma once

#include <cstdint>

typedef int64_t nsecs_t;

enum { SYSTEM_TIME_REALTIME = 0, SYSTEM_TIME_MONOTONIC = 1 };

/// Nanoseconds of the given clock.
nsecs_t systemTime(int clock = SYSTEM_TIME_MONOTONIC);
