// The frame around a test of a shot that has pictures rendered: the effects library is a fake one.
#pragma once

#include "tests/support/FakeCaps.h"
#include "tests/support/FakeSystem.h"
#include "tests/support/ShotTest.h"

namespace kov::test {

/// Calls of the library as the fake one records them.
template <typename... Calls>
Lines caps(const Calls&... calls) {
    return {(std::string("caps.") + calls)...};
}

template <typename Mode>
class CapsTest : public ShotTest<Mode> {
protected:
    ~CapsTest() override {
        fakeCaps() = {};
        resetFakeSystem();
    }
};

}  // namespace kov::test
