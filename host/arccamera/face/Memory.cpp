// The library's memory calls.

#include "host/arccamera/face/Memory.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace kov::arc {

void* MemoryManager::take(size_t size) {
    if (!std::align(alignof(std::max_align_t), size, mNext, mLeft))
        return nullptr;
    mLeft -= size;
    return std::exchange(mNext, static_cast<std::byte*>(mNext) + size);
}

}  // namespace kov::arc

void* MMemAlloc(MHandle, int32_t size) {
    return size > 0 ? std::malloc(static_cast<size_t>(size)) : nullptr;
}

void MMemFree(MHandle, void* block) {
    std::free(block);
}

void MMemCpy(void* destination, const void* source, int32_t size) {
    if (size > 0)
        std::memcpy(destination, source, static_cast<size_t>(size));
}

MHandle MMemMgrCreate(void* block, int32_t size) {
    return block && size > 0 ? new (std::nothrow) kov::arc::MemoryManager(block, static_cast<size_t>(size)) : nullptr;
}

void MMemMgrDestroy(MHandle manager) {
    delete static_cast<kov::arc::MemoryManager*>(manager);
}
