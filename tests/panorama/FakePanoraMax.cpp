// libPanoraMax1.so for unit tests: records its calls and answers from a script.

#include "tests/panorama/FakePanoraMax.h"

#include <cstdlib>

#include "tests/support/ScriptedCall.h"

using namespace kov::test;

FakePanoraMax& kov::test::fakePanoraMax() {
    static FakePanoraMax fake;
    return fake;
}

namespace {

int32_t call(const std::string& name, px_instance instance, const std::string& arguments = "") {
    return scriptedCall(fakePanoraMax(), name, instance, 0, arguments);
}

}  // namespace

int32_t px_init(const px_allocator* allocator, void* buffer, uint32_t size, px_instance* instance) {
    const bool ofProcess = allocator->allocate == malloc && allocator->release == free;
    const int32_t result = call("px_init", &fakeHandle, ofProcess && !buffer && !size ? "" : " odd");
    if (result == 0)
        *instance = &fakeHandle;
    return result;
}

int32_t px_setParams(px_instance instance, int32_t width, int32_t height, int32_t rotation, int32_t out_width,
                     int32_t out_height, int32_t mode, int32_t max_frames, int32_t frame_rate, float quality,
                     int32_t memory_budget) {
    return call("px_setParams", instance,
                text(" %d %d %d %d %d %d %d %d %g %d", width, height, rotation, out_width, out_height, mode, max_frames,
                     frame_rate, quality, memory_budget));
}

int32_t px_start(px_instance instance) {
    return call("px_start", instance);
}

int32_t px_beginCapture(px_instance instance, int32_t mode) {
    return call("px_beginCapture", instance, text(" %d", mode));
}

int32_t px_handleFrame(px_instance instance, const px_image* frame, uint32_t, px_status* status) {
    const uint32_t added = status->frame_count;
    *status = fakePanoraMax().status;
    status->frame_count = added;
    return call("px_handleFrame", instance, sizeOf(*frame));
}

int32_t px_addFrame(px_instance instance, const px_image* frame, uint32_t, px_status* status) {
    ++status->frame_count;
    return call("px_addFrame", instance, sizeOf(*frame));
}

int32_t px_endCapture(px_instance instance) {
    return call("px_endCapture", instance);
}

int32_t px_createPanorama(px_instance instance, uint32_t* progress) {
    auto& steps = fakePanoraMax().progress;
    if (!steps.empty()) {
        *progress = steps.front();
        steps.erase(steps.begin());
    }
    const int32_t result = call("px_createPanorama", instance);
    // A script may end in a failure: the library's result counts after its last step.
    return steps.empty() && *progress < 100 ? result : 0;
}

int32_t px_getPanoramaImage(px_instance instance, px_image* image) {
    image->width = 32;
    image->height = 16;
    image->plane[0] = fakePanoraMax().image.data();
    return call("px_getPanoramaImage", instance);
}

int32_t px_abort(px_instance instance) {
    return call("px_abort", instance);
}

int32_t px_free(px_instance instance) {
    return call("px_free", instance);
}
