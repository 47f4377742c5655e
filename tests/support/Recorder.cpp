// A record, as lines of text, of everything that crosses a boundary during a test.

#include "tests/support/Recorder.h"

#include <android/log.h>
#include <unistd.h>
#include <utils/threads.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "host/runtime/Log.h"

namespace kov::test {

namespace {

android::Mutex gLock;
bool gRecording GUARDED_BY(gLock) = false;
Lines gLines GUARDED_BY(gLock);

void recordLogLine(const kov::host::LogLine& line) {
    std::string message(line.message);
    const std::string pid = "pid=" + std::to_string(getpid());
    if (const size_t at = message.find(pid); at != std::string::npos)
        message.replace(at, pid.size(), "pid=PID");
    if (!message.empty() && message.back() == '\n')
        message.replace(message.size() - 1, 1, "\\n");
    record(std::string(1, "??VDIWEFS"[line.priority]) + " " + std::string(line.tag) + ": " + message);
}

}  // namespace

Lines only(Lines lines, std::initializer_list<const char*> prefixes) {
    std::erase_if(lines, [&](const std::string& line) {
        return std::none_of(prefixes.begin(), prefixes.end(), [&](auto prefix) { return line.starts_with(prefix); });
    });
    return lines;
}

Lines without(Lines lines, std::initializer_list<const char*> parts) {
    for (const char* part : parts)
        std::erase_if(lines, [&](const std::string& line) { return line.find(part) != std::string::npos; });
    return lines;
}

std::string text(const char* format, ...) {
    char buffer[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    return buffer;
}

Recorder::Recorder() : mLogSink(kov::host::addLogSink(recordLogLine)) {
    if (!std::getenv("KOV_LOG"))
        kov::host::setLogLevel(ANDROID_LOG_SILENT);  // the tests provoke failures; their lines are in the record
    const android::AutoMutex held(gLock);
    gRecording = true;
    gLines.clear();
}

Recorder::~Recorder() {
    kov::host::removeLogSink(mLogSink);
    const android::AutoMutex held(gLock);
    gRecording = false;
}

Lines Recorder::take() {
    const android::AutoMutex held(gLock);
    return std::exchange(gLines, {});
}

Lines Recorder::take(const std::string& prefix) {
    return only(take(), {prefix.c_str()});
}

void record(std::string line) {
    const android::AutoMutex held(gLock);
    if (gRecording)
        gLines.push_back(std::move(line));
}

}  // namespace kov::test
