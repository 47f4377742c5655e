// libPanoraMax1.so for tests: records its calls with their instance and answers from a script.
#pragma once

#include <panoramax/panoramax.h>

#include <atomic>
#include <vector>

#include "tests/support/ScriptedCall.h"

namespace kov::test {

struct FakePanoraMax : Script {
    std::vector<uint32_t> progress = {100};  // what the steps of the stitching report; the last one from then on
    px_status status = {8, 0, 0, 1, 30, 10, {}, 1};  // what a handled frame reports
    std::vector<uint8_t> bytes = std::vector<uint8_t>(32 * 16 * 3 / 2);
    px_image image = {0, 32, 16, {bytes.data(), nullptr, nullptr}};  // the stitched one
    int made = 0;                                                    // instances, which are numbered from 1
};

/// The time, which every thread may read: a frame takes 3, adding it 5, a step 40.
inline std::atomic<uint32_t> fakeMilliseconds{100};

inline FakePanoraMax gFakePanoraMax;

}  // namespace kov::test
