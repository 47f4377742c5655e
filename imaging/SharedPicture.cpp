// Pictures in shared memory, as the camera service takes them.

#include "imaging/SharedPicture.h"

#include <cstring>

#include "imaging/System.h"

namespace android {

void copyToSharedMemory(const void* data, size_t size, sp<MemoryHeapBase>* heap, sp<MemoryBase>* memory) {
    memory->clear();
    heap->clear();
    if (data && size > 0)
        *heap = os::newHeap(size);
    if (heap->get())
        std::memcpy((*heap)->base(), data, size);
    else
        *heap = os::newHeap(size = 0);
    *memory = new MemoryBase(*heap, 0, size);
}

}  // namespace android
