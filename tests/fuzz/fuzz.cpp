// A fuzzer's entry. KOV_RUN names what it runs.
#include <cstdlib>

#include "tests/fuzz/LargeBlocks.h"
#include "tests/fuzz/Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    kov::test::KOV_RUN(bytes, size);
    if (kov::test::largeBlocksUsed() > 0)
        std::abort();
    return 0;
}
