// A record of a session, one JSON object a line.
#pragma once

#include <fstream>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace kov::cam {

/// Writes what happens, with the seconds since the trace began ("t", monotonic and in the order of the lines). Objects
/// have a "kind": "call" and "command" before they are made, "result" after, "notify", "data", "log". Any thread. While
/// it lives it also records every line of the platform's log.
class Trace {
public:
    /// No file for an empty path. Throws Error when the file cannot be written.
    explicit Trace(const std::string& path);
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    void write(const char* kind, const nlohmann::ordered_json& what);
    /// Brings to the file what was written so far. Throws Error when that is not possible.
    void flush();

private:
    const std::string mPath;
    std::mutex mLock;  // guards the file
    std::ofstream mFile;
    const int64_t mBegin;
    int mLogSink = -1;
};

}  // namespace kov::cam
