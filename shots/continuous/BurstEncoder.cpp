// What a burst's encoder thread and its shot share, and what outlives either of them.

#include "shots/continuous/BurstEncoder.h"

#include "shots/continuous/ContinuousClock.h"

namespace android {

void BurstEncoder::stop() {
    const AutoMutex held(mLock);
    mStopped = true;
    mChanged.broadcast();
}

bool BurstEncoder::stopped() const {
    const AutoMutex held(mLock);
    return mStopped;
}

void BurstEncoder::pause(int64_t microseconds) {
    ContinuousClock& clock = ContinuousClock::get();
    const nsecs_t end = clock.now() + microseconds * 1000;
    const AutoMutex held(mLock);
    for (nsecs_t rest = microseconds; !mStopped && rest > 0; rest = (end - clock.now()) / 1000)
        clock.wait(mChanged, mLock, rest);
}

void BurstEncoder::begin() {
    if (mBefore.get())
        mBefore->waitUntilEnded();
    mBefore.clear();
}

void BurstEncoder::end() {
    const AutoMutex held(mLock);
    mEnded = true;
    mChanged.broadcast();
}

void BurstEncoder::waitUntilEnded() {
    const AutoMutex held(mLock);
    while (!mEnded)
        mChanged.wait(mLock);
}

}  // namespace android
