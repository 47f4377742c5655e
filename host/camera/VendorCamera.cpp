// The camera hardware layer of the host: the platform's interface over a Delivery.

#include "host/camera/VendorCamera.h"

#include <android/log.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "host/camera/Delivery.h"
#include "host/camera/Failure.h"
#include "host/control/Control.h"

namespace kov::camera {

using namespace android;

namespace {

constexpr char kTag[] = "VendorCamera";
constexpr double kLeastSpeed = 0.1;
constexpr double kMostSpeed = 100;

/// The environment's KOV_CAMERA_SPEED, or 1. False after an error line.
bool readSpeed(double* speed) {
    const char* text = std::getenv("KOV_CAMERA_SPEED");
    *speed = 1;
    if (!text || !*text)
        return true;
    char* end = nullptr;
    *speed = std::strtod(text, &end);
    if (*end == '\0' && *speed >= kLeastSpeed && *speed <= kMostSpeed)
        return true;
    char reason[128];
    std::snprintf(reason, sizeof reason, "KOV_CAMERA_SPEED must be a number from %g to %g, not \"%.40s\"", kLeastSpeed,
                  kMostSpeed, text);
    fail(reason);
    return false;
}

}  // namespace

VendorCamera::VendorCamera(std::unique_ptr<FrameSource> source, const std::string& sourceName, double speed)
    : mDelivery(std::make_shared<Delivery>(std::move(source), sourceName, speed)) {
    mDelivery->start();
}

VendorCamera::~VendorCamera() {
    mDelivery->shutDown();
}

sp<IMemoryHeap> VendorCamera::getPreviewHeap() {
    return mDelivery->previewHeap();
}
sp<IMemoryHeap> VendorCamera::getRawHeap() {
    return mDelivery->rawHeap();
}
void VendorCamera::setCallbacks(notify_callback notify, data_callback data, data_callback_timestamp dataTimestamp,
                                void* user) {
    mDelivery->setCallbacks(notify, data, dataTimestamp, user);
}
void VendorCamera::enableMsgType(int32_t msgType) {
    mDelivery->enable(msgType);
}
void VendorCamera::disableMsgType(int32_t msgType) {
    mDelivery->disable(msgType);
}
bool VendorCamera::msgTypeEnabled(int32_t msgType) {
    return mDelivery->enabled(msgType);
}
status_t VendorCamera::startPreview() {
    return mDelivery->startPreview();
}
void VendorCamera::stopPreview() {
    mDelivery->stopPreview();
}
bool VendorCamera::previewEnabled() {
    return mDelivery->previewing();
}
status_t VendorCamera::startRecording() {
    return mDelivery->startRecording();
}
void VendorCamera::stopRecording() {
    mDelivery->stopRecording();
}
bool VendorCamera::recordingEnabled() {
    return mDelivery->recording();
}
void VendorCamera::releaseRecordingFrame(const sp<IMemory>& mem) {
    mDelivery->releaseRecordingFrame(mem);
}
status_t VendorCamera::autoFocus() {
    return mDelivery->autoFocus();
}
status_t VendorCamera::cancelAutoFocus() {
    mDelivery->cancelAutoFocus();
    return NO_ERROR;
}
status_t VendorCamera::takePicture() {
    return mDelivery->takePicture();
}
status_t VendorCamera::cancelPicture() {
    mDelivery->cancelPicture();
    return NO_ERROR;
}
status_t VendorCamera::setParameters(const CameraParameters& params) {
    return mDelivery->setParameters(params);
}
CameraParameters VendorCamera::getParameters() const {
    return mDelivery->parameters();
}

status_t VendorCamera::sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    // Shots pass on what is not theirs alone, so this is no fault of the application.
    __android_log_print(ANDROID_LOG_INFO, kTag, "no command %d (%d, %d)", cmd, arg1, arg2);
    return BAD_VALUE;
}

void VendorCamera::release() {
    mDelivery->shutDown();
}

status_t VendorCamera::dump(int fd, const Vector<String16>&) const {
    const std::string text = mDelivery->describe();
    for (size_t written = 0; written < text.size();) {
        const ssize_t more = write(fd, text.data() + written, text.size() - written);
        if (more <= 0)
            return UNKNOWN_ERROR;
        written += static_cast<size_t>(more);
    }
    return NO_ERROR;
}

}  // namespace kov::camera

extern "C" __attribute__((visibility("default"))) android::sp<android::CameraHardwareInterface> openCameraHardware() {
    using namespace kov::camera;
    double speed = 1;
    if (!readSpeed(&speed))
        return {};
    std::string name = kov::host::chosenSource();
    if (name.empty())
        name = "scene:" + builtinScenes().front().name;
    std::string error;
    std::unique_ptr<FrameSource> source = openSource(name, &error);
    if (!source) {
        fail(error, "no camera: ");
        return {};
    }
    return new VendorCamera(std::move(source), name, speed);
}
