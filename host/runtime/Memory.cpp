// Shared memory: anonymous files (memfd) mapped into the process.

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Heaps.h"

namespace android {

namespace {
std::atomic<size_t> gLiveHeaps{0};
std::atomic<size_t> gHeapsMade{0};
}  // namespace

MemoryHeapBase::MemoryHeapBase(size_t size, uint32_t flags, const char* name) : mFlags(flags) {
    gLiveHeaps.fetch_add(1, std::memory_order_relaxed);
    gHeapsMade.fetch_add(1, std::memory_order_relaxed);
    if (size == 0)
        return;
    mFd = memfd_create(name ? name : "MemoryHeapBase", MFD_CLOEXEC);
    if (mFd < 0)
        return;
    void* base = MAP_FAILED;
    if (ftruncate(mFd, static_cast<off_t>(size)) == 0)
        base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, mFd, 0);
    if (base == MAP_FAILED) {
        close(mFd);
        mFd = -1;
        return;
    }
    mBase = base;
    mSize = size;
}

MemoryHeapBase::~MemoryHeapBase() {
    if (mBase)
        munmap(mBase, mSize);
    if (mFd >= 0)
        close(mFd);
    gLiveHeaps.fetch_sub(1, std::memory_order_relaxed);
}

void* IMemory::pointer() const {
    ssize_t offset = 0;
    const sp<IMemoryHeap> heap = getMemory(&offset);
    void* base = heap.get() ? heap->base() : nullptr;
    return base ? static_cast<uint8_t*>(base) + offset : nullptr;
}

size_t IMemory::size() const {
    size_t size = 0;
    getMemory(nullptr, &size);
    return size;
}

ssize_t IMemory::offset() const {
    ssize_t offset = 0;
    getMemory(&offset);
    return offset;
}

MemoryBase::MemoryBase(const sp<IMemoryHeap>& heap, ssize_t offset, size_t size)
    : mHeap(heap), mOffset(offset), mSize(size) {}

MemoryBase::~MemoryBase() = default;

sp<IMemoryHeap> MemoryBase::getMemory(ssize_t* offset, size_t* size) const {
    if (offset)
        *offset = mOffset;
    if (size)
        *size = mSize;
    return mHeap;
}

}  // namespace android

namespace kov::host {

size_t liveHeaps() {
    return android::gLiveHeaps.load(std::memory_order_relaxed);
}

size_t heapsMade() {
    return android::gHeapsMade.load(std::memory_order_relaxed);
}

}  // namespace kov::host
