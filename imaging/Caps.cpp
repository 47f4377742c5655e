// The effects library's objects as the shots use them: owned, and released in the right order.

#include "imaging/Caps.h"

namespace android {

void CapsDeleter::operator()(caps_image* image) const {
    image->owns_pixels = 0;
    caps_destroyImage(image);
}

int32_t capsStride(int32_t width, int32_t format) {
    return caps_pixelBitSize(format) / 8 * width;
}

CapsImage createCapsImage(uint8_t* pixels, size_t length, int32_t width, int32_t height, int32_t stride,
                          int32_t format) {
    const caps_data data = {static_cast<int32_t>(length), pixels};
    caps_image* image = nullptr;
    caps_createImage(&data, width, height, stride, format, &image);
    return CapsImage(image);
}

CapsSession newCapsSession(caps_image* source) {
    cips* session = nullptr;
    caps_newSessionWithRaw(source, &session);
    return CapsSession(session);
}

CapsBuffer createCapsBuffer() {
    caps_data* buffer = nullptr;
    caps_createBuffer(0, &buffer);
    return CapsBuffer(buffer);
}

float capsJpegQuality(int32_t jpegQualityParameter) {
    switch (jpegQualityParameter) {
        case 70:
            return 0.9F;
        case 40:
            return 0.7F;
        default:
            return 0.95F;
    }
}

}  // namespace android
