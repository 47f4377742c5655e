// Add-me: two pictures of a scene become one with both people in it.

#include "shots/addme/ShotAddMe.h"

#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "imaging/SharedPicture.h"
#include "imaging/TaggedLog.h"
#include "shots/Modes.h"
#include "shots/PreviewFrame.h"
#include "shots/addme/JpegEncoderAddMe.h"

namespace android {

namespace {

constexpr int32_t kMostPictureWidth = 2560;
constexpr int32_t kMostPictureHeight = 1920;
constexpr int32_t kMostPreviewWidth = 640;
constexpr int32_t kMostPreviewHeight = 480;
constexpr int32_t kMode = 1;
constexpr int32_t kCapacity = 1900000;

constexpr int32_t kMostSteps = 301;
constexpr int32_t kMerged = 100;  // percent
constexpr int kFirstAccepted = 12;
constexpr int kResultCreated = 13;

// The status that stands for a library call that was not made.
constexpr int32_t kNoInstance = -1;

const PME_API_Memory kMemory = {memcpy, memset};

constexpr TaggedLog kLog(ShotAddMe::kTag);

/// Calls an operation of the library that takes an instance. The library is not asked without one: what it would do
/// with a null handle is not known.
template <typename Operation, typename... Arguments>
int32_t call(Operation operation, PME_API_Instance instance, Arguments... arguments) {
    return instance ? operation(instance, arguments...) : kNoInstance;
}

}  // namespace

unsigned ShotAddMe::nPreviewBufIndex = 0;
unsigned char* ShotAddMe::pPreviewHeapBase = nullptr;

ShotAddMe::ShotAddMe(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotAddMe created: pid=%d", getpid());
    nPreviewBufIndex = 0;
    pPreviewHeapBase = nullptr;
    Init();
    StartCapture();
}

ShotAddMe::~ShotAddMe() {
    kLog.info("ShotAddMe destroyed: pid=%d", getpid());
    FreeCoreMemory();
    nPreviewBufIndex = 0;
    pPreviewHeapBase = nullptr;
}

status_t ShotAddMe::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    switch (cmd) {
        case ADDME_SHOT_INIT:
            Init();
            return NO_ERROR;
        case ADDME_SHOT_START_CAPTURE:
            StartCapture();
            return NO_ERROR;
        case ADDME_SHOT_SWITCH_FIRST_PERSON:
            SwitchFirstPersonPosition(arg1);
            return NO_ERROR;
        case ADDME_SHOT_NOTHING:
            return NO_ERROR;
        case ADDME_SHOT_CANCEL_CAPTURE:
            CancelCapture();
            return NO_ERROR;
        case ADDME_SHOT_RELEASE:
            FreeCoreMemory();
            return NO_ERROR;
        default:
            return ShotCommon::sendCommand(cmd, arg1, arg2);
    }
}

// --- The library's instance

bool ShotAddMe::Init() {
    const AutoMutex held(mEngineLock);
    return initLocked();
}

bool ShotAddMe::initLocked() {
    freeLocked();
    if (mPictureWidth < 1 || mPictureHeight < 1) {
        kLog.error("unexpected Picture size(%d, %d)\n", mPictureWidth.load(), mPictureHeight.load());
        freeLocked();
        return false;
    }
    kLog.debug("%s", PlusMe_GetVersion());
    kLog.debug("Dimensions snap(%d, %d) prev(%d, %d)\n", mPictureWidth.load(), mPictureHeight.load(),
               mPreviewWidth.load(), mPreviewHeight.load());
    const int32_t status =
        PlusMe_PreInitialize(kMostPictureWidth, kMostPictureHeight, kMostPreviewWidth, kMostPreviewHeight, 0, &kMemory,
                             kMode, kCapacity, jpeg_compress_yuv420sp_AddMe);
    if (status != 0) {
        kLog.error("Pre-Init of PlusMe failed.[%d]", status);
        freeLocked();
        return false;
    }
    return openInstance() && setUpInstance() && giveTempBuffer();
}

bool ShotAddMe::openInstance() {
    const size_t size = PlusMe_GetPermanentBufferSize();
    if (size == 0) {
        kLog.error("buf_size =  -1");
        return false;
    }
    mPermanentBuffer = std::malloc(size);
    if (!mPermanentBuffer) {
        kLog.error("Failed to allocate memory for copy frame.");
        return false;
    }
    int32_t status = PlusMe_Initialize(&mInstance, mPermanentBuffer, size);
    call(PlusMe_SetConfigurationParameter, mInstance, 0, 0);
    call(PlusMe_SetConfigurationParameter, mInstance, 3, 2);
    const int32_t configured = call(PlusMe_SetConfigurationParameter, mInstance, 4, 0);
    if (status == 0)
        status = configured;
    if (status != 0) {
        kLog.error("Init of PlusMe failed.[%d]", status);
        freeLocked();
    }
    return status == 0;
}

bool ShotAddMe::setUpInstance() {
    const int32_t status =
        PlusMe_SetResolution(mInstance, mPictureWidth, mPictureHeight, mPreviewWidth, mPreviewHeight);
    if (status != 0) {
        kLog.debug("set resolution failed.[%d]", status);
        freeLocked();
    }
    return status == 0;
}

