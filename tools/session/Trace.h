// A record of a session, one JSON object a line.
#pragma once

#include <kov/annotations.h>
#include <utils/threads.h>

#include <fstream>
#include <string>

#include "tools/session/TraceLines.h"

namespace kov::cam {

/// Writes what happens to a file, with the seconds since the trace began ("t", monotonic and in the order of the
/// lines). Besides the kinds of TraceLines there is "file". Any thread.
class Trace : public TraceLines {
public:
    /// Throws Error when the file cannot be written.
    explicit Trace(const std::string& path);
    ~Trace() override;

    /// Tells that a file with the data of a message of this type is there.
    void fileWritten(int32_t type, const std::string& path);
    /// Brings to the file what was written so far. Throws Error when that is not possible.
    void flush();

protected:
    void write(const char* kind, const nlohmann::ordered_json& what) override;

private:
    const std::string mPath;
    const int64_t mBegin;
    android::Mutex mLock;
    std::ofstream mFile GUARDED_BY(mLock);
};

}  // namespace kov::cam
