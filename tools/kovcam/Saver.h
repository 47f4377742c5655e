// Saves the pictures and preview frames of a session.
#pragma once

#include <kov/annotations.h>
#include <utils/threads.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/kovcam/OutputName.h"
#include "tools/kovcam/PictureWriter.h"
#include "tools/session/Listener.h"

namespace kov::cam {

struct SaverOptions {
    std::string output;     // what -o says; see OutputName
    std::string mode;       // for the pictures' names
    int previewEvery = 0;   // every Nth preview frame is saved; 0 saves none
    bool raw = false;       // uncompressed pictures are saved too, as YUV4MPEG2
    bool overwrite = false;
    std::string latest;     // a symbolic link of this name leads to the newest picture; none when it is empty
};

/// A listener that saves every picture, and the preview frames that are wanted. Any thread.
class Saver : public Listener {
public:
    /// `written` is called with the type and the path of each file that is there, on the writer's thread. Throws Error
    /// when the folder cannot be written to.
    Saver(SaverOptions options, std::function<void(int32_t, const std::string&)> written);

    /// Saves the next preview frame under `name`, whatever `previewEvery` says.
    void saveNextFrame(const std::string& name);
    /// The same with the frame that follows the next notification of a type: the frame that a mode sent it for.
    void saveFrameOf(int32_t notification, const std::string& name);
    /// Adds a word to the file name of the next picture.
    void nameNextPicture(const std::string& word);

    /// Waits until all is written. Throws Error when something could not be.
    void flush() { mWriter.flush(); }
    /// Throws Error when something could not be written.
    void throwIfFailed() { mWriter.throwIfFailed(); }
    /// Pictures received so far, compressed or, where the camera gives no others, raw.
    int received() const;

    void onNotify(const Notification& notification) override;
    void onFrame(const Frame& frame) override;
    void onPicture(const Picture& picture) override;
    void onRawPicture(const Frame& frame) override;

private:
    std::string frameName(const Frame& frame);
    void written(int32_t type, const std::string& path);

    const SaverOptions mOptions;
    const OutputName mOutput;
    const std::function<void(int32_t, const std::string&)> mWritten;
    int mNumber;  // of the next picture; the writer's thread

    mutable android::Mutex mLock;
    int mReceived GUARDED_BY(mLock) = 0;
    std::string mNextFrameName GUARDED_BY(mLock);
    std::string mNextPictureWord GUARDED_BY(mLock);
    int32_t mFrameOf GUARDED_BY(mLock) = 0;      // the notification whose frame is saved, 0 for none,
    std::string mFrameOfName GUARDED_BY(mLock);  // under this name

    PictureWriter mWriter;  // last: ends first
};

}  // namespace kov::cam
