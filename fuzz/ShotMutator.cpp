// Changes an input of the session fuzzers as its format has it: steps of four bytes from the front, answers from the
// back.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(uint8_t* bytes, size_t size, size_t most);

namespace {

using Bytes = std::vector<uint8_t>;
using Random = std::minstd_rand;

constexpr size_t kStep = 4;
constexpr uint8_t kModes[] = {0, 1, 2, 3, 6, 9, 10, 13},
                  kCommands[] = {18, 19, 20, 21, 23, 24, 25, 26, 27, 30, 31, 32, 34, 35, 36, 37, 38, 39, 40};

size_t below(Random& random, size_t end) {
    return end ? random() / 8 % end : 0;
}
template <size_t Count>
uint8_t oneOf(Random& random, const uint8_t (&table)[Count]) {
    return table[below(random, Count)];
}

/// A step as a service or a vendor layer would take it.
Bytes makeStep(Random& random) {
    const auto any = [&](size_t end) { return static_cast<uint8_t>(below(random, end)); };
    switch (any(10)) {
        case 0:
            return {0, oneOf(random, kModes), any(2), 0};
        case 1:
        case 2:
        case 3:
            return {1, oneOf(random, kCommands), any(6), any(3)};
        case 4:
            return {7, any(4), 0, 0};  // preview, picture
        case 5:
            return {3, 1, any(256), 0};  // a picture comes
        case 6:
            return {9, 0, 0, 0};  // a thread runs
        case 7:
            return {13, any(14), any(120), 0};  // frames
        default:
            return {any(14), any(256), any(256), any(256)};
    }
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* bytes, size_t size, size_t most, unsigned int seed) {
    Random random(seed | 1);
    random.discard(3);
    if (below(random, 4) == 0)
        return LLVMFuzzerMutate(bytes, size, most);
    Bytes all(bytes, bytes + size);
    const auto at = [&](size_t step) { return all.begin() + static_cast<std::ptrdiff_t>(step * kStep); };
    for (size_t changes = 1 + below(random, 3); changes > 0; --changes) {
        const size_t count = all.size() / kStep, first = below(random, count + 1);
        const size_t length = std::min(1 + below(random, below(random, 3) ? 2 : 12), count - std::min(count, first));
        switch (below(random, 8)) {
            case 0:
            case 1: {
                const Bytes made = makeStep(random);
                all.insert(at(first), made.begin(), made.end());
                break;
            }
            case 2:
                all.erase(at(first), at(first + length));
                break;
            case 3: {
                const Bytes copied(at(first), at(first + length));
                all.insert(at(below(random, count + 1)), copied.begin(), copied.end());
                break;
            }
            case 4: {  // two neighbours change places
                const size_t second = first + length / 2;
                std::rotate(at(first), at(second), at(first + length));
                break;
            }
            case 5:
                if (first < count) {
                    const Bytes made = makeStep(random);
                    std::copy(made.begin(), made.end(), at(first));
                }
                break;
            case 6:
                if (!all.empty())  // an answer that misbehaves, or does so no more
                    all[all.size() - 1 - below(random, all.size())] =
                        below(random, 3) ? static_cast<uint8_t>(224 + below(random, below(random, 2) ? 4 : 32)) : 0;
                break;
            default: {  // answers come sooner or later
                const auto where = all.end() - static_cast<std::ptrdiff_t>(below(random, all.size() + 1));
                if (below(random, 2))
                    all.insert(where, 1 + below(random, 8), 0);
                else
                    all.erase(where, where + std::min<std::ptrdiff_t>(all.end() - where, 1 + below(random, 8)));
            }
        }
    }
    all.resize(std::min(all.size(), most));
    std::copy(all.begin(), all.end(), bytes);
    return all.size();
}
