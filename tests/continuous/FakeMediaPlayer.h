// libmedia.so for unit tests: records its calls.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace kov::test {

struct FakeMedia {
    std::atomic<int> dataSourceResult{0};
    std::atomic<float> situationVolume{0.5F};
    std::atomic<int> playersAlive{0};
    std::atomic<uintptr_t> playersMade{0};
    std::function<void()> whileLoading;  // run within setDataSource
};

inline FakeMedia gFakeMedia;

}  // namespace kov::test
