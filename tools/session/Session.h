// The service side: the camera, opened through the adaptor as the camera service opens it.
//
//     class Saver : public kov::cam::Listener { void onPicture(const Picture& picture) override { ... } };
//     auto session = kov::cam::Session::open({.source = "scene:landscape", .listeners = {std::make_shared<Saver>()}});
//     session->selectMode(android::KOV_MODE_SINGLE);
//     session->startPreview();
//     session->takePicture();
//     ...
//     session.reset();  // gives the camera back; now another source may be opened
#pragma once

#include <camera/CameraHardwareInterface.h>
#include <utils/threads.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tools/session/Error.h"
#include "tools/session/Listener.h"

namespace kov::cam {

/// What a session is opened with.
struct SessionOptions {
    /// What the camera sees: scene:NAME, a picture, a video, a folder of pictures, /dev/videoN, turns:SOURCE|SOURCE, or
    /// push: for frames that the client pushes. Empty: the host's usual one.
    std::string source;
    /// Camera parameters to set at once, as in {"preview-size", "1280x720"}. Others keep the camera's own values.
    std::map<std::string, std::string> parameters;
    /// Listeners that hear everything from the opening on.
    std::vector<std::shared_ptr<Listener>> listeners;
};

/// One open camera. All operations may be called from any thread; those of several threads come in no particular order.
///
/// Errors: every operation that the camera refuses throws Error with the camera's own reason. A session that is closed
/// refuses everything with an Error that says so.
///
/// Messages that the camera had already decided to send may still reach a listener just after `removeListener`,
/// `stopPreview` or `close` has returned; the session keeps the listener alive until then. None comes after the session
/// is closed and every callback under way has returned.
class Session {
public:
    /// Opens the camera. Throws Error: while another session of this process is open (a process has one camera), when
    /// the library is missing, and with the vendor camera's own reason when the source or a parameter is refused.
    /// When the last reference that came from here is dropped, the session is closed; a listener may do so on the
    /// camera's own thread.
    static std::shared_ptr<Session> open(SessionOptions options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// A listener that is there already is not added twice. Any thread, also from within a callback.
    void addListener(std::shared_ptr<Listener> listener);
    void removeListener(const std::shared_ptr<Listener>& listener);

    /// Selects a mode by its command code (shots/Commands.h; Names.h knows them by name). A mode that has no shot
    /// leaves plain forwarding.
    void selectMode(int32_t code);
    void startPreview();
    void stopPreview();
    /// Asks for a picture; it arrives as a message, and the preview is stopped then. Refused while one is under way.
    void takePicture();
    void cancelPicture();
    /// Focuses; the answer is a CAMERA_MSG_FOCUS notification with ext1 1.
    void autoFocus();
    void cancelAutoFocus();
    void startRecording();
    void stopRecording();
    /// Sends a command to the current mode and returns its status; a status is an answer, not an error.
    int32_t sendCommand(int32_t code, int32_t arg1 = 0, int32_t arg2 = 0);

    /// The value of one camera parameter; empty when there is no such key. "KEY-values" tells what is possible.
    std::string parameter(const std::string& key) const;
    std::map<std::string, std::string> parameters() const;
    void setParameter(const std::string& key, const std::string& value);
    /// Sets several at once: all of them, or none when one is refused. Size and format of the preview change only while
    /// it is stopped.
    void setParameters(const std::map<std::string, std::string>& values);

    /// The camera's own description of its state, several lines.
    std::string dump() const;

    /// Stops and gives the camera back. Harmless when it was closed before.
    void close();
    bool isOpen() const;

private:
    struct Place;      // this process's one session
    struct Callbacks;  // what the adaptor calls
    struct Geometry {
        int previewWidth = 0;
        int previewHeight = 0;
        int pictureWidth = 0;
        int pictureHeight = 0;
        PixelLayout previewLayout = PixelLayout::Yuv420sp;
        PixelLayout pictureLayout = PixelLayout::Yuv420sp;
    };
    using Listeners = std::vector<std::shared_ptr<Listener>>;
    using Hardware = android::sp<android::CameraHardwareInterface>;

    Session();
    void start(const std::shared_ptr<Session>& self, SessionOptions options);
    /// The open camera. Throws Error when the session is closed.
    Hardware camera() const;

    template <typename Event>
    void tell(void (Listener::*receiver)(const Event&), const Event& event) const;
    /// Tells of an operation, makes it, tells its result. Throws Error when it failed.
    void call(const char* name, const std::function<android::status_t(Hardware&)>& make, const std::string& text = {});
    /// The same for one that has no status.
    void callVoid(const char* name, const std::function<void(Hardware&)>& make, const std::string& text = {}) const;
    android::CameraParameters getParameters() const;
    void apply(const android::CameraParameters& parameters, const std::string& text) REQUIRES(mParametersLock);

    Frame frame(int32_t type, const android::sp<android::IMemory>& memory, int64_t timestamp);
    void received(int32_t type, const android::sp<android::IMemory>& memory);
    void receivedRecording(int64_t timestamp, int32_t type, const android::sp<android::IMemory>& memory);

    android::Mutex mParametersLock;  // held from reading parameters until they are set again; before mLock
    mutable android::Mutex mLock;    // a leaf
    Hardware mCamera GUARDED_BY(mLock);
    std::unique_ptr<Place> mPlace GUARDED_BY(mLock);
    std::shared_ptr<const Listeners> mListeners GUARDED_BY(mLock);
    Geometry mGeometry GUARDED_BY(mLock);

    std::atomic<uint64_t> mFrames{0};
    std::atomic<uint64_t> mRecordingFrames{0};
    std::atomic<uint64_t> mRawPictures{0};
    std::atomic<uint64_t> mPictures{0};
};

/// Shows a picture in front of the camera of a session whose source is push:. It stays until the next one comes; the
/// camera takes the newest at its own frame rate, cut to the shape of its frames around the middle. Before the first
/// one the camera sees a grey wall. Any thread; the bytes are copied. Throws Error for what is no picture. A JPEG as
/// browsers and cameras send it; its EXIF orientation is honoured.
void pushJpeg(const uint8_t* bytes, size_t size);
/// A full-range 4:2:0 frame of width x height x 3 / 2 bytes; both sides are even.
void pushFrame(const uint8_t* bytes, size_t size, int width, int height, PixelLayout layout);

}  // namespace kov::cam
