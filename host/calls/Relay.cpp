// Telling of calls on their way from the adaptor to a closed library.

#include "host/calls/Relay.h"

#include <dlfcn.h>
#include <utils/Timers.h>

namespace kov::host {

namespace {
thread_local int depth = 0;  // calls of closed libraries that this thread is in
}

void* findOriginal(const char* library, const char* function) {
    // Loaded already, with the adaptor; its handle looks there and not here.
    void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    return handle ? dlsym(handle, function) : nullptr;
}

CallUnderWay::CallUnderWay(const char* library, const char* name)
    : mLibrary(library), mName(name), mHeard(depth++ == 0 && callsAreHeard()), mBegin(mHeard ? systemTime() : 0) {}

CallUnderWay::~CallUnderWay() {
    --depth;
}

void CallUnderWay::add(std::string_view name, const std::string& value) {
    if (value.empty())
        return;
    if (!mArguments.empty())
        mArguments += ", ";
    mArguments += name;
    mArguments += '=';
    mArguments += value;
}

void CallUnderWay::tell(const std::string& result) {
    reportCall({mLibrary, mName, mArguments, result, systemTime() - mBegin});
}

std::string_view nextName(std::string_view* names) {
    const size_t end = names->find(',');
    const std::string_view name = names->substr(0, end);
    names->remove_prefix(end == std::string_view::npos ? names->size() : end + 1);
    return name;
}

}  // namespace kov::host
