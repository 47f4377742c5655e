// Where the hostile fakes ask what to answer, so that an input, or a count, decides it.
#pragma once

#include <cstdint>

namespace kov::test {

/// What a thread's fakes answer.
class Answers {
public:
    virtual ~Answers() = default;
    /// For one call of the place that is named: 0 as usual, 1 it fails plainly, and more for other ways to misbehave.
    virtual uint32_t next(const char* site) = 0;
    /// Called within calls of the vendor layer and callbacks of the service that may call back.
    virtual void nested() {}
};

/// Those of the calling thread; null while everything answers as usual.
inline thread_local Answers* gAnswers = nullptr;

/// Asks for the calling operation, by its name.
inline uint32_t ask(const char* site = __builtin_FUNCTION()) {
    return gAnswers ? gAnswers->next(site) : 0;
}

}  // namespace kov::test
