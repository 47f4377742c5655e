// Add-me: two pictures of a scene become one with both people in it.

#include "shots/addme/ShotAddMe.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "imaging/SharedPicture.h"
#include "imaging/System.h"
#include "shots/Modes.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotAddMe::kTag);

constexpr int32_t kMostSteps = 301;
constexpr int32_t kMerged = 100;  // percent
constexpr int kFirstAccepted = 12;
constexpr int kResultCreated = 13;

}  // namespace

unsigned ShotAddMe::nPreviewBufIndex = 0;
unsigned char* ShotAddMe::pPreviewHeapBase = nullptr;

ShotAddMe::ShotAddMe(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotAddMe created: pid=%d", getpid());
    nPreviewBufIndex = 0;
    pPreviewHeapBase = nullptr;
    {
        const AutoMutex held(mEngineLock);
        Init();
    }
    StartCapture();
}

ShotAddMe::~ShotAddMe() {
    kLog.info("ShotAddMe destroyed: pid=%d", getpid());
    const AutoMutex held(mEngineLock);
    FreeCoreMemory();
    nPreviewBufIndex = 0;
    pPreviewHeapBase = nullptr;
}

// --- Commands

status_t ShotAddMe::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    switch (cmd) {
        case ADDME_SHOT_INIT: {
            const AutoMutex held(mEngineLock);
            Init();
            return NO_ERROR;
        }
        case ADDME_SHOT_START_CAPTURE:
            StartCapture();
            return NO_ERROR;
        case ADDME_SHOT_SWITCH_FIRST_PERSON:
        case ADDME_SHOT_CANCEL_CAPTURE:
            performOrNote({cmd, arg1});
            return NO_ERROR;
        case ADDME_SHOT_NOTHING:
            return NO_ERROR;
        case ADDME_SHOT_RELEASE: {
            const AutoMutex held(mEngineLock);
            FreeCoreMemory();
            return NO_ERROR;
        }
        default:
            return ShotCallbacks::processCommand(cmd, arg1, arg2);
    }
}

void ShotAddMe::Init() {
    FreeCoreMemory();
    mCapturing = mInstance.Init(mPictureWidth, mPictureHeight, mPreviewWidth, mPreviewHeight);
}

void ShotAddMe::FreeCoreMemory() {
    mCapturing = false;
    mResultReady = false;
    mProgress = 0;
    ++mSeries;
    if (mSnapshotCount >= 2)
        mSnapshotCount = 0;  // the merge under way ends with its instance, and its pair with it
    mInstance.Free();
    const AutoMutex alsoHeld(mMemoryLock);
    mResultHeap.clear();
    mCallbackMemory.clear();
}

void ShotAddMe::StartCapture() {
    int32_t status;
    {
        const AutoMutex held(mEngineLock);
        mProgress = 0;
        status = mInstance.startCapture();
        mCapturing = status == 0;
        if (mCapturing) {
            ++mSeries;
            mSnapshotCount = 0;
            mResultReady = false;
            return;
        }
    }
    (void)sendNotifyIfSet(CAMERA_MSG_ADDME_ERROR, 0, 0);
    kLog.error("Failed to start series. status %d", status);
}

void ShotAddMe::CancelCapture() {
    if (mInstance)
        mInstance.cancelCapture();
    else
        kLog.error("PlusMeControl::CancelCapture() - mInstance is null");
}

void ShotAddMe::SwitchFirstPersonPosition(int position) {
    int32_t current = 0;
    const int32_t status = mInstance.getFirstPersonPosition(&current);
    if (status == 0) {
        kLog.debug("PlusMe_GetFirstPersonPosition is successed");
    } else {
        kLog.error("PlusMe_GetFirstPersonPosition is failed[%d]", status);
        current = 0;
    }
    // The application's value is the complement of the library's.
    if ((position == 1 && current == 0) || (position == 0 && current == 1)) {
        kLog.debug("first person position is already positioned");
        return;
    }
    if (mInstance.switchFirstPersonPosition() != 0)
        kLog.error("switch first person position failed");
}

void ShotAddMe::performOrNote(const Noted& command) {
    {
        const AutoMutex held(mNoteLock);
        if (mMerges > 0) {
            mNoted.push_back(command);
            return;
        }
    }
    const AutoMutex held(mEngineLock);
    perform(command);
}

void ShotAddMe::perform(const Noted& command) {
    if (command.cmd == ADDME_SHOT_CANCEL_CAPTURE)
        CancelCapture();
    else
        SwitchFirstPersonPosition(command.arg1);
}

