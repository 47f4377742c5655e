// The platform's log under one tag.
#pragma once

namespace android {

/// Writes lines with the tag of one class. Any thread.
class TaggedLog {
public:
    explicit constexpr TaggedLog(const char* tag) : mTag(tag) {}

    void debug(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void info(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void warn(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void error(const char* format, ...) const __attribute__((format(printf, 2, 3)));

private:
    const char* const mTag;
};

}  // namespace android
