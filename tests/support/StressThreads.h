// Threads that do the same at random, again and again, until the test ends.
#pragma once

#include <atomic>
#include <mutex>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace kov::test {

/// The threads of a stress test, and the lock of the service that they play, which takes it in its callbacks too.
struct StressThreads {
    std::recursive_mutex lock;
    std::atomic<bool> stop{false};
    std::atomic<int> running{0};  // threads that have not ended
    std::vector<std::thread> threads;

    /// Calls `round` until `stop`, with random numbers of the thread's own.
    template <typename Round>
    void start(Round round) {
        stop = false;
        ++running;
        threads.emplace_back([this, round, random = std::minstd_rand(threads.size() + 1)]() mutable {
            while (!stop)
                round(random);
            --running;
        });
    }
    /// Calls `call`, every other time under the lock.
    template <typename Call>
    void lockedOrNot(std::minstd_rand& random, Call call) {
        std::unique_lock held(lock, std::defer_lock);
        if (random() % 2)
            held.lock();
        call();
    }
    void join() {
        stop = true;
        for (std::thread& thread : threads)
            thread.join();
        threads.clear();
    }
};

}  // namespace kov::test
