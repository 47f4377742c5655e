// A memory manager: one engine's state in a caller's block.
#pragma once

#include <arccamera/face.h>

#include <cstddef>
#include <new>
#include <utility>

namespace kov::arc {

/// Hands out a block from its beginning; gives nothing back before it ends. One thread at a time.
class MemoryManager {
public:
    MemoryManager(void* block, size_t size) : mNext(block), mLeft(size) {}

    /// Aligned for every type. Null when the rest is too small.
    void* take(size_t size);

    /// Makes an object in the block; null when it does not fit.
    template <typename T, typename... Arguments>
    T* make(Arguments&&... arguments) {
        void* memory = take(sizeof(T));
        return memory ? new (memory) T(std::forward<Arguments>(arguments)...) : nullptr;
    }

private:
    void* mNext;
    size_t mLeft;
};

}  // namespace kov::arc
