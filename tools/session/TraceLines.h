// What happens in a session, as JSON objects.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "tools/session/Listener.h"

namespace kov::cam {

/// A listener that says everything as one JSON object each. Kinds: "call" and "command" before they are made, "result"
/// after, "inner" for a call of the adaptor into the vendor layer or a closed library (when it has returned), "notify",
/// "data", "log". Times are the business of whoever keeps the lines.
class TraceLines : public Listener {
public:
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

protected:
    /// Keeps one object. Any thread, also several at once.
    virtual void write(const char* kind, const nlohmann::ordered_json& what) = 0;
};

/// An object as one line, without a line end, whatever bytes its texts have.
std::string traceLine(int64_t nanoseconds, const char* kind, const nlohmann::ordered_json& what);

}  // namespace kov::cam
