// Mutex, condition and thread creation of the platform. The annotations let clang check who holds what.
#pragma once

#include <pthread.h>
#include <utils/Errors.h>
#include <utils/Timers.h>

#if defined(__clang__)
#define KOV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KOV_THREAD_ANNOTATION(x)
#endif
#define CAPABILITY(x) KOV_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY KOV_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) KOV_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) KOV_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) KOV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) KOV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KOV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) KOV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RETURN_CAPABILITY(x) KOV_THREAD_ANNOTATION(lock_returned(x))
#define EXCLUDES(...) KOV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS KOV_THREAD_ANNOTATION(no_thread_safety_analysis)

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
