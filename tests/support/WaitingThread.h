// A thread that has come to where it has to wait.
#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

namespace kov::test {

/// Starts a thread and returns when it waits for something, or has ended.
template <typename Work>
std::jthread startUntilItWaits(Work work) {
    const auto id = std::make_shared<std::atomic<pid_t>>(0);
    std::jthread thread([id, work] {
        *id = gettid();
        work();
        *id = -1;
    });
    // A thread may sleep for a moment on its way, above all under an emulator: it must be found waiting again and
    // again.
    constexpr int kLooks = 20;
    for (int waiting = 0; *id != -1 && waiting < kLooks; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        std::ifstream file("/proc/self/task/" + std::to_string(*id) + "/stat");
        for (std::string name; file >> name && name.back() != ')';) {
        }
        std::string state;
        file >> state;
        waiting = state == "S" ? waiting + 1 : 0;
    }
    return thread;
}

}  // namespace kov::test
