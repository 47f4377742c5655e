// libcaps.so for unit tests: records its calls and answers from a script.
#pragma once

#include <caps/caps.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "tests/support/ScriptedCall.h"

namespace kov::test {

/// How the fake behaves; one for all threads, which only read it. Results are by the operation's name without its
/// prefix; success where missing. An operation that fails makes nothing. What is handed the wrong object says so in the
/// record.
struct FakeCaps : Script {
    std::set<std::string> makesNothing;  // operations that claim to succeed, and make nothing
    int32_t bitsPerPixel = 12;
    bool endless = false;                  // a rendering succeeds step by step and never ends
    std::vector<int32_t> counts = {0, 1};  // iterations done after each step; the last step ends the rendering
    int32_t total = 1;
    std::string jpeg = "caps JPEG";              // what a rendering leaves in its buffer
    uint8_t look = 99;                           // what a rendering fills a raw image with
    std::function<void(uint8_t* to)> renderRaw;  // instead of that
};
inline FakeCaps gFakeCaps;

/// Calls as they are recorded.
template <typename... Calls>
Lines caps(const Calls&... calls) {
    return {(std::string("caps.") + calls)...};
}

}  // namespace kov::test
