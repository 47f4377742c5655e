// What happens in a session, as JSON objects.

#include "tools/session/TraceLines.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/session/Names.h"

namespace kov::cam {

using Json = nlohmann::ordered_json;

namespace {

double seconds(int64_t nanoseconds) {
    return std::round(static_cast<double>(nanoseconds) / 1e3) / 1e6;
}

Json data(int32_t type, size_t size) {
    return {{"type", hex(type)}, {"name", messageName(type)}, {"size", size}};
}

}  // namespace

std::string traceLine(int64_t nanoseconds, const char* kind, const Json& what) {
    Json line = {{"t", seconds(nanoseconds)}, {"kind", kind}};
    line.update(what);
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void TraceLines::onNotify(const Notification& notification) {
    Json what = {{"type", hex(notification.type)},
                 {"name", messageName(notification.type)},
                 {"ext1", notification.ext1},
                 {"ext2", notification.ext2}};
    if (!notification.reason.empty())
        what["reason"] = notification.reason;
    write("notify", what);
}

void TraceLines::onFrame(const Frame& frame) {
    write("data", data(frame.type, frame.size));
}

void TraceLines::onPicture(const Picture& picture) {
    write("data", data(android::CAMERA_MSG_COMPRESSED_IMAGE, picture.size));
}

void TraceLines::onRawPicture(const Frame& frame) {
    onFrame(frame);
}

void TraceLines::onRecordingFrame(const Frame& frame) {
    Json what = data(frame.type, frame.size);
    what["time"] = frame.timestampNs;
    write("data", what);
}

void TraceLines::onData(const Data& message) {
    write("data", data(message.type, message.size));
}

void TraceLines::onLog(const LogLine& line) {
    write("log", {{"priority", std::string(1, line.priority)}, {"tag", line.tag}, {"text", line.text}});
}

void TraceLines::onCall(const Call& call) {
    Json what = {{"name", call.name}};
    if (!call.text.empty())
        what["text"] = call.text;
    write("call", what);
}

void TraceLines::onCommand(const Command& command) {
    write(
        "command",
        {{"code", command.code}, {"name", commandName(command.code)}, {"arg1", command.arg1}, {"arg2", command.arg2}});
}

void TraceLines::onResult(const Result& result) {
    Json what = {{"name", result.name}};
    if (result.hasStatus)
        what["status"] = result.status;
    if (!result.reason.empty())
        what["reason"] = result.reason;
    write("result", what);
}

void TraceLines::onInnerCall(const InnerCall& call) {
    Json what = {{"library", call.library}, {"name", call.name}};
    if (!call.arguments.empty())
        what["arguments"] = call.arguments;
    if (!call.result.empty())
        what["result"] = call.result;
    what["took"] = seconds(call.durationNs);
    write("inner", what);
}

}  // namespace kov::cam
