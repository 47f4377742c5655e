// Saves the pictures and preview frames of a session.
#pragma once

#include <utils/threads.h>

#include <string>
#include <vector>

#include "tools/kovcam/PictureWriter.h"
#include "tools/session/Listener.h"

namespace kov::cam {

struct SaverOptions {
    std::string folder;    // where pictures go; made when it is missing
    std::string prefix;    // of the pictures' names
    int previewEvery = 0;  // every Nth preview frame is saved; 0 saves none
};

/// A listener that saves every picture, and the preview frames that are wanted. Any thread.
class Saver : public Listener {
public:
    /// Throws Error when the folder cannot be written to.
    explicit Saver(SaverOptions options);

    /// Saves the next preview frame under `name`, whatever `previewEvery` says.
    void saveNextFrame(const std::string& name);
    /// The same with the frame that follows the next notification of a type: the frame that a mode sent it for.
    void saveFrameOf(int32_t notification, const std::string& name);
    /// Adds a word to the file name of the next picture.
    void nameNextPicture(const std::string& word);

    /// Waits until all is written. Throws Error when something could not be.
    void flush();
    /// Files of the pictures received so far.
    std::vector<std::string> pictures() const;

    void onNotify(const Notification& notification) override;
    void onFrame(const Frame& frame) override;
    void onPicture(const Picture& picture) override;

private:
    std::string framePath(const Frame& frame);
    std::string picturePath();

    const SaverOptions mOptions;
    PictureWriter mWriter;

    mutable android::Mutex mLock;
    std::vector<std::string> mPictures GUARDED_BY(mLock);
    std::string mNextFrameName GUARDED_BY(mLock);
    std::string mNextPictureWord GUARDED_BY(mLock);
    int32_t mFrameOf GUARDED_BY(mLock) = 0;      // the notification whose frame is saved, 0 for none,
    std::string mFrameOfName GUARDED_BY(mLock);  // under this name
};

}  // namespace kov::cam
