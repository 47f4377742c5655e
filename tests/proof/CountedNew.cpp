// operator new as a test wants it: counted, one failing. In a file of its own, so that nothing of it is inlined: a
// compiler that sees one half of a pair takes it for a mismatch.

#include "tests/proof/CountedNew.h"

#include <cstdlib>
#include <new>

#include "fuzz/ShotSession.h"

std::atomic<size_t> kov::test::gNews{0}, kov::test::gFailingNew{0};

void* operator new(size_t size) {
    const bool fails = kov::test::gInProduct && ++kov::test::gNews == kov::test::gFailingNew;
    if (void* const memory = fails ? nullptr : std::malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}
