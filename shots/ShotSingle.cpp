// Ordinary still capture: the vendor layer takes the picture.

#include "shots/ShotSingle.h"

#include <unistd.h>

#include <utility>

namespace android {

ShotSingle::ShotSingle(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "ShotSingle created: pid=%d", getpid());
}

ShotSingle::~ShotSingle() {
    __android_log_print(ANDROID_LOG_INFO, kTag, "ShotSingle destroyed: pid=%d", getpid());
}

status_t ShotSingle::takePicture() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return INVALID_OPERATION;
    __android_log_print(ANDROID_LOG_INFO, kTag, "ShotSingle::takePicture start");
    const ShotGate::Outside outside(gate());
    const status_t status = hardware->takePicture();
    __android_log_print(ANDROID_LOG_INFO, kTag, "ShotSingle::takePicture end");
    return status;
}

status_t ShotSingle::sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return INVALID_OPERATION;
    __android_log_print(ANDROID_LOG_INFO, kTag, "ShotSingle::sendCommand %d, %d, %d", cmd, arg1, arg2);
    const ShotGate::Outside outside(gate());
    return hardware->sendCommand(cmd, arg1, arg2);
}

void ShotSingle::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    const auto deliver = mCallbacks.data();
    if (deliver && msgType == CAMERA_MSG_COMPRESSED_IMAGE)
        __android_log_print(ANDROID_LOG_INFO, kTag, "CAMERA_MSG_COMPRESSED_IMAGE");
    (void)sendData(msgType, data);
}

}  // namespace android
