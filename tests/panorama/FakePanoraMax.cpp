// libPanoraMax1.so for unit tests: records its calls with their instance and answers from a script.

#include "tests/panorama/FakePanoraMax.h"

#include <cstdlib>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

FakePanoraMax& kov::test::fakePanoraMax() {
    static FakePanoraMax fake;
    return fake;
}

namespace {

/// The operation is the one that this is called from; it `takes` milliseconds.
int32_t call(px_instance instance, const std::string& arguments = "", uint32_t takes = 0,
             const char* from = __builtin_FUNCTION()) {
    fakeMilliseconds += takes;
    const auto number = static_cast<int>(reinterpret_cast<intptr_t>(instance));
    return scriptedCall(fakePanoraMax(), from, text("%s #%d", from, number) + arguments);
}

}  // namespace

int32_t px_init(const px_allocator* allocator, void* buffer, uint32_t size, px_instance* instance) {
    const bool ofProcess = allocator->allocate == malloc && allocator->release == free;
    const auto next = reinterpret_cast<px_instance>(fakePanoraMax().made + 1);
    const int32_t result = call(next, ofProcess && !buffer && !size ? "" : " odd");
    if (result == 0 && ++fakePanoraMax().made)
        *instance = next;
    return result == -1 ? 0 : result;  // a success without an instance
}

int32_t px_setParams(px_instance instance, int32_t width, int32_t height, int32_t rotation, int32_t out_width,
                     int32_t out_height, int32_t mode, int32_t max_frames, int32_t frame_rate, float quality,
                     int32_t memory_budget) {
    return call(instance, spaced(width, height, rotation, out_width, out_height, mode, max_frames, frame_rate) +
                              text(" %g %d", quality, memory_budget));
}

int32_t px_beginCapture(px_instance instance, int32_t mode) {
    return call(instance, spaced(mode));
}

int32_t px_handleFrame(px_instance instance, const px_image* frame, uint32_t time, px_status* status) {
    const uint32_t added = status->frame_count;
    *status = fakePanoraMax().status;
    status->frame_count = added;
    return call(instance, described(*frame) + text(" at %u", time), 3);
}

int32_t px_addFrame(px_instance instance, const px_image* frame, uint32_t time, px_status* status) {
    ++status->frame_count;
    return call(instance, described(*frame) + text(" at %u", time), 5);
}

int32_t px_createPanorama(px_instance instance, uint32_t* progress) {
    auto& steps = fakePanoraMax().progress;
    const bool last = steps.size() <= 1;
    if (!steps.empty())
        *progress = steps.front();
    if (!last)
        steps.erase(steps.begin());
    const int32_t result = call(instance, "", 40);
    // A script may end in a failure: the library's result counts in its last step.
    return last && *progress < 100 ? result : 0;
}

int32_t px_getPanoramaImage(px_instance instance, px_image* image) {
    *image = fakePanoraMax().image;
    return call(instance);
}

#define PX_OPERATION(name)               \
    int32_t name(px_instance instance) { \
        return call(instance);           \
    }
PX_OPERATION(px_start)
PX_OPERATION(px_endCapture)
PX_OPERATION(px_abort)
PX_OPERATION(px_free)
