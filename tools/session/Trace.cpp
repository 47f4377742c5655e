// A record of a session, one JSON object a line.

#include "tools/session/Trace.h"

#include <utils/Timers.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tools/session/Error.h"
#include "tools/session/Names.h"

namespace kov::cam {

using android::AutoMutex;
using Json = nlohmann::ordered_json;

namespace {

double seconds(int64_t nanoseconds) {
    return std::round(static_cast<double>(nanoseconds) / 1e3) / 1e6;
}

Json data(int32_t type, size_t size) {
    return {{"type", hex(type)}, {"name", messageName(type)}, {"size", size}};
}

}  // namespace

Trace::Trace(const std::string& path) : mPath(path), mBegin(systemTime()), mFile(path) {
    if (!mFile)
        throw Error("the trace " + path + " cannot be written; name a file in a folder that exists");
}

Trace::~Trace() = default;

void Trace::write(const char* kind, const Json& what) {
    const AutoMutex held(mLock);
    Json line = {{"t", seconds(systemTime() - mBegin)}, {"kind", kind}};
    line.update(what);
    mFile << line.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

void Trace::flush() {
    const AutoMutex held(mLock);
    if (!mFile.flush())
        throw Error("the trace " + mPath + " cannot be written; is the disk full?");
}

void Trace::fileWritten(int32_t type, const std::string& path) {
    write(
        "file",
        {{"type", hex(type)}, {"name", messageName(type)}, {"file", std::filesystem::path(path).filename().string()}});
}

void Trace::onNotify(const Notification& notification) {
    Json what = {{"type", hex(notification.type)},
                 {"name", messageName(notification.type)},
                 {"ext1", notification.ext1},
                 {"ext2", notification.ext2}};
    if (!notification.reason.empty())
        what["reason"] = notification.reason;
    write("notify", what);
}

void Trace::onFrame(const Frame& frame) {
    write("data", data(frame.type, frame.size));
}

void Trace::onPicture(const Picture& picture) {
    write("data", data(android::CAMERA_MSG_COMPRESSED_IMAGE, picture.size));
}

void Trace::onRawPicture(const Frame& frame) {
    onFrame(frame);
}

void Trace::onRecordingFrame(const Frame& frame) {
    Json what = data(frame.type, frame.size);
    what["time"] = frame.timestampNs;
    write("data", what);
}

void Trace::onData(const Data& message) {
    write("data", data(message.type, message.size));
}

void Trace::onLog(const LogLine& line) {
    write("log", {{"priority", std::string(1, line.priority)}, {"tag", line.tag}, {"text", line.text}});
}

void Trace::onCall(const Call& call) {
    Json what = {{"name", call.name}};
    if (!call.text.empty())
        what["text"] = call.text;
    write("call", what);
}

void Trace::onCommand(const Command& command) {
    write(
        "command",
        {{"code", command.code}, {"name", commandName(command.code)}, {"arg1", command.arg1}, {"arg2", command.arg2}});
}

void Trace::onResult(const Result& result) {
    Json what = {{"name", result.name}};
    if (result.hasStatus)
        what["status"] = result.status;
    if (!result.reason.empty())
        what["reason"] = result.reason;
    write("result", what);
}

void Trace::onInnerCall(const InnerCall& call) {
    Json what = {{"library", call.library}, {"name", call.name}};
    if (!call.arguments.empty())
        what["arguments"] = call.arguments;
    if (!call.result.empty())
        what["result"] = call.result;
    what["took"] = seconds(call.durationNs);
    write("inner", what);
}

}  // namespace kov::cam
