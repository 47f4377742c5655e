// Action: a moving subject, at several moments, in one picture.

#include "shots/action/ShotAction.h"

#include <arccamera/jpeg.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "imaging/ArcJpegEncoder.h"
#include "imaging/TaggedLog.h"
#include "shots/Modes.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotAction::kTag);
constexpr ArcJpegUser kJpegUser = {3, kLog, ArcJpegUser::Lines::None};

constexpr unsigned kInitialBlocks = 8;
constexpr unsigned kMostBlocks = 25;
constexpr unsigned kLeastBlocks = 4;
constexpr int kDone = 100;           // percent
constexpr int32_t kMostSide = 8192;  // of a result that is believed

// Results of the step for a frame.
constexpr int kGoesOn = 3;
constexpr int kNoSeries = 4;
constexpr int kDisconnected = 6;
constexpr int kConnected = 7;

enum ActionState { kIdle = 0, kRunning = 1, kStopping = 3 };

struct Parameter {
    int32_t number;
    int32_t value;
};
constexpr Parameter kParameters[] = {{0, 8}, {1, 0}, {2, 0}, {3, 5}, {4, 24}, {5, 0}, {7, 0}};

const ActionShot_MemoryFunctions kMemoryFunctions = {std::memcpy, std::memset};

uint8_t* newBlock(size_t size) {
    return new (std::nothrow) uint8_t[size];
}

}  // namespace

ShotAction::Allocators ShotAction::allocators = {std::malloc, newBlock};

ShotAction::ShotAction(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotAction created: pid=%d", getpid());
    const AutoMutex held(mEngineLock);
    Init(mPreviewWidth, mPreviewHeight);
}

ShotAction::~ShotAction() {
    kLog.info("ShotAction destroyed: pid=%d", getpid());
    const AutoMutex held(mEngineLock);
    Free();
}

// --- The library

void ShotAction::Init(int width, int height) {
    previewRingIndex = 0;
    previewHeapBase = nullptr;
    mPreviewMemory.clear();
    mPreviewHeap.clear();
    mWorkBlockCount = kInitialBlocks;
    mWidth = width;
    mHeight = height;
    if (height < 1 || width < 1) {
        kLog.error("unexpected Init(%d, %d)\n", width, height);
        Free();
        return;
    }
    ActionShot_SetMemoryFunctions(&kMemoryFunctions);
    mWorkBlockCount = kMostBlocks;
    kLog.info("Dimensions (%d, %d)\n", width, height);
    mPreviewCopy =
        static_cast<uint8_t*>(allocators.work(static_cast<size_t>(width) * static_cast<size_t>(height) * 3 / 2));
    if (mPreviewCopy)
        kLog.info("Memory allocated for preview frame.");
    else
        kLog.error("Failed to allocate memory for preview frame.");
    allocateWorkMemory();
    if (ActionShot_Initialize(&mActionShot, width, height, mWorkMem, mWorkMemSize) != 1) {
        kLog.error("Init of ActionShot failed.");
        mActionShot = nullptr;
        mSeriesStarted = false;
        return;
    }
    kLog.info("Init of ActionShot successful");
    configure();
    mSeriesStarted = true;
}

/// As many blocks as can be had, down to the least.
void ShotAction::allocateWorkMemory() {
    for (;; --mWorkBlockCount) {
        mWorkMemSize = mWorkBlockCount * kBlockSize;
        mWorkMem = static_cast<uint8_t*>(allocators.work(mWorkMemSize));
        if (mWorkMem)
            return;
        if (mWorkBlockCount <= kLeastBlocks)
            break;
    }
    mWorkMemSize = 0;  // the library is not told of memory that is not there
}

void ShotAction::configure() {
    ActionShot_SetResolution(mActionShot, mWidth, mHeight);
    ActionShot_SetSceneCompletionActivationMode(mActionShot, 0);
    for (const Parameter& parameter : kParameters)
        ActionShot_SetConfigurationParameter(mActionShot, parameter.number, parameter.value);
}

