// The fuzzer's entry: sessions of every mode, on one thread.
#include "tests/fuzz/ShotSession.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    kov::test::runSession(bytes, size);
    return 0;
}
