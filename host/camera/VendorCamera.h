// The camera hardware layer of the host: the platform's interface over a Delivery.
#pragma once

#include <camera/CameraHardwareInterface.h>

#include <memory>
#include <string>

namespace kov::camera {

class Delivery;
class FrameSource;

class VendorCamera : public android::CameraHardwareInterface {
public:
    VendorCamera(std::unique_ptr<FrameSource> source, const std::string& sourceName, double speed);

    android::sp<android::IMemoryHeap> getPreviewHeap() override;
    android::sp<android::IMemoryHeap> getRawHeap() override;
    void setCallbacks(android::notify_callback notify, android::data_callback data,
                      android::data_callback_timestamp dataTimestamp, void* user) override;
    void enableMsgType(int32_t msgType) override;
    void disableMsgType(int32_t msgType) override;
    bool msgTypeEnabled(int32_t msgType) override;
    android::status_t startPreview() override;
    void stopPreview() override;
    bool previewEnabled() override;
    android::status_t startRecording() override;
    void stopRecording() override;
    bool recordingEnabled() override;
    void releaseRecordingFrame(const android::sp<android::IMemory>& mem) override;
    android::status_t autoFocus() override;
    android::status_t cancelAutoFocus() override;
    android::status_t takePicture() override;
    android::status_t cancelPicture() override;
    android::status_t setParameters(const android::CameraParameters& params) override;
    android::CameraParameters getParameters() const override;
    android::status_t sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) override;
    void release() override;
    android::status_t dump(int fd, const android::Vector<android::String16>& args) const override;

private:
    ~VendorCamera() override;

    const std::shared_ptr<Delivery> mDelivery;
};

}  // namespace kov::camera
