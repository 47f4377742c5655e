// Time as the continuous shot sees it, so that a test can run a burst without waiting.
#pragma once

#include <utils/threads.h>

#include <cstdint>

namespace android {

/// The real clock unless a test has put another in its place. Any thread.
class ContinuousClock {
public:
    virtual ~ContinuousClock() = default;

    /// Nanoseconds, monotonic.
    virtual nsecs_t now() = 0;
    /// Sleeps on the calling thread.
    virtual void sleepMicroseconds(int64_t duration) = 0;
    /// Waits for a signal, at most for `duration`. May end earlier.
    virtual void wait(Condition& condition, Mutex& held, int64_t microseconds) REQUIRES(held) = 0;

    static ContinuousClock& get();
    /// Null puts the real clock back. Not while a burst runs.
    static void replace(ContinuousClock* clock);
};

}  // namespace android
