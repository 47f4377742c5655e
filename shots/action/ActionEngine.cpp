// An engine of the action-shot library, and the memory that it works in.

#include "shots/action/ActionEngine.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "imaging/System.h"
#include "shots/PreviewFrame.h"
#include "shots/action/ShotAction.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotAction::kTag);

constexpr unsigned kMostBlocks = 25;
constexpr unsigned kLeastBlocks = 4;

// Numbers of the library's and their values.
constexpr struct {
    int32_t number;
    int32_t value;
} kParameters[] = {{0, 8}, {1, 0}, {2, 0}, {3, 5}, {4, 24}, {5, 0}, {7, 0}};

const ActionShot_MemoryFunctions kMemoryFunctions = {std::memcpy, std::memset};

uint8_t* allocate(uint64_t size) {
    return size <= PTRDIFF_MAX ? static_cast<uint8_t*>(os::allocate(static_cast<size_t>(size))) : nullptr;
}

void release(uint8_t*& block) {
    std::free(std::exchange(block, nullptr));
}

}  // namespace

bool ActionEngine::Init(int width, int height) {
    ActionShot_SetMemoryFunctions(&kMemoryFunctions);
    kLog.info("Dimensions (%d, %d)\n", width, height);
    mPreviewCopy = allocate(yuv420FrameSize(width, height));
    if (mPreviewCopy)
        kLog.info("Memory allocated for preview frame.");
    else
        kLog.error("Failed to allocate memory for preview frame.");
    allocateWorkMemory();
    if (ActionShot_Initialize(&mActionShot, width, height, mWorkMem, mWorkMemSize) != 1 || !mActionShot) {
        kLog.error("Init of ActionShot failed.");
        mActionShot = nullptr;
        return false;
    }
    kLog.info("Init of ActionShot successful");
    ActionShot_SetResolution(mActionShot, width, height);
    ActionShot_SetSceneCompletionActivationMode(mActionShot, 0);
    for (const auto& [number, value] : kParameters)
        ActionShot_SetConfigurationParameter(mActionShot, number, value);
    return true;
}

/// As many blocks as can be had, down to the least. The library is not told of memory that is not there.
void ActionEngine::allocateWorkMemory() {
    for (mWorkBlockCount = kMostBlocks; mWorkBlockCount >= kLeastBlocks; --mWorkBlockCount) {
        mWorkMem = allocate(uint64_t{mWorkBlockCount} * kBlockSize);
        if (mWorkMem)
            break;
    }
    mWorkMemSize = mWorkMem ? mWorkBlockCount * kBlockSize : 0;
}

void ActionEngine::Free() {
    if (mActionShot) {
        if (mTempBufferSet)
            ActionShot_UnsetTempMemory(mActionShot);
        ActionShot_Finalize(&mActionShot);
        mActionShot = nullptr;
    }
    // Also what the library would not give back is free now that it is gone.
    std::for_each(std::begin(mTempBuffer), std::end(mTempBuffer), release);
    release(mWorkMem);
    release(mPreviewCopy);
}

// --- A series

void ActionEngine::cancelSeries() {
    if (mActionShot)
        ActionShot_CancelSeries(mActionShot);
}

bool ActionEngine::startSeries() {
    if (mActionShot && !createTempBuffer()) {
        kLog.error("Failed to create temp buffer.");
        return false;
    }
    if (!mActionShot || ActionShot_StartSeries(mActionShot) == 0) {
        kLog.error("Failed to start series.");
        return false;
    }
    return true;
}

bool ActionEngine::createTempBuffer() {
    if (mTempBufferSet)
        return true;
    int count = 0;
    while (count < kTempBlocks) {
        if (!mTempBuffer[count])  // one that an earlier attempt got is still there
            mTempBuffer[count] = allocate(kBlockSize);
        if (!mTempBuffer[count])
            break;
        ++count;
    }
    if (count == 0)
        return false;
    mTempBufferSet = ActionShot_SetTempMemory(mActionShot, mTempBuffer, count, kBlockSize) == 1;
    return mTempBufferSet;
}

// --- Its frames

bool ActionEngine::isConnected() {
    return ActionShot_IsConnected(mActionShot) == 1;
}

int32_t ActionEngine::handleFrame(const OPT_API_ASImage& frame) {
    return ActionShot_HandleFrame(mActionShot, &frame);
}

ActionShot_DisplayData ActionEngine::displayData() {
    ActionShot_DisplayData data;
    data.count = 0;
    ActionShot_GetAcquisitionDisplayData(mActionShot, &data);
    data.count = std::min(data.count, static_cast<int32_t>(std::size(data.entries)));
    return data;
}

int32_t ActionEngine::acquisitionProgress() {
    return ActionShot_AcquisitionProgress(mActionShot);
}

bool ActionEngine::createResult(int32_t* progress, OPT_API_ASImage* result) {
    return mActionShot && ActionShot_CreateResult(mActionShot, progress, result) != 0;
}

}  // namespace android
