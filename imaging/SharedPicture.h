// Pictures in shared memory, as the camera service takes them.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>

#include <cstddef>

namespace android {

/// Replaces `heap` with a fresh one that holds a copy of the `size` bytes at `data`, and `memory` with a region over
/// the whole of it; a region of no bytes when `data` is null or there is no memory. The older ones are dropped first.
void copyToSharedMemory(const void* data, size_t size, sp<MemoryHeapBase>* heap, sp<MemoryBase>* memory);

}  // namespace android
