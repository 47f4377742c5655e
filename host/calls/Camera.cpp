// Calls of libcamera.so: the vendor camera's entry, and the interface behind it.

#include <camera/CameraHardwareInterface.h>
#include <utils/Timers.h>

#include <cstdio>
#include <type_traits>

#include "host/calls/Relay.h"

namespace {

using namespace android;

constexpr char kLibrary[] = "libcamera.so";

std::string hex(int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(value));
    return text;
}

std::string asText(status_t status) {
    return std::to_string(status);
}
std::string asText(bool value) {
    return value ? "true" : "false";
}
std::string asText(const sp<IMemoryHeap>& heap) {
    return heap.get() ? std::to_string(heap->getSize()) + " bytes" : "none";
}
std::string asText(const CameraParameters&) {
    return {};
}

/// Makes the call. Not a CallUnderWay: a call of the vendor camera may run into a shot's callback, whose calls of
/// closed libraries are told as well.
template <typename Call>
auto told(const char* name, const std::string& arguments, Call call) {
    const nsecs_t begin = systemTime();
    if constexpr (std::is_void_v<decltype(call())>) {
        call();
        kov::host::reportCall({kLibrary, name, arguments, {}, systemTime() - begin});
    } else {
        auto result = call();
        kov::host::reportCall({kLibrary, name, arguments, asText(result), systemTime() - begin});
        return result;
    }
}

/// Hands every operation on to the vendor camera and tells of it. Messages go past it: the camera gets the callbacks as
/// they are.
class ToldCamera : public CameraHardwareInterface {
public:
    explicit ToldCamera(sp<CameraHardwareInterface> camera) : mCamera(std::move(camera)) {}

    sp<IMemoryHeap> getPreviewHeap() override {
        return told("getPreviewHeap", {}, [&] { return mCamera->getPreviewHeap(); });
    }
    sp<IMemoryHeap> getRawHeap() override {
        return told("getRawHeap", {}, [&] { return mCamera->getRawHeap(); });
    }
    void setCallbacks(notify_callback notify, data_callback data, data_callback_timestamp timestamp,
                      void* user) override {
        told("setCallbacks", {}, [&] { mCamera->setCallbacks(notify, data, timestamp, user); });
    }
    void enableMsgType(int32_t type) override {
        told("enableMsgType", "types=" + hex(type), [&] { mCamera->enableMsgType(type); });
    }
    void disableMsgType(int32_t type) override {
        told("disableMsgType", "types=" + hex(type), [&] { mCamera->disableMsgType(type); });
    }
    bool msgTypeEnabled(int32_t type) override {
        return told("msgTypeEnabled", "types=" + hex(type), [&] { return mCamera->msgTypeEnabled(type); });
    }
    status_t startPreview() override {
        return told("startPreview", {}, [&] { return mCamera->startPreview(); });
    }
    bool useOverlay() override {
        return told("useOverlay", {}, [&] { return mCamera->useOverlay(); });
    }
    status_t setOverlay(const sp<RefBase>& overlay) override {
        return told("setOverlay", {}, [&] { return mCamera->setOverlay(overlay); });
    }
    void stopPreview() override {
        told("stopPreview", {}, [&] { mCamera->stopPreview(); });
    }
    bool previewEnabled() override {
        return told("previewEnabled", {}, [&] { return mCamera->previewEnabled(); });
    }
    status_t startRecording() override {
        return told("startRecording", {}, [&] { return mCamera->startRecording(); });
    }
    void stopRecording() override {
        told("stopRecording", {}, [&] { mCamera->stopRecording(); });
    }
    bool recordingEnabled() override {
        return told("recordingEnabled", {}, [&] { return mCamera->recordingEnabled(); });
    }
    void releaseRecordingFrame(const sp<IMemory>& memory) override {
        told("releaseRecordingFrame", {}, [&] { mCamera->releaseRecordingFrame(memory); });
    }
    status_t autoFocus() override {
        return told("autoFocus", {}, [&] { return mCamera->autoFocus(); });
    }
    status_t cancelAutoFocus() override {
        return told("cancelAutoFocus", {}, [&] { return mCamera->cancelAutoFocus(); });
    }
    status_t takePicture() override {
        return told("takePicture", {}, [&] { return mCamera->takePicture(); });
    }
    status_t cancelPicture() override {
        return told("cancelPicture", {}, [&] { return mCamera->cancelPicture(); });
    }
    status_t setParameters(const CameraParameters& parameters) override {
        return told("setParameters", parameters.flatten().string(), [&] { return mCamera->setParameters(parameters); });
    }
    CameraParameters getParameters() const override {
        return told("getParameters", {}, [&] { return mCamera->getParameters(); });
    }
    status_t sendCommand(int32_t code, int32_t arg1, int32_t arg2) override {
        return told(
            "sendCommand",
            "code=" + std::to_string(code) + ", arg1=" + std::to_string(arg1) + ", arg2=" + std::to_string(arg2),
            [&] { return mCamera->sendCommand(code, arg1, arg2); });
    }
    void release() override {
        told("release", {}, [&] { mCamera->release(); });
    }
    status_t dump(int fd, const Vector<String16>& arguments) const override {
        return told("dump", {}, [&] { return mCamera->dump(fd, arguments); });
    }

private:
    const sp<CameraHardwareInterface> mCamera;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) sp<CameraHardwareInterface> openCameraHardware() {
    static auto* const original =
        reinterpret_cast<decltype(&openCameraHardware)>(kov::host::findOriginal(kLibrary, "openCameraHardware"));
    if (!original)
        return {};
    const nsecs_t begin = systemTime();
    const sp<CameraHardwareInterface> camera = original();
    kov::host::reportCall(
        {kLibrary, "openCameraHardware", {}, camera.get() ? "a camera" : "none", systemTime() - begin});
    return camera.get() ? sp<CameraHardwareInterface>(new ToldCamera(camera)) : camera;
}
