// Message memory as a vendor layer may deliver it: inside a larger heap, and perhaps lying about itself.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <cstring>
#include <vector>

namespace kov::test {

/// A heap of C memory, in which a sanitizer sees each byte that is not the heap's.
class PlainHeap : public android::MemoryHeapBase {
public:
    explicit PlainHeap(size_t size) : MemoryHeapBase(0), mBytes(size) {}
    void* getBase() const override { return mBytes.empty() ? nullptr : mBytes.data(); }
    size_t getSize() const override { return mBytes.size(); }

private:
    mutable std::vector<uint8_t> mBytes;
};

/// A region of `size` bytes, all `fill`, between others. It says that it has `claimed` bytes, where that is not 0.
inline android::sp<android::IMemory> makeMemory(size_t size, uint8_t fill = 0, size_t claimed = 0) {
    constexpr size_t kAround = 48;
    const android::sp<PlainHeap> heap = new PlainHeap(size + 2 * kAround);
    auto* const base = static_cast<uint8_t*>(heap->getBase());
    std::memset(base, ~fill, heap->getSize());
    std::memset(base + kAround, fill, size);
    return new android::MemoryBase(heap.get(), kAround, claimed ? claimed : size);
}

/// A region of `size` bytes that reaches beyond its heap.
inline android::sp<android::IMemory> makeLyingRegion(size_t size) {
    return new android::MemoryBase(new PlainHeap(size), 8, size);
}

/// The bytes of a region.
inline std::vector<uint8_t> bytesOf(const android::sp<android::IMemory>& memory) {
    const auto* first = static_cast<const uint8_t*>(memory->pointer());
    return {first, first + memory->size()};
}

}  // namespace kov::test
