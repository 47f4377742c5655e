// The system under the product as a test wants it: its time, its memory, its threads.

#include "tests/support/FakeSystem.h"

#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/Region.h"

using kov::test::fakeSystem;

kov::test::FakeSystem& kov::test::fakeSystem() {
    static FakeSystem* const fake = new FakeSystem;  // a thread of the product may outlive static objects
    return *fake;
}

void kov::test::resetFakeSystem() {
    fakeSystem() = FakeSystem();
}

size_t kov::test::memoryInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

namespace android::os {

nsecs_t now(int clock) {
    return fakeSystem().now ? fakeSystem().now(clock) : systemTime(clock);
}

void sleepMicroseconds(int64_t duration) {
    if (fakeSystem().sleep)
        fakeSystem().sleep(duration);
    else
        usleep(static_cast<useconds_t>(duration));
}

void wait(Condition& condition, Mutex& held, int64_t microseconds) {
    if (fakeSystem().wait)
        fakeSystem().wait(condition, held, microseconds);
    else
        condition.waitRelative(held, microseconds * 1000);
}

void* allocate(size_t size) {
    if (fakeSystem().allowsMemory && !fakeSystem().allowsMemory(size))
        return nullptr;
    return std::malloc(size);
}

sp<MemoryHeapBase> newHeap(size_t size) {
    if (size > 0 && fakeSystem().allowsHeap && !fakeSystem().allowsHeap(size))
        return nullptr;
    return new kov::test::PlainHeap(size);
}

bool startThread(void* (*entry)(void*), void* argument) {
    if (fakeSystem().startThread)
        return fakeSystem().startThread([=] { entry(argument); });
    pthread_t thread;
    return pthread_create(&thread, nullptr, entry, argument) == 0 && pthread_detach(thread) == 0;
}

bool startThread(android_thread_func_t entry, void* argument) {
    if (fakeSystem().startThread)
        return fakeSystem().startThread([=] { entry(argument); });
    return androidCreateThread(entry, argument) != 0;
}

}  // namespace android::os
