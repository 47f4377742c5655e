// SIGINT, SIGTERM and SIGHUP end a session in order.

#include "tools/kovcam/Signals.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <mutex>
#include <thread>
#include <utility>

namespace kov::cam {

namespace {

std::atomic<int> gEnd{0};
std::mutex gLock;  // guards the handler, and is held while it runs
std::function<void(int)> gHandler;

void wait(const sigset_t& watched) {
    for (;;) {
        int signal = 0;
        if (sigwait(&watched, &signal) != 0)
            continue;
        if (signal != SIGUSR1 && gEnd.exchange(signal) != 0)
            _exit(128 + signal);
        const std::lock_guard held(gLock);
        if (gHandler)
            gHandler(signal);
    }
}

}  // namespace

void watchSignals() {
    sigset_t watched;
    sigemptyset(&watched);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1})
        sigaddset(&watched, signal);
    pthread_sigmask(SIG_BLOCK, &watched, nullptr);
    std::signal(SIGPIPE, SIG_IGN);  // a reader that goes is a failed write
    std::thread([watched] { wait(watched); }).detach();
}

int endSignal() {
    return gEnd;
}

void forgetSignal() {
    gEnd = 0;
}

void onSignal(std::function<void(int)> handler) {
    const std::lock_guard held(gLock);
    gHandler = std::move(handler);
}

}  // namespace kov::cam
