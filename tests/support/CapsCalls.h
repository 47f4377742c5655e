// Calls of the effects library as the fake one records them.
#pragma once

#include <string>

#include "tests/support/Recorder.h"

namespace kov::test {

template <typename... Calls>
Lines caps(const Calls&... calls) {
    return {(std::string("caps.") + calls)...};
}

}  // namespace kov::test
