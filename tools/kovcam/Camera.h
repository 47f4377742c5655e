// The camera as kovcam's commands use it: a session, with waiting for messages and saving what arrives.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/kovcam/Recorder.h"
#include "tools/kovcam/Saver.h"
#include "tools/kovcam/Signals.h"
#include "tools/session/Inbox.h"
#include "tools/session/Session.h"
#include "tools/session/Trace.h"

namespace kov::cam {

/// What a camera is opened with.
struct CameraOptions {
    std::string source;
    std::map<std::string, std::string> parameters;
    SaverOptions saving;
    std::string trace;     // a file, or empty
    std::string record;    // a video file of the preview, or empty
    double patience = 30;  // seconds that the camera may show no progress while something is waited for
};

/// Opens a session, records everything that crosses the interface, saves pictures and prints where. One thread.
/// Operations throw Error when the camera refuses, when a file cannot be written, and with what it said when a wait is
/// in vain.
///
/// A signal that asks for the end (Signals.h) ends one wait: `wait` throws Interrupted, `runFor` and `waitOrStop`
/// return early, so that a mode can end its running work with its own command. The waits after that go on as always.
class Camera {
public:
    explicit Camera(const CameraOptions& options);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// The operations of the camera: mode, preview, picture, commands, parameters.
    Session& session() { return *mSession; }
    /// What is saved of the messages, and under which names.
    Saver& saver() { return *mSaver; }

    using Done = std::function<bool(const Message&)>;
    /// Hands each message that has come since the last wait to `done`, in order, until that returns true. Throws Error
    /// when the camera shows no progress for as long as `patience` says: no message but preview frames. `what` names in
    /// the error what was waited for.
    void wait(const std::string& what, const Done& done);
    /// The same; false when a signal came before.
    [[nodiscard]] bool waitOrStop(const std::string& what, const Done& done);
    /// Waits for a picture.
    void waitForPicture();
    /// Waits for `count` preview frames; each is progress.
    void waitForFrames(int count);
    /// Waits at most `seconds`, whatever comes. False when `done` did not become true.
    bool waitAtMost(double seconds, const Done& done);
    /// Waits for an Enter on standard input or a SIGUSR1. False at the end of the input and for a signal to end.
    bool waitForTrigger();
    /// Goes on for `seconds`, handing the messages that come to `each`, or until that returns true or a signal comes.
    void runFor(double seconds, const Done& each = {});

    /// Lets time go by until a moment of the monotonic clock, in seconds; messages stay for the next wait.
    void sleepUntil(double moment);

    /// Stops, gives the camera back, and waits until everything is written.
    void close();

private:
    enum class End { Done, TimeOut, Signal, Woken };
    struct Triggers;
    /// `progress` tells which messages begin the time anew.
    End await(double seconds, const Done& done, const Done& progress);
    void startRecording(bool overwrite);
    void endRecording();
    [[noreturn]] void giveUp(const std::string& what) const;

    const double mPatience;
    std::shared_ptr<Trace> mTrace;  // null when there is none
    const std::shared_ptr<Saver> mSaver;
    const std::string mRecording;  // a file, or empty
    const bool mToStandardOutput;  // goes the picture, and no path with it
    const std::shared_ptr<Recorder> mRecorder;
    const std::shared_ptr<Inbox> mInbox;
    const std::shared_ptr<Triggers> mTriggers;
    std::shared_ptr<Session> mSession;
    bool mEnding = false;  // a wait was ended by a signal
};

}  // namespace kov::cam
