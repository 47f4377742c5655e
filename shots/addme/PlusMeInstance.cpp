// An instance of the add-me library, and the memory that it works in.

#include "shots/addme/PlusMeInstance.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "imaging/System.h"
#include "shots/addme/JpegEncoderAddMe.h"
#include "shots/addme/ShotAddMe.h"

namespace android {

namespace {

constexpr TaggedLog kLog(ShotAddMe::kTag);

const PME_API_Memory kMemory = {memcpy, memset};

template <typename Operation, typename... Arguments>
int32_t call(Operation operation, PME_API_Instance instance, Arguments... arguments) {
    return instance ? operation(instance, arguments...) : PlusMeInstance::kNone;
}

}  // namespace

bool PlusMeInstance::Init(int32_t pictureWidth, int32_t pictureHeight, int32_t previewWidth, int32_t previewHeight) {
    if (pictureWidth < 1 || pictureHeight < 1) {
        kLog.error("unexpected Picture size(%d, %d)\n", pictureWidth, pictureHeight);
        return false;
    }
    kLog.debug("%s", PlusMe_GetVersion());
    kLog.debug("Dimensions snap(%d, %d) prev(%d, %d)\n", pictureWidth, pictureHeight, previewWidth, previewHeight);
    // The largest picture and preview; what the 0, the 1 and the 1900000 mean lies with the library.
    int32_t status = PlusMe_PreInitialize(2560, 1920, 640, 480, 0, &kMemory, 1, 1900000, jpeg_compress_yuv420sp_AddMe);
    if (status != 0) {
        kLog.error("Pre-Init of PlusMe failed.[%d]", status);
        return false;
    }
    if (!open())
        return false;
    status = PlusMe_SetResolution(mInstance, pictureWidth, pictureHeight, previewWidth, previewHeight);
    if (status != 0) {
        kLog.debug("set resolution failed.[%d]", status);
        Free();
        return false;
    }
    return giveTempBuffer();
}

bool PlusMeInstance::open() {
    const size_t size = PlusMe_GetPermanentBufferSize();
    if (size == 0) {
        kLog.error("buf_size =  -1");
        return false;
    }
    mPermanentBuffer = os::allocate(size);
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
        Free();
    }
    return status == 0;
}

/// On failure the instance stays as far as it was built.
bool PlusMeInstance::giveTempBuffer() {
    const size_t size = PlusMe_GetTemporaryBufferSize();
    if (size == 0) {
        kLog.debug("buf_size =  -1");
        return false;
    }
    mTempBuffer = os::allocate(size);
    if (!mTempBuffer) {
        kLog.debug("Failed to allocate memory for temp frame");
        return false;
    }
    PlusMe_SetTempBuffer(mInstance, mTempBuffer, size);
    return true;
}

void PlusMeInstance::Free() {
    std::free(std::exchange(mTempBuffer, nullptr));
    if (mInstance)
        PlusMe_Finalize(&mInstance);
    mInstance = nullptr;
    std::free(std::exchange(mPermanentBuffer, nullptr));
}

int32_t PlusMeInstance::startCapture() {
    return call(PlusMe_StartCapture, mInstance);
}

int32_t PlusMeInstance::cancelCapture() {
    return call(PlusMe_CancelCapture, mInstance);
}

int32_t PlusMeInstance::handlePreview(PME_API_TimedImage& frame) {
    return call(PlusMe_HandlePreview, mInstance, &frame.image);
}

int32_t PlusMeInstance::handleSnapshotJpeg(void* jpeg, unsigned long size, PME_API_Image* image) {
    return call(PlusMe_HandleSnapshotJpeg, mInstance, jpeg, size, image);
}

int32_t PlusMeInstance::createResult(int32_t* progress) {
    return call(PlusMe_CreateResult, mInstance, progress);
}

int32_t PlusMeInstance::getResultJpeg(void** jpeg, long* size) {
    return call(PlusMe_GetResultJpeg, mInstance, jpeg, size);
}

int32_t PlusMeInstance::getFirstPersonPosition(int32_t* position) {
    return call(PlusMe_GetFirstPersonPosition, mInstance, position);
}

int32_t PlusMeInstance::switchFirstPersonPosition() {
    return call(PlusMe_SwitchFirstPersonPosition, mInstance);
}

}  // namespace android
