// The binding of the panorama library.

#include "shots/panorama/PanoramaEngine.h"

#include <cstdlib>
#include <utility>

#include "shots/panorama/ShotPanorama.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotPanorama::kTag);

const px_allocator kAllocator = {malloc, free};

/// Whether a call succeeded; writes its line when it did not.
bool succeeded(int32_t rc, const char* call) {
    if (rc != 0)
        kLog.error("%s rc = %d\n", call, rc);
    return rc == 0;
}

}  // namespace

bool PanoramaEngine::create(int32_t width, int32_t height) {
    const int32_t rc = px_init(&kAllocator, nullptr, 0, &mInstance);
    if (rc != 0 || !mInstance) {
        kLog.error("px_init failed rc = %d\n", rc);
        return false;
    }
    kLog.warn("px_init(%dx%d) ok for buffer %p instance %p\n", width, height, static_cast<void*>(nullptr), mInstance);
    return true;
}

bool PanoramaEngine::start(int32_t width, int32_t height) {
    // What the numbers mean lies with the library; the last is bytes.
    return succeeded(px_setParams(mInstance, width, height, 0, width, height, 0, 8, 15, 15.0F, kPanoramaMemoryBudget),
                     "px_setParams") &&
           succeeded(px_start(mInstance), "px_start");
}

void PanoramaEngine::destroy() {
    const px_instance instance = std::exchange(mInstance, nullptr);
    const int32_t rc = instance ? px_free(instance) : 0;
    if (rc != 0)
        kLog.error("px_free(%p) = %d\n", instance, rc);
}

bool PanoramaEngine::beginCapture() {
    return succeeded(px_beginCapture(mInstance, 0), "px_beginCapture");
}

bool PanoramaEngine::handleFrame(const px_image& frame, uint32_t time, px_status* status) {
    const int32_t rc = px_handleFrame(mInstance, &frame, time, status);
    if (rc != 0)
        kLog.error("HandleFrame rc=%d\n", rc);
    return rc == 0;
}

bool PanoramaEngine::addFrame(const px_image& frame, uint32_t time, px_status* status) {
    return succeeded(px_addFrame(mInstance, &frame, time, status), "px_addFrame");
}

bool PanoramaEngine::endCapture() {
    return succeeded(px_endCapture(mInstance), "px_endCapture");
}

int32_t PanoramaEngine::createPanorama(uint32_t* progress) {
    return px_createPanorama(mInstance, progress);
}

bool PanoramaEngine::getImage(px_image* image) {
    return succeeded(px_getPanoramaImage(mInstance, image), "px_getPanoramaImage");
}

void PanoramaEngine::abort() {
    px_abort(mInstance);
}

}  // namespace android
