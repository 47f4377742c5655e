// What the product asks of the system under it: time, sleep, memory and threads. Each is one function, so that a test
// can link another in its place and run a burst without waiting, or run short of memory.
#pragma once

#include <binder/MemoryHeapBase.h>
#include <utils/threads.h>

#include <cstddef>
#include <cstdint>

namespace android::os {

/// Nanoseconds of SYSTEM_TIME_REALTIME (since the epoch) or SYSTEM_TIME_MONOTONIC. Any thread.
nsecs_t now(int clock);
/// Milliseconds of the wall clock, in 32 bits: they wrap round every 50 days.
inline uint32_t nowMilliseconds() {
    return static_cast<uint32_t>(now(SYSTEM_TIME_REALTIME) / 1000000);
}

/// Sleeps on the calling thread.
void sleepMicroseconds(int64_t duration);
/// Waits for a signal, at most for `microseconds`. May end earlier.
void wait(Condition& condition, Mutex& held, int64_t microseconds) REQUIRES(held);

/// Working memory of the C heap, given back with `free`; null when there is none.
void* allocate(size_t size);
/// A heap of shared memory of `size` bytes, zeroed (one without a base for 0 bytes); empty when there is none.
sp<MemoryHeapBase> newHeap(size_t size);

/// Start a detached thread that runs `entry(argument)`. False when it could not be started.
bool startThread(void* (*entry)(void*), void* argument);
bool startThread(android_thread_func_t entry, void* argument);

}  // namespace android::os
