// Threads and the clock.

#include <utils/threads.h>

#include <ctime>
#include <memory>

nsecs_t systemTime(int clock) {
    timespec now;
    clock_gettime(clock == SYSTEM_TIME_REALTIME ? CLOCK_REALTIME : CLOCK_MONOTONIC, &now);
    return static_cast<nsecs_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

namespace android {

namespace {

struct ThreadStart {
    android_thread_func_t entry;
    void* userData;
};

void* runThread(void* argument) {
    const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(argument));
    start->entry(start->userData);
    return nullptr;
}

}  // namespace

int androidCreateThread(android_thread_func_t entry, void* userData) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    auto start = std::make_unique<ThreadStart>(ThreadStart{entry, userData});
    pthread_t thread;
    const int result = pthread_create(&thread, &attr, runThread, start.get());
    pthread_attr_destroy(&attr);
    if (result != 0)
        return 0;
    (void)start.release();  // the thread's now
    return 1;
}

}  // namespace android