void ShotAddMe::performNoted() {
    std::vector<Noted> noted;
    {
        const AutoMutex held(mNoteLock);
        noted.swap(mNoted);
    }
    for (const Noted& command : noted)
        perform(command);
}

// --- Messages

void ShotAddMe::processDataCallback(int32_t msgType, const sp<IMemory>& mem) {
    if (!admitData(msgType, mem))
        return;
    switch (msgType) {
        case CAMERA_MSG_PREVIEW_FRAME:
            processPreviewFrame(mem);
            break;
        case CAMERA_MSG_COMPRESSED_IMAGE:
            processPicture(mem);
            break;
        default:
            (void)sendData(msgType, mem);
    }
}

// --- The preview

status_t ShotAddMe::startPreview() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return NO_ERROR;
    return startPreviewAfter(hardware, [this](const CameraParameters& params) {
        const size_t frameSize = previewFrameSize(params, kLog);
        const AutoMutex held(mMemoryLock);
        mRefusedSize = 0;
        makeSlots(frameSize);
    });
}

/// Replaces the slots by two of this size. False, with a line, when there is no memory for them.
bool ShotAddMe::makeSlots(size_t frameSize) {
    mPreviewHeap = frameSize <= PTRDIFF_MAX / 2 ? os::newHeap(2 * frameSize) : nullptr;
    pPreviewHeapBase = mPreviewHeap.get() ? static_cast<unsigned char*>(mPreviewHeap->getBase()) : nullptr;
    if (mPreviewHeap.get())
        return true;
    if (std::exchange(mRefusedSize, frameSize) != frameSize)
        kLog.error("no memory for preview frames of %zu bytes; they are dropped", frameSize);
    return false;
}

sp<IMemoryHeap> ShotAddMe::getPreviewHeap() {
    const AutoMutex held(mMemoryLock);
    return mPreviewHeap;
}

void ShotAddMe::processPreviewFrame(const sp<IMemory>& mem) {
    const RegionBytes bytes = previewBytesOf(mem);
    if (!bytes) {
        (void)sendData(CAMERA_MSG_PREVIEW_FRAME, mem);
        return;
    }
    sp<IMemory> slot;
    {
        const AutoMutex held(mMemoryLock);
        slot = copyToSlot(bytes);
        if (slot.get())
            feed(slot);
    }
    if (slot.get())
        (void)sendData(CAMERA_MSG_PREVIEW_FRAME, slot);
}

/// The frame in the next slot. Where it does not fit, because the preview was not started or has another size by now,
/// the slots are made anew for it; empty when that cannot be.
sp<IMemory> ShotAddMe::copyToSlot(const RegionBytes& frame) {
    const bool fits = mPreviewHeap.get() && frame.size <= mPreviewHeap->getSize() / 2;
    if (!fits && !makeSlots(frame.size))
        return nullptr;
    nPreviewBufIndex = 1 - nPreviewBufIndex;
    const size_t offset = nPreviewBufIndex * frame.size;
    std::memcpy(pPreviewHeapBase + offset, frame.data, frame.size);
    mCallbackMemory = new MemoryBase(mPreviewHeap, static_cast<ssize_t>(offset), frame.size);
    return mCallbackMemory;
}

/// Shows the frame to the library while a series runs. The library misses a frame while it is busy, as in a merge.
void ShotAddMe::feed(const sp<IMemory>& slot) {
    if (mEngineLock.tryLock())
        return;  // busy
    if (!mCapturing)
        kLog.error("we are not capturing");
    else if (const std::optional<PreviewFrame> frame = previewFrameOf(slot))
        HandlePreview(*frame);
    mEngineLock.unlock();
}

void ShotAddMe::HandlePreview(const PreviewFrame& frame) {
    const nsecs_t now = os::now(SYSTEM_TIME_REALTIME);
    PME_API_TimedImage timed = {};
    timed.image = {0, frame.width, frame.height, {frame.luma, frame.chroma, nullptr}};
    timed.seconds = static_cast<long>(now / 1000000000);
    timed.microseconds = static_cast<long>(now % 1000000000 / 1000);
    mInstance.handlePreview(timed);
}

// --- The pictures

void ShotAddMe::processPicture(const sp<IMemory>& mem) {
    const RegionBytes picture = regionBytesOf(mem);
    if (!picture) {
        sendWithoutMemory(CAMERA_MSG_COMPRESSED_IMAGE, mem);
        return;
    }
    uint32_t series;
    const Step step = AddFrameJpeg(picture.data, picture.size, nullptr, &series);
    if (gone(step.after))
        return;
    if (step.status == kResultCreated)
        (void)sendData(CAMERA_MSG_COMPRESSED_IMAGE, copyResult(series));
    else if (!gone(sendNotifyIfSet(CAMERA_MSG_ADDME_NO_RESULT, 0, 0)))
        (void)sendData(CAMERA_MSG_COMPRESSED_IMAGE, mem);
}

