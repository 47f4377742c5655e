// The gallery: a page to look at what the demonstrations, or any sessions, made.

#include "tools/kovcam/Gallery.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <sstream>
#include <vector>

#include "tools/kovcam/Html.h"
#include "tools/kovcam/SafeFile.h"
#include "tools/kovcam/TraceDrawing.h"
#include "tools/session/Error.h"

namespace kov::cam {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

constexpr size_t kThumbnails = 8;
constexpr size_t kContactSheet = 6;   // from so many pictures on
constexpr int kThumbnailWidth = 640;  // pixels
constexpr const char* kThumbnailFolder = "small";
constexpr const char* kPage = "index.html";
constexpr const char* kTitle = "kovcam gallery";

struct Item {
    fs::path folder;
    fs::path link;  // to the folder, from the page
    Json about;
    std::vector<Json> trace;
};

/// A folder that a demonstration made, or a session; nothing when a demonstration is asked for and it is none.
std::optional<Item> readItem(const fs::path& folder, const fs::path& pageFolder, bool demonstration) {
    Json about;
    std::ifstream file(folder / kItemFile);
    if (file)
        about = Json::parse(file, nullptr, false);
    if (!about.is_object()) {
        if (demonstration)
            return {};
        about = Json{{"title", fs::canonical(folder).filename().string()}};
    }
    const fs::path link = fs::relative(fs::canonical(folder), pageFolder);
    return Item{folder, link, about, readTrace((folder / kTraceFile).string())};
}

/// What the demonstrations left in a folder, in order.
std::vector<Item> readDemonstrations(const fs::path& folder, const fs::path& pageFolder) {
    std::vector<Item> items;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (!entry.is_directory())
            continue;
        if (auto item = readItem(entry.path(), pageFolder, true))
            items.push_back(std::move(*item));
    }
    std::ranges::sort(items, {}, &Item::folder);
    return items;
}

/// Picture files of a folder: the preview frames, or all others.
std::vector<std::string> files(const fs::path& folder, bool previews) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        const std::string ending = entry.path().extension().string();
        if ((ending == ".jpg" || ending == ".png") && name.starts_with("preview") == previews)
            names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

/// At most `count` of the names, evenly spread, the first and the last among them.
std::vector<std::string> spread(const std::vector<std::string>& names, size_t count) {
    if (names.size() <= count)
        return names;
    std::vector<std::string> chosen;
    for (size_t i = 0; i < count; ++i)
        chosen.push_back(names[i * (names.size() - 1) / (count - 1)]);
    return chosen;
}

/// A small copy of a picture, in a folder of its own beside it; the picture itself where none can be made.
fs::path thumbnail(const fs::path& folder, const std::string& name) {
    const cv::Mat picture = cv::imread((folder / name).string());
    if (picture.empty() || picture.cols <= kThumbnailWidth)
        return name;
    std::error_code ignored;
    fs::create_directories(folder / kThumbnailFolder, ignored);
    cv::Mat small;
    cv::resize(picture, small, {kThumbnailWidth, std::max(1, picture.rows * kThumbnailWidth / picture.cols)}, 0, 0,
               cv::INTER_AREA);
    const fs::path path = fs::path(kThumbnailFolder) / name;
    return cv::imwrite((folder / path).string(), small, {cv::IMWRITE_JPEG_QUALITY, 85}) ? path : fs::path(name);
}

/// A path of this machine as a page's address: what is no plain character there is written by its number.
std::string linkTo(const fs::path& path) {
    std::string address;
    for (const char c : path.string()) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) || std::strchr("/._-~", c)) {
            address += c;
        } else {
            char number[4];
            std::snprintf(number, sizeof number, "%%%02X", byte);
            address += number;
        }
    }
    return address;
}

void writeImages(std::ostream& page, const Item& item, const std::vector<std::string>& names, const std::string& what,
                 bool captions) {
    for (const std::string& name : names) {
        page << "<figure><a href=\"" << linkTo(item.link / name) << "\"><img loading=\"lazy\" src=\""
             << linkTo(item.link / thumbnail(item.folder, name)) << "\" alt=\""
             << escaped(item.about.value("title", "")) << ": " << escaped(what) << " " << escaped(name) << "\"></a>";
        if (captions)
            page << "<figcaption>" << escaped(name) << "</figcaption>";
        page << "</figure>\n";
    }
}

