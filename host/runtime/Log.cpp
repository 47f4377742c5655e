// The log: lines go to standard error from a level on, and to every sink.

#include "Log.h"

#include <android/log.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utils/threads.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace kov::host {

namespace {

constexpr std::array<std::string_view, 9> kLevelNames = {"unknown", "default", "verbose", "debug", "info",
                                                         "warn",    "error",   "fatal",   "silent"};
constexpr std::string_view kLevelLetters = "??VDIWEFS";

struct LogState {
    android::Mutex lock;
    std::map<int, LogSink> sinks GUARDED_BY(lock);
    int nextSink GUARDED_BY(lock) = 0;
    std::atomic<bool> hasSinks{false};
    std::atomic<int> level;

    LogState() {
        const char* name = std::getenv("KOV_LOG");
        const int named = name ? logLevelFromName(name) : -1;
        level = named < 0 ? ANDROID_LOG_WARN : named;
    }
};

// Never destroyed: detached threads may log until the process ends.
LogState& state() {
    static LogState* const instance = new LogState;
    return *instance;
}

void writeToStandardError(const LogLine& line) {
    const char letter = kLevelLetters[static_cast<size_t>(line.priority) % kLevelLetters.size()];
    std::string_view text = line.message;
    while (!text.empty() && text.back() == '\n')
        text.remove_suffix(1);
    std::fprintf(stderr, "%5lld.%03lld %d %ld %c %.*s: %.*s\n", static_cast<long long>(line.timeNs / 1000000000),
                 static_cast<long long>(line.timeNs / 1000000 % 1000), getpid(), syscall(SYS_gettid), letter,
                 static_cast<int>(line.tag.size()), line.tag.data(), static_cast<int>(text.size()), text.data());
}

}  // namespace

int addLogSink(LogSink sink) {
    LogState& log = state();
    const android::AutoMutex held(log.lock);
    log.sinks.emplace(log.nextSink, std::move(sink));
    log.hasSinks = true;
    return log.nextSink++;
}

void removeLogSink(int id) {
    LogState& log = state();
    const android::AutoMutex held(log.lock);
    log.sinks.erase(id);
    log.hasSinks = !log.sinks.empty();
}

void setLogLevel(int priority) {
    state().level = priority;
}

int logLevelFromName(std::string_view name) {
    for (size_t i = ANDROID_LOG_VERBOSE; i < kLevelNames.size(); ++i) {
        if (kLevelNames[i] == name)
            return static_cast<int>(i);
    }
    return -1;
}

}  // namespace kov::host

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list values) {
    using namespace kov::host;
    LogState& log = state();
    const bool shown = prio >= log.level.load(std::memory_order_relaxed);
    if (!shown && !log.hasSinks.load(std::memory_order_relaxed))
        return 0;

    char text[1024];
    const int length = std::vsnprintf(text, sizeof text, fmt, values);
    if (length < 0)
        return length;

    const LogLine line{systemTime(), prio, tag,
                       std::string_view(text, std::min(static_cast<size_t>(length), sizeof text - 1))};
    const android::AutoMutex held(log.lock);
    if (shown)
        writeToStandardError(line);
    for (const auto& [id, sink] : log.sinks)
        sink(line);
    return length;
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list values;
    va_start(values, fmt);
    const int result = __android_log_vprint(prio, tag, fmt, values);
    va_end(values);
    return result;
}