/// On failure the instance stays as far as it was built.
bool ShotAddMe::giveTempBuffer() {
    const size_t size = PlusMe_GetTemporaryBufferSize();
    if (size == 0) {
        kLog.debug("buf_size =  -1");
        return false;
    }
    mTempBuffer = std::malloc(size);
    if (!mTempBuffer) {
        kLog.debug("Failed to allocate memory for temp frame");
        return false;
    }
    PlusMe_SetTempBuffer(mInstance, mTempBuffer, size);
    mCapturing = true;
    return true;
}

void ShotAddMe::FreeCoreMemory() {
    const AutoMutex held(mEngineLock);
    freeLocked();
}

void ShotAddMe::freeLocked() {
    mCapturing = false;
    mResultReady = false;
    mProgress = 0;
    ++mGeneration;
    std::free(mTempBuffer);
    mTempBuffer = nullptr;
    if (mInstance)
        PlusMe_Finalize(&mInstance);
    mInstance = nullptr;
    std::free(mPermanentBuffer);
    mPermanentBuffer = nullptr;
    const AutoMutex alsoHeld(mMemoryLock);
    mResultHeap.clear();
    mCallbackMemory.clear();
}

// --- The series

bool ShotAddMe::StartCapture() {
    int32_t status = 0;
    {
        const AutoMutex held(mEngineLock);
        mProgress = 0;
        status = call(PlusMe_StartCapture, mInstance);
        mCapturing = status == 0;
        if (status == 0) {
            ++mGeneration;
            mSnapshotCount = 0;
            mResultReady = false;
            return true;
        }
    }
    (void)sendNotifyIfSet(CAMERA_MSG_ADDME_ERROR, 0, 0);
    kLog.error("Failed to start series. status %d", status);
    return false;
}

void ShotAddMe::CancelCapture() {
    const AutoMutex held(mEngineLock);
    if (!mInstance) {
        kLog.error("PlusMeControl::CancelCapture() - mInstance is null");
        return;
    }
    PlusMe_CancelCapture(mInstance);
}

void ShotAddMe::SwitchFirstPersonPosition(int position) {
    const AutoMutex held(mEngineLock);
    int32_t current = 0;
    const int32_t status = call(PlusMe_GetFirstPersonPosition, mInstance, &current);
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
    if (call(PlusMe_SwitchFirstPersonPosition, mInstance) != 0)
        kLog.error("switch first person position failed");
}

std::optional<int> ShotAddMe::AddFrameJpeg(void* data, unsigned long size, PME_API_Image* image) {
    int32_t status = kNoInstance;
    int32_t count = 0;
    uint32_t generation = 0;
    bool noInstance = false;
    {
        const AutoMutex held(mEngineLock);
        noInstance = !mInstance;
        if (!noInstance) {
            status = PlusMe_HandleSnapshotJpeg(mInstance, data, size, image);
            mSnapshotCount += status == 0;
        }
        count = mSnapshotCount;
        generation = mGeneration;
    }
    if (noInstance) {
        kLog.error("PlusMeControl::AddFrameJpeg - mInstance is null");
        return !gone(sendNotifyIfSet(CAMERA_MSG_ADDME_ERROR, 1, 0)) ? std::optional(0) : std::nullopt;
    }
    if (status != 0) {
        kLog.error("PlusMe_HandleSnapshotJpeg FAILED %d!!!!!", status);
        if (gone(sendNotifyIfSet(CAMERA_MSG_ADDME_ERROR, 0, 0)))
            return std::nullopt;
    }
    if (count == 1) {
        kLog.error("exiting ::HandlePreview snapshots 1");
        return kFirstAccepted;
    }
    // A picture that is refused while another thread merges two does not begin a second merge.
    if (count != 2 || status != 0)
        return status;
    return createResult(generation) ? std::optional(kResultCreated) : std::nullopt;
}

/// Merges in the library's steps, with a message to the application after each. A merge whose series is over ends like
/// one that failed, and leaves the pictures of a later series alone. False when the shot was retired.
bool ShotAddMe::createResult(uint32_t generation) {
    {
        const AutoMutex held(mEngineLock);
        if (generation == mGeneration)
            mProgress = 0;
    }
    for (int32_t step = 0;; ++step) {
        int32_t progress = 0;
        {
            const AutoMutex held(mEngineLock);
            if (generation != mGeneration)
                return true;
            if (step == kMostSteps || mProgress >= kMerged) {
                mResultReady = true;
                mSnapshotCount = 0;
                return true;
            }
            const int32_t status = PlusMe_CreateResult(mInstance, &mProgress);
            if (status != 0) {
                kLog.error("ERROR ... status: %d", status);
                mSnapshotCount = 0;
                return true;
            }
            progress = mProgress;
        }
        if (gone(sendNotifyIfSet(CAMERA_MSG_ADDME_PROGRESS, progress, 0)))
            return false;
    }
}

void* ShotAddMe::GetPlusMeImage(long* size) {
    const AutoMutex held(mEngineLock);
    return plusMeImageLocked(size);
}

