// The callback pattern that all modes share.
#pragma once

#include <optional>
#include <utility>

#include "shots/CallbackSet.h"
#include "shots/ShotCommon.h"

namespace android {

/// Stands between `ShotCommon` and a mode: keeps the callbacks that the mode was given, registers the mode's
/// trampolines with the vendor layer, and relays.
///
/// `Mode` has a public `static constexpr char kTag[]`, its class name, and hides the `process...` members that it
/// changes, `processCommand` among them. It is created with `makeShot<Mode>` and deleted with `retireShot`.
///
/// Threads: the trampolines run on whatever thread the vendor layer calls them, several at once if it does so. They
/// enter the shot's gate first; a message for a shot that was retired is dropped.
template <typename Mode>
class ShotCallbacks : public ShotCommon {
public:
    /// Without a vendor layer only writes a line and stores nothing. Not while the shot is being retired: who owns it
    /// registers and retires on one thread at a time.
    void setCallbacks(notify_callback notify, data_callback data, data_callback_timestamp dataTimestamp,
                      void* user) override {
        const sp<CameraHardwareInterface> hardware = hardwareOrLog();
        if (!hardware.get())
            return;
        {
            const AutoMutex held(mLock);
            mCallbacks.store(notify, data, dataTimestamp, user);
        }
        (void)callOut(
            [&, self = this] { hardware->setCallbacks(notifyCallback, dataCallback, dataCallbackTimestamp, self); });
    }

    /// Without a vendor layer only writes a line; otherwise the mode's `processCommand` has it.
    status_t sendCommand(int32_t cmd, int32_t arg1, int32_t arg2) override {
        if (!hardwareOrLog().get())
            return INVALID_OPERATION;
        return static_cast<Mode*>(this)->processCommand(cmd, arg1, arg2);
    }
    /// A command that a mode does not know goes to the vendor layer.
    status_t processCommand(int32_t cmd, int32_t arg1, int32_t arg2) {
        return ShotCommon::sendCommand(cmd, arg1, arg2);
    }

    static void notifyCallback(int32_t msgType, int32_t ext1, int32_t ext2, void* user) {
        deliver(user, [=](Mode& shot) { shot.processNotifyCallback(msgType, ext1, ext2); });
    }
    static void dataCallback(int32_t msgType, const sp<IMemory>& data, void* user) {
        deliver(user, [&](Mode& shot) { shot.processDataCallback(msgType, data); });
    }
    static void dataCallbackTimestamp(int64_t timestamp, int32_t msgType, const sp<IMemory>& data, void* user) {
        deliver(user, [&](Mode& shot) { shot.processDataCallbackTimestamp(timestamp, msgType, data); });
    }

    void processNotifyCallback(int32_t msgType, int32_t ext1, int32_t ext2) { (void)sendNotify(msgType, ext1, ext2); }
    void processDataCallback(int32_t msgType, const sp<IMemory>& data) { (void)sendData(msgType, data); }
    void processDataCallbackTimestamp(int64_t timestamp, int32_t msgType, const sp<IMemory>& data) {
        (void)sendDataTimestamp(timestamp, msgType, data);
    }

protected:
    explicit ShotCallbacks(sp<CameraHardwareInterface> hardware)
        : ShotCommon(std::move(hardware), ShotGate::take(this, ShotGate::kindOf<Mode>())) {}

    /// The vendor layer; when there is none, writes the mode's line for that.
    sp<CameraHardwareInterface> hardwareOrLog() const {
        if (!mHardware.get())
            log().error("mHardware is NULL, returning.");
        return mHardware;
    }

    /// The frame of the preview's size in a preview message; nothing, with a line, when it is not really there.
    std::optional<PreviewFrame> previewFrameOf(const sp<IMemory>& data) {
        return previewFrameOf(data, mPreviewWidth, mPreviewHeight);
    }
    /// The same for a size of the caller's.
    std::optional<PreviewFrame> previewFrameOf(const sp<IMemory>& data, int32_t width, int32_t height) {
        const RegionBytes bytes = previewBytesOf(data);
        const std::optional<PreviewFrame> frame = PreviewFrame::in(bytes, width, height, mPreviewLayout);
        if (bytes && !frame)
            tellFault(RegionFault::TooSmall, bytes.size, log());
        return frame;
    }
    /// The bytes of a preview message, for work that does not look into the frame; none, with a line, when they are not
    /// really there.
    RegionBytes previewBytesOf(const sp<IMemory>& data) {
        const RegionBytes bytes = regionBytesOf(data);
        if (!bytes)
            tellFault(bytes.fault, bytes.size, log());
        return bytes;
    }

