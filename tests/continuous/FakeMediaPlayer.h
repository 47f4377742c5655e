// libmedia.so for unit tests: records its calls.
#pragma once

#include <atomic>

namespace kov::test {

struct FakeMedia {
    std::atomic<int> dataSourceResult{0};
    std::atomic<float> situationVolume{0.5F};
    std::atomic<int> playersAlive{0};
};

FakeMedia& fakeMedia();

}  // namespace kov::test
