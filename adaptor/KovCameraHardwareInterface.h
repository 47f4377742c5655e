// The adaptor: what the camera service talks to in place of the vendor's camera layer.
#pragma once

#include <camera/CameraHardwareInterface.h>
#include <kov/annotations.h>
#include <utils/RefBase.h>
#include <utils/threads.h>

#include <optional>

#include "shots/CallbackSet.h"
#include "shots/Modes.h"
#include "shots/ShotCommon.h"
#include "shots/ShotGate.h"

namespace android {

/// Owns the vendor layer and the current shot, hands every operation to the shot (or to the vendor layer, when there is
/// no shot), switches shots on private commands and relays messages to the service.
///
/// Threads: every operation may be called on any thread, also from within a callback on whichever thread that arrived.
/// One adaptor at most is alive in the process. The last strong reference may be dropped on any thread.
class KovCameraHardwareInterface : public CameraHardwareInterface {
public:
    /// The adaptor that is alive, or a new one in single mode. Opening waits for an adaptor that is being made or
    /// destroyed by another thread.
    static sp<CameraHardwareInterface> createInstance();

    ~KovCameraHardwareInterface() override;

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

    /// Each replaces the current shot, also by one of the same mode. When a switch or a registration is under way (on
    /// another thread, or further up this thread's stack), the call leaves its wish to it and returns; the last wish
    /// wins.
    void changeToSingleShot() { switchTo(KOV_MODE_SINGLE); }
    void changeToContinuousShot() { switchTo(KOV_MODE_CONTINUOUS); }
    void changeToPanoramaShot() { switchTo(KOV_MODE_PANORAMA); }
    void changeToSmileShot() { switchTo(KOV_MODE_SMILE); }
    void changeToSelfShot() { switchTo(KOV_MODE_SELF); }
    void changeToAddMeShot() { switchTo(KOV_MODE_ADDME); }
    void changeToActionShot() { switchTo(KOV_MODE_ACTION); }
    void changeToCartoonShot() { switchTo(KOV_MODE_CARTOON); }
    /// Deletes the current shot; messages then go from the vendor layer through the adaptor alone.
    void releaseCurrentShot();

    static void notifyCallback(int32_t msgType, int32_t ext1, int32_t ext2, void* user);
    static void dataCallback(int32_t msgType, const sp<IMemory>& data, void* user);
    static void dataCallbackTimestamp(int64_t timestamp, int32_t msgType, const sp<IMemory>& data, void* user);
    void processNotifyCallback(int32_t msgType, int32_t ext1, int32_t ext2);
    void processDataCallback(int32_t msgType, const sp<IMemory>& data);
    void processDataCallbackTimestamp(int64_t timestamp, int32_t msgType, const sp<IMemory>& data);

private:
    /// What is to become of the receiver of the vendor layer's messages.
    struct Wish {
        bool registers = false;     // give the receiver its callbacks
        bool switches = false;      // replace the shot, which registers too
        ShotMaker maker = nullptr;  // of the new shot; null for none
    };

    class CurrentShot;
    struct Instance;

    KovCameraHardwareInterface();

    template <typename Deliver>
    static void deliver(void* user, Deliver deliver);

    template <typename Result, typename Operation>
    Result forward(const char* lineWithoutShot, Result missing, Operation operation) const;
    template <typename Operation>
    void tell(const char* lineWithoutShot, Operation operation) const;

    /// Switches to a mode by its code; a code that no mode has only releases the current shot.
    void switchTo(int32_t code);
    void carryOut(const Wish& wish);
    bool leaveToOther(const Wish& wish);
    std::optional<Wish> nextWish();
    void removeShot();
    void installShot(ShotMaker make);
    void registerReceiver();
    void setShot(ShotInterface* shot, ShotGate* gate);

    mutable Mutex mLock;  // guards who is current and what is wished; a leaf, never held during a call out
    CallbackSet mCallbacks;
    sp<CameraHardwareInterface> mHardware;  // constant between construction and destruction
    ShotInterface* mCurShot GUARDED_BY(mLock) = nullptr;

    ShotGate* mCurGate GUARDED_BY(mLock) = nullptr;
    Wish mWish GUARDED_BY(mLock);
    bool mCarryingOut GUARDED_BY(mLock) = false;  // a thread is in carryOut's loop
    ShotGate& mGate;                              // the adaptor's own, for its trampolines
};

}  // namespace android

/// The one entry of the library: the adaptor, with a strong reference for the caller. Any thread.
extern "C" android::sp<android::CameraHardwareInterface> openKovCameraHardware();