    /// What most modes do first with a data message: whether they may go on. Otherwise it was dropped for want of a
    /// callback, or, being without memory, passed on with an error: return then, as when the shot is gone.
    [[nodiscard]] bool admitData(int32_t msgType, const sp<IMemory>& data) {
        if (!haveDataCallbackOrLog())
            return false;
        if (!data.get())
            sendWithoutMemory(msgType, data);
        return data.get() != nullptr;
    }
    /// Whether data can be delivered; when not, writes the line for that.
    [[nodiscard]] bool haveDataCallbackOrLog() const {
        if (mCallbacks.data())
            return true;
        log().error("mDataCb is NULL, returning.");
        return false;
    }
    /// Passes a data message on that has no memory, with an error before it. The last thing that its caller does.
    void sendWithoutMemory(int32_t msgType, const sp<IMemory>& data) {
        log().error("Null data returned in data callback");
        if (!gone(sendNotifyIfSet(CAMERA_MSG_ERROR, UNKNOWN_ERROR, 0)))
            (void)sendData(msgType, data);
    }

    /// Each sender calls the stored callback from outside the gate, or writes a line and drops the message when there
    /// is none. It passes the gate in either case.
    AfterCall sendNotify(int32_t msgType, int32_t ext1, int32_t ext2) {
        return send(mCallbacks.notify(), "mNotifyCb is NULL, returning.",
                    [=](auto to) { to.callback(msgType, ext1, ext2, to.cookie); });
    }
    AfterCall sendData(int32_t msgType, const sp<IMemory>& data) {
        return send(mCallbacks.data(), "mDataCb is NULL, returning.",
                    [&](auto to) { to.callback(msgType, data, to.cookie); });
    }
    AfterCall sendDataTimestamp(int64_t timestamp, int32_t msgType, const sp<IMemory>& data) {
        return send(mCallbacks.dataTimestamp(), "mDataCbTimestamp is NULL, returning.",
                    [&](auto to) { to.callback(timestamp, msgType, data, to.cookie); });
    }
    /// As the senders above, but without a line when there is no callback.
    AfterCall sendNotifyIfSet(int32_t msgType, int32_t ext1, int32_t ext2) {
        return mCallbacks.notify() ? sendNotify(msgType, ext1, ext2) : passGate();
    }
    AfterCall sendDataIfSet(int32_t msgType, const sp<IMemory>& data) {
        return mCallbacks.data() ? sendData(msgType, data) : passGate();
    }

    CallbackSet mCallbacks;

private:
    static constexpr TaggedLog log() { return TaggedLog(Mode::kTag); }

    template <typename Deliver>
    static void deliver(void* user, Deliver deliver) {
        if (!user) {
            log().error("%s is NULL, returning.", Mode::kTag);
            return;
        }
        if (const ShotGate::Entry inside{user, ShotGate::kindOf<Mode>()})
            deliver(static_cast<Mode&>(*static_cast<ShotCallbacks*>(user)));
    }

    template <typename Target, typename Send>
    AfterCall send(Target to, const char* lineWithout, Send send) {
        if (to)
            return callOut([&] { send(to); });
        log().error("%s", lineWithout);
        return passGate();
    }
};

/// Makes a shot and opens it for callbacks. The caller owns it.
template <typename Mode>
Mode* makeShot(const sp<CameraHardwareInterface>& hardware) {
    Mode* shot = new Mode(hardware);
    shot->gate().publish();
    return shot;
}

/// Takes a shot out of use and deletes it: lets nobody in any more, waits for the shot's own work in flight, takes the
/// vendor layer from it. `gate` is the shot's. From inside the shot, where it would wait for itself, it only closes the
/// gate, with a line.
inline void retireShot(ShotInterface* shot, ShotGate& gate) {
    if (!gate.retire())
        return;
    shot->setCameraHardware(nullptr);
    delete shot;
}

}  // namespace android
