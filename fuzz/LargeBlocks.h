// Large blocks of C memory that are used again.
#pragma once

#include <cstddef>

namespace kov::test {

/// Large blocks that the product has not given back.
size_t largeBlocksUsed();

}  // namespace kov::test
