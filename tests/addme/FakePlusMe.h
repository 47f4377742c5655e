// libPlusMe.so for tests: records its calls and answers from a script.
#pragma once

#include <plusme/plusme.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/ScriptedCall.h"

namespace kov::test {

struct FakePlusMe : Script {
    std::map<int32_t, int32_t> configureResults;  // by parameter; 0 where missing
    size_t permanentSize = 1000;
    size_t tempSize = 2000;
    std::vector<int32_t> progress = {100};  // what the steps report; the last one from then on
    int32_t position = 0;
    std::string jpeg = "merged";
};

inline FakePlusMe gFakePlusMe;

}  // namespace kov::test
