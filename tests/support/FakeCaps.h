// libcaps.so for unit tests: records its calls and answers from a script.
#pragma once

#include <caps/caps.h>

#include <atomic>
#include <map>
#include <string>
#include <vector>

namespace kov::test {

/// How the fake behaves; one for all threads, which only read it. Results are by the operation's name without its
/// prefix; success where missing. An operation that fails makes nothing.
struct FakeCaps {
    std::map<std::string, caps_result> results;
    std::vector<int32_t> counts = {0, 1};  // iterations done after each step; the last step ends the rendering
    int32_t total = 1;
    std::string jpeg = "caps JPEG";  // what a rendering leaves in its buffer
    uint8_t look = 99;               // what a rendering fills a raw image with
};
FakeCaps& fakeCaps();

/// Objects of the library that are alive.
int fakeCapsObjects();

}  // namespace kov::test
