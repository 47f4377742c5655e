// A region of a heap.
#pragma once

#include <binder/IMemory.h>

namespace android {

class MemoryBase : public virtual IMemory {
public:
    /// `size` bytes at `offset` of `heap`. Holds the heap; does not check that the region lies within it.
    MemoryBase(const sp<IMemoryHeap>& heap, ssize_t offset, size_t size);
    ~MemoryBase() override;

    sp<IMemoryHeap> getMemory(ssize_t* offset = nullptr, size_t* size = nullptr) const override;

private:
    const sp<IMemoryHeap> mHeap;
    const ssize_t mOffset;
    const size_t mSize;
};

}  // namespace android
