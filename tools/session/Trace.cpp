// A record of a session, one JSON object a line.

#include "tools/session/Trace.h"

#include <utils/Timers.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "tools/session/Error.h"
#include "tools/session/Names.h"

namespace kov::cam {

using android::AutoMutex;
using Json = nlohmann::ordered_json;

Trace::Trace(const std::string& path) : mPath(path), mBegin(systemTime()), mFile(path) {
    if (!mFile)
        throw Error("the trace " + path + " cannot be written; name a file in a folder that exists");
}

Trace::~Trace() = default;

void Trace::write(const char* kind, const Json& what) {
    const AutoMutex held(mLock);
    mFile << traceLine(systemTime() - mBegin, kind, what) << '\n';
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

}  // namespace kov::cam
