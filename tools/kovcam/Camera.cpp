// The camera as kovcam's commands use it: a session, with waiting for messages and saving what arrives.

#include "tools/kovcam/Camera.h"

#include <utils/Timers.h>

#include <cstdio>
#include <utility>

#include "tools/session/Names.h"
#include "tools/session/Sources.h"

namespace kov::cam {

using namespace android;

namespace {

constexpr double kFrameSeconds = 5;  // the longest wait for one preview frame

int64_t after(double seconds) {
    return systemTime() + static_cast<int64_t>(seconds * 1e9);
}

void requireSource(const std::string& source) {
    if (const std::string error = checkSource(source); !error.empty())
        throw Error(error);
}

}  // namespace

// The source is looked at first: one that is unknown leaves the files of an earlier session as they are.
Camera::Camera(const CameraOptions& options)
    : mSaver((requireSource(options.source), std::make_shared<Saver>(options.saving))),
      mInbox(std::make_shared<Inbox>()) {
    SessionOptions session{options.source, options.parameters, {}};
    if (!options.trace.empty())
        session.listeners.push_back(mTrace = std::make_shared<Trace>(options.trace));
    session.listeners.push_back(mSaver);
    session.listeners.push_back(mInbox);  // last: who waits for a message finds it saved
    mSession = Session::open(std::move(session));
}

Camera::~Camera() = default;

bool Camera::nextMessage(Message* message, int64_t until) {
    return mInbox->next(message, static_cast<double>(until - systemTime()) / 1e9);
}

void Camera::wait(const std::string& what, double seconds, const std::function<bool(const Message&)>& done) {
    const int64_t until = after(seconds);
    for (Message message; nextMessage(&message, until);) {
        if (done(message))
            return;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%g s", seconds);
    throw Error("no " + what + " came within " + text + "; --trace FILE shows what did");
}

Message Camera::waitFor(int32_t type, double seconds) {
    Message found{};
    wait(messageName(type) + " message", seconds, [&](const Message& message) {
        found = message;
        return message.type == type;
    });
    return found;
}

void Camera::waitForFrames(int count) {
    for (int i = 0; i < count; ++i)
        waitFor(CAMERA_MSG_PREVIEW_FRAME, kFrameSeconds);
}

void Camera::runFor(double seconds, const std::function<bool(const Message&)>& each) {
    const int64_t until = after(seconds);
    for (Message message; nextMessage(&message, until);) {
        if (each && each(message))
            return;
    }
}

void Camera::close() {
    mSession->close();
    mSaver->flush();
    if (mTrace)
        mTrace->flush();
}

}  // namespace kov::cam