void ShotAction::Free() {
    previewRingIndex = 0;
    previewHeapBase = nullptr;
    mPreviewMemory.clear();
    mPreviewHeap.clear();
    if (mActionShot) {
        releaseTempBuffer();
        ActionShot_Finalize(&mActionShot);
        mActionShot = nullptr;
    }
    // What the library would not give back is free now that it is gone.
    for (uint8_t*& block : mTempBuffer)
        delete[] std::exchange(block, nullptr);
    std::free(std::exchange(mWorkMem, nullptr));
    std::free(std::exchange(mPreviewCopy, nullptr));
}

bool ShotAction::createTempBuffer() {
    if (mTempBufferSet)
        return true;
    int count = 0;
    while (count < kTempBlocks) {
        if (!mTempBuffer[count])
            mTempBuffer[count] = allocators.block(kBlockSize);
        if (!mTempBuffer[count])
            break;
        ++count;
    }
    if (count == 0)
        return false;
    mTempBufferSet = ActionShot_SetTempMemory(mActionShot, mTempBuffer, count, kBlockSize) == 1;
    return mTempBufferSet;
}

bool ShotAction::releaseTempBuffer() {
    if (!mTempBufferSet)
        return true;
    if (ActionShot_UnsetTempMemory(mActionShot) != 1)
        return false;
    for (uint8_t*& block : mTempBuffer) {
        if (!block)
            break;
        delete[] std::exchange(block, nullptr);
    }
    mTempBufferSet = false;
    return true;
}

// --- Commands

status_t ShotAction::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    if (cmd == ACTION_SHOT_START_CAPTURE) {
        const AutoMutex held(mEngineLock);
        if (!mCapturing)
            StartCapture();
        return NO_ERROR;
    }
    if (cmd == ACTION_SHOT_CANCEL_CAPTURE)
        cancel();
    if (cmd == ACTION_SHOT_STOP_CAPTURE) {
        const AutoMutex held(mEngineLock);
        if (mCapturing) {
            mCapturing = false;
            mActionState = kStopping;
        }
    }
    return ShotCommon::sendCommand(cmd, arg1, arg2);
}

void ShotAction::StartCapture() {
    mCapturing = true;
    ++mSeries;
    if (!mActionShot) {
        kLog.error("Failed to start series.");
        mSeriesStarted = false;
        return;
    }
    ActionShot_CancelSeries(mActionShot);
    if (!createTempBuffer()) {
        kLog.error("Failed to create temp buffer.");
        mSeriesStarted = false;
        return;
    }
    if (ActionShot_StartSeries(mActionShot) == 0) {
        kLog.error("Failed to start series.");
        mSeriesStarted = false;
        return;
    }
    mStopped = false;
    mImageReady = false;
    mSeriesStarted = true;
    mStarted = true;
    mActionState = kRunning;
}

void ShotAction::cancel() {
    const AutoMutex held(mEngineLock);
    if (mActionShot)
        ActionShot_CancelSeries(mActionShot);
    ++mSeries;
    mStopped = false;
    mSeriesStarted = false;
    mStarted = false;
    mImageReady = false;
    mCapturing = false;
    mActionState = kIdle;
}

// --- Frames

std::optional<int> ShotAction::StatusManager() {
    uint32_t series = 0;
    {
        const AutoMutex held(mEngineLock);
        if (mActionState != kStopping)
            return kGoesOn;
        series = mSeries;
    }
    return StopCapture(false, series);
}

std::optional<int> ShotAction::HandlePreview(unsigned char* frame) {
    const std::optional<int> status = StatusManager();
    if (status != kGoesOn)
        return status;
    int result = kGoesOn;
    bool goesOn = false;
    bool accepted = false;
    uint32_t series = 0;
    {
        const AutoMutex held(mEngineLock);
        if (mActionState == kIdle || !mActionShot)
            return kNoSeries;
        const size_t luma = static_cast<size_t>(mWidth) * static_cast<size_t>(mHeight);
        OPT_API_ASImage image = {0, mWidth, mHeight, {frame, frame + luma, nullptr}};
        goesOn = handleFrame(image, &result);
        if (!goesOn && mStopped)
            return kGoesOn;
        if (goesOn && !mStarted) {
            kLog.error("HandlePreview : mStarted is false - RetVal[%d]", kGoesOn);
            return kGoesOn;
        }
        if (goesOn)
            DrawOnPreviewAcquisition(image);
        else
            kLog.error("call StopCapture 3");
        series = mSeries;
        accepted = mHandleFrameResult == 0;
    }
    if (!goesOn)
        return StopCapture(true, series);
    if (!reportAcquisition(series, accepted))
        return std::nullopt;
    return result;
}

