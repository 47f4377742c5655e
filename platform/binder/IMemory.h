// Shared memory as seen by its users: a heap, and a region (offset, size) within a heap.
#pragma once

#include <sys/types.h>
#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>

namespace android {

/// A block of memory that processes can share.
class IMemoryHeap : public virtual RefBase {
public:
    virtual int getHeapID() const = 0;
    /// First byte, or null when the heap has no memory.
    virtual void* getBase() const = 0;
    /// Size in bytes; 0 when the heap has no memory.
    virtual size_t getSize() const = 0;
    virtual uint32_t getFlags() const = 0;

    void* base() const { return getBase(); }

protected:
    ~IMemoryHeap() override = default;
};

/// A region of a heap. Holds its heap.
class IMemory : public virtual RefBase {
public:
    /// The heap, with the region's offset in it and its size, both in bytes and both optional.
    virtual sp<IMemoryHeap> getMemory(ssize_t* offset = nullptr, size_t* size = nullptr) const = 0;

    /// First byte of the region, or null when there is no memory behind it.
    void* pointer() const;
    size_t size() const;
    ssize_t offset() const;

protected:
    ~IMemory() override = default;
};

}  // namespace android
