// Playing the camera service and the application: one camera, opened through the adaptor.

#include "tools/kovcam/Session.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/camera/Sources.h"
#include "host/runtime/Log.h"
#include "tools/kovcam/Adaptor.h"
#include "tools/kovcam/Error.h"
#include "tools/kovcam/Names.h"

namespace kov::cam {

using namespace android;
using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int32_t kWantedMessages = CAMERA_MSG_ERROR | CAMERA_MSG_SHUTTER | CAMERA_MSG_FOCUS |
                                    CAMERA_MSG_PREVIEW_FRAME | CAMERA_MSG_RAW_IMAGE | CAMERA_MSG_COMPRESSED_IMAGE;
constexpr double kFrameSeconds = 5;  // the longest wait for one preview frame

Clock::time_point after(double seconds) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

void checkSource(const std::string& source) {
    if (const std::string error = kov::camera::checkSource(source); !error.empty())
        throw Error(error);
}

std::string numbered(const std::string& path, const char* format, int number, const std::string& ending) {
    char text[32];
    std::snprintf(text, sizeof text, format, number);
    return path + text + ending;
}

/// The last error line of the log while it lives: what the vendor layer said when it refused something.
class LastError {
public:
    LastError()
        : mSink(kov::host::addLogSink([this](const kov::host::LogLine& line) {
              if (line.tag == "VendorCamera" && line.priority >= 6)
                  mText = line.message;
          })) {}
    ~LastError() { kov::host::removeLogSink(mSink); }
    LastError(const LastError&) = delete;
    LastError& operator=(const LastError&) = delete;

    /// Read after the call that failed, on the thread that made it.
    const std::string& text() const { return mText; }

private:
    std::string mText;
    int mSink;
};

}  // namespace

// The source is looked at first: one that is unknown leaves the files of an earlier session as they are.
Session::Session(SessionOptions options)
    : mOptions(std::move(options)),
      mTrace((checkSource(mOptions.source), prepareFolder(mOptions.folder), mOptions.trace)) {
    setenv("KOV_CAMERA_SOURCE", mOptions.source.c_str(), 1);
    mTrace.write("call", {{"name", "openKovCameraHardware"}});
    mCamera = openAdaptor();
    mTrace.write("call", {{"name", "setCallbacks"}});
    mCamera->setCallbacks(onNotify, onData, onDataTimestamp, this);
    applyOptions();
    mTrace.write("call", {{"name", "enableMsgType"}, {"types", hex(kWantedMessages)}});
    mCamera->enableMsgType(kWantedMessages);
}

void Session::applyOptions() {
    mTrace.write("call", {{"name", "getParameters"}});
    CameraParameters parameters = mCamera->getParameters();
    if (!parameters.getPreviewFormat())
        throw Error("the vendor camera could not be opened; --log error shows why");
    if (!mOptions.previewSize.empty())
        parameters.setPreviewSize(mOptions.previewSize.width, mOptions.previewSize.height);
    if (!mOptions.pictureSize.empty())
        parameters.setPictureSize(mOptions.pictureSize.width, mOptions.pictureSize.height);
    if (!mOptions.previewFormat.empty())
        parameters.setPreviewFormat(mOptions.previewFormat.c_str());
    if (mOptions.framesPerSecond)
        parameters.setPreviewFrameRate(mOptions.framesPerSecond);
    if (mOptions.quality)
        parameters.set(CameraParameters::KEY_JPEG_QUALITY, mOptions.quality);
    setParameters(parameters, parameters.flatten().string());
}

void Session::setParameters(const CameraParameters& parameters, const std::string& text) {
    const LastError refusal;
    mTrace.write("call", {{"name", "setParameters"}, {"text", text}});
    const status_t status = mCamera->setParameters(parameters);
    mTrace.write("result", {{"name", "setParameters"}, {"status", status}});
    if (status != NO_ERROR)
        throw Error(refusal.text().empty() ? "the camera refuses " + text : refusal.text());
    const std::lock_guard held(mLock);
    parameters.getPreviewSize(&mPreviewSize.width, &mPreviewSize.height);
    mPlanar = std::string(parameters.getPreviewFormat()) == "yuv420p";
}

void Session::call(const char* name, const std::function<status_t()>& make) {
    mTrace.write("call", {{"name", name}});
    const status_t status = make();
    mTrace.write("result", {{"name", name}, {"status", status}});
    if (status != NO_ERROR)
        throw Error(std::string(name) + " failed with status " + std::to_string(status) + "; --log error shows why");
}

void Session::selectMode(int32_t code) {
    command(code);
}

void Session::startPreview() {
    call("startPreview", [this] { return mCamera->startPreview(); });
}

void Session::stopPreview() {
    mTrace.write("call", {{"name", "stopPreview"}});
    mCamera->stopPreview();
}

void Session::takePicture() {
    call("takePicture", [this] { return mCamera->takePicture(); });
}

void Session::autoFocus() {
    call("autoFocus", [this] { return mCamera->autoFocus(); });
}

status_t Session::command(int32_t code, int32_t arg1, int32_t arg2) {
    mTrace.write("command", {{"code", code}, {"name", commandName(code)}, {"arg1", arg1}, {"arg2", arg2}});
    const status_t status = mCamera->sendCommand(code, arg1, arg2);
    mTrace.write("result", {{"name", "sendCommand"}, {"status", status}});
    return status;
}

void Session::setParameter(const std::string& key, const std::string& value) {
    mTrace.write("call", {{"name", "getParameters"}});
    CameraParameters parameters = mCamera->getParameters();
    parameters.set(key.c_str(), value.c_str());
    setParameters(parameters, key + "=" + value);
}

// --- Waiting

