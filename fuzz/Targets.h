// What the fuzzers run, and the tests replay. Each ends the process when what it ran went wrong.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kov::test {

/// A session on this thread; ShotSession.h tells its bytes.
void runSession(const uint8_t* bytes, size_t size);
/// The bytes as three sessions at once, on a thread each, with one adaptor and one vendor layer.
void runSessionsAtOnce(const uint8_t* bytes, size_t size);
/// The add-me library's JPEG encoder.
void runEncoder(const uint8_t* bytes, size_t size);
/// The readers of scripts, sources, output names and sizes.
void runText(const uint8_t* bytes, size_t size);

}  // namespace kov::test
