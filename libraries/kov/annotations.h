// Annotations that let clang check who holds which lock. With a platform whose mutex is not annotated they say it to
// readers only.
#pragma once

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
