// The camera behind the element: one session, and what a camera application does around it. Knows nothing of GStreamer.
#pragma once

#include <utils/Timers.h>
#include <utils/threads.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tools/Lane.h"
#include "tools/gst/Capture.h"
#include "tools/session/Session.h"

namespace kov::gst {

/// Beyond what it is told it does by itself what an application would: it starts the preview again when a picture has
/// stopped it, takes the picture when the smile mode says so, and ends a burst that is full. It can also begin captures
/// by itself.
///
/// Threads: every operation may be called from any thread; those that change the camera wait for each other. Commands
/// do not: a cancel is for what is under way. `frameCame`, `pictureCame` and `notified` are called on the camera's
/// threads and wait for nobody. Operations throw cam::Error when the camera refuses.
class Camera {
public:
    struct Setup {
        std::string source;
        int32_t mode;
        int32_t effect;
        std::map<std::string, std::string> parameters;
        std::shared_ptr<cam::Listener> listener;
    };
    struct Hooks {
        std::function<void(const std::string&)> refused;  // what could not be done, later than it was asked for
        std::function<void()> captureOver;                // a capture has ended, with pictures or without
        std::function<bool()> picturesWanted;             // whether captures are to begin by themselves
    };
    /// Captures that begin by themselves.
    struct ByItself {
        int count;        // how many; below 0 without end
        nsecs_t longest;  // a capture that lasts is stopped after this; 0: only when it is full
    };

    explicit Camera(Hooks hooks) : mHooks(std::move(hooks)) {}

    void open(Setup setup) EXCLUDES(mTurn, mLock);
    /// Gives the camera back. What is asked for later and not yet begun is dropped, what runs is waited for.
    void close() EXCLUDES(mTurn, mLock);
    std::map<std::string, std::string> parameters() const;

    /// Size, format and rate of the preview; after the first time the preview can be started.
    void configurePreview(const std::map<std::string, std::string>& values) EXCLUDES(mTurn, mLock);
    void setParameter(const std::string& key, const std::string& value) EXCLUDES(mTurn, mLock);
    void setByItself(ByItself byItself) EXCLUDES(mLock);
    /// Whether the preview is to run.
    void setPlaying(bool playing) EXCLUDES(mTurn, mLock);
    /// Drops what is being captured, and awaits the next configuration.
    void rest() EXCLUDES(mTurn, mLock);

    void selectMode(int32_t mode) EXCLUDES(mTurn, mLock);
    void selectEffect(int32_t effect) EXCLUDES(mTurn, mLock);

    /// Both return at once; a capture begins as soon as the preview is configured. What the camera refuses goes to the
    /// hook.
    void startCapture() EXCLUDES(mLock);
    /// Ends what startCapture began so that its pictures come. A picture ends by itself.
    void stopCapture() EXCLUDES(mLock);
    bool capturing() const EXCLUDES(mLock);
    /// The camera's own answer.
    int32_t command(int32_t code, int32_t arg1, int32_t arg2) EXCLUDES(mLock);

    void frameCame() EXCLUDES(mLock);
    /// Before others are told, so that who is told may begin the next capture.
    void pictureCame() EXCLUDES(mLock);
    void notified(const cam::Notification& notification) EXCLUDES(mLock);

private:
    using SessionPtr = std::shared_ptr<cam::Session>;
    using Operation = std::function<void(cam::Session&)>;
    enum class Capture { None, Running, Ending };

    SessionPtr session() const EXCLUDES(mLock);
    /// Does it on a thread of its own, after what was asked for before.
    void later(Operation operation) EXCLUDES(mLock);
    void prepareMode(cam::Session& session) REQUIRES(mTurn);
    void startPreview(cam::Session& session) REQUIRES(mTurn) EXCLUDES(mLock);
    void beginCapture(cam::Session& session) EXCLUDES(mTurn, mLock);
    void endCapture(cam::Session& session) EXCLUDES(mTurn, mLock);
    void dropCapture(cam::Session& session) REQUIRES(mTurn) EXCLUDES(mLock);
    void takePicture(cam::Session& session) REQUIRES(mTurn) EXCLUDES(mLock);
    void messageCame(int32_t type, int32_t ext1) EXCLUDES(mLock);
    void captureIsOver() EXCLUDES(mLock);
    void forgetCapture() REQUIRES(mLock);

    const Hooks mHooks;
    android::Mutex mTurn;  // held by operations that change the camera, during them; before mLock

    mutable android::Mutex mLock;  // a leaf
    SessionPtr mSession GUARDED_BY(mLock);
    std::unique_ptr<Lane> mLane GUARDED_BY(mLock);
    int32_t mMode GUARDED_BY(mLock) = 0;
    int32_t mEffect GUARDED_BY(mLock) = 0;
    bool mConfigured GUARDED_BY(mLock) = false;
    bool mStartWhenConfigured GUARDED_BY(mLock) = false;
    bool mPlaying GUARDED_BY(mLock) = false;
    bool mTaking GUARDED_BY(mLock) = false;  // a picture was asked for; the preview stands until it comes
    Capture mCapture GUARDED_BY(mLock) = Capture::None;
    nsecs_t mBegan GUARDED_BY(mLock) = 0;
    nsecs_t mHeard GUARDED_BY(mLock) = 0;  // when the mode was last heard of, or asked for something
    bool mBeganByItself GUARDED_BY(mLock) = false;
    ByItself mByItself GUARDED_BY(mLock) = {0, 0};
    int mFramesBetween GUARDED_BY(mLock) = 0;  // since the last capture
};

}  // namespace kov::gst
