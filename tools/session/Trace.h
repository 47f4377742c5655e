// A record of a session, one JSON object a line.
#pragma once

#include <kov/annotations.h>
#include <utils/threads.h>

#include <fstream>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tools/session/Listener.h"

namespace kov::cam {

/// A listener that writes what happens, with the seconds since the trace began ("t", monotonic and in the order of the
/// lines). Objects have a "kind": "call" and "command" before they are made, "result" after, "inner" for a call of the
/// adaptor into the vendor layer or a closed library (when it has returned), "notify", "data", "log", "file".
/// Any thread.
class Trace : public Listener {
public:
    /// Throws Error when the file cannot be written.
    explicit Trace(const std::string& path);
    ~Trace() override;

    /// Tells that a file with the data of a message of this type is there.
    void fileWritten(int32_t type, const std::string& path);
    /// Brings to the file what was written so far. Throws Error when that is not possible.
    void flush();

    void onNotify(const Notification& notification) override;
    void onFrame(const Frame& frame) override;
    void onPicture(const Picture& picture) override;
    void onRawPicture(const Frame& frame) override;
    void onRecordingFrame(const Frame& frame) override;
    void onData(const Data& data) override;
    void onLog(const LogLine& line) override;
    void onCall(const Call& call) override;
    void onCommand(const Command& command) override;
    void onResult(const Result& result) override;
    void onInnerCall(const InnerCall& call) override;

private:
    void write(const char* kind, const nlohmann::ordered_json& what);

    const std::string mPath;
    const int64_t mBegin;
    android::Mutex mLock;
    std::ofstream mFile GUARDED_BY(mLock);
};

}  // namespace kov::cam
