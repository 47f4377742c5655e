// The binding of the panorama library.
#pragma once

#include <panoramax/panoramax.h>

#include <cstdint>

namespace android {

/// Bytes that the library may use.
constexpr int32_t kPanoramaMemoryBudget = 104857600;

/// One instance of the library, or none. Its calls are made whether there is an instance or not; their results decide.
///
/// Each operation answers whether the call succeeded, and writes its line when it did not. One thread at a time.
class PanoramaEngine {
public:
    bool exists() const { return mInstance != nullptr; }
    /// Makes the instance for frames of this size; there must be none.
    bool create(int32_t width, int32_t height);
    /// Readies an instance that was made.
    bool start(int32_t width, int32_t height);
    /// Gives the instance back, if there is one.
    void destroy();

    bool beginCapture();
    /// Looks at a frame; `time` is in milliseconds and wraps.
    bool handleFrame(const px_image& frame, uint32_t time, px_status* status);
    bool addFrame(const px_image& frame, uint32_t time, px_status* status);
    bool endCapture();
    /// One step of the stitching, without a line: the library's result, 0 for success. `progress`: percent.
    int32_t createPanorama(uint32_t* progress);
    /// The stitched image, the library's until the instance is given back or captures again. Nothing is checked.
    bool getImage(px_image* image);
    void abort();

private:
    px_instance mInstance = nullptr;
};

}  // namespace android
