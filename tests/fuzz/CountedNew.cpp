// operator new as a test wants it: counted. In a file of its own, so that nothing of it is inlined: a compiler that
// sees one half of a pair takes it for a mismatch.

#include "tests/fuzz/CountedNew.h"

#include <cstdlib>
#include <new>

#include "tests/fuzz/ShotSession.h"

std::atomic<size_t> kov::test::gNews{0};

void* operator new(size_t size, const std::nothrow_t&) noexcept {
    kov::test::gNews += kov::test::gInProduct;
    return std::malloc(size ? size : 1);
}

void* operator new(size_t size) {
    if (void* const memory = operator new(size, std::nothrow))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
