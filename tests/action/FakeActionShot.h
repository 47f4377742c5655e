// libActionShot.so for tests: records its calls and answers from a script.
#pragma once

#include <actionshot/actionshot.h>

#include <vector>

#include "tests/support/ScriptedCall.h"

namespace kov::test {

struct FakeActionShot : Script {
    bool noHandle = false;                  // an engine is made without one
    int32_t frameResult = 1;                // of the next frames
    std::vector<int32_t> progress = {100};  // of the steps of the result; the last one from then on
    bool endsEarly = false;                 // the last step says that there is no further one, whatever its progress
    ActionShot_DisplayData display = {};
    std::vector<uint8_t> image = std::vector<uint8_t>(64 * 48 * 3 / 2);
    OPT_API_ASImage result = {0, 64, 48, {image.data(), nullptr, nullptr}};
};

inline FakeActionShot gFakeActionShot;

}  // namespace kov::test
