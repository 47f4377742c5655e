// What the host's tests and tools can learn of the shared memory in use.
#pragma once

#include <cstddef>

namespace kov::host {

/// MemoryHeapBase objects alive in the process. Any thread.
size_t liveHeaps();
/// MemoryHeapBase objects made so far in the process. Any thread.
size_t heapsMade();

}  // namespace kov::host
