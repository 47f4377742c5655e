// What a burst's encoder thread and its shot share, and what outlives either of them.
#pragma once

#include <utils/RefBase.h>
#include <utils/threads.h>

#include <cstdint>

namespace android {

/// Stops the encoder thread of one burst, also in the middle of a pause, and tells when it has ended. Held by the shot,
/// by the thread, and by the next burst's thread, which waits for this one to end. Any thread.
class BurstEncoder : public RefBase {
public:
    /// `before`: the encoder of the burst before, or empty.
    explicit BurstEncoder(const sp<BurstEncoder>& before) : mBefore(before) {}

    void stop();
    bool stopped() const;
    /// Waits for `microseconds`, or until stopped.
    void pause(int64_t microseconds);

    /// The thread calls these first and last.
    void begin();
    void end();

private:
    void waitUntilEnded();

    mutable Mutex mLock;
    Condition mChanged;
    bool mStopped GUARDED_BY(mLock) = false;
    bool mEnded GUARDED_BY(mLock) = false;
    sp<BurstEncoder> mBefore;  // the thread's
};

}  // namespace android
