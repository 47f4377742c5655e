// A record of a session, one JSON object a line.

#include "tools/kovcam/Trace.h"

#include <utils/Timers.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "host/runtime/Log.h"
#include "tools/kovcam/Error.h"

namespace kov::cam {

using Json = nlohmann::ordered_json;

Trace::Trace(const std::string& path) : mPath(path), mBegin(systemTime()) {
    if (path.empty())
        return;
    mFile.open(path);
    if (!mFile)
        throw Error("the trace " + path + " cannot be written; name a file in a folder that exists");
    mLogSink = kov::host::addLogSink([this](const kov::host::LogLine& line) {
        write("log", {{"priority", std::string(1, "??VDIWEFS"[line.priority])},
                      {"tag", std::string(line.tag)},
                      {"text", std::string(line.message)}});
    });
}

Trace::~Trace() {
    if (mLogSink >= 0)
        kov::host::removeLogSink(mLogSink);
}

void Trace::write(const char* kind, const Json& what) {
    if (!mFile.is_open())
        return;
    const std::lock_guard held(mLock);
    const double seconds = static_cast<double>(systemTime() - mBegin) / 1e9;
    Json line = {{"t", std::round(seconds * 1e6) / 1e6}, {"kind", kind}};
    line.update(what);
    mFile << line.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
}

void Trace::flush() {
    const std::lock_guard held(mLock);
    if (mFile.is_open() && !mFile.flush())
        throw Error("the trace " + mPath + " cannot be written; is the disk full?");
}

}  // namespace kov::cam
