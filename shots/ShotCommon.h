// The base of every shot: forwards each operation to the vendor layer.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "shots/PreviewFrame.h"
#include "shots/ShotGate.h"
#include "shots/ShotInterface.h"

namespace android {

/// What a call out of a shot came back with. It says nothing of whether the call succeeded.
enum class [[nodiscard]] AfterCall{
    GoOn,
    ShotGone,  // the shot was retired during the call: return at once, without touching `this`
};
constexpr bool gone(AfterCall after) {
    return after == AfterCall::ShotGone;
}

/// Forwards every operation to the vendor layer and keeps the geometry that the modes need. A mode derives from
/// `ShotCallbacks<Mode>` and overrides what it changes.
///
/// Threads: any thread may call any operation while it is inside the shot's gate. Every call that leaves the shot, to
/// the vendor layer or to the stored callbacks, is made through `callOut` (or the senders of `ShotCallbacks`); when
/// that comes back with `ShotGone` the caller returns without touching `this`.
class ShotCommon : public ShotInterface {
public:
    ~ShotCommon() override;

    sp<IMemoryHeap> getPreviewHeap() override;
    sp<IMemoryHeap> getRawHeap() override;
    void setCallbacks(notify_callback notify, data_callback data, data_callback_timestamp dataTimestamp,
                      void* user) override;
    void enableMsgType(int32_t msgType) override;
    void disableMsgType(int32_t msgType) override;
    bool msgTypeEnabled(int32_t msgType) override;
    status_t startPreview() override;
    void stopPreview() override;
    bool previewEnabled() override;
    status_t startRecording() override;
    void stopRecording() override;
    bool recordingEnabled() override;
    void releaseRecordingFrame(const sp<IMemory>& mem) override;
    status_t autoFocus() override;
    status_t cancelAutoFocus() override;
    status_t takePicture() override;
    status_t cancelPicture() override;
    status_t setParameters(const CameraParameters& params) override;
    CameraParameters getParameters() const override;
    status_t sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) override;
    void release() override;
    status_t dump(int fd, const Vector<String16>& args) const override;
    void setCameraHardware(sp<CameraHardwareInterface> hardware) override;

    int32_t getPreviewWidth() const { return mPreviewWidth; }
    int32_t getPreviewHeight() const { return mPreviewHeight; }

    ShotGate& gate() const { return mGate; }

protected:
    /// `hardware` may be empty. `gate` is the shot's own, still closed.
    ShotCommon(sp<CameraHardwareInterface> hardware, ShotGate& gate);

    /// Reads the geometry and the formats from the vendor layer.
    void init();
    void getInformationFromHardware();

    /// Runs `call` outside the shot's gate. What `call` needs of the shot it captures by value beforehand.
    template <typename Call>
    AfterCall callOut(Call&& call) const {
        ShotGate::Outside outside(mGate);
        call();
        return outside.comeBack() ? AfterCall::GoOn : AfterCall::ShotGone;
    }
    /// Passes the gate without a call, so that long work learns that its shot is gone.
    AfterCall passGate() const {
        return callOut([] {});
    }

    /// Calls one operation of the vendor layer from outside the gate and returns its result, or writes the line for a
    /// missing vendor layer and returns `missing`. The last thing that a forwarding operation does.
    template <typename Result, typename Operation>
    Result forward(Result missing, Operation operation) const {
        const sp<CameraHardwareInterface> hardware = mHardware;
        if (!hardware.get()) {
            logHardwareMissing();
            return missing;
        }
        const ShotGate::Outside outside(mGate);
        return operation(*hardware.get());
    }
    template <typename Operation>
    void forward(Operation operation) const {
        forward(0, [&](CameraHardwareInterface& hardware) {
            operation(hardware);
            return 0;
        });
    }

    /// What `startPreview` does in every mode: reads the vendor layer's parameters, hands them to `prepare`, starts the
    /// preview and returns its status. It starts also when the shot was retired while the parameters were read, but
    /// without `prepare`. The last thing that its caller does.
    template <typename Prepare>
    status_t startPreviewAfter(const sp<CameraHardwareInterface>& hardware, Prepare prepare) {
        CameraParameters params;
        if (gone(callOut([&] { params = hardware->getParameters(); })))
            return hardware->startPreview();
        mFaultsTold = 0;
        prepare(params);
        const ShotGate::Outside outside(mGate);
        return hardware->startPreview();
    }
    /// What the closed encoder gets for the vendor layer's "jpeg-quality"; nothing when the shot is gone.
    std::optional<int32_t> readArcJpegQuality() const;
    void takePreviewSize(const CameraParameters& params);

    /// Writes one line to `log` for each kind of fault and preview start.
    void tellFault(RegionFault fault, size_t size, const TaggedLog& log);

    Mutex mLock;  // held while the callbacks are stored, and not during the call of the vendor layer

    // Changed only at construction and by setCameraHardware, when no other thread is inside.
    sp<CameraHardwareInterface> mHardware;

    std::atomic<int32_t> mPreviewWidth{0};
    std::atomic<int32_t> mPreviewHeight{0};
    std::atomic<int32_t> mPreviewFormat{0};  // colour-format code, 0 when unknown
    std::atomic<int32_t> mPictureWidth{0};
    std::atomic<int32_t> mPictureHeight{0};
    std::atomic<int32_t> mPictureFormat{0};
    std::atomic<FrameLayout> mPreviewLayout{FrameLayout::SemiPlanar};  // of the preview format, as `mPreviewFormat`

private:
    static void logHardwareMissing();

    std::atomic<uint32_t> mFaultsTold{0};  // a bit for each RegionFault
    ShotGate& mGate;
};

/// Colour-format codes of the platform's format names.
enum : int32_t {
    KOV_FORMAT_UNKNOWN = 0,
    KOV_FORMAT_RGB565 = 4,
    KOV_FORMAT_YUV422I_YUYV = 20,
    KOV_FORMAT_YUV422SP = 34,
    KOV_FORMAT_YUV420SP = 35,
    KOV_FORMAT_YUV422P = 36,
    KOV_FORMAT_YUV420P = 37,
    KOV_FORMAT_YUV420I = 39,
};

/// The code of a platform format name, compared exactly; 0 for any other name.
int32_t colorFormatFromName(const char* name);

}  // namespace android
