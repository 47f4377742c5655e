// The effects library's objects as the shots use them: owned, and released in the right order.
#pragma once

#include <binder/MemoryBase.h>
#include <binder/MemoryHeapBase.h>
#include <caps/caps.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "imaging/TaggedLog.h"

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

/// How a piece of work with the library went: well, or which operation failed and what it answered.
struct [[nodiscard]] CapsOutcome {
    const char* failed = nullptr;  // null when all went well
    caps_result result = CAPS_SUCCESS;

    explicit operator bool() const { return !failed; }
    /// Whether it failed; then writes "operation - [result]" as an error.
    bool failedWithLine(const TaggedLog& log) const;
};

/// Bytes of a row in the library's terms: whole bytes of a pixel times the width, as far as 32 bits reach.
int32_t capsStride(int32_t width, int32_t format);

/// Makes an image over the `length` bytes of a frame, which stay the caller's. `stride` is from `capsStride`.
CapsOutcome createCapsImage(CapsImage* image, uint8_t* pixels, size_t length, int32_t width, int32_t height,
                            int32_t stride, int32_t format);
/// Makes a session over an image.
CapsOutcome newCapsSession(CapsSession* session, caps_image* source);

/// A JPEG on its way through the library: what it is made of, a session over that, and where it goes. Open it, apply
/// what is wanted to the session, render. One thread at a time. What it was opened over is borrowed for its lifetime.
class CapsPicture {
public:
    /// Over a JPEG.
    CapsOutcome openJpeg(uint8_t* jpeg, size_t size);
    /// Over the `length` bytes of a frame.
    CapsOutcome openFrame(uint8_t* pixels, size_t length, int32_t width, int32_t height, int32_t format);

    /// The session of a picture that was opened.
    cips* session() const { return mSession.get(); }

    /// Renders the whole of it, at width x height.
    CapsOutcome render(int32_t width, int32_t height);
    /// Begins to render it in the steps of `iterator`.
    CapsOutcome beginToRender(int32_t width, int32_t height, CapsIterator* iterator);

    /// Copies what was rendered, whatever that is, as `copyToSharedMemory` does.
    void copyTo(sp<MemoryHeapBase>* heap, sp<MemoryBase>* memory) const;

private:
    CapsOutcome openOutput();

    // Released from the last to the first.
    caps_data mSource = {};
    CapsImage mImage;
    CapsBuffer mRendered;
    CapsStream mOutput;
    CapsStream mInput;
    CapsSession mSession;
};

/// The JPEG quality that the library gets for the camera parameter "jpeg-quality" (any value, -1 when it is missing).
float capsJpegQuality(int32_t jpegQualityParameter);

}  // namespace android
