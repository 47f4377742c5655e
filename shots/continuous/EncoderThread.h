// The encoder thread of a burst, as others see it.
#pragma once

#include <kov/annotations.h>
#include <utils/RefBase.h>
#include <utils/threads.h>

namespace android {

/// Tells when the thread has ended. Held by the thread, by its shot, and by the thread of the next burst, which does
/// not work beside it. Any thread.
class EncoderThread : public RefBase {
public:
    /// The last thing that the thread does.
    void end() {
        const AutoMutex held(mLock);
        mEnded = true;
        mChanged.broadcast();
    }
    void waitUntilEnded() {
        const AutoMutex held(mLock);
        while (!mEnded)
            mChanged.wait(mLock);
    }

private:
    Mutex mLock;
    Condition mChanged;
    bool mEnded GUARDED_BY(mLock) = false;
};

}  // namespace android
