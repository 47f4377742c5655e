// Saves the pictures and preview frames of a session.

#include "tools/kovcam/Saver.h"

#include <camera/Camera.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <utility>

#include "tools/session/Error.h"

namespace kov::cam {

using namespace android;

namespace fs = std::filesystem;

namespace {

/// "base.jpg", "base-2.jpg", ...
std::function<std::string(int)> namesOf(const std::string& base, const std::string& ending) {
    return [=](int number) { return base + (number == 1 ? "" : "-" + std::to_string(number)) + ending; };
}

/// A frame as a YUV4MPEG2 stream of one, which players and converters open.
std::vector<uint8_t> yuv4mpeg(const Frame& frame) {
    const std::string head = "YUV4MPEG2 W" + std::to_string(frame.width) + " H" + std::to_string(frame.height) +
                             " F1:1 Ip A1:1 C420jpeg\nFRAME\n";
    std::vector<uint8_t> file(head.begin(), head.end());
    const size_t luma = static_cast<size_t>(frame.width) * frame.height;
    file.insert(file.end(), frame.bytes, frame.bytes + luma);
    if (frame.layout == PixelLayout::Yuv420p) {
        file.insert(file.end(), frame.bytes + luma, frame.bytes + frame.size);
        return file;
    }
    for (const size_t first : {luma + 1, luma}) {  // U, then V
        for (size_t i = first; i < frame.size; i += 2)
            file.push_back(frame.bytes[i]);
    }
    return file;
}

/// Lets the link lead to a file beside it, in one step.
void relink(const fs::path& path, const std::string& name) {
    const fs::path link = path.parent_path() / name;
    const fs::path fresh = path.parent_path() / (".kovcam-link-" + std::to_string(getpid()));
    std::error_code failure;
    if (fs::exists(fs::symlink_status(link, failure)) && !fs::is_symlink(link, failure))
        throw Error("--latest " + name + " is a file that is there already; choose another name");
    fs::create_symlink(path.filename(), fresh, failure);
    if (!failure)
        fs::rename(fresh, link, failure);
    if (failure)
        throw Error("the link " + link.string() + " cannot be made: " + failure.message());
}

}  // namespace

Saver::Saver(SaverOptions options, std::function<void(int32_t, const std::string&)> written)
    : mOptions(std::move(options)),
      mOutput(mOptions.output, mOptions.mode),
      mWritten(std::move(written)),
      mNumber((prepareFolder(mOutput.folder()), mOptions.overwrite ? 1 : mOutput.firstNumber())),
      mWriter(mOptions.overwrite, [this](int32_t type, const std::string& path) { this->written(type, path); }) {
    if (mOptions.latest.find('/') != std::string::npos)
        throw Error("--latest is a name in the pictures' own folder, without /");
}

void Saver::written(int32_t type, const std::string& path) {
    if (type == CAMERA_MSG_COMPRESSED_IMAGE) {
        ++mNumber;
        if (!mOptions.latest.empty())
            relink(path, mOptions.latest);
    }
    mWritten(type, path);
}

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

int Saver::received() const {
    const AutoMutex held(mLock);
    return mReceived;
}

void Saver::onNotify(const Notification& notification) {
    const AutoMutex held(mLock);
    if (!mFrameOf || notification.type != mFrameOf)
        return;
    mNextFrameName = mFrameOfName;
    mFrameOf = 0;
}

std::string Saver::frameName(const Frame& frame) {
    const AutoMutex held(mLock);
    if (!mNextFrameName.empty())
        return std::exchange(mNextFrameName, {});
    if (!mOptions.previewEvery || frame.number % mOptions.previewEvery != 0)
        return {};
    char text[32];
    std::snprintf(text, sizeof text, "preview-%05d", static_cast<int>(frame.number));
    return text;
}

void Saver::onFrame(const Frame& frame) {
    if (!frame.bytes || !frame.width || mOutput.standardOutput())
        return;
    if (const std::string name = frameName(frame); !name.empty())
        mWriter.addIfThereIsRoom({frame.type,
                                  namesOf(mOutput.folder() + "/" + name, ".jpg"),
                                  {frame.bytes, frame.bytes + frame.size},
                                  frame});
}

void Saver::onPicture(const Picture& picture) {
    std::string word;
    {
        const AutoMutex held(mLock);
        ++mReceived;
        word = std::exchange(mNextPictureWord, {});
    }
    if (!picture.bytes)
        return;
    std::function<std::string(int)> name;
    if (!mOutput.standardOutput())
        name = [this, word](int attempt) {
            if (attempt > 1)
                ++mNumber;  // another process took that name
            return mOutput.path(mNumber, word);
        };
    mWriter.add({CAMERA_MSG_COMPRESSED_IMAGE, std::move(name), {picture.bytes, picture.bytes + picture.size}});
}

void Saver::onRawPicture(const Frame& frame) {
    if (!mOptions.raw || !frame.bytes || !frame.width || mOutput.standardOutput())
        return;
    char text[32];
    std::snprintf(text, sizeof text, "raw-%03d", static_cast<int>(frame.number) + 1);
    mWriter.add({frame.type, namesOf(mOutput.folder() + "/" + text, ".y4m"), yuv4mpeg(frame)});
}

}  // namespace kov::cam
