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

void FakeCameraHardware::setNext(const sp<CameraHardwareInterface>& hardware) {
    next() = hardware;
}

size_t FakeCameraHardware::timesOpened() {
    return gOpened;
}

status_t FakeCameraHardware::call(const char* operation, const std::string& arguments) {
    record(std::string("hw.") + operation + (arguments.empty() ? "" : " " + arguments));
    return within(operation);
}

status_t FakeCameraHardware::within(const char* operation) {
    if (const auto action = during.find(operation); action != during.end())
        action->second();
    const auto result = results.find(operation);
    return result == results.end() ? NO_ERROR : result->second;
}

Receiver FakeCameraHardware::receiver() const {
    const std::lock_guard held(mLock);
    return *this;
}

void FakeCameraHardware::setCallbacks(notify_callback notify_cb, data_callback data_cb,
                                      data_callback_timestamp data_cb_timestamp, void* newUser) {
    call("setCallbacks");  // before: what happens within it may be overtaken by this registration
    {
        const std::lock_guard held(mLock);
        static_cast<Receiver&>(*this) = {notify_cb, data_cb, data_cb_timestamp, newUser};
    }
    within("setCallbacks stored");
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
    const std::lock_guard held(mLock);
    if (status == NO_ERROR)
        params = newParams;
    return status;
}

CameraParameters FakeCameraHardware::getParameters() const {
    const std::lock_guard held(mLock);
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
    ++kov::test::gOpened;
    kov::test::record("openCameraHardware");
    return kov::test::next();
}
