// A vendor layer that records its calls and answers as a test tells it.

#include "tests/support/FakeCameraHardware.h"

#include <atomic>

#include "tests/support/Recorder.h"

using namespace android;

namespace kov::test {

namespace {
std::atomic<size_t> gOpened{0};

sp<CameraHardwareInterface>& next() {
    static sp<CameraHardwareInterface> hardware;
    return hardware;
}
}  // namespace

FakeCameraHardware::FakeCameraHardware() {
    params.setPreviewSize(640, 480);
    params.setPreviewFormat("yuv420sp");
    params.setPictureSize(2560, 1920);
    params.setPictureFormat("jpeg");
}

FakeCameraHardware::~FakeCameraHardware() = default;

void FakeCameraHardware::setNext(const sp<CameraHardwareInterface>& hardware) {
    next() = hardware;
}

sp<CameraHardwareInterface> FakeCameraHardware::open() {
    ++gOpened;
    record("openCameraHardware");
    return next();
}

size_t FakeCameraHardware::timesOpened() {
    return gOpened;
}

status_t FakeCameraHardware::call(const std::string& name, const std::string& arguments) {
    record("hw." + name + (arguments.empty() ? "" : " " + arguments));
    if (const auto action = during.find(name); action != during.end())
        action->second();
    const auto result = results.find(name);
    return result == results.end() ? NO_ERROR : result->second;
}

sp<IMemoryHeap> FakeCameraHardware::getPreviewHeap() {
    call("getPreviewHeap");
    return previewHeap;
}

sp<IMemoryHeap> FakeCameraHardware::getRawHeap() {
    call("getRawHeap");
    return rawHeap;
}

void FakeCameraHardware::setCallbacks(notify_callback notify_cb, data_callback data_cb,
                                      data_callback_timestamp data_cb_timestamp, void* newUser) {
    call("setCallbacks");  // before: what happens within it may be overtaken by this registration
    notifyCb = notify_cb;
    dataCb = data_cb;
    dataCbTimestamp = data_cb_timestamp;
    user = newUser;
    if (const auto action = during.find("setCallbacks stored"); action != during.end())
        action->second();
}

void FakeCameraHardware::enableMsgType(int32_t msgType) {
    enabledTypes |= msgType;
    call("enableMsgType", text("0x%x", msgType));
}

void FakeCameraHardware::disableMsgType(int32_t msgType) {
    enabledTypes &= ~msgType;
    call("disableMsgType", text("0x%x", msgType));
}

void FakeCameraHardware::releaseRecordingFrame(const sp<IMemory>& mem) {
    call("releaseRecordingFrame", mem.get() ? "frame" : "null");
}

status_t FakeCameraHardware::setParameters(const CameraParameters& newParams) {
    const status_t status = call("setParameters", newParams.flatten().string());
    if (status == NO_ERROR)
        params = newParams;
    return status;
}

CameraParameters FakeCameraHardware::getParameters() const {
    return params;
}

status_t FakeCameraHardware::sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
    return call("sendCommand", text("%d %d %d", cmd, arg1, arg2));
}

status_t FakeCameraHardware::dump(int fd, const Vector<String16>& args) const {
    return const_cast<FakeCameraHardware*>(this)->call("dump", text("%d %zu", fd, args.size()));
}

}  // namespace kov::test

sp<CameraHardwareInterface> openCameraHardware() {
    return kov::test::FakeCameraHardware::open();
}
