// libPlusMe.so for tests: records its calls and answers from a script.
#pragma once

#include <plusme/plusme.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kov::test {

struct FakePlusMe {
    std::map<std::string, int32_t> results;       // by the name without its prefix; 0 where missing
    std::map<int32_t, int32_t> configureResults;  // by parameter; 0 where missing
    size_t permanentSize = 1000;
    size_t tempSize = 2000;
    std::vector<int32_t> progress = {100};  // what the steps report; the last one from then on
    int32_t position = 0;
    std::string jpeg = "merged";
    std::function<void(const std::string&)> during;  // run within an operation
};

FakePlusMe& fakePlusMe();

}  // namespace kov::test
