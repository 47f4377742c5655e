// The camera that the page shows: one session at a time, and what a camera application does around it.

#include "tools/kovcam/live/Camera.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <utility>

#include "shots/Commands.h"

namespace kov::live {

using android::AutoMutex;
using cam::Error;
using cam::Session;
using Json = nlohmann::ordered_json;

namespace {

constexpr int64_t kPatienceUs = 60'000'000;  // for a picture, since the mode was last heard of
constexpr int64_t kQuietUs = 1'000'000;      // so long after its last message a mode counts as done when we end
constexpr int64_t kLongestEndUs = 30'000'000;
constexpr size_t kMostRecentStory = 60;
constexpr std::string_view kSmileEngine = "smile engine: ";  // how the engine's line begins, told when it changes

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string modeName(int32_t code) {
    for (const android::KovMode& mode : android::kKovModes) {
        if (mode.code == code)
            return mode.name;
    }
    return "mode-" + std::to_string(code);
}

}  // namespace

/// Hears the session for the camera.
class Camera::Messages : public cam::Listener {
public:
    explicit Messages(Camera& camera) : mCamera(camera) {}
    void onPicture(const cam::Picture& picture) override { mCamera.pictureCame(picture); }
    void onLog(const cam::LogLine& line) override { mCamera.logged(line); }
    void onNotify(const cam::Notification& notification) override { mCamera.notified(notification); }

private:
    Camera& mCamera;
};

Camera::Camera(Options options, Hooks hooks)
    : mOptions(std::move(options)),
      mHooks(std::move(hooks)),
      mJournal(std::make_shared<Journal>()),
      mEncoder(std::make_shared<PreviewEncoder>(
          PreviewEncoder::Hooks{[journal = mJournal.get()] { return journal->nowUs(); }, mHooks.wanted, mHooks.show},
          mOptions.previewQuality)),
      mRecorder(std::make_shared<cam::Recorder>()),
      mTrace(mOptions.trace.empty() ? nullptr : std::make_shared<cam::Trace>(mOptions.trace)),
      mMessages(std::make_shared<Messages>(*this)),
      mAlbum(mOptions.folder, {[this](Album::ItemPtr item) { saved(std::move(item)); }, mHooks.removed,
                               [this](const std::string& text) { tell(text); }}),
      mMode(mOptions.mode),
      mChosen(mOptions.parameters) {}

Camera::~Camera() = default;

// --- Opening

std::shared_ptr<Session> Camera::session() const {
    const AutoMutex held(mLock);
    if (!mSession)
        throw Error(mClosedBecause.empty() ? "the camera is off; choose a source" : mClosedBecause);
    return mSession;
}

void Camera::openSession(const std::string& source) {
    cam::SessionOptions options;
    options.source = source;
    options.listeners = {mJournal, mMessages, mEncoder, mRecorder};
    if (mTrace)
        options.listeners.push_back(mTrace);
    int32_t mode = 0;
    bool preview = false;
    std::map<std::string, std::string> chosen;
    {
        const AutoMutex held(mLock);
        chosen = mChosen;
        mode = mMode;
        preview = mPreview;
    }
    mJournal->beginStory();
    const auto opened = Session::open(std::move(options));
    try {
        if (!chosen.empty())
            opened->setParameters(chosen);
    } catch (const Error& error) {  // those of the command line, say
        tell(std::string(error.what()) + "; the camera's own settings are used");
        const AutoMutex held(mLock);
        mChosen.clear();
    }
    opened->selectMode(mode);
    {
        const AutoMutex held(mLock);
        mSession = opened;
        mSource = source;
        mClosedBecause.clear();
    }
    readParameters();
    if (preview)
        opened->startPreview();
}

void Camera::closeSession() {
    setRecording(false);
    std::shared_ptr<Session> last;
    {
        const AutoMutex held(mLock);
        last = std::exchange(mSession, nullptr);
        mTaking = Taking::Nothing;
        mIfLost = 0;
    }
    if (last)
        last->close();
}

void Camera::open(const std::string& source, Json description) {
    std::string before;
    {
        const AutoMutex held(mLock);
        before = mSource;
    }
    closeSession();
    ++mRevision;
    try {
        openSession(source);
        const AutoMutex held(mLock);
        mDescription = std::move(description);
    } catch (const Error& error) {
        const std::string reason = error.what();
        closeSession();
        try {
            if (before.empty())
                throw;
            openSession(before);
        } catch (const Error& again) {
            const AutoMutex held(mLock);
            mClosedBecause = again.what();
        }
        ++mRevision;
        throw Error(reason);
    }
    ++mRevision;
}

void Camera::readParameters() {
    auto parameters = session()->parameters();
    const AutoMutex held(mLock);
    mParameters = std::move(parameters);
    ++mRevision;
}

// --- Operations

void Camera::selectMode(int32_t code) {
    const auto camera = session();
    mJournal->beginStory();
    camera->selectMode(code);
    bool start = false;
    {
        const AutoMutex held(mLock);
        mMode = code;
        mIfLost = 0;
        start = mPreview && mTaking == Taking::Nothing;
    }
    ++mRevision;
    // A mode makes its frames' memory and engines when the preview starts; one that runs goes on.
    if (start)
        camera->startPreview();
}

void Camera::takePicture() {
    const auto camera = session();
    {
        const AutoMutex held(mLock);
        if (mTaking != Taking::Nothing)
            throw Error("a picture is being taken; wait for it");
        mTaking = Taking::Asked;
        mNewsUs = mJournal->nowUs();
    }
    ++mRevision;
    try {
        camera->takePicture();
    } catch (const Error&) {
        startAgain();
        throw;
    }
}

void Camera::startAgain() {
    bool start = false;
    std::shared_ptr<Session> camera;
    {
        const AutoMutex held(mLock);
        mTaking = Taking::Nothing;
        start = mPreview;
        camera = mSession;
    }
    ++mRevision;
    if (camera && start)
        camera->startPreview();
}

void Camera::focus() {
    session()->autoFocus();
}

void Camera::setPreview(bool on) {
    const auto camera = session();
    if (on)
        camera->startPreview();
    else
        camera->stopPreview();
    const AutoMutex held(mLock);
    mPreview = on;
    ++mRevision;
}

void Camera::setParameters(const std::map<std::string, std::string>& values) {
    const auto camera = session();
    bool start = false;
    {
        const AutoMutex held(mLock);
        if (mTaking != Taking::Nothing)
            throw Error("a picture is being taken; change the settings after it");
        start = mPreview;
    }
    camera->stopPreview();
    try {
        camera->setParameters(values);
    } catch (const Error&) {
        if (start)
            camera->startPreview();
        throw;
    }
    {
        const AutoMutex held(mLock);
        for (const auto& [key, value] : values)
            mChosen[key] = value;
    }
    readParameters();
    if (start)
        camera->startPreview();
}

void Camera::setRecording(bool on) {
    std::string file;
    double since = 0;
    int32_t mode = 0;
    {
        const AutoMutex held(mLock);
        if (on == !mRecording.empty())
            return;
        file = mRecording;
        since = mRecordingSince;
        mode = mMode;
    }
    if (on) {
        const std::string rate = session()->parameter("preview-frame-rate");
        file = mAlbum.beginRecording();
        mRecorder->start(file, std::max(1.0, std::atof(rate.c_str())));
        since = now();
    } else {
        cam::Recorder::Result film = mRecorder->stop();
        if (film.frames > 0) {
            Album::Item item;
            item.time = since;
            item.mode = modeName(mode);
            mAlbum.addRecording(file, std::move(film.firstFrame), std::move(item));
        } else {
            std::remove(file.c_str());
            tell("the recording is empty: no preview frame came, or the disk is full");
        }
        file.clear();
    }
    const AutoMutex held(mLock);
    mRecording = file;
    mRecordingSince = since;
    ++mRevision;
}

int32_t Camera::sendCommand(int32_t code, int32_t arg1, int32_t arg2, int client, int32_t ifLost) {
    const auto camera = session();
    {
        const AutoMutex held(mLock);
        mHolder = client;
        mIfLost = ifLost;
        mNewsUs = mJournal->nowUs();
    }
    return camera->sendCommand(code, arg1, arg2);
}

void Camera::clientLost(int client) {
    int32_t command = 0;
    {
        const AutoMutex held(mLock);
        if (mIfLost && mHolder == client)
            command = std::exchange(mIfLost, 0);
    }
    if (command)
        mHooks.later([this, command] { sendCommand(command, 0, 0); });
}

void Camera::pushJpeg(const std::string& jpeg) {
    cam::pushJpeg(reinterpret_cast<const uint8_t*>(jpeg.data()), jpeg.size());
}

// --- Messages, on the camera's threads

void Camera::tell(const std::string& problem) {
    mJournal->add("problem", {{"text", problem}});
    std::fprintf(stderr, "kovcam: %s\n", problem.c_str());
}

void Camera::saved(Album::ItemPtr item) {
    mJournal->add("saved", {{"type", item->type}, {"file", item->file}, {"picture", item->id}});
    mHooks.added(std::move(item));
}

std::vector<std::string> Camera::recentStory() const {
    const auto all = mJournal->story();
    std::vector<std::string> lines;
    for (size_t i = all.size() - std::min(all.size(), kMostRecentStory); i < all.size(); ++i)
        lines.push_back(all[i]->text);
    return lines;
}

void Camera::pictureCame(const cam::Picture& picture) {
    bool asked = false;
    Album::Item item;
    {
        const AutoMutex held(mLock);
        asked = mTaking == Taking::Asked;
        if (asked)
            mTaking = Taking::Came;
        item.mode = modeName(mMode);
        mNewsUs = mJournal->nowUs();
    }
    if (picture.size > 0) {
        item.time = now();
        item.story = recentStory();
        mAlbum.addPicture({picture.bytes, picture.bytes + picture.size}, std::move(item));
    } else {
        tell("the mode made no picture; take it once more");
    }
    if (asked)
        mHooks.later([this] { startAgain(); });
}

void Camera::notified(const cam::Notification& notification) {
    {
        const AutoMutex held(mLock);
        mNewsUs = mJournal->nowUs();
    }
    if (notification.type == android::CAMERA_MSG_SMILE_DETECTED)
        mHooks.later([this] { takePicture(); });
    if (notification.type == android::CAMERA_MSG_ERROR)
        tell(notification.reason.empty() ? "the camera reports an error; choose the source again"
                                         : notification.reason);
}

void Camera::logged(const cam::LogLine& line) {
    if (!line.text.starts_with(kSmileEngine))
        return;
    const AutoMutex held(mLock);
    mSmileEngine = line.text.substr(kSmileEngine.size());
    ++mRevision;
}

void Camera::tick() {
    bool overdue = false;
    {
        const AutoMutex held(mLock);
        overdue = mTaking != Taking::Nothing && mJournal->nowUs() - mNewsUs > kPatienceUs;
        if (overdue)
            mTaking = Taking::Nothing;
    }
    if (!overdue)
        return;
    tell("the picture did not come; the log in the drawer says why");
    mHooks.later([this] { startAgain(); });
}

// --- Ending

void Camera::finish() {
    setRecording(false);
    const int64_t begin = mJournal->nowUs();
    int32_t command = 0;
    int64_t newsUs = 0;
    {
        const AutoMutex held(mLock);
        command = std::exchange(mIfLost, 0);
    }
    if (command)
        sendCommand(command, 0, 0);
    // What is on its way may arrive. What an arrival asks for waits for us, so that is not waited for.
    for (;;) {
        {
            const AutoMutex held(mLock);
            newsUs = mNewsUs;
            if (mTaking != Taking::Asked && mJournal->nowUs() - newsUs > kQuietUs)
                break;
        }
        if (mJournal->nowUs() - begin > kLongestEndUs)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    closeSession();
    mAlbum.flush();
    if (mTrace)
        mTrace->flush();
}

// --- State

Json Camera::state() const {
    const AutoMutex held(mLock);
    Json state = {{"camera", mSession ? "open" : "closed"},
                  {"mode", mMode},
                  {"modeName", modeName(mMode)},
                  {"preview", mPreview},
                  {"takingPicture", mTaking != Taking::Nothing},
                  {"source", mDescription},
                  {"parameters", mParameters},
                  {"recording", mRecording.empty() ? Json() : Json(mRecordingSince)}};
    if (!mSmileEngine.empty())
        state["smileEngine"] = mSmileEngine;
    if (!mClosedBecause.empty())
        state["reason"] = mClosedBecause;
    return state;
}

}  // namespace kov::live