ShotAddMe::Step ShotAddMe::AddFrameJpeg(void* data, unsigned long size, PME_API_Image* image, uint32_t* series) {
    int32_t status, count;
    bool noInstance;
    {
        const AutoMutex held(mEngineLock);
        noInstance = !mInstance;
        status = mInstance.handleSnapshotJpeg(data, size, image);
        if (status == 0)
            ++mSnapshotCount;
        count = mSnapshotCount;
        *series = mSeries;
        const AutoMutex alsoHeld(mNoteLock);
        if (count == 2 && status == 0)
            ++mMerges;
    }
    if (noInstance) {
        kLog.error("PlusMeControl::AddFrameJpeg - mInstance is null");
        return {sendNotifyIfSet(CAMERA_MSG_ADDME_ERROR, 1, 0)};
    }
    if (status != 0) {
        kLog.error("PlusMe_HandleSnapshotJpeg FAILED %d!!!!!", status);
        if (gone(sendNotifyIfSet(CAMERA_MSG_ADDME_ERROR, 0, 0)))
            return {AfterCall::ShotGone};
    }
    if (count == 1) {
        kLog.error("exiting ::HandlePreview snapshots 1");
        return {AfterCall::GoOn, kFirstAccepted};
    }
    // A picture that is refused while another thread merges two does not begin a second merge.
    if (count != 2 || status != 0)
        return {AfterCall::GoOn, status};
    return {createResult(*series), kResultCreated};
}

/// Merges in the library's steps, with a message to the application after each.
AfterCall ShotAddMe::createResult(uint32_t series) {
    for (int32_t step = 0;; ++step) {
        int32_t progress;
        {
            const AutoMutex held(mEngineLock);
            performNoted();
            if (!createStep(series, step)) {
                endMerge();
                return AfterCall::GoOn;
            }
            progress = mProgress;
        }
        if (gone(sendNotifyIfSet(CAMERA_MSG_ADDME_PROGRESS, progress, 0)))
            return AfterCall::ShotGone;
    }
}

/// False at the end of the merge: when it is done, when it failed, and when its series is over, because the instance
/// was freed or another series was started. Then whoever did that has ended the pair, and a later one may have begun.
bool ShotAddMe::createStep(uint32_t series, int32_t step) {
    if (series != mSeries)
        return false;
    if (step == 0)
        mProgress = 0;
    if (step < kMostSteps && mProgress < kMerged) {
        const int32_t status = mInstance.createResult(&mProgress);
        if (status == 0)
            return true;
        kLog.error("ERROR ... status: %d", status);
    } else {
        mResultReady = true;
    }
    mSnapshotCount = 0;
    return false;
}

void ShotAddMe::endMerge() {
    for (;;) {
        performNoted();
        const AutoMutex held(mNoteLock);
        if (mNoted.empty()) {
            --mMerges;
            return;
        }
    }
}

/// The merged picture in a heap of its own; a region of no bytes when there is none, as for a series that is over.
sp<IMemory> ShotAddMe::copyResult(uint32_t series) {
    const AutoMutex held(mEngineLock);  // the result is the library's
    long length = 0;
    const void* const data = GetPlusMeImage(&length, mResultReady && series == mSeries);
    kLog.error("result data ptr[0x%X] size[%d]", static_cast<unsigned>(reinterpret_cast<uintptr_t>(data)),
               static_cast<int>(length));
    const AutoMutex alsoHeld(mMemoryLock);
    const size_t size = data ? static_cast<size_t>(std::max(length, 0L)) : 0;
    copyToSharedMemory(data, size, &mResultHeap, &mCallbackMemory);
    if (mCallbackMemory->size() < size)
        kLog.error("no memory for the merged picture of %zu bytes", size);
    return mCallbackMemory;
}

void* ShotAddMe::GetPlusMeImage(long* size, bool ready) {
    if (!mCapturing || !ready) {
        kLog.error("No image to return. a-%d i-%d\n", mCapturing ? 1 : 0, ready ? 1 : 0);
        return nullptr;
    }
    void* data = nullptr;
    const int32_t status = mInstance.getResultJpeg(&data, size);
    if (status != 0) {
        kLog.error("get result [%d]\n", status);
        return nullptr;
    }
    return data;
}

ShotCommon* makeShotAddMe(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotAddMe>(hardware);
}

}  // namespace android
