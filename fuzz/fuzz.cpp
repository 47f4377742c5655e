// A fuzzer's entry. KOV_RUN names what it runs.
#include <cstdlib>

#include "fuzz/LargeBlocks.h"
#include "fuzz/Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    kov::test::KOV_RUN(bytes, size);
    if (kov::test::largeBlocksUsed() > 0)
        std::abort();
    return 0;
}
