// The system under the product, which the other unit tests replace: its source under a name of its own.

#define os real
#include "imaging/System.cpp"
#undef os

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "tests/support/WaitingThread.h"

using namespace android;

namespace {

TEST(SystemTest, TimePasses) {
    const nsecs_t begin = systemTime(SYSTEM_TIME_MONOTONIC);
    real::sleepMicroseconds(2000);
    const nsecs_t slept = real::now(SYSTEM_TIME_MONOTONIC);
    Mutex lock;
    Condition never;
    const AutoMutex held(lock);
    real::wait(never, lock, 2000);
    EXPECT_GE(slept - begin, 2000000);
    EXPECT_GE(real::now(SYSTEM_TIME_MONOTONIC) - slept, 2000000);
    const nsecs_t apart = real::now(SYSTEM_TIME_REALTIME) - systemTime(SYSTEM_TIME_REALTIME);
    EXPECT_LE(std::abs(apart), 60000000000) << "another clock";
}

TEST(SystemTest, MemoryIsThereInFullOrNotAtAll) {
    const auto block = static_cast<char*>(real::allocate(100));
    ASSERT_TRUE(block);
    std::memset(block, 1, 100);
    std::free(block);
    for (const size_t size : {size_t{0}, size_t{5000}}) {
        const sp<MemoryHeapBase> heap = real::newHeap(size);
        ASSERT_TRUE(heap.get()) << size;
        EXPECT_EQ(heap->getSize(), size);
    }
    EXPECT_FALSE(real::newHeap(SIZE_MAX).get());
}

std::atomic<int> gRun{0};

TEST(SystemTest, ThreadsRun) {
    void* (*const entry)(void*) = [](void* argument) {
        gRun += *static_cast<int*>(argument);
        return argument;
    };
    const android_thread_func_t other = [](void* argument) { return gRun += *static_cast<int*>(argument); };
    int one = 1, two = 2;
    gRun = 0;
    EXPECT_TRUE(real::startThread(entry, &one));
    EXPECT_TRUE(real::startThread(other, &two));
    EXPECT_TRUE(kov::test::waitUntil([] { return gRun == 3; }));
}

}  // namespace
