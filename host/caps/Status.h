// What the operations of the effects engine return.
#pragma once

#include <caps/caps.h>

#include <cstdint>

namespace kov::caps {

enum class Status : int32_t {
    Good = CAPS_SUCCESS,  // and, of an iteration: more follow
    Done = 0,             // the last iteration is done
    BadArgument = 1,      // a null pointer where none may be, or a value that is not known
    BadFormat = 2,        // a colour format that is not known
    BadSize = 3,          // sides that are not possible, or pixels that do not have them
    BadJpeg = 4,          // a stream that cannot be decoded whole
    OutOfOrder = 5,       // not at this point of an effect
    ReadOnly = 6,         // a stream that cannot be written
    BufferFull = 7,       // the result does not fit the buffer
    Internal = 8,         // image processing failed, mostly for lack of memory
};

}  // namespace kov::caps
