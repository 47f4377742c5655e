// A thread that has come to where it has to wait.
#pragma once

#include <unistd.h>

#include <atomic>
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
    for (std::string state; *id != -1 && state != "S"; std::this_thread::yield()) {
        std::ifstream file("/proc/self/task/" + std::to_string(*id) + "/stat");
        for (std::string name; file >> name && name.back() != ')';) {
        }
        file >> state;
    }
    return thread;
}

}  // namespace kov::test
