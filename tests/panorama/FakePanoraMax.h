// libPanoraMax1.so for unit tests: records its calls and answers from a script.
#pragma once

#include <panoramax/panoramax.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kov::test {

struct FakePanoraMax {
    std::map<std::string, int32_t> results;          // by operation; 0 where missing
    std::vector<uint32_t> progress = {100};          // what the steps of the stitching report, one after the other
    px_status status = {8, 0, 0, 1, 30, 10, {}, 1};  // what a handled frame reports
    std::function<void(const std::string&)> during;  // run within an operation
    std::vector<uint8_t> image = std::vector<uint8_t>(32 * 16 * 3 / 2);  // the stitched one, 32 x 16
};

FakePanoraMax& fakePanoraMax();

}  // namespace kov::test
