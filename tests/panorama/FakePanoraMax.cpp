// libPanoraMax1.so for unit tests: records its calls and answers from a script.

#include "tests/panorama/FakePanoraMax.h"

#include <cstdlib>

#include "tests/support/Recorder.h"

using kov::test::fakePanoraMax;
using kov::test::record;
using kov::test::text;

namespace kov::test {

FakePanoraMax& fakePanoraMax() {
    static FakePanoraMax fake;
    return fake;
}

}  // namespace kov::test

namespace {

char gInstance;

int32_t call(const std::string& name, px_instance instance, const std::string& arguments = "") {
    record(name + (instance == &gInstance ? "" : " without instance") + arguments);
    if (fakePanoraMax().during)
        fakePanoraMax().during(name);
    const auto result = fakePanoraMax().results.find(name);
    return result == fakePanoraMax().results.end() ? 0 : result->second;
}

std::string sizeOf(const px_image* image) {
    const bool follows = image->plane[1] == image->plane[0] + static_cast<ptrdiff_t>(image->width) * image->height;
    return text(" %dx%d%s", image->width, image->height, follows && !image->plane[2] && !image->format ? "" : " odd");
}

}  // namespace

int32_t px_init(const px_allocator* allocator, void* buffer, uint32_t size, px_instance* instance) {
    const bool ofProcess = allocator->allocate == malloc && allocator->release == free;
    const int32_t result = call("px_init", &gInstance, ofProcess && !buffer && !size ? "" : " odd");
    if (result == 0)
        *instance = &gInstance;
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
    return call("px_handleFrame", instance, sizeOf(frame));
}

int32_t px_addFrame(px_instance instance, const px_image* frame, uint32_t, px_status* status) {
    ++status->frame_count;
    return call("px_addFrame", instance, sizeOf(frame));
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
    // After the last scripted step the library's result counts: a script may end in a failure.
    return steps.empty() && *progress < 100 ? call("px_createPanorama", instance)
                                            : (call("px_createPanorama", instance), 0);
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