bool Session::nextMessage(Message* message, Clock::time_point until) {
    std::unique_lock held(mLock);
    if (!mArrived.wait_until(held, until, [this] { return mRead < mMessages.size(); }))
        return false;
    *message = mMessages[mRead++];
    return true;
}

void Session::wait(const std::string& what, double seconds, const std::function<bool(const Message&)>& done) {
    const Clock::time_point until = after(seconds);
    for (Message message; nextMessage(&message, until);) {
        if (done(message))
            return;
    }
    char text[32];
    std::snprintf(text, sizeof text, "%g s", seconds);
    throw Error("no " + what + " came within " + text + "; --trace FILE shows what did");
}

Message Session::waitFor(int32_t type, double seconds) {
    Message found{};
    wait(messageName(type) + " message", seconds, [&](const Message& message) {
        found = message;
        return message.type == type;
    });
    return found;
}

void Session::waitForFrames(int count) {
    for (int i = 0; i < count; ++i)
        waitFor(CAMERA_MSG_PREVIEW_FRAME, kFrameSeconds);
}

void Session::runFor(double seconds, const std::function<bool(const Message&)>& each) {
    const Clock::time_point until = after(seconds);
    for (Message message; nextMessage(&message, until);) {
        if (each && each(message))
            return;
    }
}

// --- Receiving, on the camera's threads

void Session::onNotify(int32_t type, int32_t ext1, int32_t ext2, void* self) {
    auto& session = *static_cast<Session*>(self);
    session.mTrace.write("notify", {{"type", hex(type)}, {"name", messageName(type)}, {"ext1", ext1}, {"ext2", ext2}});
    session.received({Message::Kind::Notify, type, ext1, ext2, 0, {}});
}

void Session::onData(int32_t type, const sp<IMemory>& data, void* self) {
    auto& session = *static_cast<Session*>(self);
    const size_t size = data.get() ? data->size() : 0;
    const std::string file = session.save(type, data);
    Json what = {{"type", hex(type)}, {"name", messageName(type)}, {"size", size}};
    if (!file.empty())
        what["file"] = std::filesystem::path(file).filename().string();
    session.mTrace.write("data", what);
    session.received({Message::Kind::Data, type, 0, 0, size, file});
}

void Session::onDataTimestamp(int64_t timestamp, int32_t type, const sp<IMemory>& data, void* self) {
    auto& session = *static_cast<Session*>(self);
    const size_t size = data.get() ? data->size() : 0;
    session.mTrace.write("data",
                         {{"type", hex(type)}, {"name", messageName(type)}, {"size", size}, {"time", timestamp}});
    session.received({Message::Kind::DataTimestamp, type, 0, 0, size, {}});
    session.mCamera->releaseRecordingFrame(data);
}

void Session::received(Message message) {
    {
        const std::lock_guard held(mLock);
        if (message.kind == Message::Kind::Notify && mFrameOf && message.type == mFrameOf) {
            mNextFrameName = mFrameOfName;
            mFrameOf = 0;
        }
        mMessages.push_back(std::move(message));
    }
    mArrived.notify_all();
}

/// Returns the file that the data goes to, or an empty text.
std::string Session::save(int32_t type, const sp<IMemory>& data) {
    if (!data.get() || !data->pointer())
        return {};
    if (type == CAMERA_MSG_PREVIEW_FRAME)
        return savePreview(data);
    if (type != CAMERA_MSG_COMPRESSED_IMAGE)
        return {};
    const auto* first = static_cast<const uint8_t*>(data->pointer());
    std::string path;
    {
        const std::lock_guard held(mLock);
        const std::string word = std::exchange(mNextPictureWord, {});
        path = numbered(mOptions.folder + "/" + mOptions.prefix, "-%03d", static_cast<int>(mPictures.size()) + 1,
                        word.empty() ? ".jpg" : "-" + word + ".jpg");
        mPictures.push_back(path);
    }
    mWriter.addFile(path, {first, first + data->size()});
    return path;
}

std::string Session::savePreview(const sp<IMemory>& data) {
    std::string path;
    cv::Size frame;
    bool planar = false;
    {
        const std::lock_guard held(mLock);
        const int number = mFrames++;
        if (!mNextFrameName.empty())
            path = mOptions.folder + "/" + std::exchange(mNextFrameName, {}) + ".jpg";
        else if (mOptions.savePreviewEvery && number % mOptions.savePreviewEvery == 0)
            path = numbered(mOptions.folder + "/preview", "-%05d", number, ".jpg");
        frame = mPreviewSize;
        planar = mPlanar;
    }
    const size_t size = static_cast<size_t>(frame.area()) * 3 / 2;
    if (path.empty() || data->size() != size)
        return {};  // not wanted, or still of the size before
    const auto* first = static_cast<const uint8_t*>(data->pointer());
    return mWriter.addFrame(path, {first, first + size}, frame, planar) ? path : std::string();
}

void Session::saveNextFrame(const std::string& name) {
    const std::lock_guard held(mLock);
    mNextFrameName = name;
}

void Session::nameNextPicture(const std::string& word) {
    const std::lock_guard held(mLock);
    mNextPictureWord = word;
}

void Session::saveFrameOf(int32_t notification, const std::string& name) {
    const std::lock_guard held(mLock);
    mFrameOf = notification;
    mFrameOfName = name;
}

std::vector<std::string> Session::pictures() {
    const std::lock_guard held(mLock);
    return mPictures;
}

void Session::close() {
    if (mCamera.get()) {
        stopPreview();
        mTrace.write("call", {{"name", "release"}});
        mCamera->release();
        mTrace.write("call", {{"name", "setCallbacks"}});
        mCamera->setCallbacks(nullptr, nullptr, nullptr, nullptr);
        mCamera.clear();
    }
    mWriter.flush();
    mTrace.flush();
}

}  // namespace kov::cam