/// A heading and the pictures below it, where there are any.
void writePictures(std::ostream& page, const Item& item) {
    const std::vector<std::string> pictures = files(item.folder, false);
    if (pictures.empty())
        return;
    const char* const form = pictures.size() == 1               ? " one"
                             : pictures.size() == 4             ? " four"
                             : pictures.size() >= kContactSheet ? " sheet"
                                                                : "";
    page << "<h3>Pictures</h3>\n<div class=\"pictures" << form << "\">\n";
    writeImages(page, item, pictures, "picture", true);
    page << "</div>\n";
}

void writeItem(std::ostream& page, const Item& item, size_t number) {
    const std::string mode = item.about.value("mode", "");
    page << "<section id=\"item-" << number << "\">\n<h2>" << escaped(mode) << (mode.empty() ? "" : ": ")
         << escaped(item.about.value("title", "")) << "</h2>\n";
    if (const std::string command = item.about.value("command", ""); !command.empty())
        page << "<p class=\"about\">" << escaped(item.about.value("summary", "")) << "<br><code>" << escaped(command)
             << "</code></p>\n";
    if (item.about.value("status", 0) != 0)
        page << "<p class=\"failed\">This run failed.</p>\n";
    if (const auto previews = spread(files(item.folder, true), kThumbnails); !previews.empty()) {
        page << "<h3>The preview as the application saw it</h3>\n<div class=\"strip\">\n";
        writeImages(page, item, previews, "preview", false);
        page << "</div>\n";
    }
    if (!item.trace.empty()) {
        page << "<h3>What was called and what came back</h3>\n";
        writeTimeLine(page, item.trace);
    }
    writePictures(page, item);
    page << "</section>\n";
}

void writePage(const fs::path& path, const std::vector<Item>& items, const std::string& header) {
    std::ostringstream page;
    page << pageHead(kTitle) << "<header>" << header << "\n<nav>";
    for (size_t i = 0; i < items.size(); ++i)
        page << "<a href=\"#item-" << i << "\">" << escaped(items[i].about.value("title", "")) << "</a> ";
    page << "</nav></header>\n";
    for (size_t i = 0; i < items.size(); ++i)
        writeItem(page, items[i], i);
    page << "</html>\n";
    const std::string text = page.str();
    writeWhole(
        {text.begin(), text.end()}, [&](int) { return path.string(); }, true);
}

fs::path folderOf(const fs::path& page) {
    return fs::canonical(page.has_parent_path() ? page.parent_path() : fs::path("."));
}

/// Throws Error for a page that somebody else wrote.
void requireGalleryOrNothing(const fs::path& page) {
    std::ifstream file(page);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!text.empty() && text.find("<title>" + std::string(kTitle)) == std::string::npos)
        throw Error(page.string() + " is there and is no gallery; name another page with -o");
}

void requireFolder(const fs::path& folder, const char* what) {
    if (!fs::is_directory(folder))
        throw Error("there is no folder " + folder.string() + what);
}

}  // namespace

void writeDemoGallery(const std::string& folder) {
    requireFolder(folder, "; kovcam demo makes one");
    const fs::path page = fs::path(folder) / kPage;
    writePage(page, readDemonstrations(folder, folderOf(page)),
              "<h1>Eight ways to take a picture</h1>\n<p>Every mode on a built-in scene, taken through "
              "libkovcameraadaptor.</p>");
}

std::string writeGallery(const std::vector<std::string>& folders, const std::string& page) {
    for (const std::string& folder : folders)
        requireFolder(folder, "; name folders that kovcam wrote pictures to");
    if (page.empty() && folders.size() != 1)
        throw Error("a page of several folders needs a name; give it with -o");
    const fs::path path = page.empty() ? fs::path(folders.front()) / kPage : fs::path(page);
    if (!fs::is_directory(path.has_parent_path() ? path.parent_path() : fs::path(".")))
        throw Error(path.string() + " cannot be written: there is no folder " + path.parent_path().string());
    requireGalleryOrNothing(path);
    std::vector<Item> items;
    for (const std::string& folder : folders) {
        std::vector<Item> found = readDemonstrations(folder, folderOf(path));
        if (found.empty())
            found.push_back(*readItem(folder, folderOf(path), false));
        if (files(found.front().folder, false).empty() && files(found.front().folder, true).empty())
            throw Error("there are no pictures in " + folder);
        std::ranges::move(found, std::back_inserter(items));
    }
    writePage(path, items, "<h1>Pictures</h1>");
    return path.string();
}

}  // namespace kov::cam
