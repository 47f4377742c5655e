// What the fakes of closed libraries share: calls that are recorded and answered from the fake's script.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/support/Recorder.h"

namespace kov::test {

/// Numbers, each after a space.
template <typename... Numbers>
std::string spaced(Numbers... numbers) {
    return ((" " + std::to_string(numbers)) + ...);
}

/// Records the call, runs the test's `during` within it, and gives the result of the script, or else `usual`.
template <typename Fake>
int32_t scriptedCall(Fake& fake, const std::string& name, const std::string& recorded, int32_t usual = 0) {
    record(recorded);
    if (fake.during)
        fake.during(name);
    return fake.results.contains(name) ? fake.results.at(name) : usual;
}

/// Size and value of a frame that is described as the libraries want it: chroma right behind luma, no third plane.
/// Tests fill frames with one value.
template <typename Image>
std::string described(const Image& frame) {
    const ptrdiff_t pixels = ptrdiff_t{frame.width} * frame.height;
    const uint8_t* const luma = frame.plane[0];
    const bool whole = luma[0] == luma[pixels * 3 / 2 - 1];
    const bool placed = frame.plane[1] == luma + pixels && !frame.plane[2] && !frame.format;
    return text(" %dx%d of %d%s", frame.width, frame.height, luma[0], whole && placed ? "" : " odd");
}

}  // namespace kov::test
