// Time as the continuous shot sees it, so that a test can run a burst without waiting.

#include "shots/continuous/ContinuousClock.h"

#include <unistd.h>

#include <atomic>

namespace android {

namespace {

class RealClock : public ContinuousClock {
public:
    nsecs_t now() override { return systemTime(SYSTEM_TIME_MONOTONIC); }
    void sleepMicroseconds(int64_t duration) override { usleep(static_cast<useconds_t>(duration)); }
    void wait(Condition& condition, Mutex& held, int64_t microseconds) override REQUIRES(held) {
        condition.waitRelative(held, microseconds * 1000);
    }
};

std::atomic<ContinuousClock*> gReplacement{nullptr};

}  // namespace

ContinuousClock& ContinuousClock::get() {
    static RealClock* const real = new RealClock;  // an encoder thread may outlive static objects
    ContinuousClock* const replacement = gReplacement;
    return replacement ? *replacement : *real;
}

void ContinuousClock::replace(ContinuousClock* clock) {
    gReplacement = clock;
}

}  // namespace android
