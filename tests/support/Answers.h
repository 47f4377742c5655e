// Where the fakes ask what to answer, so that an input of a fuzzer, or a count, decides it.
#pragma once

#include <cstdint>
#include <iterator>

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

/// A number that nobody expects.
template <typename Number = int32_t>
Number absurd(uint32_t how) {
    constexpr int32_t kAbsurd[] = {-1, INT32_MIN, INT32_MAX, 0, 0x10000, 1 << 20};
    return static_cast<Number>(kAbsurd[how % std::size(kAbsurd)]);
}

/// The number that a call tells: as usual, none where it fails plainly, else one that nobody expects.
template <typename Number>
Number numberOf(uint32_t how, Number usual) {
    return how == 0 ? usual : how == 1 ? Number{0} : absurd<Number>(how);
}

/// The same for a call that has a result of its own, and leaves the number as it was where it fails.
template <typename Number>
bool tell(uint32_t how, Number* number, Number usual) {
    if (how != 1)
        *number = numberOf(how, usual);
    return how != 1;
}

}  // namespace kov::test
