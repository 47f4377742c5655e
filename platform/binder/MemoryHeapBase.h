// A heap of shared memory made by this process.
#pragma once

#include <binder/IMemory.h>

namespace android {

class MemoryHeapBase : public virtual IMemoryHeap {
public:
    /// Makes `size` bytes of zeroed shared memory. When none can be had, `getBase` is null and `getSize` is 0.
    /// `name` is for debugging and may be null.
    explicit MemoryHeapBase(size_t size, uint32_t flags = 0, const char* name = nullptr);
    ~MemoryHeapBase() override;

    int getHeapID() const override { return mFd; }
    void* getBase() const override { return mBase; }
    size_t getSize() const override { return mSize; }
    uint32_t getFlags() const override { return mFlags; }

private:
    int mFd = -1;
    void* mBase = nullptr;
    size_t mSize = 0;
    uint32_t mFlags = 0;
};

}  // namespace android
