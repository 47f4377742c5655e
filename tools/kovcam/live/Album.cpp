// The pictures and recordings of a session, on the disk and in a list.

#include "tools/kovcam/live/Album.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <future>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "tools/kovcam/SafeFile.h"
#include "tools/session/Error.h"

namespace kov::live {

namespace fs = std::filesystem;
using android::AutoMutex;
using Json = nlohmann::ordered_json;

namespace {

constexpr int kThumbnailHeight = 240;
constexpr int kWidestThumbnail = 960;

/// A small JPEG of a JPEG, and how large that is; null for one that cannot be decoded.
Text thumbnail(const Album::Bytes& jpeg, cv::Size* size) {
    cv::Mat picture;
    try {
        picture = cv::imdecode(jpeg, cv::IMREAD_COLOR);
    } catch (const cv::Exception&) {
        return nullptr;
    }
    if (picture.empty())
        return nullptr;
    *size = picture.size();
    const double scale =
        std::min({1.0, double{kThumbnailHeight} / picture.rows, double{kWidestThumbnail} / picture.cols});
    cv::resize(picture, picture, {}, scale, scale, cv::INTER_AREA);
    std::vector<uint8_t> small;
    cv::imencode(".jpg", picture, small, {cv::IMWRITE_JPEG_QUALITY, 82});
    return std::make_shared<std::string>(small.begin(), small.end());
}

}  // namespace

Json Album::Item::json() const {
    Json events = Json::array();
    for (const std::string& line : story)
        events.push_back(Json::parse(line, nullptr, false));
    return {{"id", id},       {"type", type},     {"file", file},   {"mode", mode},    {"time", time},
            {"width", width}, {"height", height}, {"bytes", bytes}, {"events", events}};
}

Album::Album(std::string folder, Hooks hooks) : mFolder(std::move(folder)), mHooks(std::move(hooks)) {
    std::error_code failure;
    fs::create_directories(mFolder, failure);
    if (access(mFolder.c_str(), W_OK | X_OK) != 0)
        throw cam::Error("the folder " + mFolder + " cannot be written to; choose another with --output");
}

std::function<std::string(int)> Album::names(const std::string& prefix, const std::string& ending) const {
    return [start = path(prefix), ending](int number) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "-%03d", number);
        return start + digits + ending;
    };
}

void Album::addPicture(Bytes jpeg, Item item) {
    auto work = [this, jpeg = std::move(jpeg), item = std::move(item)]() mutable {
        try {
            const std::string file = cam::writeWhole(jpeg, names(item.mode, ".jpg"), false);
            item.type = "image/jpeg";
            keep(std::move(item), file, jpeg);
        } catch (const cam::Error& error) {
            mHooks.failed(std::string("a picture could not be saved: ") + error.what() +
                          "; make room on the disk or choose another folder with --output, then take it again");
        }
    };
    if (!mWriter.offer(std::move(work)))
        mHooks.failed("a picture was dropped: the disk is too slow for so many; take them more slowly");
}

std::string Album::beginRecording() {
    int number = 0;
    {
        const AutoMutex held(mLock);
        number = ++mRecordings;
    }
    std::string recording = path(".kovcam-" + std::to_string(getpid()) + "-" + std::to_string(number) + ".mp4");
    const int file = open(recording.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0)
        throw cam::Error(std::string("the recording cannot be written: ") + std::strerror(errno) +
                         "; make room on the disk or choose another folder with --output");
    close(file);
    return recording;
}

void Album::addRecording(const std::string& recording, Bytes firstFrame, Item item) {
    mWriter.add([this, recording, firstFrame = std::move(firstFrame), item = std::move(item)]() mutable {
        try {
            const std::string file = cam::moveToFreeName(recording, names("video", ".mp4"));
            item.type = "video/mp4";
            keep(std::move(item), file, firstFrame);
        } catch (const cam::Error& error) {
            mHooks.failed(std::string("the recording is left at ") + recording + ": " + error.what());
        }
    });
}

void Album::keep(Item item, const std::string& file, const Bytes& shown) {
    std::error_code ignored;
    cv::Size size;
    item.thumbnail = thumbnail(shown, &size);
    item.file = fs::path(file).filename().string();
    item.width = size.width;
    item.height = size.height;
    item.bytes = fs::file_size(file, ignored);
    ItemPtr kept;
    {
        const AutoMutex held(mLock);
        item.id = ++mLastId;
        kept = std::make_shared<const Item>(std::move(item));
        mItems.push_back(kept);
        if (mItems.size() > kMostItems)
            mItems.erase(mItems.begin());
    }
    mHooks.added(std::move(kept));
}

Album::ItemPtr Album::find(int64_t id) const {
    const AutoMutex held(mLock);
    const auto found = std::ranges::find_if(mItems, [id](const ItemPtr& item) { return item->id == id; });
    return found == mItems.end() ? nullptr : *found;
}

std::vector<Album::ItemPtr> Album::items() const {
    const AutoMutex held(mLock);
    return mItems;
}

bool Album::remove(int id) {
    {
        const AutoMutex held(mLock);
        const auto found = std::ranges::find_if(mItems, [id](const ItemPtr& item) { return item->id == id; });
        if (found == mItems.end())
            return false;
        std::remove(path((*found)->file).c_str());
        mItems.erase(found);
    }
    mHooks.removed(id);
    return true;
}

void Album::flush() {
    auto done = std::make_shared<std::promise<void>>();
    mWriter.add([done] { done->set_value(); });
    done->get_future().wait();
}

}  // namespace kov::live
