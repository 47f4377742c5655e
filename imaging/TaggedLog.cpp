// The platform's log under one tag.

#include "imaging/TaggedLog.h"

#include <android/log.h>

#include <cstdarg>

namespace android {

void TaggedLog::debug(const char* format, ...) const {
    va_list values;
    va_start(values, format);
    __android_log_vprint(ANDROID_LOG_DEBUG, mTag, format, values);
    va_end(values);
}

void TaggedLog::info(const char* format, ...) const {
    va_list values;
    va_start(values, format);
    __android_log_vprint(ANDROID_LOG_INFO, mTag, format, values);
    va_end(values);
}

void TaggedLog::warn(const char* format, ...) const {
    va_list values;
    va_start(values, format);
    __android_log_vprint(ANDROID_LOG_WARN, mTag, format, values);
    va_end(values);
}

void TaggedLog::error(const char* format, ...) const {
    va_list values;
    va_start(values, format);
    __android_log_vprint(ANDROID_LOG_ERROR, mTag, format, values);
    va_end(values);
}

}  // namespace android
