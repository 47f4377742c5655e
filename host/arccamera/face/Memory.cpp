// The library's memory calls.

#include "host/arccamera/face/Memory.h"

#include <cstdlib>
#include <cstring>

namespace kov::arc {

void* MemoryManager::take(size_t size) {
    constexpr size_t kAlignment = alignof(std::max_align_t);
    size = (size + kAlignment - 1) / kAlignment * kAlignment;
    if (size > mLeft)
        return nullptr;
    mLeft -= size;
    return std::exchange(mNext, mNext + size);
}

const char* cascadeFolder() {
    const char* folder = std::getenv("KOV_CASCADES");
    return folder && *folder ? folder : KOV_CASCADES;
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
    return block && size > 0 ? new kov::arc::MemoryManager(block, static_cast<size_t>(size)) : nullptr;
}

void MMemMgrDestroy(MHandle manager) {
    delete static_cast<kov::arc::MemoryManager*>(manager);
}
