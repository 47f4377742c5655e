// The system under the product as a test wants it: its time, its memory, its threads.
#pragma once

#include <functional>

#include "imaging/System.h"

namespace kov::test {

/// What the product's system functions do; the real thing where a function is empty. Set it while no thread of the
/// product runs, and reset it at the end of a test.
struct FakeSystem {
    std::function<nsecs_t(int clock)> now;
    std::function<void(int64_t microseconds)> sleep;
    std::function<void(android::Condition& condition, android::Mutex& held, int64_t microseconds)> wait;
    std::function<bool(size_t size)> allowsMemory;  // of the C heap
    std::function<bool(size_t size)> allowsHeap;    // of shared memory
    /// Gets what the thread would run, and may keep it for later; false when no thread could be started.
    std::function<bool(std::function<void()> thread)> startThread;
};

FakeSystem& fakeSystem();
void resetFakeSystem();

/// Bytes of C memory that are not given back; 0 where a sanitizer counts them.
size_t memoryInUse();

}  // namespace kov::test
