// The camera behind the element: one session, and what a camera application does around it.

#include "tools/gst/Camera.h"

#include <utility>

#include "shots/Commands.h"
#include "tools/session/Names.h"

namespace kov::gst {

using android::AutoMutex;
using cam::Error;
using cam::Session;

namespace {

constexpr int kFramesBefore = 12;                        // of preview, as a person would take to frame the picture
constexpr nsecs_t kPatience = 30 * nsecs_t{1000000000};  // for a mode that is to give pictures and says nothing

}  // namespace

// --- Opening and closing

void Camera::open(Setup setup) {
    const AutoMutex turn(mTurn);
    {
        const AutoMutex held(mLock);
        mMode = setup.mode;
        mEffect = setup.effect;
        mCapture = Capture::None;
        mConfigured = mStartWhenConfigured = mPlaying = mTaking = false;
    }
    const SessionPtr opened =
        Session::open({std::move(setup.source), std::move(setup.parameters), {std::move(setup.listener)}});
    prepareMode(*opened);
    const AutoMutex held(mLock);
    mSession = opened;
    mLane = std::make_unique<Lane>();
}

void Camera::close() {
    SessionPtr session;
    std::unique_ptr<Lane> lane;
    {
        const AutoMutex held(mLock);
        session.swap(mSession);
        lane.swap(mLane);
    }
    if (session)
        session->close();
}

Camera::SessionPtr Camera::session() const {
    const AutoMutex held(mLock);
    return mSession;
}

void Camera::later(Operation operation) {
    const AutoMutex held(mLock);
    if (!mLane)
        return;
    mLane->add([this, operation = std::move(operation)] {
        const SessionPtr open = session();
        if (!open)
            return;
        try {
            operation(*open);
        } catch (const Error& error) {
            if (open->isOpen())
                mHooks.refused(error.what());
        }
    });
}

std::map<std::string, std::string> Camera::parameters() const {
    const SessionPtr open = session();
    if (!open)
        throw Error("the camera is closed");
    return open->parameters();
}

// --- Preview and modes

void Camera::prepareMode(Session& session) {
    int32_t mode = 0;
    int32_t effect = 0;
    {
        const AutoMutex held(mLock);
        mode = mMode;
        effect = mEffect;
    }
    session.selectMode(mode);
    if (mode == android::KOV_MODE_CARTOON)
        session.sendCommand(android::CARTOON_SHOT_SELECT_EFFECT, effect);
}

/// A mode makes its memory and its engines when the preview starts; one that runs goes on.
void Camera::startPreview(Session& session) {
    {
        const AutoMutex held(mLock);
        if (!mConfigured || !mPlaying || mTaking)
            return;
    }
    session.startPreview();
}

void Camera::configurePreview(const std::map<std::string, std::string>& values) {
    const AutoMutex turn(mTurn);
    const SessionPtr open = session();
    if (!open)
        throw Error("the camera is closed");
    const auto before = open->parameters();
    bool same = true;
    for (const auto& [key, value] : values)
        same = same && before.contains(key) && before.at(key) == value;
    if (!same) {
        open->stopPreview();
        dropCapture(*open);
        open->setParameters(values);
        prepareMode(*open);  // some modes are made for one size
    }
    bool start = false;
    {
        const AutoMutex held(mLock);
        mConfigured = true;
        start = std::exchange(mStartWhenConfigured, false);
    }
    startPreview(*open);
    if (start)
        startCapture();
}

void Camera::setParameter(const std::string& key, const std::string& value) {
    const AutoMutex turn(mTurn);
    if (const SessionPtr open = session())
        open->setParameter(key, value);
}

void Camera::setPlaying(bool playing) {
    const AutoMutex turn(mTurn);
    {
        const AutoMutex held(mLock);
        mPlaying = playing;
    }
    const SessionPtr open = session();
    if (!open)
        return;
    if (playing)
        startPreview(*open);
    else
        open->stopPreview();
}

void Camera::rest() {
    const AutoMutex turn(mTurn);
    const SessionPtr open = session();
    if (!open)
        return;
    open->stopPreview();
    dropCapture(*open);
    const AutoMutex held(mLock);
    mConfigured = mStartWhenConfigured = mPlaying = false;
}

void Camera::selectMode(int32_t mode) {
    const AutoMutex turn(mTurn);
    const SessionPtr open = session();
    if (open)
        dropCapture(*open);
    {
        const AutoMutex held(mLock);
        mMode = mode;
        mFramesBetween = 0;
    }
    if (!open)
        return;
    prepareMode(*open);
    startPreview(*open);
}

void Camera::selectEffect(int32_t effect) {
    const AutoMutex turn(mTurn);
    bool now = false;
    {
        const AutoMutex held(mLock);
        mEffect = effect;
        now = mMode == android::KOV_MODE_CARTOON;
    }
    if (const SessionPtr open = session(); open && now)
        open->sendCommand(android::CARTOON_SHOT_SELECT_EFFECT, effect);
}

// --- Captures

void Camera::setByItself(ByItself byItself) {
    const AutoMutex held(mLock);
    mByItself = byItself;
    mBeganByItself = false;
    mFramesBetween = 0;
}

void Camera::startCapture() {
    later([this](Session& session) { beginCapture(session); });
}

void Camera::stopCapture() {
    later([this](Session& session) { endCapture(session); });
}

bool Camera::capturing() const {
    const AutoMutex held(mLock);
    return mCapture != Capture::None;
}

void Camera::beginCapture(Session& session) {
    const AutoMutex turn(mTurn);
    int32_t start = 0;
    {
        const AutoMutex held(mLock);
        if (!mPlaying) {
            mBeganByItself = false;
            throw Error("a capture needs a running preview; set the pipeline to PLAYING first");
        }
        if (!mConfigured) {
            mStartWhenConfigured = true;
            return;
        }
        const bool stuck = mTaking && systemTime() - mHeard > kPatience;
        if (mCapture != Capture::None && !stuck)
            throw Error("a capture is under way; wait for its pictures, or stop it");
        mCapture = Capture::Running;
        mBegan = mHeard = systemTime();
        start = captureWay(mMode).start;
    }
    try {
        if (start == 0)
            takePicture(session);
        else if (const int32_t status = session.sendCommand(start); status != 0)
            throw Error(cam::commandName(start) + " was refused with status " + std::to_string(status));
    } catch (const Error&) {
        captureIsOver();
        throw;
    }
}

/// Without a turn: a stop may work for seconds, and a switch of the mode ends it early.
void Camera::endCapture(Session& session) {
    CaptureWay way{};
    {
        const AutoMutex held(mLock);
        way = captureWay(mMode);
        if (mCapture != Capture::Running || way.stop == 0)
            return;
        mCapture = Capture::Ending;
        mHeard = systemTime();
    }
    session.sendCommand(way.stop);
    if (way.stop == way.drop)
        captureIsOver();
}

void Camera::dropCapture(Session& session) {
    int32_t drop = 0;
    bool taking = false;
    {
        const AutoMutex held(mLock);
        if (mCapture != Capture::None)
            drop = captureWay(mMode).drop;
        taking = std::exchange(mTaking, false);
    }
    if (drop != 0)
        session.sendCommand(drop);
    if (taking)
        session.cancelPicture();
    captureIsOver();
}

void Camera::takePicture(Session& session) {
    bool stuck = false;
    {
        const AutoMutex held(mLock);
        stuck = std::exchange(mTaking, true);
        mHeard = systemTime();
    }
    if (stuck)
        session.cancelPicture();
    try {
        session.takePicture();
    } catch (const Error&) {
        {
            const AutoMutex held(mLock);
            mTaking = false;
        }
        startPreview(session);
        throw;
    }
}

int32_t Camera::command(int32_t code, int32_t arg1, int32_t arg2) {
    const SessionPtr open = session();
    if (!open)
        throw Error("a command needs an open camera; set the element to READY first");
    const int32_t status = open->sendCommand(code, arg1, arg2);
    bool dropped = false;
    {
        const AutoMutex held(mLock);
        dropped = mCapture != Capture::None && code == captureWay(mMode).drop;
    }
    if (dropped)
        captureIsOver();
    return status;
}

void Camera::forgetCapture() {
    mCapture = Capture::None;
    mBeganByItself = false;
    mFramesBetween = 0;
}

void Camera::captureIsOver() {
    {
        const AutoMutex held(mLock);
        if (mCapture == Capture::None)
            return;
        forgetCapture();
    }
    mHooks.captureOver();
}

// --- Messages, on the camera's threads

void Camera::frameCame() {
    const bool wanted = mHooks.picturesWanted();
    bool start = false;
    bool stop = false;
    bool silent = false;
    {
        const AutoMutex held(mLock);
        silent = mCapture == Capture::Ending && systemTime() - mHeard > kPatience;
        if (mCapture == Capture::None && wanted && mByItself.count != 0 && !mBeganByItself &&
            ++mFramesBetween >= kFramesBefore) {
            start = mBeganByItself = true;
            mByItself.count -= mByItself.count > 0 ? 1 : 0;
        }
        stop = mCapture == Capture::Running && mBeganByItself && captureWay(mMode).lasts && mByItself.longest > 0 &&
               systemTime() - mBegan >= mByItself.longest;
    }
    if (start)
        startCapture();
    if (stop)
        stopCapture();
    if (silent) {
        mHooks.refused("the capture gave no picture; the log says why");
        captureIsOver();
    }
}

void Camera::pictureCame() {
    bool asked = false;
    {
        const AutoMutex held(mLock);
        asked = std::exchange(mTaking, false);
    }
    if (asked)
        later([this](Session& session) {
            const AutoMutex turn(mTurn);
            startPreview(session);
        });
    messageCame(android::CAMERA_MSG_COMPRESSED_IMAGE, 0);
}

void Camera::notified(const cam::Notification& notification) {
    if (notification.type == android::CAMERA_MSG_SMILE_DETECTED)
        later([this](Session& session) {
            const AutoMutex turn(mTurn);
            takePicture(session);
        });
    if (notification.type == android::CAMERA_MSG_CONTINUOUS_FRAME_TAKEN && notification.ext1 >= notification.ext2)
        stopCapture();
    messageCame(notification.type, notification.ext1);
}

void Camera::messageCame(int32_t type, int32_t ext1) {
    const AutoMutex held(mLock);
    const CaptureWay& way = captureWay(mMode);
    mHeard = systemTime();
    if (mCapture != Capture::None && (type == way.done || (way.none != 0 && type == way.none && ext1 == 0)))
        forgetCapture();
}

}  // namespace kov::gst
