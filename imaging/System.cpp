// What the product asks of the system under it: time, sleep, memory and threads.

#include "imaging/System.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

namespace android::os {

nsecs_t now(int clock) {
    return systemTime(clock);
}

void sleepMicroseconds(int64_t duration) {
    usleep(static_cast<useconds_t>(duration));
}

void wait(Condition& condition, Mutex& held, int64_t microseconds) {
    condition.waitRelative(held, microseconds * 1000);
}

void* allocate(size_t size) {
    return std::malloc(size);
}

sp<MemoryHeapBase> newHeap(size_t size) {
    sp<MemoryHeapBase> heap = new MemoryHeapBase(size, 0, nullptr);
    if (size > 0 && (!heap->getBase() || heap->getSize() < size))
        return nullptr;
    return heap;
}

bool startThread(void* (*entry)(void*), void* argument) {
    pthread_t thread;
    if (pthread_create(&thread, nullptr, entry, argument) != 0)
        return false;
    pthread_detach(thread);
    return true;
}

bool startThread(android_thread_func_t entry, void* argument) {
    return androidCreateThread(entry, argument) != 0;
}

}  // namespace android::os
