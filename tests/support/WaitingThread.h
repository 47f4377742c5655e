// Waiting for what other threads do.
#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

namespace kov::test {

/// Waits for `done`, with patience for a machine that is busy with other things. Whether it came.
template <typename Done>
bool waitUntil(Done done) {
    for (int i = 0; i < 60000; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        if (done())
            return true;
    }
    return false;
}

/// Starts a thread and returns when it waits for something, or has ended. It may sleep for a moment on its way, above
/// all under an emulator: it must be found sleeping 20 times in a row.
template <typename Work>
std::jthread startUntilItWaits(Work work) {
    const auto id = std::make_shared<std::atomic<pid_t>>(0);
    std::jthread thread([id, work] {
        *id = gettid();
        id->notify_one();
        work();
    });
    id->wait(0);
    for (int found = 0; found < 20; std::this_thread::sleep_for(std::chrono::milliseconds(1))) {
        std::ifstream file("/proc/self/task/" + std::to_string(*id) + "/stat");
        if (!file)
            break;
        std::string state;
        for (std::string name; file >> name && name.back() != ')';) {
        }
        file >> state;
        found = state == "S" ? found + 1 : 0;
    }
    return thread;
}

/// Runs `work`. Within its first call of a fake's operation `other` begins on a thread of its own, and comes as far as
/// it can.
template <typename Fake, typename Work, typename Other>
void runMeeting(Fake& fake, const std::string& operation, Work work, Other other) {
    std::jthread thread;
    fake.during = [&](const std::string& name) {
        if (name == operation && !thread.joinable())
            thread = startUntilItWaits(other);
    };
    work();
    thread.join();
    fake.during = nullptr;
}

}  // namespace kov::test
