// What the fakes of closed libraries share: calls that are recorded and answered from the fake's script, or misbehave
// as a fuzzer's input tells.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Answers.h"
#include "tests/support/Handles.h"
#include "tests/support/Recorder.h"

namespace kov::test {

using Pixels = std::vector<uint8_t>;

/// How a fake behaves; one for all threads, which only read it.
struct Script {
    std::map<std::string, int32_t> results;          // by operation; as usual where missing
    std::function<void(const std::string&)> during;  // run within each call, with the operation's name
};

/// Numbers, each after a space.
template <typename... Numbers>
std::string spaced(Numbers... numbers) {
    return ((" " + std::to_string(numbers)) + ...);
}

/// Records the call, runs the test's `during` within it, and gives the result of the script, or else `result`. A test's
/// record also tells of two threads that are in one library.
template <typename Fake>
int32_t scriptedCall(const Fake& fake, const std::string& name, const std::string& recorded, int32_t result = 0) {
    static std::mutex inside;
    const std::unique_lock alone(inside, std::try_to_lock);
    if (!alone.owns_lock())
        record("two threads in a library: " + name);
    record(recorded);
    if (!gAnswers)
        std::this_thread::yield();  // for another thread to come in
    if (fake.during)
        fake.during(name);
    return fake.results.contains(name) ? fake.results.at(name) : result;
}

/// Size and value of a frame that is described as the libraries want it: chroma right behind luma, no third plane.
/// Tests fill frames with one value.
template <typename Image>
std::string described(const Image& frame) {
    const ptrdiff_t pixels = ptrdiff_t{frame.width} * frame.height;
    const uint8_t* const luma = frame.plane[0];
    const bool whole = luma[0] == luma[pixels * 3 / 2 - 1];
    const bool placed = frame.plane[1] == luma + pixels && !frame.plane[2] && !frame.format;
    return text(" %dx%d of %d%s", frame.width, frame.height, luma[0], whole && placed ? "" : " odd");
}

/// What a rendering in steps says of its progress: the script's next number, of which the last stays. Where an input
/// answers, it goes on, stands still, runs backwards, or tells what cannot be.
template <typename Number>
Number progressOf(std::vector<Number>& script, uint32_t how, Number before, int step) {
    if (gAnswers) {
        const Number answers[] = {std::clamp<Number>(before + step, 0, 100),
                                  before,
                                  before,
                                  static_cast<Number>(-7),
                                  Number{1 << 20},
                                  Number{99}};
        return answers[how % std::size(answers)];
    }
    const Number next = script.front();
    if (script.size() > 1)
        script.erase(script.begin());
    return next;
}

/// Where an input answers, writes to the first and the last byte of a frame's luma and of its chroma; a frame of one
/// pixel has no chroma.
template <typename Image>
void touch(const Image& frame) {
    const ptrdiff_t pixels = ptrdiff_t{frame.width} * frame.height;
    for (const ptrdiff_t at : {ptrdiff_t{0}, pixels - 1})
        frame.plane[0][at] ^= gAnswers != nullptr;
    for (const ptrdiff_t at : {ptrdiff_t{0}, pixels / 2 - 1})
        pixels > 1 ? frame.plane[1][at] ^= gAnswers != nullptr : 0;
}

/// The image that a library made: the script's, or where an input answers one in the library's own memory, which is as
/// large as it says as long as it can be.
template <typename Image>
void show(uint32_t how, const Image& script, Pixels& pixels, Image* image) {
    *image = script;
    if (!gAnswers)
        return;
    *image = {0, 64, 48, {}};
    if (how > 2)
        (how % 2 ? image->width : image->height) = absurd(how / 2);
    const int64_t area = int64_t{image->width} * image->height;
    pixels.resize(image->width > 0 && area > 0 && area < (1 << 20) ? static_cast<size_t>(area) * 3 / 2 : 1);
    image->plane[0] = how == 2 ? nullptr : pixels.data();
    image->plane[1] = pixels.data() + std::min<int64_t>(pixels.size(), std::max<int64_t>(area, 0));
}

}  // namespace kov::test
