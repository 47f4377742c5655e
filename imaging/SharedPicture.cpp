// Pictures in shared memory, as the camera service takes them.

#include "imaging/SharedPicture.h"

#include <cstring>

namespace android {

void copyToSharedMemory(const void* data, size_t size, sp<MemoryHeapBase>* heap, sp<MemoryBase>* memory) {
    memory->clear();
    heap->clear();
    if (!data)
        size = 0;
    *heap = new MemoryHeapBase(size, 0, nullptr);
    if (!(*heap)->base())
        size = 0;
    if (size)
        std::memcpy((*heap)->base(), data, size);
    *memory = new MemoryBase(*heap, 0, size);
}

}  // namespace android
