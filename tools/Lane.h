// A thread that does one thing after another.
#pragma once

#include <utils/threads.h>

#include <deque>
#include <functional>
#include <future>
#include <thread>
#include <utility>

namespace kov {

class Lane {
public:
    /// `most`: how much may wait for `offer` to take more.
    explicit Lane(size_t most = 0) : mMost(most), mThread([this] { run(); }) {}
    /// What waits is dropped; what is being done is waited for.
    ~Lane() {
        {
            const android::AutoMutex held(mLock);
            mStop = true;
        }
        mChanged.broadcast();
        mThread.join();
    }
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    /// For work of our own, of which there is little. Any thread. The work must not throw.
    void add(std::function<void()> work) {
        const android::AutoMutex held(mLock);
        mWork.push_back(std::move(work));
        mChanged.signal();
    }
    /// The same for work that others ask for: false when too much waits already, and it is not done then.
    bool offer(std::function<void()> work) {
        const android::AutoMutex held(mLock);
        if (mWork.size() >= mMost)
            return false;
        mWork.push_back(std::move(work));
        mChanged.signal();
        return true;
    }

    /// Waits until what was added before is done. Not from within work.
    void drain() {
        std::promise<void> done;
        add([&done] { done.set_value(); });
        done.get_future().wait();
    }

private:
    void run() {
        for (;;) {
            std::function<void()> work;
            {
                const android::AutoMutex held(mLock);
                while (mWork.empty() && !mStop)
                    mChanged.wait(mLock);
                if (mStop)
                    return;
                work = std::move(mWork.front());
                mWork.pop_front();
            }
            work();
        }
    }

    const size_t mMost;
    android::Mutex mLock;
    android::Condition mChanged;
    std::deque<std::function<void()>> mWork GUARDED_BY(mLock);
    bool mStop GUARDED_BY(mLock) = false;
    std::thread mThread;
};

}  // namespace kov
