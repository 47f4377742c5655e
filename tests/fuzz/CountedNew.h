// operator new as a test wants it: counted.
#pragma once

#include <atomic>
#include <cstddef>

namespace kov::test {

extern std::atomic<size_t> gNews;  // calls by the product, and by the fakes of libraries that it calls

}  // namespace kov::test
