// What the picture threads of one self shot share, with each other and with the shot, and what outlives it.
#pragma once

#include <camera/CameraHardwareInterface.h>
#include <kov/annotations.h>
#include <utils/RefBase.h>
#include <utils/threads.h>

#include <atomic>
#include <string>

namespace android {

/// The turn of the picture threads, the pictures that wait to be rendered, and the vendor layer's picture format while
/// it has the preview's instead. Held by the shot and by each of its threads. Any thread.
class PictureThreads : public RefBase {
public:
    /// A thread's turn, for its lifetime. Whoever waits for one is in no shot's gate.
    class Turn {
    public:
        explicit Turn(PictureThreads& threads);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        PictureThreads& mThreads;
    };

    /// A picture that was asked for and is to be rendered, until `done` or the end of its lifetime.
    class Asked {
    public:
        explicit Asked(const sp<PictureThreads>& threads) : mThreads(threads) { ++mThreads->mAsked; }
        ~Asked() { done(); }
        Asked(const Asked&) = delete;
        Asked& operator=(const Asked&) = delete;

        void done() {
            if (mThreads.get())
                --mThreads->mAsked;
            mThreads.clear();
        }

    private:
        sp<PictureThreads> mThreads;
    };
    bool arePicturesAsked() const { return mAsked > 0; }

    /// Gives the vendor layer the preview's format for pictures. `original` becomes what it has had for them, empty for
    /// none. Outside the gate, as it calls the vendor layer.
    void changeFormat(const sp<CameraHardwareInterface>& hardware, CameraParameters params, std::string* original);
    /// Gives it back what it had, in a live shot.
    void restoreFormat(const std::string& original);
    /// The shot is gone: gives the vendor layer back what it had, unless somebody did, or the application has set
    /// another format since.
    void restoreFormatOnce();

private:
    /// The vendor layer that has `borrowed`, the preview's format, in place of `original`; none when nothing was
    /// changed, or when it was changed back.
    struct Change {
        sp<CameraHardwareInterface> hardware;
        std::string original;
        std::string borrowed;

        void undo() const;
    };

    Mutex mLock;
    Condition mTurnOver;
    bool mTurnTaken GUARDED_BY(mLock) = false;
    bool mShotGone GUARDED_BY(mLock) = false;
    Change mChange GUARDED_BY(mLock);
    std::atomic<int> mAsked{0};
};

}  // namespace android
