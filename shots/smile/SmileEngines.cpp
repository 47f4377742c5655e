// The binding of the face tracking and the smile detection engines.

#include "shots/smile/SmileEngines.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "shots/smile/ShotSmile.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotSmile::kTag);

constexpr int32_t kFaceMemory = 0x180000;  // bytes
constexpr int32_t kSmileMemory = 0x96000;
constexpr int32_t kTrackedFrames = 5;  // between two full detections
// With fewer, every stride can be told in 32 bits, and every plane lies where a pointer reaches.
constexpr int64_t kMostPixels = 0x3FFFFFFE;

/// Writes the numbered line of an operation and returns `result`.
int32_t fail(const char* operation, int line, int32_t result) {
    kLog.error("ShotSmile::%s() %d", operation, line);
    return result;
}

bool isFrameSize(int32_t width, int32_t height) {
    return width >= 1 && height >= 1 && int64_t{width} * height <= kMostPixels;
}

int32_t roundUpTo4(int32_t value) {
    return (value + 3) & ~3;
}

/// Bytes of a line in one of the face engine's colour formats; nothing for any other.
std::optional<int32_t> lineStride(int32_t colorFormat, int32_t width) {
    switch (colorFormat) {
        case 5:
        case 10:
        case 11:
            return roundUpTo4(width);
        case 2:
        case 6:
            return roundUpTo4(2 * width);
        case 4:
            return 2 * width;
        default:
            return std::nullopt;
    }
}

/// Takes a block of the library's memory and makes a manager over it; null where it cannot be had.
void takeMemory(int32_t size, void*& block, MHandle& manager) {
    block = MMemAlloc(nullptr, size);
    manager = block ? MMemMgrCreate(block, size) : nullptr;
}

void releaseMemory(void*& block, MHandle& manager) {
    if (manager)
        MMemMgrDestroy(manager);
    if (block)
        MMemFree(nullptr, block);
    manager = nullptr;
    block = nullptr;
}

}  // namespace

int32_t SmileEngines::InitFaceTracking(int32_t width, int32_t height, int32_t colorFormat, int32_t noTracking,
                                       int32_t maxFaces) {
    constexpr const char* kOperation = "InitFaceTracking";
    if (!isFrameSize(width, height))
        return fail(kOperation, 1, 0);
    const std::optional<int32_t> stride = lineStride(colorFormat, width);
    if (!stride)
        return fail(kOperation, 2, 0);
    takeMemory(kFaceMemory, mFaceMemBlock, mFaceMemMgr);
    if (!mFaceMemBlock)
        return fail(kOperation, 3, 0);
    if (!mFaceMemMgr) {
        releaseMemory(mFaceMemBlock, mFaceMemMgr);
        return fail(kOperation, 4, 0);
    }
    mFaceImageInfo = {width, height, colorFormat, *stride};
    if (AMFPAF_InitialFaceEngine(mFaceMemMgr, &mFaceImageInfo, &mFaceResult, &mFaceEngine, 1, 16, maxFaces) != 0) {
        releaseMemory(mFaceMemBlock, mFaceMemMgr);
        mFaceEngine = nullptr;
        return fail(kOperation, 5, 0);
    }
    AMFPAF_SetFaceOutPriority(mFaceEngine, 2);
    AMFPAF_SetTrackingFrameNumber(mFaceEngine, noTracking == 0 ? kTrackedFrames : 0);
    return 1;
}

int32_t SmileEngines::FaceTrackingDetect(int32_t width, int32_t height, unsigned char* frame, __tag_rect* faces) {
    constexpr const char* kOperation = "FaceTrackingDetect";
    if (!frame || !mFaceEngine || !faces)
        return fail(kOperation, 1, -1);
    if (width != mFaceImageInfo.width || height != mFaceImageInfo.height)
        return fail(kOperation, 2, -1);
    if (AMFPAF_FaceFeatureDetect(mFaceMemMgr, mFaceEngine, frame, &mFaceResult, 0, 0, 0, 0, 0) != 0 ||
        (mFaceResult.count > 0 && !mFaceResult.faces))
        return fail(kOperation, 3, -1);
    const int32_t count = std::clamp(mFaceResult.count, 0, kMostFaces);
    if (count > 0)
        MMemCpy(faces, mFaceResult.faces, count * static_cast<int32_t>(sizeof(__tag_rect)));
    return count;
}

void SmileEngines::UnInitFaceTracking() {
    AMFPAF_UninitialFaceEngine(mFaceMemMgr, &mFaceEngine, &mFaceResult);
    releaseMemory(mFaceMemBlock, mFaceMemMgr);
    mFaceEngine = nullptr;
}

int32_t SmileEngines::InitSmileDetection(int32_t width, int32_t height) {
    constexpr const char* kOperation = "InitSmileDetection";
    if (!isFrameSize(width, height))
        return fail(kOperation, 1, 0);
    takeMemory(kSmileMemory, mSmileMemBlock, mSmileMemMgr);
    if (!mSmileMemBlock)
        return fail(kOperation, 2, 0);
    if (!mSmileMemMgr) {
        fail(kOperation, 3, 0);
        releaseMemory(mSmileMemBlock, mSmileMemMgr);
        return 0;
    }
    mSmileImage.width = width;
    mSmileImage.height = height;
    mSmileImage.format = mFaceImageInfo.format;
    if (ASSD_InitSmileEngine(mSmileMemMgr, &mSmileEngine, 1, height) != 0) {
        fail(kOperation, 4, 0);
        releaseMemory(mSmileMemBlock, mSmileMemMgr);
        mSmileEngine = nullptr;
        return 0;
    }
    return 1;
}

int32_t SmileEngines::SmileDetect(int32_t width, int32_t height, unsigned char* frame, __tag_rect* faces,
                                  int32_t* faceInfo, int32_t faceCount) {
    constexpr const char* kOperation = "SmileDetect";
    mSmileResult.ISmileNumber = 0;
    if (!frame || !mSmileEngine || !faces)
        return fail(kOperation, 1, -1);
    if (width != mSmileImage.width || height != mSmileImage.height)
        return fail(kOperation, 2, -1);
    // Described as planar whatever the format.
    const uint64_t pixels = uint64_t(width) * uint64_t(height);
    mSmileImage.stride[0] = roundUpTo4(width);
    mSmileImage.stride[1] = mSmileImage.stride[2] = mSmileImage.stride[0] / 2;
    mSmileImage.plane[0] = frame;
    mSmileImage.plane[1] = frame + pixels;
    mSmileImage.plane[2] = frame + 5 * pixels / 4;
    for (int32_t i = 0; i < std::clamp(mFaceResult.count, 0, kMostFaces); ++i)
        faceInfo[i] = mFaceResult.info;
    ASSD_FACE_INPUT input = {faces, faceInfo, faceCount};
    const ASSD_SMILE_RESULT before = mSmileResult;
    if (ASSD_SmileDetect(mSmileMemMgr, mSmileEngine, &mSmileImage, &input, &mSmileResult, 0, 0) != 0 ||
        (mSmileResult.ISmileNumber > 0 && !mSmileResult.smiles)) {
        mSmileResult = before;
        return fail(kOperation, 3, -1);
    }
    return mSmileResult.ISmileNumber;
}

void SmileEngines::UnInitSmile() {
    ASSD_UninitSmileEngine(mSmileMemMgr, &mSmileEngine);
    mSmileEngine = nullptr;
    releaseMemory(mSmileMemBlock, mSmileMemMgr);
}

}  // namespace android
