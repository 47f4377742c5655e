// The fuzzer's entry: three sessions at once over one adaptor.
#include "tests/fuzz/ShotSession.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    kov::test::runSessionsAtOnce(bytes, size);
    return 0;
}
