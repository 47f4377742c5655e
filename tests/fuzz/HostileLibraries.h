// The closed libraries and the system under the product, as bad as their contracts let them be: each call answers as
// `Answers` says. A handle that was given is checked at every use, and that it is given back is checked at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace kov::test {

/// Objects that a library made with success and that were not given back.
size_t handlesAlive();

/// Forgets the objects that came without success: they were the libraries' own concern.
void dropRefused();

/// Milliseconds that the product's clocks go on.
void advanceClock(int64_t milliseconds);

/// Starts a thread of the product, or keeps it for later; empty: each becomes a thread at once.
void setThreadStarter(std::function<void(std::function<void()>)> starter);
/// Waits for threads that became threads at once.
void waitForThreads();

}  // namespace kov::test
