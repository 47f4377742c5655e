// The host's side of the platform log: where lines go and which.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace kov::host {

/// One line of the log. `message` is the formatted text as it was written, without an added newline.
struct LogLine {
    int64_t timeNs;  // monotonic
    int priority;    // android_LogPriority
    std::string_view tag;
    std::string_view message;
};

/// Called for every line on the thread that writes it; calls never overlap. Must not log.
using LogSink = std::function<void(const LogLine&)>;

/// Adds a sink that sees every line, whatever its priority; returns a number for `removeLogSink`. Any thread.
int addLogSink(LogSink sink);
/// After this returns the sink is not called any more. Any thread, but not from within a sink.
void removeLogSink(int id);

/// The lowest priority that is written to standard error; ANDROID_LOG_SILENT writes none. The start value comes from
/// the environment's KOV_LOG (verbose, debug, info, warn, error, silent), else warn.
void setLogLevel(int priority);
/// The priority of a level's name, or -1 for an unknown name.
int logLevelFromName(std::string_view name);

}  // namespace kov::host