/// Hands the frame to the library. False when that ended the series; `result` tells how the connection changed.
bool ShotAction::handleFrame(OPT_API_ASImage& image, int* result) {
    const bool before = ActionShot_IsConnected(mActionShot) == 1;
    mHandleFrameResult = ActionShot_HandleFrame(mActionShot, &image);
    const bool after = ActionShot_IsConnected(mActionShot) == 1;
    *result = before && !after ? kDisconnected : !before && after ? kConnected : kGoesOn;
    return mHandleFrameResult >= 0 && mHandleFrameResult <= 3;
}

// --- The result

std::optional<int> ShotAction::StopCapture(bool byItself, uint32_t series) {
    {
        const AutoMutex held(mEngineLock);
        if (mStopped || series != mSeries)
            return 0;
        kLog.debug("%s", byItself ? "Stopping acquisition by myself." : "Stopping acquisition manually.");
        mActionState = kStopping;
        mStarted = false;
        mStopped = true;
        if (mImageReady) {
            kLog.debug("Image is already prepared.");
            return 0;
        }
    }
    if (gone(sendNotifyIfSet(CAMERA_MSG_ACTION_CREATION_BEGIN, 0, 0)))
        return std::nullopt;
    return createResult(series);
}

/// Makes the result step by step. A series that was cancelled or begun anew meanwhile ends it.
std::optional<int> ShotAction::createResult(uint32_t series) {
    int32_t progress = 0;
    bool more = true;
    bool sound = false;
    while (more && progress < kDone) {
        {
            const AutoMutex held(mEngineLock);
            if (series != mSeries)
                return 0;
            more = mActionShot && ActionShot_CreateResult(mActionShot, &progress, &mResultImage) != 0;
            sound = progress == kDone && resultIsSound();
        }
        if (gone(sendNotifyIfSet(CAMERA_MSG_ACTION_CREATION_PROGRESS, progress, 0)))
            return std::nullopt;
    }
    if (!sound) {
        if (gone(sendNotifyIfSet(CAMERA_MSG_ACTION_CREATION_END, 0, 0)))
            return std::nullopt;
        const AutoMutex held(mEngineLock);
        if (series == mSeries) {
            mImageReady = false;
            mSeriesStarted = false;
        }
        return 1;
    }
    if (gone(sendNotifyIfSet(CAMERA_MSG_ACTION_CREATION_END, 1, 0)))
        return std::nullopt;
    return deliverResult(series);
}

bool ShotAction::resultIsSound() const {
    return mResultImage.plane[0] && mResultImage.width > 0 && mResultImage.height > 0 &&
           mResultImage.width <= kMostSide && mResultImage.height <= kMostSide;
}

std::optional<int> ShotAction::deliverResult(uint32_t series) {
    const sp<CameraHardwareInterface> hardware = mHardware;
    int quality = kArcJpegQualityWithoutHardware;
    if (hardware.get()) {
        int parameter = 0;
        if (gone(callOut([&] { parameter = hardware->getParameters().getInt(CameraParameters::KEY_JPEG_QUALITY); })))
            return std::nullopt;
        quality = arcJpegQuality(parameter);
    }
    std::optional<ArcJpegEncoding> encoding;
    {
        const AutoMutex held(mEngineLock);  // the image is the library's
        if (series != mSeries)
            return 0;
        mImageReady = true;
        const ArcJpegFrame frame = {mResultImage.plane[0], mResultImage.width, mResultImage.height,
                                    ARC_FORMAT_YUV420_SEMIPLANAR};
        encoding.emplace(kJpegUser, frame, quality);
    }
    if (encoding->picture().get() && gone(sendDataIfSet(CAMERA_MSG_COMPRESSED_IMAGE, encoding->picture())))
        return std::nullopt;
    return 0;
}

ShotCommon* makeShotAction(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotAction>(hardware);
}

}  // namespace android
