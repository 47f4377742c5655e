// JPEG pictures from YUV frames, through the vendor's imaging library.
#pragma once

#include <binder/IMemory.h>

#include <cstdint>
#include <functional>

namespace android {

/// Who encodes: the three differ in how the encoder is registered, in the quality and in the lines they log.
enum class ArcJpegUser { Panorama, Action, Continuous };

/// A 4:2:0 frame with interleaved chroma, V first: width x height luma bytes and width x height / 2 chroma bytes,
/// without padding. Borrowed, and only read.
struct ArcJpegFrame {
    uint8_t* pixels;
    int32_t width;
    int32_t height;
    uint32_t format;  // the library's code
};

/// The quality that the encoder gets for the camera parameter "jpeg-quality" (any value, -1 when it is missing).
int32_t arcJpegQuality(int32_t jpegQualityParameter);
/// The same where there is no vendor layer to ask.
constexpr int32_t kArcJpegQualityWithoutHardware = 85;

/// Encodes a frame and hands the picture, in a fresh heap of exactly its size, to `deliver`, once; not at all when no
/// stream could be opened. `quality` is not used for the panorama, which takes the library's own. Runs on the caller's
/// thread and takes no lock. Whatever size the library reports is delivered, 0 included (a picture that does not fit
/// the stream's 3 x width x height bytes).
///
/// `deliver` returns false when the shot was retired during the delivery, and so does this function; nothing of the
/// shot is touched after that.
[[nodiscard]] bool encodeArcJpeg(ArcJpegUser user, const ArcJpegFrame& frame, int32_t quality,
                                 const std::function<bool(const sp<IMemory>&)>& deliver);

}  // namespace android
