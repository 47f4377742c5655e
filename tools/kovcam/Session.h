// Playing the camera service and the application: one camera, opened through the adaptor.
#pragma once

#include <camera/CameraHardwareInterface.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <opencv2/core/types.hpp>
#include <string>
#include <vector>

#include "tools/kovcam/PictureWriter.h"
#include "tools/kovcam/Trace.h"

namespace kov::cam {

/// What a session is started with. Empty texts, empty sizes and zeros leave the camera's own values.
struct SessionOptions {
    std::string source;
    std::string folder;  // where pictures go; made when it is missing
    std::string prefix;  // of the pictures' names
    std::string trace;
    cv::Size previewSize;
    cv::Size pictureSize;
    std::string previewFormat;
    int framesPerSecond = 0;
    int quality = 0;
    int savePreviewEvery = 0;  // every Nth preview frame is saved; 0 saves none
};

/// One message that the application received.
struct Message {
    enum class Kind { Notify, Data, DataTimestamp } kind;
    int32_t type;
    int32_t ext1 = 0;
    int32_t ext2 = 0;
    size_t size = 0;   // of the data, in bytes
    std::string file;  // where a picture or frame is saved, else empty
};

/// Opens the camera, records everything that crosses the interface, saves pictures. Its own operations belong to one
/// thread; messages arrive on the camera's threads. A session is never deleted: late messages may arrive until the
/// process ends. Every operation throws Error when the camera refuses.
class Session {
public:
    explicit Session(SessionOptions options);
    ~Session() = delete;

    /// Selects a mode by its command code.
    void selectMode(int32_t code);
    void startPreview();
    void stopPreview();
    /// Asks for a picture; it arrives as a message.
    void takePicture();
    void autoFocus();
    android::status_t command(int32_t code, int32_t arg1 = 0, int32_t arg2 = 0);
    void setParameter(const std::string& key, const std::string& value);

    /// Hands each message that has come since the last wait to `done`, in order, until that returns true. Throws Error
    /// when it does not within `seconds`; `what` names in the error what was waited for.
    void wait(const std::string& what, double seconds, const std::function<bool(const Message&)>& done);
    /// Waits for a message of one type and returns it.
    Message waitFor(int32_t type, double seconds);
    /// Waits for `count` preview frames.
    void waitForFrames(int count);
    /// Goes on for `seconds`, handing the messages that come to `each`, or until that returns true.
    void runFor(double seconds, const std::function<bool(const Message&)>& each = {});

    /// Saves the next preview frame under `name`, whatever `savePreviewEvery` says.
    void saveNextFrame(const std::string& name);
    /// The same with the frame that follows the next notification of a type: the frame that a mode sent it for.
    void saveFrameOf(int32_t notification, const std::string& name);

    /// Adds a word to the file name of the next picture.
    void nameNextPicture(const std::string& word);

    /// Stops, gives the camera back, and waits until everything is written.
    void close();
    /// Files of the pictures received so far.
    std::vector<std::string> pictures();

private:
    static void onNotify(int32_t type, int32_t ext1, int32_t ext2, void* self);
    static void onData(int32_t type, const android::sp<android::IMemory>& data, void* self);
    static void onDataTimestamp(int64_t timestamp, int32_t type, const android::sp<android::IMemory>& data, void* self);

    void applyOptions();
    /// Writes the call, makes it, writes its result. Throws Error when it failed.
    void call(const char* name, const std::function<android::status_t()>& make);
    /// Sets all parameters; `text` tells in the trace what of them. Throws Error with what the camera said.
    void setParameters(const android::CameraParameters& parameters, const std::string& text);
    void received(Message message);
    std::string save(int32_t type, const android::sp<android::IMemory>& data);
    std::string savePreview(const android::sp<android::IMemory>& data);
    bool nextMessage(Message* message, std::chrono::steady_clock::time_point until);

    const SessionOptions mOptions;
    Trace mTrace;
    PictureWriter mWriter;
    android::sp<android::CameraHardwareInterface> mCamera;

    std::mutex mLock;  // guards all below
    cv::Size mPreviewSize;
    bool mPlanar = false;
    std::condition_variable mArrived;
    std::vector<Message> mMessages;
    size_t mRead = 0;  // messages that a wait has looked at
    std::vector<std::string> mPictures;
    int mFrames = 0;
    std::string mNextFrameName;
    std::string mNextPictureWord;
    int32_t mFrameOf = 0;      // the notification whose frame is saved, 0 for none,
    std::string mFrameOfName;  // under this name
};

}  // namespace kov::cam
