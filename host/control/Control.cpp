// What a service on the host may ask of the host, and what the host tells it.

#include "host/control/Control.h"

#include <utils/threads.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <utility>

namespace kov::host {

namespace {

using android::AutoMutex;
using android::Mutex;

struct ControlState {
    Mutex lock;
    std::string source GUARDED_BY(lock);
    std::shared_ptr<const PushedFrame> pushed GUARDED_BY(lock);

    Mutex callLock;  // held while sinks are called
    std::map<int, CallSink> sinks GUARDED_BY(callLock);
    int nextSink GUARDED_BY(callLock) = 0;
    std::atomic<bool> hasSinks{false};
};

// Never destroyed: detached threads may use it until the process ends.
ControlState& state() {
    static ControlState* const instance = new ControlState;
    return *instance;
}

thread_local std::string failure;

}  // namespace

void chooseSource(const std::string& text) {
    const AutoMutex held(state().lock);
    state().source = text;
    state().pushed.reset();
}

std::string chosenSource() {
    {
        const AutoMutex held(state().lock);
        if (!state().source.empty())
            return state().source;
    }
    const char* const text = std::getenv("KOV_CAMERA_SOURCE");
    return text ? text : "";
}

void pushFrame(std::shared_ptr<const PushedFrame> frame) {
    const AutoMutex held(state().lock);
    state().pushed.swap(frame);
}

std::shared_ptr<const PushedFrame> pushedFrame() {
    const AutoMutex held(state().lock);
    return state().pushed;
}

void reportFailure(const std::string& reason) {
    failure = reason;
}

std::string takeFailure() {
    return std::exchange(failure, {});
}

int addCallSink(CallSink sink) {
    const AutoMutex held(state().callLock);
    state().sinks.emplace(state().nextSink, std::move(sink));
    state().hasSinks = true;
    return state().nextSink++;
}

void removeCallSink(int id) {
    const AutoMutex held(state().callLock);
    state().sinks.erase(id);
    state().hasSinks = !state().sinks.empty();
}

bool callsAreHeard() {
    return state().hasSinks.load(std::memory_order_relaxed);
}

void reportCall(const HostCall& call) {
    const AutoMutex held(state().callLock);
    for (const auto& [id, sink] : state().sinks)
        sink(call);
}

}  // namespace kov::host
