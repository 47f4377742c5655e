// The effects library's objects as the shots use them: owned, and released in the right order.

#include "imaging/Caps.h"

#include <algorithm>
#include <limits>

#include "imaging/SharedPicture.h"

namespace android {

namespace {

constexpr int64_t kLeast = std::numeric_limits<int32_t>::min();
constexpr int64_t kMost = std::numeric_limits<int32_t>::max();

caps_data pairOf(uint8_t* data, size_t length) {
    return {static_cast<int32_t>(std::min(length, static_cast<size_t>(kMost))), data};
}

/// Makes an object with the operation that `create` calls, which is `name`d.
template <typename Owner, typename Create>
CapsOutcome make(Owner* owner, const char* name, Create create) {
    typename Owner::pointer made = nullptr;
    const caps_result result = create(&made);
    owner->reset(made);
    return result == CAPS_SUCCESS && made ? CapsOutcome() : CapsOutcome{name, result};
}

CapsOutcome makeStream(CapsStream* stream, caps_data* data) {
    return make(stream, "ctstream_createBufferStream",
                [=](caps_stream** made) { return ctstream_createBufferStream(data, 0, made); });
}

}  // namespace

void CapsDeleter::operator()(caps_image* image) const {
    image->owns_pixels = 0;
    caps_destroyImage(image);
}

bool CapsOutcome::failedWithLine(const TaggedLog& log) const {
    if (failed)
        log.error("%s - [%d]", failed, result);
    return failed != nullptr;
}

int32_t capsStride(int32_t width, int32_t format) {
    return static_cast<int32_t>(std::clamp(int64_t{caps_pixelBitSize(format) / 8} * width, kLeast, kMost));
}

CapsOutcome createCapsImage(CapsImage* image, uint8_t* pixels, size_t length, int32_t width, int32_t height,
                            int32_t stride, int32_t format) {
    const caps_data data = pairOf(pixels, length);
    return make(image, "caps_createImage",
                [&](caps_image** made) { return caps_createImage(&data, width, height, stride, format, made); });
}

CapsOutcome newCapsSession(CapsSession* session, caps_image* source) {
    return make(session, "caps_newSessionWithRaw", [=](cips** made) { return caps_newSessionWithRaw(source, made); });
}

CapsOutcome CapsPicture::openOutput() {
    return make(&mRendered, "caps_createBuffer", [](caps_data** made) { return caps_createBuffer(0, made); });
}

CapsOutcome CapsPicture::openJpeg(uint8_t* jpeg, size_t size) {
    mSource = pairOf(jpeg, size);
    CapsOutcome outcome = openOutput();
    if (outcome)
        outcome = makeStream(&mInput, &mSource);
    if (outcome)
        outcome = makeStream(&mOutput, mRendered.get());
    if (outcome)
        outcome = make(&mSession, "caps_createSession",
                       [&](cips** made) { return caps_createSession(mInput.get(), 1, made); });
    return outcome;
}

CapsOutcome CapsPicture::openFrame(uint8_t* pixels, size_t length, int32_t width, int32_t height, int32_t format) {
    CapsOutcome outcome = createCapsImage(&mImage, pixels, length, width, height, capsStride(width, format), format);
    if (outcome)
        outcome = openOutput();
    if (outcome)
        outcome = makeStream(&mOutput, mRendered.get());
    if (outcome)
        outcome = newCapsSession(&mSession, mImage.get());
    return outcome;
}

CapsOutcome CapsPicture::render(int32_t width, int32_t height) {
    const caps_result result = caps_render(mSession.get(), mOutput.get(), width, height, 0, 1, nullptr);
    return result == CAPS_SUCCESS ? CapsOutcome() : CapsOutcome{"caps_render", result};
}

CapsOutcome CapsPicture::beginToRender(int32_t width, int32_t height, CapsIterator* iterator) {
    return make(iterator, "caps_render", [&](caps_iterator** made) {
        return caps_render(mSession.get(), mOutput.get(), width, height, 0, 1, made);
    });
}

void CapsPicture::copyTo(sp<MemoryHeapBase>* heap, sp<MemoryBase>* memory) const {
    copyToSharedMemory(mRendered->data, static_cast<size_t>(std::max(mRendered->length, 0)), heap, memory);
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
