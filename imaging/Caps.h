// The effects library's objects as the shots use them: owned, and released in the right order.
#pragma once

#include <caps/caps.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace android {

/// Destroys an object of the effects library by its kind.
struct CapsDeleter {
    /// The pixels belong to whoever made the image, so the library is told first that they are not its own.
    void operator()(caps_image* image) const;
    void operator()(caps_data* buffer) const { caps_destroyBuffer(buffer); }
    void operator()(caps_stream* stream) const { ctstream_destroy(stream); }
    void operator()(cips* session) const { caps_destroySession(session); }
    void operator()(caps_iterator* iterator) const { caps_destroyIterator(iterator); }
};
using CapsImage = std::unique_ptr<caps_image, CapsDeleter>;
using CapsBuffer = std::unique_ptr<caps_data, CapsDeleter>;
using CapsStream = std::unique_ptr<caps_stream, CapsDeleter>;
using CapsSession = std::unique_ptr<cips, CapsDeleter>;
using CapsIterator = std::unique_ptr<caps_iterator, CapsDeleter>;

/// Bytes of a row in the library's terms: whole bytes of a pixel times the width.
int32_t capsStride(int32_t width, int32_t format);

/// An image over `length` bytes of the caller's pixels; null when the library refuses.
CapsImage createCapsImage(uint8_t* pixels, size_t length, int32_t width, int32_t height, int32_t stride,
                          int32_t format);
/// A session over an image; null when the library refuses.
CapsSession newCapsSession(caps_image* source);
/// An empty buffer for a rendering; null when the library refuses.
CapsBuffer createCapsBuffer();

/// The JPEG quality that the library gets for the camera parameter "jpeg-quality" (any value, -1 when it is missing).
float capsJpegQuality(int32_t jpegQualityParameter);

}  // namespace android
