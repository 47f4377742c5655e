// Large blocks of C memory that are used again: AddressSanitizer maps and unmaps each anew, which takes longer than all
// the rest of a session. The linker sends the fuzzers' calls of malloc and free here. A block that was given back stays
// poisoned until one of its size is wanted.
#include "fuzz/LargeBlocks.h"

#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <mutex>

namespace {

constexpr size_t kLarge = 128 << 10;

struct Block {
    void* memory;
    size_t size;
    bool used;
};
std::mutex gLock;
Block gBlocks[256];
size_t gCount = 0;
std::atomic<uintptr_t> gLowest{UINTPTR_MAX}, gHighest{0};

}  // namespace

extern "C" {

void* __real_malloc(size_t size);
void __real_free(void* memory);

void* __wrap_malloc(size_t size) {
    if (size < kLarge)
        return __real_malloc(size);
    const std::lock_guard held(gLock);
    for (Block& block : gBlocks) {
        if (block.size != size || block.used)
            continue;
        __asan_unpoison_memory_region(block.memory, size);
        block.used = true;
        return block.memory;
    }
    void* const memory = __real_malloc(size);
    if (memory && gCount < std::size(gBlocks)) {
        gBlocks[gCount++] = {memory, size, true};
        const auto address = reinterpret_cast<uintptr_t>(memory);
        gLowest = std::min(gLowest.load(), address);
        gHighest = std::max(gHighest.load(), address);
    }
    return memory;
}

void __wrap_free(void* memory) {
    const auto address = reinterpret_cast<uintptr_t>(memory);
    if (address >= gLowest && address <= gHighest) {
        const std::lock_guard held(gLock);
        for (Block& block : gBlocks) {
            if (block.memory != memory)
                continue;
            if (!block.used)
                std::abort();  // given back twice
            block.used = false;
            return __asan_poison_memory_region(memory, block.size);
        }
    }
    __real_free(memory);
}

/// What is freed is watched for a while, but not so much of it that the caches are too small.
const char* __asan_default_options() {
    return "quarantine_size_mb=8:malloc_context_size=6";
}

}  // extern "C"

size_t kov::test::largeBlocksUsed() {
    const std::lock_guard held(gLock);
    size_t used = 0;
    for (const Block& block : gBlocks)
        used += block.used;
    return used;
}
