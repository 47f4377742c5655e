// A session of a camera service with a hostile vendor layer, hostile libraries and a hostile application, told by
// bytes.
//
// The bytes are read from both ends. From the front come steps of four bytes, a code (modulo the number of steps) and
// three arguments:
//
// -  0: switch to mode 1000 + a % 17
// -  1: command 999 + a % 47 with b and c
// -  2: a preview frame, its memory as a
// -  3: data message a, its memory as b
// -  4: notification a with b and c
// -  5: timestamped message a, memory as b
// -  6: setCallbacks; the bits of a: nulls
// -  7: operation a: startPreview, stopPreview, takePicture, ...
// -  8: the vendor layer's preview size a, formats b, picture size and quality c
// -  9: run the oldest thread that the product has started
// - 10: the clock goes on by a x 4 ms
// - 11: drop the reference to the adaptor, or open it
// - 12: a message a to a receiver that may be gone (b: to none at all)
// - 13: a % 32 preview frames, b x 4 ms apart
//
// From the back comes one byte for each call of a library, of the system, or of the vendor layer: below 224 it does as
// usual, and else misbehaves in one of 32 ways. A callback of the service and a call of the vendor layer that misbehave
// take a step of their own from the front. When the bytes meet the session ends, and everything behaves.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "fuzz/Targets.h"

namespace kov::test {

/// Runs the steps at the front of `bytes` while `answer` gives each answer, by the name of its place; when they are
/// done everything behaves, and `afterwards` is called before the adaptor is dropped.
void runSession(const uint8_t* bytes, size_t size, std::function<uint32_t(const char* site)> answer,
                const std::function<void()>& afterwards);
/// Pictures with bytes that the service has received in the last such session.
int picturesReceived();
/// Whether this thread is in a call of the product, and in none of the service or the vendor layer within it.
inline thread_local bool gInProduct = false;
/// Takes a step of four bytes in place of the application. From `afterwards` alone.
void takeStep(const uint8_t (&bytes)[4]);

}  // namespace kov::test
