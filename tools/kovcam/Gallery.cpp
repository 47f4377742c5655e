// The gallery: a page to look at what the demonstrations made.

#include "tools/kovcam/Gallery.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
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

struct Item {
    fs::path folder;
    Json about;
    std::vector<Json> trace;
};

std::vector<Item> readItems(const std::string& folder) {
    std::vector<Item> items;
    for (const auto& entry : fs::directory_iterator(folder)) {
        std::ifstream file(entry.path() / kItemFile);
        if (file)
            items.push_back({entry.path(), Json::parse(file), readTrace((entry.path() / kTraceFile).string())});
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

void writeImages(std::ostream& page, const Item& item, const std::vector<std::string>& names, const std::string& what,
                 bool captions) {
    const fs::path folder = item.folder.filename();
    for (const std::string& name : names) {
        page << "<figure><a href=\"" << escaped((folder / name).string()) << "\"><img loading=\"lazy\" src=\""
             << escaped((folder / thumbnail(item.folder, name)).string()) << "\" alt=\""
             << escaped(item.about.value("title", "")) << ": " << escaped(what) << " " << escaped(name) << "\"></a>";
        if (captions)
            page << "<figcaption>" << escaped(name) << "</figcaption>";
        page << "</figure>\n";
    }
}

std::string anchor(const Item& item) {
    return item.folder.filename().string();
}

void writeItem(std::ostream& page, const Item& item) {
    page << "<section id=\"" << escaped(anchor(item)) << "\">\n<h2>" << escaped(item.about.value("mode", "")) << ": "
         << escaped(item.about.value("title", "")) << "</h2>\n<p class=\"about\">"
         << escaped(item.about.value("summary", "")) << "<br><code>" << escaped(item.about.value("command", ""))
         << "</code></p>\n";
    if (item.about.value("status", 0) != 0)
        page << "<p class=\"failed\">This run failed.</p>\n";
    page << "<h3>The preview as the application saw it</h3>\n<div class=\"strip\">\n";
    writeImages(page, item, spread(files(item.folder, true), kThumbnails), "preview", false);
    page << "</div>\n<h3>What was called and what came back</h3>\n";
    writeTimeLine(page, item.trace);
    const std::vector<std::string> pictures = files(item.folder, false);
    const char* const form = pictures.size() == 1               ? " one"
                             : pictures.size() == 4             ? " four"
                             : pictures.size() >= kContactSheet ? " sheet"
                                                                : "";
    page << "<h3>Pictures</h3>\n<div class=\"pictures" << form << "\">\n";
    writeImages(page, item, pictures, "picture", true);
    page << "</div>\n</section>\n";
}

}  // namespace

void writeGallery(const std::string& folder) {
    if (!fs::is_directory(folder))
        throw Error("there is no folder " + folder + "; kovcam demo makes one");
    const std::vector<Item> items = readItems(folder);
    std::ostringstream page;
    page << pageHead("kovcam gallery")
         << "<header><h1>Eight ways to take a picture</h1>\n<p>Every mode on a built-in scene, taken "
         << "through libkovcameraadaptor.</p>\n<nav>";
    for (const Item& item : items)
        page << "<a href=\"#" << escaped(anchor(item)) << "\">" << escaped(item.about.value("title", "")) << "</a> ";
    page << "</nav></header>\n";
    for (const Item& item : items)
        writeItem(page, item);
    page << "</html>\n";
    const fs::path path = fs::path(folder) / "index.html";
    const std::string text = page.str();
    writeWhole(
        {text.begin(), text.end()}, [&](int) { return path.string(); }, true);
}

}  // namespace kov::cam
