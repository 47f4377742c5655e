// operator new as a test wants it: counted, one failing.
#pragma once

#include <atomic>
#include <cstddef>

namespace kov::test {

extern std::atomic<size_t> gNews;        // calls by the product, and by the fakes of libraries that it calls
extern std::atomic<size_t> gFailingNew;  // which of them throws, from 1; 0 for none

}  // namespace kov::test
