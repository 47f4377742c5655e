// libPanoraMax1.so for tests: records its calls with their instance and answers from a script.

#include "tests/panorama/FakePanoraMax.h"

#include <cstdlib>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

namespace {

struct Panorama : MayBeMissing {
    int number = 0;
    uint32_t added = 0;
    Pixels image;
};

int32_t call(int number, const std::string& arguments, int32_t result, const char* from) {
    return scriptedCall(gFakePanoraMax, from, text("%s #%d", from, number) + arguments, result);
}

/// The operation is the one that this is called from; it `takes` milliseconds.
int32_t call(px_instance instance, const std::string& arguments, bool fails, uint32_t takes = 0,
             const char* from = __builtin_FUNCTION()) {
    fakeMilliseconds += takes;
    const auto* const panorama = use<Panorama>(instance);
    return call(panorama ? panorama->number : 0, arguments, fails || (gAnswers && !panorama) ? -4 : 0, from);
}

}  // namespace

int32_t px_init(const px_allocator* allocator, void* buffer, uint32_t size, px_instance* instance) {
    const bool ofProcess = allocator->allocate == malloc && allocator->release == free;
    const int next = gFakePanoraMax.made + 1;
    const uint32_t how = ask();
    const int32_t result = call(next, ofProcess && !buffer && !size ? "" : " odd", 0, __func__);
    if (!make<Panorama>(result == -1 ? 2 : result ? 1 : how, instance))  // -1: a success without an instance
        return result ? result : -2;
    if (Panorama* const made = result ? nullptr : use<Panorama>(*instance); made && !gAnswers)
        made->number = gFakePanoraMax.made = next;
    return 0;
}

int32_t px_setParams(px_instance instance, int32_t width, int32_t height, int32_t rotation, int32_t out_width,
                     int32_t out_height, int32_t mode, int32_t max_frames, int32_t frame_rate, float quality,
                     int32_t memory_budget) {
    const std::string sizes = spaced(width, height, rotation, out_width, out_height, mode, max_frames, frame_rate);
    return call(instance, sizes + text(" %g %d", static_cast<double>(quality), memory_budget), ask());
}

int32_t px_beginCapture(px_instance instance, int32_t mode) {
    if (Panorama* const panorama = use<Panorama>(instance))
        panorama->added = 0;
    return call(instance, spaced(mode), ask());
}

int32_t px_handleFrame(px_instance instance, const px_image* frame, uint32_t time, px_status* status) {
    const uint32_t how = ask();
    const uint32_t added = status->frame_count;
    *status = gFakePanoraMax.status;
    status->frame_count = added;
    if (gAnswers) {
        const auto number = static_cast<int32_t>(how);
        const int32_t direction = how > 15 ? number % 10 : 1 << number % 4;
        *status = {8, use<Panorama>(instance)->added, 0, direction, number * 7 - 60, number * 37 % 100 - 50, {}, 2};
        status->status = how == 0 ? 2 : how % 5;
        if (how > 23)
            (how % 2 ? status->max_frames : status->frame_count) = absurd<uint32_t>(how);
        if (how > 27)
            (how % 2 ? status->dx : status->dy) = absurd(how);
    }
    touch(*frame);
    return call(instance, described(*frame) + text(" at %u", time), how == 1, 3);
}

int32_t px_addFrame(px_instance instance, const px_image* frame, uint32_t time, px_status* status) {
    const uint32_t how = ask();
    const bool told = tell(how, &status->frame_count, use<Panorama>(instance)->added += how == 0);
    return call(instance, described(*frame) + text(" at %u", time), !told, 5);
}

int32_t px_createPanorama(px_instance instance, uint32_t* progress) {
    const uint32_t how = ask();
    auto& steps = gFakePanoraMax.progress;
    const bool last = steps.size() < 2;
    *progress = progressOf(steps, how, *progress, 34);
    const int32_t result = call(instance, "", how == 1, 40);
    // A script may end in a failure: the library's result counts after its last step.
    return gAnswers || (last && *progress < 100) ? result : 0;
}

int32_t px_getPanoramaImage(px_instance instance, px_image* image) {
    const uint32_t how = ask();
    if (how != 1)
        show(how, gFakePanoraMax.image, use<Panorama>(instance)->image, image);
    return call(instance, "", how == 1);
}

int32_t px_free(px_instance instance) {
    const int32_t result = call(instance, "", ask());
    giveBack<Panorama>(instance);
    return result;
}

#define PX_OPERATION(name)                \
    int32_t name(px_instance instance) {  \
        return call(instance, "", ask()); \
    }
PX_OPERATION(px_start)
PX_OPERATION(px_endCapture)
PX_OPERATION(px_abort)
