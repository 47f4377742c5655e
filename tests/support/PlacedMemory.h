// Shared memory as a camera hands it out: a region in the midst of a heap.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <cstring>

namespace kov::test {

/// `size` bytes, all `fill`, between others. The region says that it has `claimed` bytes, where that is not 0.
inline android::sp<android::IMemory> placedMemory(size_t size, uint8_t fill = 0, size_t claimed = 0) {
    constexpr size_t kAround = 48;
    const android::sp<android::MemoryHeapBase> heap = new android::MemoryHeapBase(size + 2 * kAround);
    auto* const base = static_cast<uint8_t*>(heap->getBase());
    std::memset(base, ~fill, heap->getSize());
    std::memset(base + kAround, fill, size);
    return new android::MemoryBase(heap, kAround, claimed ? claimed : size);
}

}  // namespace kov::test
