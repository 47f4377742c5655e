// What a capture is in each mode.
#pragma once

#include <cstdint>

namespace kov::gst {

/// How a mode takes what it takes. 0 stands for no command and no message.
struct CaptureWay {
    int32_t mode;
    int32_t start;  // the command that begins it; 0: a picture is taken
    int32_t stop;   // ends it and gives what there is; 0: it ends by itself
    int32_t drop;   // ends it and gives nothing
    int32_t done;   // the message after which it is over
    int32_t none;   // the message that says, with ext1 0, that it is over and gave nothing
    bool lasts;     // it goes on until it is stopped, or full
};

/// That of a mode; a picture for one that has none of its own.
const CaptureWay& captureWay(int32_t mode);

}  // namespace kov::gst
