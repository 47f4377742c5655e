// What the product asks malloc for, and malloc that refuses.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kov::test {

/// Watches the calling thread's `malloc` calls while it lives, one watch at a time. Calls out of shared libraries, and
/// with them libjpeg's and those of `new`, are not seen: the linker leads only this program's own to it.
class MallocWatch {
public:
    /// Requests of more than `most` bytes get nothing.
    explicit MallocWatch(size_t most = SIZE_MAX);
    ~MallocWatch();
    MallocWatch(const MallocWatch&) = delete;
    MallocWatch& operator=(const MallocWatch&) = delete;

    size_t bytes = 0;  // that were asked for and given

private:
    friend void* answer(size_t size);
    const size_t mMost;
};

}  // namespace kov::test
