// The four values of a callback registration, written as one and read without a lock.
#pragma once

#include <camera/CameraHardwareInterface.h>
#include <utils/threads.h>

#include <atomic>
#include <cstdint>

namespace android {

/// A consistent copy of one callback with its cookie.
template <typename Callback>
struct CallbackAndCookie {
    Callback callback;
    void* cookie;

    explicit operator bool() const { return callback != nullptr; }
};

/// Stores the callbacks and the cookie that a shot or the adaptor was given.
///
/// Any thread may store and any thread may read at any time: a reader never combines the callback of one registration
/// with the cookie of another. A reader takes no lock unless it meets a store that is half done (a sequence counter,
/// odd during a store): then it waits for the end of that. All values are null after construction.
class CallbackSet {
public:
    void store(notify_callback notify, data_callback data, data_callback_timestamp dataTimestamp, void* cookie) {
        const AutoMutex held(mStoreLock);
        const uint32_t sequence = mSequence.load(std::memory_order_relaxed);
        mSequence.store(sequence + 1, std::memory_order_relaxed);
        // Releases: a reader that sees one of these values also sees the odd counter.
        mNotifyCb.store(notify, std::memory_order_release);
        mDataCb.store(data, std::memory_order_release);
        mDataCbTimestamp.store(dataTimestamp, std::memory_order_release);
        mCallbackCookie.store(cookie, std::memory_order_release);
        mSequence.store(sequence + 2, std::memory_order_release);
    }

    CallbackAndCookie<notify_callback> notify() const { return read(mNotifyCb); }
    CallbackAndCookie<data_callback> data() const { return read(mDataCb); }
    CallbackAndCookie<data_callback_timestamp> dataTimestamp() const { return read(mDataCbTimestamp); }

private:
    template <typename Callback>
    CallbackAndCookie<Callback> read(const std::atomic<Callback>& callback) const {
        const uint32_t before = mSequence.load(std::memory_order_acquire);
        const CallbackAndCookie<Callback> copy{callback.load(std::memory_order_acquire),
                                               mCallbackCookie.load(std::memory_order_acquire)};
        if (before % 2 == 0 && mSequence.load(std::memory_order_relaxed) == before)
            return copy;
        const AutoMutex held(mStoreLock);
        return {callback.load(std::memory_order_relaxed), mCallbackCookie.load(std::memory_order_relaxed)};
    }

    std::atomic<notify_callback> mNotifyCb{nullptr};
    std::atomic<data_callback> mDataCb{nullptr};
    std::atomic<data_callback_timestamp> mDataCbTimestamp{nullptr};
    std::atomic<void*> mCallbackCookie{nullptr};
    std::atomic<uint32_t> mSequence{0};
    mutable Mutex mStoreLock;  // a leaf, held for the six stores
};

}  // namespace android
