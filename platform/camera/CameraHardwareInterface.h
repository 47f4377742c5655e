// The interface between the camera service and a camera hardware layer.
#pragma once

#include <binder/IMemory.h>
#include <camera/Camera.h>
#include <camera/CameraParameters.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/Vector.h>

#include <cstdint>

namespace android {

/// (message type, ext1, ext2, user): events.
typedef void (*notify_callback)(int32_t msgType, int32_t ext1, int32_t ext2, void* user);
/// (message type, payload, user): preview frames and pictures.
typedef void (*data_callback)(int32_t msgType, const sp<IMemory>& dataPtr, void* user);
/// (timestamp in nanoseconds, message type, payload, user): recording frames.
typedef void (*data_callback_timestamp)(int64_t timestamp, int32_t msgType, const sp<IMemory>& dataPtr, void* user);

/// A camera hardware layer. The order of the virtual operations is the contract with code that was compiled earlier.
/// Callbacks may arrive on any thread, also within an operation.
class CameraHardwareInterface : public virtual RefBase {
public:
    ~CameraHardwareInterface() override {}

    virtual sp<IMemoryHeap> getPreviewHeap() = 0;
    virtual sp<IMemoryHeap> getRawHeap() = 0;

    /// Replaces all three callbacks and the user pointer at once.
    virtual void setCallbacks(notify_callback notify_cb, data_callback data_cb,
                              data_callback_timestamp data_cb_timestamp, void* user) = 0;

    /// Message types are bits; several may be given at once.
    virtual void enableMsgType(int32_t msgType) = 0;
    virtual void disableMsgType(int32_t msgType) = 0;
    /// True when all the given types are enabled.
    virtual bool msgTypeEnabled(int32_t msgType) = 0;

    virtual status_t startPreview() = 0;
    /// Whether preview frames go to an overlay of the display hardware.
    virtual bool useOverlay() { return false; }
    virtual status_t setOverlay(const sp<RefBase>&) { return BAD_VALUE; }
    virtual void stopPreview() = 0;
    virtual bool previewEnabled() = 0;

    virtual status_t startRecording() = 0;
    virtual void stopRecording() = 0;
    virtual bool recordingEnabled() = 0;
    /// Gives a recording frame back for reuse.
    virtual void releaseRecordingFrame(const sp<IMemory>& mem) = 0;

    virtual status_t autoFocus() = 0;
    virtual status_t cancelAutoFocus() = 0;

    virtual status_t takePicture() = 0;
    virtual status_t cancelPicture() = 0;

    virtual status_t setParameters(const CameraParameters& params) = 0;
    virtual CameraParameters getParameters() const = 0;

    virtual status_t sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) = 0;

    /// Gives the hardware up; the object is not used after that.
    virtual void release() = 0;

    /// Writes its state as text to a file descriptor.
    virtual status_t dump(int fd, const Vector<String16>& args) const = 0;
};

}  // namespace android

/// Opens the vendor's camera hardware layer; an empty reference when there is none. From libcamera.so.
extern "C" android::sp<android::CameraHardwareInterface> openCameraHardware();
