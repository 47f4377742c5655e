// A vendor layer that delivers without pause while everything else goes on.
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "tests/support/FakeCameraHardware.h"
#include "tests/support/ShotTest.h"

namespace kov::test {

/// Delivers notifications, frames and timestamped frames on a thread each, without pause and without a lock, through
/// whatever was registered: a registration may be replaced, and its receiver deleted, while a message is on its way. It
/// takes its time before and after it stores a registration, and may call back from within.
class BusyVendor : public FakeCameraHardware {
public:
    void setCallbacks(android::notify_callback notify, android::data_callback data,
                      android::data_callback_timestamp timestamp, void* user) override {
        const uint32_t chance = mRegistrations++ * 2654435761U;  // spreads the count over all bits
        rest(chance >> 30);
        {
            const std::lock_guard held(mLock);
            receivers += user != mRegistered.user;
            mRegistered = {notify, data, timestamp, user};
        }
        if ((chance >> 27) % 8 == 0)
            deliver((chance >> 25) % 2 ? 0 : 2);  // no frame: another thread has that
        rest((chance >> 28) % 4);
    }
    static void rest(uint32_t howLong) {
        if (howLong > 1)
            std::this_thread::sleep_for(std::chrono::microseconds(50 * howLong));
        else if (howLong == 1)
            std::this_thread::yield();
    }
    android::status_t takePicture() override {
        const Registration to = registered();
        if (to.data)
            to.data(android::CAMERA_MSG_COMPRESSED_IMAGE, mFrame, to.user);  // synchronously, on the caller's thread
        return android::NO_ERROR;
    }
    android::CameraParameters getParameters() const override {
        const std::lock_guard held(mLock);
        return params;
    }
    android::status_t setParameters(const android::CameraParameters& newParams) override {
        const std::lock_guard held(mLock);
        params = newParams;
        return android::NO_ERROR;
    }
    android::status_t startPreview() override { return android::NO_ERROR; }
    void stopPreview() override {}
    android::status_t sendCommand(int32_t, int32_t, int32_t) override { return android::NO_ERROR; }

    std::atomic<uint64_t> receivers{0};  // changes of who receives the messages

    /// A kind for each thread: 0 notifications, 1 frames, 2 timestamped frames.
    void deliver(int kind) {
        const Registration to = registered();
        std::this_thread::yield();
        if (!to.data)
            return;
        if (kind == 0)
            to.notify(android::CAMERA_MSG_FOCUS, 1, 0, to.user);
        else if (kind == 1)
            to.data(android::CAMERA_MSG_PREVIEW_FRAME, mFrame, to.user);
        else
            to.timestamp(1, android::CAMERA_MSG_VIDEO_FRAME, mFrame, to.user);
    }

    /// Threads of shots that are gone may hold the vendor layer a little longer.
    void waitUntilNobodyElseHoldsIt() const {
        for (int i = 0; i < 10000 && getStrongCount() > 1; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

private:
    struct Registration {
        android::notify_callback notify = nullptr;
        android::data_callback data = nullptr;
        android::data_callback_timestamp timestamp = nullptr;
        void* user = nullptr;
    };
    Registration registered() {
        const std::lock_guard held(mLock);
        return mRegistered;
    }

    mutable std::mutex mLock;
    Registration mRegistered;
    std::atomic<uint32_t> mRegistrations{0};
    const android::sp<android::IMemory> mFrame = kov::test::makeMemory(64 * 48 * 3 / 2);
};

}  // namespace kov::test
