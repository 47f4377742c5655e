// What the product asks malloc for, and malloc that refuses.

#include "tests/support/MallocWatch.h"

extern "C" void* __real_malloc(size_t size);  // NOLINT: the linker's names
extern "C" void* __wrap_malloc(size_t size);  // NOLINT

namespace kov::test {

namespace {
thread_local MallocWatch* tWatch = nullptr;
}

MallocWatch::MallocWatch(size_t most) : mMost(most) {
    tWatch = this;
}

MallocWatch::~MallocWatch() {
    tWatch = nullptr;
}

void* answer(size_t size) {
    if (!tWatch)
        return __real_malloc(size);
    if (size > tWatch->mMost)
        return nullptr;
    tWatch->bytes += size;
    return __real_malloc(size);
}

}  // namespace kov::test

void* __wrap_malloc(size_t size) {
    return kov::test::answer(size);
}
