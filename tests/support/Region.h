// Message memory as a vendor layer may deliver it: inside a larger heap, and perhaps lying about itself.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <cstring>

namespace kov::test {

/// A region of `size` bytes, all `fill`, that lies 48 bytes into a heap whose other bytes are 0xEE.
inline android::sp<android::IMemory> makeRegion(size_t size, uint8_t fill = 0) {
    constexpr size_t kBefore = 48;
    const android::sp<android::IMemoryHeap> heap = new android::MemoryHeapBase(kBefore + size + 4096);
    auto* const base = static_cast<uint8_t*>(heap->base());
    std::memset(base, 0xEE, heap->getSize());
    std::memset(base + kBefore, fill, size);
    return new android::MemoryBase(heap, kBefore, size);
}

/// A region of `size` bytes that reaches beyond its heap.
inline android::sp<android::IMemory> makeLyingRegion(size_t size) {
    return new android::MemoryBase(new android::MemoryHeapBase(4096), 0, size);
}

}  // namespace kov::test
