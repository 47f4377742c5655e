// The camera as kovcam's commands use it: a session, with waiting for messages and saving what arrives.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/kovcam/Saver.h"
#include "tools/session/Inbox.h"
#include "tools/session/Session.h"
#include "tools/session/Trace.h"

namespace kov::cam {

/// What a camera is opened with.
struct CameraOptions {
    std::string source;
    std::map<std::string, std::string> parameters;
    SaverOptions saving;
    std::string trace;  // a file, or empty
};

/// Opens a session, records everything that crosses the interface, saves pictures. One thread. Operations throw Error
/// when the camera refuses, and with what it said when a wait is in vain.
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

    /// Hands each message that has come since the last wait to `done`, in order, until that returns true. Throws Error
    /// when it does not within `seconds`; `what` names in the error what was waited for.
    void wait(const std::string& what, double seconds, const std::function<bool(const Message&)>& done);
    /// Waits for a message of one type and returns it.
    Message waitFor(int32_t type, double seconds);
    /// Waits for `count` preview frames.
    void waitForFrames(int count);
    /// Goes on for `seconds`, handing the messages that come to `each`, or until that returns true.
    void runFor(double seconds, const std::function<bool(const Message&)>& each = {});

    /// Stops, gives the camera back, and waits until everything is written.
    void close();

private:
    bool nextMessage(Message* message, int64_t until);

    std::shared_ptr<Trace> mTrace;  // null when there is none
    const std::shared_ptr<Saver> mSaver;
    const std::shared_ptr<Inbox> mInbox;
    std::shared_ptr<Session> mSession;
};

}  // namespace kov::cam
