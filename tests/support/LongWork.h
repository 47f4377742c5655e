// Long work of a shot, and what ends it from another thread.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "tests/support/WaitingThread.h"

namespace kov::test {

/// Work in steps, on a thread of the vendor layer, that would never end by itself.
class LongWork {
public:
    /// To be called in each step. The third one lasts until the other thread sleeps, as it does when it has met a lock
    /// or waits for the work.
    void step() {
        if (++mSteps != 3)
            return;
        mOther.wait(0);
        waitUntilItWaits(mOther);
    }
    /// Runs `work`, and on another thread `prepare` and `end`. How many steps came once `end` was waiting.
    int stepsAfter(const std::function<void()>& work, const std::function<void()>& prepare,
                   const std::function<void()>& end) {
        std::thread worker(work);
        while (mSteps < 3)
            std::this_thread::yield();
        std::thread([&] {
            prepare();
            mOther = gettid();
            mOther.notify_one();
            end();
        }).join();
        worker.join();
        return mSteps - 3;
    }

private:
    std::atomic<int> mSteps{0};
    std::atomic<pid_t> mOther{0};
};

}  // namespace kov::test
