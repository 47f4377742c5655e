// The callback pattern that all modes share.
#pragma once

#include <android/log.h>

#include <utility>

#include "shots/CallbackSet.h"
#include "shots/ShotCommon.h"

namespace android {

/// Stands between `ShotCommon` and a mode: keeps the callbacks that the mode was given, registers the mode's
/// trampolines with the vendor layer, and relays.
///
/// `Mode` has a public `static constexpr char kTag[]`, its class name, and hides the `process...` members that it
/// changes. It is created with `makeShot<Mode>` and, outside the adaptor, deleted with `retireShot`.
///
/// Threads: the trampolines run on whatever thread the vendor layer calls them, several at once if it does so. They
/// enter the shot's gate first; a message for a shot that was retired is dropped.
template <typename Mode>
class ShotCallbacks : public ShotCommon {
public:
    /// Without a vendor layer only writes a line and stores nothing.
    void setCallbacks(notify_callback notify, data_callback data, data_callback_timestamp dataTimestamp,
                      void* user) override {
        const sp<CameraHardwareInterface> hardware = hardwareOrLog();
        if (hardware.get())
            registerCallbacks(hardware, notify, data, dataTimestamp, user);
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
        : ShotCommon(std::move(hardware), ShotGate::take(this, kind())) {}

    /// The vendor layer; when there is none, writes the mode's line for that.
    sp<CameraHardwareInterface> hardwareOrLog() const {
        if (!mHardware.get())
            __android_log_print(ANDROID_LOG_ERROR, Mode::kTag, "mHardware is NULL, returning.");
        return mHardware;
    }

    /// What most modes do first with a data message: whether they may go on. Otherwise it was dropped for want of a
    /// callback, or, being without memory, passed on with an error: return then, as after a sender's false.
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
        __android_log_print(ANDROID_LOG_ERROR, Mode::kTag, "mDataCb is NULL, returning.");
        return false;
    }
    /// Passes a data message on that has no memory, with an error before it. The last thing that its caller does.
    void sendWithoutMemory(int32_t msgType, const sp<IMemory>& data) {
        __android_log_print(ANDROID_LOG_ERROR, Mode::kTag, "Null data returned in data callback");
        if (sendNotifyIfSet(CAMERA_MSG_ERROR, UNKNOWN_ERROR, 0))
            (void)sendData(msgType, data);
    }

    /// Each sender calls the stored callback from outside the gate, or writes a line and drops the message when there
    /// is none. False when the shot was retired during the call: return at once then, without touching `this`.
    [[nodiscard]] bool sendNotify(int32_t msgType, int32_t ext1, int32_t ext2) {
        return send(mCallbacks.notify(), "mNotifyCb is NULL, returning.",
                    [=](auto to) { to.callback(msgType, ext1, ext2, to.cookie); });
    }
    [[nodiscard]] bool sendData(int32_t msgType, const sp<IMemory>& data) {
        return send(mCallbacks.data(), "mDataCb is NULL, returning.",
                    [&](auto to) { to.callback(msgType, data, to.cookie); });
    }
    [[nodiscard]] bool sendDataTimestamp(int64_t timestamp, int32_t msgType, const sp<IMemory>& data) {
        return send(mCallbacks.dataTimestamp(), "mDataCbTimestamp is NULL, returning.",
                    [&](auto to) { to.callback(timestamp, msgType, data, to.cookie); });
    }
    /// As the senders above, but without a line when there is no callback.
    [[nodiscard]] bool sendNotifyIfSet(int32_t msgType, int32_t ext1, int32_t ext2) {
        return !mCallbacks.notify() || sendNotify(msgType, ext1, ext2);
    }
    [[nodiscard]] bool sendDataIfSet(int32_t msgType, const sp<IMemory>& data) {
        return !mCallbacks.data() || sendData(msgType, data);
    }

    CallbackSet mCallbacks;

private:
    static ShotGate::Kind kind() {
        static const char here = 0;
        return &here;
    }

    template <typename Deliver>
    static void deliver(void* user, Deliver deliver) {
        if (!user) {
            __android_log_print(ANDROID_LOG_ERROR, Mode::kTag, "%s is NULL, returning.", Mode::kTag);
            return;
        }
        if (const ShotGate::Entry inside{user, kind()})
            deliver(static_cast<Mode&>(*static_cast<ShotCallbacks*>(user)));
    }

    template <typename Target, typename Send>
    [[nodiscard]] bool send(Target to, const char* lineWithout, Send send) {
        if (to)
            return callOut([&] { send(to); });
        __android_log_print(ANDROID_LOG_ERROR, Mode::kTag, "%s", lineWithout);
        return true;
    }

    // A thread that finds the lock taken leaves the registration to its holder, which makes the very same one: waiting
    // for it would be waiting for the vendor layer, which may be waiting for this thread's callback to end.
    void registerCallbacks(const sp<CameraHardwareInterface>& hardware, notify_callback notify, data_callback data,
                           data_callback_timestamp dataTimestamp, void* user) NO_THREAD_SAFETY_ANALYSIS {
        Mutex& lock = mLock;  // outlives the shot, as the registration may
        const bool locked = lock.tryLock() == 0;
        mCallbacks.store(notify, data, dataTimestamp, user);
        if (!locked)
            return;
        void* const self = this;
        const ShotGate::Outside outside(gate());
        hardware->setCallbacks(notifyCallback, dataCallback, dataCallbackTimestamp, self);
        lock.unlock();
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
/// vendor layer from it. `gate` is the shot's. Not from inside the shot.
inline void retireShot(ShotInterface* shot, ShotGate& gate) {
    gate.retire();
    shot->setCameraHardware(nullptr);
    delete shot;
}

}  // namespace android
