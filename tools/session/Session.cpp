// The service side: the camera, opened through the adaptor as the camera service opens it.

#include "tools/session/Session.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include "host/control/Control.h"
#include "tools/session/Adaptor.h"
#include "tools/session/Names.h"

namespace kov::cam {

using namespace android;

namespace {

constexpr int32_t kWantedMessages = CAMERA_MSG_ERROR | CAMERA_MSG_SHUTTER | CAMERA_MSG_FOCUS |
                                    CAMERA_MSG_PREVIEW_FRAME | CAMERA_MSG_VIDEO_FRAME | CAMERA_MSG_RAW_IMAGE |
                                    CAMERA_MSG_COMPRESSED_IMAGE;
constexpr auto kLastMessages = std::chrono::seconds(10);  // for what an earlier session still delivers
constexpr int kErrorPriority = 6;

thread_local std::string lastErrorLine;  // of the log, written by this thread

/// Why the operation that this thread made last failed.
std::string failure(const char* name, status_t status) {
    if (std::string reason = kov::host::takeFailure(); !reason.empty())
        return reason;
    if (!lastErrorLine.empty())
        return lastErrorLine;
    return std::string(name) + " failed with status " + std::to_string(status);
}

void forgetFailures() {
    kov::host::takeFailure();
    lastErrorLine.clear();
}

PixelLayout layoutOf(const char* format) {
    return format && std::strcmp(format, "yuv420p") == 0 ? PixelLayout::Yuv420p : PixelLayout::Yuv420sp;
}

std::map<std::string, std::string> toMap(const CameraParameters& parameters) {
    std::map<std::string, std::string> values;
    const std::string text = parameters.flatten().string();
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find(';', begin), text.size());
        const size_t equals = text.find('=', begin);
        values[text.substr(begin, equals - begin)] = text.substr(equals + 1, end - equals - 1);
        begin = end + 1;
    }
    return values;
}

std::string joined(const std::map<std::string, std::string>& values) {
    std::string text;
    for (const auto& [key, value] : values)
        text.append(text.empty() ? "" : ";").append(key).append("=").append(value);
    return text;
}

/// The process's one session. Messages find it by the number that it was opened with, so a late one that was meant for
/// an earlier session finds nobody.
struct Registry {
    Mutex lock;
    bool taken GUARDED_BY(lock) = false;
    std::weak_ptr<Session> session GUARDED_BY(lock);
    uintptr_t number GUARDED_BY(lock) = 0;
    wp<CameraHardwareInterface> last GUARDED_BY(lock);  // the adaptor of the session before

    static Registry& get() {
        static Registry* const registry = new Registry;  // never destroyed: late messages ask until the process ends
        return *registry;
    }
    std::shared_ptr<Session> find(const void* user) {
        const AutoMutex held(lock);
        return reinterpret_cast<uintptr_t>(user) == number ? session.lock() : nullptr;
    }
    bool lastIsAlive() {
        const AutoMutex held(lock);
        return last.promote().get() != nullptr;
    }
};

