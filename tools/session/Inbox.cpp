// Waiting for messages.

#include "tools/session/Inbox.h"

#include <algorithm>
#include <utility>

namespace kov::cam {

using android::AutoMutex;

namespace {
constexpr double kMostSeconds = 1e6;  // what a wait in nanoseconds can hold
}

bool Inbox::next(Message* message, double seconds) {
    const int64_t until = systemTime() + static_cast<int64_t>(std::clamp(seconds, 0.0, kMostSeconds) * 1e9);
    const AutoMutex held(mLock);
    while (mMessages.empty() && !mInterrupted) {
        const int64_t left = until - systemTime();
        if (left <= 0)
            return false;
        mArrived.waitRelative(mLock, left);
    }
    if (mInterrupted)
        return false;
    *message = std::move(mMessages.front());
    mMessages.pop_front();
    return true;
}

void Inbox::interrupt() {
    const AutoMutex held(mLock);
    mInterrupted = true;
    mArrived.broadcast();
}

void Inbox::resume() {
    const AutoMutex held(mLock);
    mInterrupted = false;
}

bool Inbox::interrupted() const {
    const AutoMutex held(mLock);
    return mInterrupted;
}

void Inbox::add(Message message) {
    const AutoMutex held(mLock);
    mMessages.push_back(std::move(message));
    mArrived.broadcast();
}

void Inbox::onNotify(const Notification& notification) {
    add({Message::Kind::Notify, notification.type, notification.ext1, notification.ext2, 0, notification.reason});
}

void Inbox::onFrame(const Frame& frame) {
    add({Message::Kind::Data, frame.type, 0, 0, frame.size, {}});
}

void Inbox::onPicture(const Picture& picture) {
    add({Message::Kind::Data, android::CAMERA_MSG_COMPRESSED_IMAGE, 0, 0, picture.size, {}});
}

void Inbox::onRawPicture(const Frame& frame) {
    onFrame(frame);
}

void Inbox::onData(const Data& data) {
    add({Message::Kind::Data, data.type, 0, 0, data.size, {}});
}

}  // namespace kov::cam