void* ShotAddMe::plusMeImageLocked(long* size) {
    if (!mCapturing || !mResultReady) {
        kLog.error("No image to return. a-%d i-%d\n", mCapturing ? 1 : 0, mResultReady ? 1 : 0);
        return nullptr;
    }
    void* data = nullptr;
    const int32_t status = PlusMe_GetResultJpeg(mInstance, &data, size);
    if (status != 0) {
        kLog.error("get result [%d]\n", status);
        return nullptr;
    }
    return data;
}

// --- The preview

status_t ShotAddMe::startPreview() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return NO_ERROR;
    return startPreviewAfter(hardware, [this](const CameraParameters& params) {
        const sp<MemoryHeapBase> heap = new MemoryHeapBase(2 * previewFrameSize(params, kLog));
        const AutoMutex held(mMemoryLock);
        mPreviewHeap = heap;
        pPreviewHeapBase = static_cast<unsigned char*>(heap->getBase());
    });
}

sp<IMemoryHeap> ShotAddMe::getPreviewHeap() {
    const AutoMutex held(mMemoryLock);
    return mPreviewHeap;
}

bool ShotAddMe::HandlePreview(unsigned char* frame) {
    const AutoMutex held(mEngineLock);
    return handlePreviewLocked(frame);
}

bool ShotAddMe::handlePreviewLocked(unsigned char* frame) {
    PME_API_TimedImage timed = {};
    timed.image.width = mPreviewWidth;
    timed.image.height = mPreviewHeight;
    timed.image.plane[0] = frame;
    timed.image.plane[1] = frame + size_t(timed.image.width) * size_t(timed.image.height);
    timeval now;
    gettimeofday(&now, nullptr);
    timed.seconds = static_cast<long>(now.tv_sec);
    timed.microseconds = static_cast<long>(now.tv_usec);
    return call(PlusMe_HandlePreview, mInstance, &timed.image) == 0;
}

// --- The data path

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

void ShotAddMe::processPreviewFrame(const sp<IMemory>& mem) {
    sp<IMemory> slot;
    {
        // From copy to feed, so that no other thread's frame is copied over the one that the library looks at.
        const AutoMutex held(mEngineLock);
        slot = copyToSlot(mem);
        if (slot.get())
            feed(slot);
    }
    if (!slot.get())
        kLog.error("a frame of %zu bytes has no slot", mem->size());
    (void)sendData(CAMERA_MSG_PREVIEW_FRAME, slot.get() ? slot : mem);
}

/// Empty when the frame does not fit: the preview was not started, or its size was changed since.
sp<IMemory> ShotAddMe::copyToSlot(const sp<IMemory>& mem) {
    const void* const frame = mem->pointer();
    const size_t size = mem->size();
    const AutoMutex held(mMemoryLock);
    if (!frame || size == 0 || !pPreviewHeapBase || size > mPreviewHeap->getSize() / 2)
        return nullptr;
    nPreviewBufIndex = 1 - nPreviewBufIndex;
    const size_t offset = nPreviewBufIndex * size;
    std::memcpy(pPreviewHeapBase + offset, frame, size);
    mCallbackMemory = new MemoryBase(mPreviewHeap, static_cast<ssize_t>(offset), size);
    return mCallbackMemory;
}

/// Shows the frame to the library while a series runs. A frame that is smaller than the library expects is kept from
/// it.
void ShotAddMe::feed(const sp<IMemory>& slot) {
    if (!mCapturing)
        kLog.error("we are not capturing");
    else if (slot->size() >= yuv420FrameSize(mPreviewWidth, mPreviewHeight))
        handlePreviewLocked(static_cast<unsigned char*>(slot->pointer()));
}

void ShotAddMe::processPicture(const sp<IMemory>& mem) {
    if (!mem->pointer()) {
        sendWithoutMemory(CAMERA_MSG_COMPRESSED_IMAGE, mem);
        return;
    }
    const std::optional<int> result = AddFrameJpeg(mem->pointer(), mem->size(), nullptr);
    if (!result)
        return;
    if (*result == kResultCreated)
        (void)sendData(CAMERA_MSG_COMPRESSED_IMAGE, copyResult());
    else if (!gone(sendNotifyIfSet(CAMERA_MSG_ADDME_NO_RESULT, 0, 0)))
        (void)sendData(CAMERA_MSG_COMPRESSED_IMAGE, mem);
}

/// The merged picture in a heap of its own; a region of no bytes when there is none.
sp<IMemory> ShotAddMe::copyResult() {
    const AutoMutex held(mEngineLock);  // the result is the library's
    long length = 0;
    const void* const data = plusMeImageLocked(&length);
    kLog.error("result data ptr[0x%X] size[%d]", static_cast<unsigned>(reinterpret_cast<uintptr_t>(data)),
               static_cast<int>(length));
    const AutoMutex alsoHeld(mMemoryLock);
    copyToSharedMemory(data, length > 0 ? static_cast<size_t>(length) : 0, &mResultHeap, &mCallbackMemory);
    return mCallbackMemory;
}

ShotCommon* makeShotAddMe(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotAddMe>(hardware);
}

}  // namespace android
