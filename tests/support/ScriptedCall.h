// What the fakes of closed libraries share: calls that are recorded and answered from the fake's script.
#pragma once

#include <cstddef>
#include <string>

#include "tests/support/Recorder.h"

namespace kov::test {

/// What `handle` points to in every fake.
inline char fakeHandle;

/// Records the call, runs the test's `during` within it, and gives the result of the script, or else `usual`.
template <typename Fake>
int32_t scriptedCall(Fake& fake, const std::string& name, const void* handle, int32_t usual,
                     const std::string& arguments) {
    record(name + (handle == &fakeHandle ? "" : " without handle") + arguments);
    if (fake.during)
        fake.during(name);
    return fake.results.contains(name) ? fake.results.at(name) : usual;
}

/// The size of a frame that is described as the libraries want it: chroma right behind luma, no third plane.
template <typename Image>
std::string sizeOf(const Image& frame) {
    const bool follows = frame.plane[1] == frame.plane[0] + static_cast<ptrdiff_t>(frame.width) * frame.height;
    return text(" %dx%d%s", frame.width, frame.height, follows && !frame.plane[2] && !frame.format ? "" : " odd");
}

}  // namespace kov::test
