// The binding of the face tracking and the smile detection engines.

#include <algorithm>

#include "shots/smile/ShotSmile.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotSmile::kTag);

constexpr int32_t kFaceMemory = 0x180000;  // bytes
constexpr int32_t kSmileMemory = 0x96000;
constexpr int32_t kFaceMode = 1;
constexpr int32_t kFaceScale = 16;
constexpr int32_t kFacePriority = 2;
constexpr int32_t kTrackedFrames = 5;  // between two full detections
constexpr int32_t kSmileMode = 1;

/// Writes the numbered line of an operation and returns `result`.
int32_t fail(const char* operation, int line, int32_t result) {
    kLog.error("ShotSmile::%s() %d", operation, line);
    return result;
}

int32_t roundUpTo4(int32_t value) {
    return (value + 3) & ~3;
}

/// Bytes of a line in one of the engine's colour formats; 0 for any other.
int32_t lineStride(int32_t colorFormat, int32_t width) {
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
            return 0;
    }
}

/// A block of the memory of the library with a manager over it; null where it cannot be had.
struct EngineMemory {
    void* block = nullptr;
    MHandle manager = nullptr;

    static EngineMemory take(int32_t size) {
        EngineMemory memory;
        memory.block = MMemAlloc(nullptr, size);
        if (memory.block)
            memory.manager = MMemMgrCreate(memory.block, size);
        return memory;
    }
};

void releaseMemory(void*& block, MHandle& manager) {
    if (manager)
        MMemMgrDestroy(manager);
    if (block)
        MMemFree(nullptr, block);
    manager = nullptr;
    block = nullptr;
}

}  // namespace

int32_t ShotSmile::InitFaceTracking(int32_t width, int32_t height, int32_t colorFormat, int32_t noTracking,
                                    int32_t maxFaces) {
    constexpr const char* kOperation = "InitFaceTracking";
    if (height < 1 || width < 1)
        return fail(kOperation, 1, 0);
    const int32_t stride = lineStride(colorFormat, width);
    if (stride == 0)
        return fail(kOperation, 2, 0);
    const EngineMemory memory = EngineMemory::take(kFaceMemory);
    mFaceMemBlock = memory.block;
    mFaceMemMgr = memory.manager;
    if (!mFaceMemBlock)
        return fail(kOperation, 3, 0);
    if (!mFaceMemMgr) {
        releaseMemory(mFaceMemBlock, mFaceMemMgr);
        return fail(kOperation, 4, 0);
    }
    mFaceImageInfo = {width, height, colorFormat, stride};
    if (AMFPAF_InitialFaceEngine(mFaceMemMgr, &mFaceImageInfo, &mFaceResult, &mFaceEngine, kFaceMode, kFaceScale,
                                 maxFaces) != 0) {
        releaseMemory(mFaceMemBlock, mFaceMemMgr);
        mFaceEngine = nullptr;
        return fail(kOperation, 5, 0);
    }
    AMFPAF_SetFaceOutPriority(mFaceEngine, kFacePriority);
    AMFPAF_SetTrackingFrameNumber(mFaceEngine, noTracking == 0 ? kTrackedFrames : 0);
    return 1;
}

int32_t ShotSmile::FaceTrackingDetect(int32_t width, int32_t height, unsigned char* frame, __tag_rect* faces) {
    constexpr const char* kOperation = "FaceTrackingDetect";
    if (!frame || !mFaceEngine || !faces)
        return fail(kOperation, 1, -1);
    if (width != mFaceImageInfo.width || height != mFaceImageInfo.height)
        return fail(kOperation, 2, -1);
    if (AMFPAF_FaceFeatureDetect(mFaceMemMgr, mFaceEngine, frame, &mFaceResult, 0, 0, 0, 0, 0) != 0)
        return fail(kOperation, 3, -1);
    const int32_t count = std::clamp(mFaceResult.count, 0, kMostFaces);
    if (count > 0)
        MMemCpy(faces, mFaceResult.faces, count * static_cast<int32_t>(sizeof(__tag_rect)));
    return count;
}

void ShotSmile::UnInitFaceTracking() {
    AMFPAF_UninitialFaceEngine(mFaceMemMgr, &mFaceEngine, &mFaceResult);
    releaseMemory(mFaceMemBlock, mFaceMemMgr);
    mFaceEngine = nullptr;
}

int32_t ShotSmile::InitSmileDetection(int32_t width, int32_t height) {
    constexpr const char* kOperation = "InitSmileDetection";
    if (height < 1 || width < 1)
        return fail(kOperation, 1, 0);
    const EngineMemory memory = EngineMemory::take(kSmileMemory);
    mSmileMemBlock = memory.block;
    mSmileMemMgr = memory.manager;
    if (!mSmileMemBlock)
        return fail(kOperation, 2, 0);
    if (!mSmileMemMgr) {
        fail(kOperation, 3, 0);
        releaseMemory(mSmileMemBlock, mSmileMemMgr);
        return 0;
    }
    mSmileImage.width = width;
    mSmileImage.height = height;
    mSmileImage.format = mEngineColorFormat;
    if (ASSD_InitSmileEngine(mSmileMemMgr, &mSmileEngine, kSmileMode, height) != 0) {
        fail(kOperation, 4, 0);
        releaseMemory(mSmileMemBlock, mSmileMemMgr);
        mSmileEngine = nullptr;
        return 0;
    }
    return 1;
}

int32_t ShotSmile::SmileDetect(int32_t width, int32_t height, unsigned char* frame, __tag_rect* faces,
                               int32_t* faceInfo, int32_t faceCount) {
    constexpr const char* kOperation = "SmileDetect";
    if (!frame || !mSmileEngine || !faces)
        return fail(kOperation, 1, -1);
    if (width != mSmileImage.width || height != mSmileImage.height)
        return fail(kOperation, 2, -1);
    // Described as planar whatever the format: the engine reads luma.
    const int32_t pixels = width * height;
    mSmileImage.stride[0] = roundUpTo4(width);
    mSmileImage.stride[1] = mSmileImage.stride[2] = mSmileImage.stride[0] / 2;
    mSmileImage.plane[0] = frame;
    mSmileImage.plane[1] = frame + pixels;
    mSmileImage.plane[2] = frame + 5 * pixels / 4;
    for (int32_t i = 0; i < std::clamp(mFaceResult.count, 0, kMostFaces); ++i)
        faceInfo[i] = mFaceResult.info;
    ASSD_FACE_INPUT input = {faces, faceInfo, faceCount};
    if (ASSD_SmileDetect(mSmileMemMgr, mSmileEngine, &mSmileImage, &input, &mSmileResult, 0, 0) != 0)
        return fail(kOperation, 3, -1);
    return mSmileResult.ISmileNumber;
}

void ShotSmile::UnInitSmile() {
    ASSD_UninitSmileEngine(mSmileMemMgr, &mSmileEngine);
    mSmileEngine = nullptr;
    releaseMemory(mSmileMemBlock, mSmileMemMgr);
}

}  // namespace android
