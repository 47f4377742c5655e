// A vendor layer that records its calls and answers as a test tells it.
#pragma once

#include <camera/CameraHardwareInterface.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace kov::test {

/// Whom a vendor layer tells what happens. Sends nothing for which there is no callback.
struct Receiver {
    android::notify_callback notifyCb = nullptr;
    android::data_callback dataCb = nullptr;
    android::data_callback_timestamp dataCbTimestamp = nullptr;
    void* user = nullptr;

    void notify(int32_t msgType, int32_t ext1 = 0, int32_t ext2 = 0) const {
        if (notifyCb)
            notifyCb(msgType, ext1, ext2, user);
    }
    void data(int32_t msgType, const android::sp<android::IMemory>& memory) const {
        if (dataCb)
            dataCb(msgType, memory, user);
    }
    void dataTimestamp(int64_t timestamp, int32_t msgType, const android::sp<android::IMemory>& memory) const {
        if (dataCbTimestamp)
            dataCbTimestamp(timestamp, msgType, memory, user);
    }
};

/// Every operation but `getParameters` and `msgTypeEnabled` records "hw.NAME arguments". Is the receiver that was
/// registered last. Operations may come on several threads; what a test sets and reads has to wait for them.
class FakeCameraHardware : public android::CameraHardwareInterface, public Receiver {
public:
    FakeCameraHardware();

    /// What `openCameraHardware` returns from now on; empty for none. Records "openCameraHardware" when called.
    static void setNext(const android::sp<android::CameraHardwareInterface>& hardware);
    /// Calls of `openCameraHardware` so far.
    static size_t timesOpened();

    android::CameraParameters params;                  // what getParameters returns
    std::map<std::string, android::status_t> results;  // by operation name; 0 where missing
    // By operation name; run within the operation. "setCallbacks stored" runs when a registration has taken effect.
    std::map<std::string, std::function<void()>> during;
    android::sp<android::IMemoryHeap> previewHeap, rawHeap;
    std::atomic<int32_t> enabledTypes = android::CAMERA_MSG_ALL_MSGS;
    bool flag = false;  // answer of previewEnabled, recordingEnabled

    /// What was registered last. Any thread.
    Receiver receiver() const;

    android::sp<android::IMemoryHeap> getPreviewHeap() override { return heap("getPreviewHeap", previewHeap); }
    android::sp<android::IMemoryHeap> getRawHeap() override { return heap("getRawHeap", rawHeap); }
    void setCallbacks(android::notify_callback notify_cb, android::data_callback data_cb,
                      android::data_callback_timestamp data_cb_timestamp, void* user) override;
    void enableMsgType(int32_t msgType) override;
    void disableMsgType(int32_t msgType) override;
    bool msgTypeEnabled(int32_t msgType) override { return (enabledTypes & msgType) == msgType; }
    android::status_t startPreview() override { return call("startPreview"); }
    void stopPreview() override { call("stopPreview"); }
    bool previewEnabled() override { return call("previewEnabled") == 0 && flag; }
    android::status_t startRecording() override { return call("startRecording"); }
    void stopRecording() override { call("stopRecording"); }
    bool recordingEnabled() override { return call("recordingEnabled") == 0 && flag; }
    void releaseRecordingFrame(const android::sp<android::IMemory>& mem) override;
    android::status_t autoFocus() override { return call("autoFocus"); }
    android::status_t cancelAutoFocus() override { return call("cancelAutoFocus"); }
    android::status_t takePicture() override { return call("takePicture"); }
    android::status_t cancelPicture() override { return call("cancelPicture"); }
    android::status_t setParameters(const android::CameraParameters& params) override;
    android::CameraParameters getParameters() const override;
    android::status_t sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) override;
    void release() override { call("release"); }
    android::status_t dump(int fd, const android::Vector<android::String16>& args) const override;

protected:
    /// What happens within an operation, and its result.
    virtual android::status_t within(const char* operation);

    mutable std::mutex mLock;  // guards the receiver and the parameters against calls on several threads

private:
    android::status_t call(const char* operation, const std::string& arguments = "");
    android::sp<android::IMemoryHeap> heap(const char* operation, const android::sp<android::IMemoryHeap>& answer) {
        return call(operation) == 0 ? answer : nullptr;
    }
};

}  // namespace kov::test
