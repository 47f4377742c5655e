// The JPEG half of libarccamera.so for unit tests: records its calls and writes a scripted "JPEG".
#pragma once

#include <arccamera/jpeg.h>

#include <functional>
#include <string>

namespace kov::test {

/// How the fake behaves; one for all threads.
struct FakeArcJpeg {
    MRESULT createResult = 0;
    bool streamOpens = true;
    std::string jpeg = "JPEG";         // what a save leaves in the stream
    std::function<void()> duringSave;  // run within a save
    MBITMAP lastBitmap = {};
};

inline FakeArcJpeg gFakeArcJpeg;

}  // namespace kov::test
