// A lock for long work in steps.
#pragma once

#include <utils/threads.h>

namespace android {

/// A lock that goes to whoever waits for it before it comes back to whoever just had it. Long work that gives it up
/// between two steps so lets everybody else in after one step, also on busy cores, where a mutex would go back to the
/// working thread again and again.
class CAPABILITY("mutex") TurnLock {
public:
    void lock() ACQUIRE() NO_THREAD_SAFETY_ANALYSIS {
        const AutoMutex turn(mTurn);
        mHeld.lock();
    }
    void unlock() RELEASE() NO_THREAD_SAFETY_ANALYSIS { mHeld.unlock(); }

private:
    Mutex mTurn;  // held by the thread that is next
    Mutex mHeld;
};

/// Holds a TurnLock for the length of a block.
class SCOPED_CAPABILITY AutoTurn {
public:
    explicit AutoTurn(TurnLock& lock) ACQUIRE(lock) : mLock(lock) { mLock.lock(); }
    ~AutoTurn() RELEASE() { mLock.unlock(); }
    AutoTurn(const AutoTurn&) = delete;
    AutoTurn& operator=(const AutoTurn&) = delete;

private:
    TurnLock& mLock;
};

}  // namespace android
