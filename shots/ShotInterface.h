// What the adaptor asks of every shot.
#pragma once

#include <camera/CameraHardwareInterface.h>

namespace android {

/// A capture mode, placed between the adaptor and the vendor layer. The operations are those of the platform's camera
/// hardware interface, in its order, plus `setCameraHardware`. A shot is owned by the adaptor, which creates and
/// deletes it; it is not reference-counted.
class ShotInterface {
public:
    virtual ~ShotInterface() {}

    virtual sp<IMemoryHeap> getPreviewHeap() = 0;
    virtual sp<IMemoryHeap> getRawHeap() = 0;

    /// Stores where the shot's messages go, and registers the shot itself with the vendor layer.
    virtual void setCallbacks(notify_callback notify, data_callback data, data_callback_timestamp dataTimestamp,
                              void* user) = 0;

    virtual void enableMsgType(int32_t msgType) = 0;
    virtual void disableMsgType(int32_t msgType) = 0;
    virtual bool msgTypeEnabled(int32_t msgType) = 0;

    virtual status_t startPreview() = 0;
    virtual bool useOverlay() { return false; }
    virtual status_t setOverlay(const sp<RefBase>&) { return BAD_VALUE; }
    virtual void stopPreview() = 0;
    virtual bool previewEnabled() = 0;

    virtual status_t startRecording() = 0;
    virtual void stopRecording() = 0;
    virtual bool recordingEnabled() = 0;
    virtual void releaseRecordingFrame(const sp<IMemory>& mem) = 0;

    virtual status_t autoFocus() = 0;
    virtual status_t cancelAutoFocus() = 0;

    virtual status_t takePicture() = 0;
    virtual status_t cancelPicture() = 0;

    virtual status_t setParameters(const CameraParameters& params) = 0;
    virtual CameraParameters getParameters() const = 0;

    virtual status_t sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) = 0;

    virtual void release() = 0;
    virtual status_t dump(int fd, const Vector<String16>& args) const = 0;

    /// Replaces the vendor layer that the shot holds. Only while no other thread is inside the shot.
    virtual void setCameraHardware(sp<CameraHardwareInterface> hardware) = 0;
};

}  // namespace android
