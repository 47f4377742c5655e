// Mutex, condition and thread creation of the platform.
#pragma once

#include <kov/annotations.h>
#include <pthread.h>
#include <utils/Errors.h>
#include <utils/Timers.h>

namespace android {

typedef int (*android_thread_func_t)(void*);

/// Starts a detached thread that runs `entry(userData)`. Returns 1 when it was created and 0 when not.
int androidCreateThread(android_thread_func_t entry, void* userData);

class Condition;

/// POSIX mutex with default attributes.
class CAPABILITY("mutex") Mutex {
public:
    Mutex() { pthread_mutex_init(&mMutex, nullptr); }
    ~Mutex() { pthread_mutex_destroy(&mMutex); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    status_t lock() ACQUIRE() { return -pthread_mutex_lock(&mMutex); }
    void unlock() RELEASE() { pthread_mutex_unlock(&mMutex); }
    /// 0 when the lock was taken.
    status_t tryLock() TRY_ACQUIRE(0) { return -pthread_mutex_trylock(&mMutex); }

    /// Holds a mutex for the length of a block.
    class SCOPED_CAPABILITY Autolock {
    public:
        explicit Autolock(Mutex& mutex) ACQUIRE(mutex) : mLock(mutex) { mLock.lock(); }
        ~Autolock() RELEASE() { mLock.unlock(); }
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;

    private:
        Mutex& mLock;
    };

private:
    friend class Condition;
    pthread_mutex_t mMutex;
};

typedef Mutex::Autolock AutoMutex;

/// POSIX condition variable over a Mutex that the caller holds. Waits may end without a signal.
class Condition {
public:
    Condition() {
        pthread_condattr_t attr;
        pthread_condattr_init(&attr);
        pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
        pthread_cond_init(&mCond, &attr);
        pthread_condattr_destroy(&attr);
    }
    ~Condition() { pthread_cond_destroy(&mCond); }
    Condition(const Condition&) = delete;
    Condition& operator=(const Condition&) = delete;

    status_t wait(Mutex& mutex) REQUIRES(mutex) { return -pthread_cond_wait(&mCond, &mutex.mMutex); }
    /// Waits at most `relative` nanoseconds; 0 when it was woken.
    status_t waitRelative(Mutex& mutex, nsecs_t relative) REQUIRES(mutex) {
        const nsecs_t until = systemTime(SYSTEM_TIME_MONOTONIC) + relative;
        timespec deadline;
        deadline.tv_sec = static_cast<time_t>(until / 1000000000);
        deadline.tv_nsec = static_cast<long>(until % 1000000000);
        return -pthread_cond_timedwait(&mCond, &mutex.mMutex, &deadline);
    }
    void signal() { pthread_cond_signal(&mCond); }
    void broadcast() { pthread_cond_broadcast(&mCond); }

private:
    pthread_cond_t mCond;
};

}  // namespace android
