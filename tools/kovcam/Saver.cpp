// Saves the pictures and preview frames of a session.

#include "tools/kovcam/Saver.h"

#include <cstdio>
#include <utility>

namespace kov::cam {

using android::AutoMutex;

namespace {

std::string numbered(const std::string& path, const char* format, int number, const std::string& ending) {
    char text[32];
    std::snprintf(text, sizeof text, format, number);
    return path + text + ending;
}

}  // namespace

Saver::Saver(SaverOptions options) : mOptions((prepareFolder(options.folder), std::move(options))) {}

void Saver::saveNextFrame(const std::string& name) {
    const AutoMutex held(mLock);
    mNextFrameName = name;
}

void Saver::saveFrameOf(int32_t notification, const std::string& name) {
    const AutoMutex held(mLock);
    mFrameOf = notification;
    mFrameOfName = name;
}

void Saver::nameNextPicture(const std::string& word) {
    const AutoMutex held(mLock);
    mNextPictureWord = word;
}

void Saver::flush() {
    mWriter.flush();
}

std::vector<std::string> Saver::pictures() const {
    const AutoMutex held(mLock);
    return mPictures;
}

void Saver::onNotify(const Notification& notification) {
    const AutoMutex held(mLock);
    if (!mFrameOf || notification.type != mFrameOf)
        return;
    mNextFrameName = mFrameOfName;
    mFrameOf = 0;
}

std::string Saver::framePath(const Frame& frame) {
    const AutoMutex held(mLock);
    if (!mNextFrameName.empty())
        return mOptions.folder + "/" + std::exchange(mNextFrameName, {}) + ".jpg";
    if (mOptions.previewEvery && frame.number % mOptions.previewEvery == 0)
        return numbered(mOptions.folder + "/preview", "-%05d", static_cast<int>(frame.number), ".jpg");
    return {};
}

void Saver::onFrame(const Frame& frame) {
    const std::string path = framePath(frame);
    if (!path.empty() && frame.bytes && frame.width)
        mWriter.addFrame(path, frame);
}

std::string Saver::picturePath() {
    const AutoMutex held(mLock);
    const std::string word = std::exchange(mNextPictureWord, {});
    mPictures.push_back(numbered(mOptions.folder + "/" + mOptions.prefix, "-%03d",
                                 static_cast<int>(mPictures.size()) + 1, word.empty() ? ".jpg" : "-" + word + ".jpg"));
    return mPictures.back();
}

void Saver::onPicture(const Picture& picture) {
    if (picture.bytes)
        mWriter.addFile(picturePath(), {picture.bytes, picture.bytes + picture.size});
}

}  // namespace kov::cam