/// Waits until the adaptor of an earlier session is gone: a thread that delivers a message holds it. An open before
/// that would come back with the old one, whose camera is released.
void awaitEndOfLast() {
    const auto end = std::chrono::steady_clock::now() + kLastMessages;
    while (Registry::get().lastIsAlive()) {
        if (std::chrono::steady_clock::now() > end)
            throw Error("the last session's camera is still delivering a message; open again when that has returned");
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace

/// Claims the process's one session, and hears the host, for as long as it lives.
struct Session::Place {
    Place() {
        Registry& registry = Registry::get();
        const AutoMutex held(registry.lock);
        if (registry.taken)
            throw Error("a session is open in this process, and a process has one camera; close that session first");
        registry.taken = true;
    }
    ~Place() {
        if (mLogSink >= 0)
            kov::host::removeLogSink(mLogSink);
        if (mCallSink >= 0)
            kov::host::removeCallSink(mCallSink);
        Registry& registry = Registry::get();
        const AutoMutex held(registry.lock);
        registry.session.reset();
        registry.taken = false;
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    /// Lets messages and the host's lines find the session.
    void lead(const std::shared_ptr<Session>& self) {
        {
            Registry& registry = Registry::get();
            const AutoMutex held(registry.lock);
            registry.session = self;
            mNumber = ++registry.number;
        }
        Session* const session = self.get();  // outlives the sinks
        mLogSink = kov::host::addLogSink([session](const kov::host::LogLine& line) {
            if (line.priority >= kErrorPriority)
                lastErrorLine = line.message;
            session->tell(&Listener::onLog, {"??VDIWEFS"[line.priority], line.tag, line.message});
        });
        mCallSink = kov::host::addCallSink([session](const kov::host::HostCall& call) {
            session->tell(&Listener::onInnerCall,
                          {call.library, call.name, call.arguments, call.result, call.durationNs});
        });
    }
    /// What the adaptor is given as user pointer.
    void* user() const { return reinterpret_cast<void*>(mNumber); }

private:
    uintptr_t mNumber = 0;
    int mLogSink = -1;
    int mCallSink = -1;
};

/// What the adaptor calls, on any thread.
struct Session::Callbacks {
    static void notify(int32_t type, int32_t ext1, int32_t ext2, void* user) {
        if (const auto session = Registry::get().find(user)) {
            const std::string reason = type == CAMERA_MSG_ERROR ? kov::host::takeFailure() : "";
            session->tell(&Listener::onNotify, {type, ext1, ext2, reason});
        }
    }
    static void data(int32_t type, const sp<IMemory>& memory, void* user) {
        if (const auto session = Registry::get().find(user))
            session->received(type, memory);
    }
    static void dataTimestamp(int64_t timestamp, int32_t type, const sp<IMemory>& memory, void* user) {
        if (const auto session = Registry::get().find(user))
            session->receivedRecording(timestamp, type, memory);
    }
};

// --- Opening and closing

Session::Session() : mPlace(std::make_unique<Place>()), mListeners(std::make_shared<Listeners>()) {}

std::shared_ptr<Session> Session::open(SessionOptions options) {
    // A message under way holds the session too, but it is the clients' last reference that closes it.
    const std::shared_ptr<Session> held(new Session);
    std::shared_ptr<Session> session(held.get(), [held](Session* unused) { unused->close(); });
    session->start(held, std::move(options));
    return session;
}

Session::~Session() = default;

void Session::start(const std::shared_ptr<Session>& self, SessionOptions options) {
    for (auto& listener : options.listeners)
        addListener(std::move(listener));
    void* user = nullptr;
    {
        const AutoMutex held(mLock);
        mPlace->lead(self);
        user = mPlace->user();
    }
    awaitEndOfLast();
    kov::host::chooseSource(options.source);
    forgetFailures();
    tell(&Listener::onCall, Call{"openKovCameraHardware", options.source});
    Hardware adaptor = openAdaptor();
    const std::string reason = failure("opening the camera", UNKNOWN_ERROR);
    {
        const AutoMutex held(mLock);
        mCamera = adaptor;
    }
    const CameraParameters initial = getParameters();
    const bool opened = initial.getPreviewFormat() != nullptr;
    tell(&Listener::onResult,
         Result{"openKovCameraHardware", true, opened ? NO_ERROR : UNKNOWN_ERROR, opened ? "" : reason});
    if (!opened)
        throw Error(reason);
    callVoid("setCallbacks", [&](Hardware& camera) {
        camera->setCallbacks(Callbacks::notify, Callbacks::data, Callbacks::dataTimestamp, user);
    });
    setParameters(options.parameters);
    callVoid(
        "enableMsgType", [](Hardware& camera) { camera->enableMsgType(kWantedMessages); },
        "types=" + hex(kWantedMessages));
}

void Session::close() {
    Hardware camera;
    std::unique_ptr<Place> place;
    {
        const AutoMutex held(mLock);
        camera = mCamera;
        mCamera.clear();
        place.swap(mPlace);
    }
    if (camera.get()) {
        const auto end = [&](const char* name, const std::function<void()>& make) {
            tell(&Listener::onCall, Call{name, {}});
            make();
            tell(&Listener::onResult, Result{name, false, 0, {}});
        };
        end("stopPreview", [&] { camera->stopPreview(); });
        end("release", [&] { camera->release(); });
        end("setCallbacks", [&] { camera->setCallbacks(nullptr, nullptr, nullptr, nullptr); });
        const AutoMutex held(Registry::get().lock);
        Registry::get().last = camera;
    }
    camera.clear();
}

bool Session::isOpen() const {
    const AutoMutex held(mLock);
    return mCamera.get() != nullptr;
}

Session::Hardware Session::camera() const {
    const AutoMutex held(mLock);
    if (!mCamera.get())
        throw Error("the session is closed; open another one");
    return mCamera;
}

// --- Listeners

void Session::addListener(std::shared_ptr<Listener> listener) {
    const AutoMutex held(mLock);
    if (!listener || std::ranges::find(*mListeners, listener) != mListeners->end())
        return;
    auto more = std::make_shared<Listeners>(*mListeners);
    more->push_back(std::move(listener));
    mListeners = std::move(more);
}

void Session::removeListener(const std::shared_ptr<Listener>& listener) {
    const AutoMutex held(mLock);
    auto fewer = std::make_shared<Listeners>(*mListeners);
    std::erase(*fewer, listener);
    mListeners = std::move(fewer);
}

template <typename Event>
void Session::tell(void (Listener::*receiver)(const Event&), const Event& event) const {
    std::shared_ptr<const Listeners> listeners;
    {
        const AutoMutex held(mLock);
        listeners = mListeners;
    }
    for (const auto& listener : *listeners)
        (listener.get()->*receiver)(event);
}

// --- Operations

void Session::call(const char* name, const std::function<status_t(Hardware&)>& make, const std::string& text) {
    Hardware adaptor = camera();
    tell(&Listener::onCall, Call{name, text});
    forgetFailures();
    const status_t status = make(adaptor);
    const std::string reason = status == NO_ERROR ? "" : failure(name, status);
    tell(&Listener::onResult, Result{name, true, status, reason});
    if (status != NO_ERROR)
        throw Error(reason);
}

void Session::callVoid(const char* name, const std::function<void(Hardware&)>& make, const std::string& text) const {
    Hardware adaptor = camera();
    tell(&Listener::onCall, Call{name, text});
    make(adaptor);
    tell(&Listener::onResult, Result{name, false, 0, {}});
}

void Session::selectMode(int32_t code) {
    sendCommand(code);
}

void Session::startPreview() {
    call("startPreview", [](Hardware& camera) { return camera->startPreview(); });
}

void Session::stopPreview() {
    callVoid("stopPreview", [](Hardware& camera) { camera->stopPreview(); });
}

void Session::takePicture() {
    call("takePicture", [](Hardware& camera) { return camera->takePicture(); });
}

void Session::cancelPicture() {
    call("cancelPicture", [](Hardware& camera) { return camera->cancelPicture(); });
}

void Session::autoFocus() {
    call("autoFocus", [](Hardware& camera) { return camera->autoFocus(); });
}

void Session::cancelAutoFocus() {
    call("cancelAutoFocus", [](Hardware& camera) { return camera->cancelAutoFocus(); });
}

void Session::startRecording() {
    call("startRecording", [](Hardware& camera) { return camera->startRecording(); });
}

void Session::stopRecording() {
    callVoid("stopRecording", [](Hardware& camera) { camera->stopRecording(); });
}

int32_t Session::sendCommand(int32_t code, int32_t arg1, int32_t arg2) {
    const Hardware adaptor = camera();
    tell(&Listener::onCommand, Command{code, arg1, arg2});
    const status_t status = adaptor->sendCommand(code, arg1, arg2);
    tell(&Listener::onResult, Result{"sendCommand", true, status, {}});
    return status;
}

std::string Session::dump() const {
    std::FILE* const file = std::tmpfile();
    if (!file)
        throw Error("there is no room for a temporary file");
    callVoid("dump", [&](Hardware& camera) { camera->dump(fileno(file), {}); });
    std::rewind(file);
    std::string text;
    for (int c = 0; (c = std::fgetc(file)) != EOF;)
        text += static_cast<char>(c);
    std::fclose(file);
    return text;
}

// --- Parameters

CameraParameters Session::getParameters() const {
    CameraParameters parameters;
    callVoid("getParameters", [&](Hardware& camera) { parameters = camera->getParameters(); });
    return parameters;
}

std::map<std::string, std::string> Session::parameters() const {
    return toMap(getParameters());
}

std::string Session::parameter(const std::string& key) const {
    const CameraParameters parameters = getParameters();
    const char* const value = parameters.get(key.c_str());
    return value ? value : "";
}

void Session::setParameter(const std::string& key, const std::string& value) {
    setParameters({{key, value}});
}

void Session::setParameters(const std::map<std::string, std::string>& values) {
    const AutoMutex held(mParametersLock);
    CameraParameters parameters = getParameters();
    for (const auto& [key, value] : values) {
        if (key.empty() || key.find_first_of("=;") != std::string::npos ||
            value.find_first_of("=;") != std::string::npos)
            throw Error(std::string("\"").append(key).append("=").append(value) +
                        "\" is no parameter; neither key nor value may have = or ;");
        parameters.set(key.c_str(), value.c_str());
    }
    apply(parameters, joined(values));
}

void Session::apply(const CameraParameters& parameters, const std::string& text) {
    call(
        "setParameters", [&](Hardware& camera) { return camera->setParameters(parameters); }, text);
    Geometry geometry;
    parameters.getPreviewSize(&geometry.previewWidth, &geometry.previewHeight);
    parameters.getPictureSize(&geometry.pictureWidth, &geometry.pictureHeight);
    geometry.previewLayout = layoutOf(parameters.getPreviewFormat());
    geometry.pictureLayout = layoutOf(parameters.getPictureFormat());
    const AutoMutex held(mLock);
    mGeometry = geometry;
}

// --- Messages, on any thread

Frame Session::frame(int32_t type, const sp<IMemory>& memory, int64_t timestamp) {
    Geometry geometry;
    {
        const AutoMutex held(mLock);
        geometry = mGeometry;
    }
    const bool raw = type == CAMERA_MSG_RAW_IMAGE;
    std::atomic<uint64_t>& count = raw ? mRawPictures : type == CAMERA_MSG_VIDEO_FRAME ? mRecordingFrames : mFrames;
    Frame frame{type,
                memory.get() ? static_cast<const uint8_t*>(memory->pointer()) : nullptr,
                memory.get() ? memory->size() : 0,
                raw ? geometry.pictureWidth : geometry.previewWidth,
                raw ? geometry.pictureHeight : geometry.previewHeight,
                raw ? geometry.pictureLayout : geometry.previewLayout,
                count++,
                timestamp};
    if (frame.size != static_cast<size_t>(frame.width) * frame.height * 3 / 2)
        frame.width = frame.height = 0;
    return frame;
}

void Session::received(int32_t type, const sp<IMemory>& memory) {
    const auto* const bytes = memory.get() ? static_cast<const uint8_t*>(memory->pointer()) : nullptr;
    const size_t size = memory.get() ? memory->size() : 0;
    switch (type) {
        case CAMERA_MSG_PREVIEW_FRAME:
            return tell(&Listener::onFrame, frame(type, memory, 0));
        case CAMERA_MSG_RAW_IMAGE:
            return tell(&Listener::onRawPicture, frame(type, memory, 0));
        case CAMERA_MSG_COMPRESSED_IMAGE:
            return tell(&Listener::onPicture, Picture{bytes, bytes ? size : 0, mPictures++});
        default:
            return tell(&Listener::onData, Data{type, bytes, size});
    }
}

void Session::receivedRecording(int64_t timestamp, int32_t type, const sp<IMemory>& memory) {
    tell(&Listener::onRecordingFrame, frame(type, memory, timestamp));
    Hardware adaptor;
    {
        const AutoMutex held(mLock);
        adaptor = mCamera;
    }
    if (adaptor.get())
        adaptor->releaseRecordingFrame(memory);
}

}  // namespace kov::cam
