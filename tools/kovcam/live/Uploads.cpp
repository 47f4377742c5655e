// Files that people give the camera to look at.

#include "tools/kovcam/live/Uploads.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "tools/session/Error.h"

namespace kov::live {

namespace fs = std::filesystem;
using android::AutoMutex;

namespace {

constexpr size_t kMostFiles = 4;
constexpr size_t kLongestName = 80;

struct Kind {
    size_t at;  // where the mark stands
    std::string_view mark;
    const char* ending;
    bool still;
};
constexpr Kind kKinds[] = {
    {0, "\xFF\xD8\xFF", ".jpg", true},
    {0, std::string_view("\x89PNG\r\n\x1A\n", 8), ".png", true},
    {8, "WEBP", ".webp", true},
    {4, "ftyp", ".mp4", false},
    {0, "\x1A\x45\xDF\xA3", ".webm", false},
    {8, "AVI ", ".avi", false},
};

const Kind* kindOf(std::string_view bytes) {
    for (const Kind& kind : kKinds) {
        if (bytes.substr(0, kind.at + kind.mark.size()).substr(std::min(bytes.size(), kind.at)) == kind.mark)
            return &kind;
    }
    return nullptr;
}

}  // namespace

void Uploads::clear() {
    const AutoMutex held(mLock);
    std::error_code ignored;
    if (!mFolder.empty())
        fs::remove_all(mFolder, ignored);
    mFolder.clear();
    mFiles.clear();
}

int Uploads::add(const std::string& bytes, const std::string& name) {
    const Kind* kind = kindOf(bytes);
    if (!kind)
        throw cam::Error("this file is neither a picture (JPEG, PNG, WebP) nor a film (MP4, WebM, AVI)");
    const AutoMutex held(mLock);
    if (mFolder.empty()) {
        std::string folder = (fs::temp_directory_path() / "kovcam-XXXXXX").string();
        if (!mkdtemp(folder.data()))
            throw cam::Error("no folder for the file can be made; is the disk full?");
        mFolder = folder;
    }
    const int id = ++mLastId;
    const std::string path = mFolder + "/" + std::to_string(id) + kind->ending;
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    std::error_code ignored;
    if (!file) {
        fs::remove(path, ignored);
        throw cam::Error("the file cannot be kept; is the disk full?");
    }
    size_t end = std::min(name.size(), kLongestName);
    while (end < name.size() && end > 0 && (name[end] & 0xC0) == 0x80)  // not within a character
        --end;
    mFiles[id] = {path, name.substr(0, end), kind->still};
    if (mFiles.size() > kMostFiles) {
        fs::remove(mFiles.begin()->second.path, ignored);
        mFiles.erase(mFiles.begin());
    }
    return id;
}

std::optional<Uploads::File> Uploads::find(int id) const {
    const AutoMutex held(mLock);
    const auto found = mFiles.find(id);
    return found == mFiles.end() ? std::nullopt : std::optional(found->second);
}

nlohmann::ordered_json Uploads::json() const {
    const AutoMutex held(mLock);
    auto list = nlohmann::ordered_json::array();
    for (const auto& [id, file] : mFiles)
        list.push_back({{"id", id}, {"name", file.name}, {"still", file.still}});
    return list;
}

}  // namespace kov::live
