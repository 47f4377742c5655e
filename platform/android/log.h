/* The platform log. */
#pragma once

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

/* Writes one line. Any thread. Returns the number of bytes written or a negative error. */
int __android_log_print(int prio, const char* tag, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

/* The same with the values as a list. */
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list values)
    __attribute__((format(printf, 3, 0)));

#ifdef __cplusplus
}
#endif
