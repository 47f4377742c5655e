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

#include "tools/session/Error.h"

namespace kov::live {

namespace fs = std::filesystem;
using android::AutoMutex;
using Json = nlohmann::ordered_json;

namespace {

constexpr int kThumbnailHeight = 240;
constexpr int kWidestThumbnail = 960;

/// A small JPEG of a JPEG, and how large that is; null for one that cannot be decoded.
Text thumbnail(const std::string& jpeg, cv::Size* size) {
    const cv::Mat bytes(1, static_cast<int>(jpeg.size()), CV_8U, const_cast<char*>(jpeg.data()));
    cv::Mat picture;
    try {
        picture = cv::imdecode(bytes, cv::IMREAD_COLOR);
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

bool writeWhole(const std::string& path, const std::string& bytes) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0)
        return false;
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(file, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno != EINTR)
            break;
        done += static_cast<size_t>(std::max<ssize_t>(written, 0));
    }
    const bool closed = close(file) == 0;
    return closed && done == bytes.size();
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

std::string Album::newName(const std::string& prefix, const std::string& ending) const {
    for (int number = 1; number < 100000; ++number) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "-%03d", number);
        std::string name = prefix;
        name.append(digits).append(ending);
        const int file = open(path(name).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (file >= 0) {
            close(file);
            return name;
        }
        if (errno != EEXIST)
            break;
    }
    return {};
}

void Album::addPicture(std::string jpeg, Item item) {
    const auto work = [this, jpeg = std::move(jpeg), item = std::move(item)]() mutable {
        item.file = newName(item.mode, ".jpg");
        const std::string temporary = path("." + item.file + ".part");
        if (item.file.empty() || !writeWhole(temporary, jpeg) ||
            std::rename(temporary.c_str(), path(item.file).c_str()) != 0) {
            const std::string reason = std::strerror(errno);
            std::remove(temporary.c_str());
            if (!item.file.empty())
                std::remove(path(item.file).c_str());
            return mHooks.failed("a picture could not be saved (" + reason +
                                 "); make room on the disk or choose another folder with --output, then take it again");
        }
        cv::Size size;
        item.thumbnail = thumbnail(jpeg, &size);
        item.width = size.width;
        item.height = size.height;
        item.bytes = jpeg.size();
        item.type = "image/jpeg";
        keep(std::move(item));
    };
    if (!mWriter.offer(work))
        mHooks.failed("a picture was dropped: the disk is too slow for so many; take them more slowly");
}

void Album::addRecording(const std::string& file, std::string firstFrame, Item item) {
    item.file = file;
    mWriter.add([this, firstFrame = std::move(firstFrame), item = std::move(item)]() mutable {
        std::error_code failure;
        cv::Size size;
        item.thumbnail = thumbnail(firstFrame, &size);
        item.width = size.width;
        item.height = size.height;
        item.bytes = fs::file_size(path(item.file), failure);
        item.type = "video/mp4";
        keep(std::move(item));
    });
}

void Album::keep(Item item) {
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

Album::ItemPtr Album::find(int id) const {
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
