// Ordinary still capture: the vendor layer takes the picture.

#include "shots/single/ShotSingle.h"

#include <unistd.h>

#include <utility>

#include "shots/Modes.h"

namespace android {

namespace {
constexpr TaggedLog kLog(ShotSingle::kTag);
}

ShotSingle::ShotSingle(sp<CameraHardwareInterface> hardware) : ShotCallbacks(std::move(hardware)) {
    kLog.info("ShotSingle created: pid=%d", getpid());
}

ShotSingle::~ShotSingle() {
    kLog.info("ShotSingle destroyed: pid=%d", getpid());
}

status_t ShotSingle::takePicture() {
    const sp<CameraHardwareInterface> hardware = hardwareOrLog();
    if (!hardware.get())
        return INVALID_OPERATION;
    kLog.info("ShotSingle::takePicture start");
    const ShotGate::Outside outside(gate());
    const status_t status = hardware->takePicture();
    kLog.info("ShotSingle::takePicture end");
    return status;
}

status_t ShotSingle::processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    kLog.info("ShotSingle::sendCommand %d, %d, %d", cmd, arg1, arg2);
    return ShotCallbacks::processCommand(cmd, arg1, arg2);
}

void ShotSingle::processDataCallback(int32_t msgType, const sp<IMemory>& data) {
    const auto deliver = mCallbacks.data();
    if (deliver && msgType == CAMERA_MSG_COMPRESSED_IMAGE)
        kLog.info("CAMERA_MSG_COMPRESSED_IMAGE");
    (void)sendData(msgType, data);
}

ShotCommon* makeShotSingle(const sp<CameraHardwareInterface>& hardware) {
    return makeShot<ShotSingle>(hardware);
}

}  // namespace android
