// The camera as kovcam's commands use it: a session, with waiting for messages and saving what arrives.

#include "tools/kovcam/Camera.h"

#include <fcntl.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

#include "tools/kovcam/Clock.h"
#include "tools/session/Names.h"
#include "tools/session/Sources.h"

namespace kov::cam {

using namespace android;
namespace fs = std::filesystem;

namespace {

constexpr double kForever = 1e9;  // seconds

void requireSource(const std::string& source) {
    if (source.empty())
        throw Error("-i has an empty name; give a picture, a video, a folder, /dev/videoN or scene:NAME");
    if (const std::string error = checkSource(source); !error.empty())
        throw Error(error);
}

void prepareOutput(const SaverOptions& saving) {
    prepareFolder(OutputName(saving.output, saving.mode).folder());
}

/// Prints where a picture or a recording is, at once: it is of use also when the session fails later.
void print(int32_t type, const std::string& path) {
    if (type == CAMERA_MSG_COMPRESSED_IMAGE || type == CAMERA_MSG_RAW_IMAGE || type == CAMERA_MSG_VIDEO_FRAME) {
        std::printf("%s\n", path.c_str());
        std::fflush(stdout);
    }
}

}  // namespace

/// What asks for a picture.
struct Camera::Triggers {
    std::atomic<int> count{0};       // asked for and not taken yet
    std::atomic<bool> ended{false};  // the input has
    std::atomic<bool> reading{false};

    void readInput(Inbox& inbox) {
        for (int c = 0; (c = std::getchar()) != EOF;) {
            if (c == '\n') {
                ++count;
                inbox.interrupt();
            }
        }
        ended = true;
        inbox.interrupt();
    }
};

// The source is looked at first: one that is unknown leaves the files of an earlier session as they are. Then the
// folder for the pictures is made, where the trace may be wanted too.
Camera::Camera(const CameraOptions& options)
    : mPatience((requireSource(options.source), prepareOutput(options.saving), options.patience)),
      mTrace(options.trace.empty() ? nullptr : std::make_shared<Trace>(options.trace)),
      mSaver(std::make_shared<Saver>(options.saving,
                                     [trace = mTrace](int32_t type, const std::string& path) {
                                         if (trace)
                                             trace->fileWritten(type, path);
                                         print(type, path);
                                     })),
      mRecording(options.record),
      mToStandardOutput(OutputName(options.saving.output, options.saving.mode).standardOutput()),
      mRecorder(std::make_shared<Recorder>()),
      mInbox(std::make_shared<Inbox>()),
      mTriggers(std::make_shared<Triggers>()) {
    SessionOptions session{options.source, options.parameters, {}};
    if (mTrace)
        session.listeners.push_back(mTrace);
    session.listeners.push_back(mSaver);
    session.listeners.push_back(mRecorder);
    session.listeners.push_back(mInbox);  // last: who waits for a message finds it saved
    mSession = Session::open(std::move(session));
    startRecording(options.saving.overwrite);
    onSignal([inbox = mInbox, triggers = mTriggers](int signal) {
        if (signal == SIGUSR1)
            ++triggers->count;
        inbox->interrupt();
    });
}

/// The file is made before the preview starts: where none can be, nothing is taken.
void Camera::startRecording(bool overwrite) {
    if (mRecording.empty())
        return;
    if (const std::string ending = fs::path(mRecording).extension(); ending != ".mp4" && ending != ".mkv")
        throw Error("--record writes .mp4 and .mkv files; name " + mRecording + " so");
    const int flags = O_WRONLY | O_CREAT | O_CLOEXEC | (overwrite ? O_TRUNC : O_EXCL);
    const int file = open(mRecording.c_str(), flags, 0666);
    if (file < 0 && errno == EEXIST)
        throw Error(mRecording + " is there already; name another file, or give --overwrite");
    if (file < 0)
        throw Error(mRecording + " cannot be written: " + std::strerror(errno));
    ::close(file);
    mRecorder->start(mRecording, std::max(1.0, std::atof(mSession->parameter("preview-frame-rate").c_str())));
}

void Camera::endRecording() {
    if (mRecording.empty())
        return;
    if (mRecorder->stop().frames == 0) {
        std::remove(mRecording.c_str());
        throw Error("the recording " + mRecording + " is empty: no preview frame came, or the disk is full");
    }
    if (!mToStandardOutput)
        print(CAMERA_MSG_VIDEO_FRAME, mRecording);
}

Camera::~Camera() {
    onSignal({});
}

Camera::End Camera::await(double seconds, const Done& done, const Done& progress) {
    int64_t until = systemTime() + static_cast<int64_t>(seconds * 1e9);
    for (;;) {
        Message message;
        const bool came = mInbox->next(&message, static_cast<double>(until - systemTime()) / 1e9);
        mSaver->throwIfFailed();
        if (came) {
            if (message.type == CAMERA_MSG_ERROR && message.kind == Message::Kind::Notify)
                throw Error(message.reason.empty() ? "the camera broke" : message.reason);
            if (done && done(message))
                return End::Done;
            if (progress && progress(message))
                until = systemTime() + static_cast<int64_t>(seconds * 1e9);
            continue;
        }
        if (!mInbox->interrupted())
            return End::TimeOut;
        mInbox->resume();
        if (endSignal() != 0 && !std::exchange(mEnding, true))
            return End::Signal;
        if (!done)
            return End::Woken;
    }
}

bool Camera::waitForTrigger() {
    if (!mTriggers->reading.exchange(true))
        std::thread([triggers = mTriggers, inbox = mInbox] { triggers->readInput(*inbox); }).detach();
    for (;;) {
        if (mTriggers->count > 0) {
            --mTriggers->count;
            return true;
        }
        if (mTriggers->ended || await(kForever, {}, {}) == End::Signal)
            return false;
    }
}

void Camera::giveUp(const std::string& what) const {
    char text[32];
    std::snprintf(text, sizeof text, "%g s", mPatience);
    throw Error("no " + what + " came, and no progress within " + text +
                "; if the machine is too slow for what was asked, ask for smaller pictures or give --patience S "
                "(--trace FILE shows what did come)");
}

bool Camera::waitOrStop(const std::string& what, const Done& done) {
    const auto progress = [](const Message& message) { return message.type != CAMERA_MSG_PREVIEW_FRAME; };
    const End end = await(mPatience, done, progress);
    if (end == End::TimeOut)
        giveUp(what);
    return end == End::Done;
}

void Camera::wait(const std::string& what, const Done& done) {
    if (!waitOrStop(what, done))
        throw Interrupted();
}

void Camera::waitForPicture() {
    wait("picture", [](const Message& message) { return message.type == CAMERA_MSG_COMPRESSED_IMAGE; });
}

void Camera::waitForFrames(int count) {
    for (int i = 0; i < count; ++i)
        wait("preview frame", [](const Message& message) { return message.type == CAMERA_MSG_PREVIEW_FRAME; });
}

bool Camera::waitAtMost(double seconds, const Done& done) {
    const End end = await(seconds, done, {});
    if (end == End::Signal)
        throw Interrupted();
    return end == End::Done;
}

void Camera::runFor(double seconds, const Done& each) {
    await(seconds, each, {});
}

void Camera::sleepUntil(double moment) {
    while (!mInbox->pause(moment - now())) {
        mInbox->resume();
        if (endSignal() != 0 && !std::exchange(mEnding, true))
            throw Interrupted();
    }
    mSaver->throwIfFailed();
}

void Camera::close() {
    mSession->close();
    mSaver->flush();
    if (mTrace)
        mTrace->flush();
    endRecording();
}

}  // namespace kov::cam
