// What the operations of the add-me engine return.
#pragma once

#include <cstdint>

namespace kov::plusme {

enum class Status : int32_t {
    Good = 0,
    BadArgument = 1,     // a null pointer where none may be
    NotReady = 2,        // not at this point of a series
    BufferTooSmall = 3,  // the memory that was given does not hold what was asked for
    WrongSize = 4,       // a resolution that is not possible, or an image of another one
    NoJpeg = 5,          // a picture that cannot be decoded whole
    NoMatch = 6,         // the second picture does not show the scene of the first
    EncoderFailed = 7,   // the encoder returned no stream
    Internal = 8,        // image processing failed, mostly for lack of memory
};

}  // namespace kov::plusme
