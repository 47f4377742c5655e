// The demonstration: every mode on built-in scenes, and a page to look at what came out.

#include "tools/kovcam/Gallery.h"

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "tools/kovcam/Mode.h"
#include "tools/kovcam/PictureWriter.h"
#include "tools/session/Error.h"

extern char** environ;

namespace kov::cam {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

constexpr const char* kItemFile = "item.json";
constexpr const char* kTraceFile = "trace.jsonl";
constexpr size_t kThumbnails = 8;
constexpr size_t kContactSheet = 6;  // from so many pictures on

// The time line, in units of the drawing.
constexpr double kLineWidth = 1000;
constexpr double kLaneHeight = 26;
constexpr double kLabelWidth = 230;

constexpr const char* kStyle = R"css(
:root { color-scheme: light dark; --edge: #8884; --soft: #888; --accent: #2f7fd6; }
* { box-sizing: border-box; }
body { font: 16px/1.5 system-ui, sans-serif; max-width: 1180px; margin: 0 auto; padding: 24px 20px 80px; }
h1 { font-size: 1.7rem; margin: 0 0 4px; } h2 { font-size: 1.25rem; margin: 0; }
header p, .about { color: var(--soft); margin: 0 0 16px; }
nav a { margin-right: 14px; }
section { border-top: 1px solid var(--edge); margin-top: 36px; padding-top: 24px; }
code { font-size: .85rem; background: #8882; padding: 2px 6px; border-radius: 4px; overflow-wrap: anywhere; }
h3 { font-size: .8rem; text-transform: uppercase; letter-spacing: .06em; color: var(--soft); margin: 20px 0 8px; }
.strip { display: grid; grid-template-columns: repeat(auto-fill, minmax(130px, 1fr)); gap: 6px; }
.strip img, .pictures img { width: 100%; height: auto; border-radius: 6px; display: block; background: #8882; }
.pictures { display: grid; grid-template-columns: repeat(auto-fill, minmax(300px, 1fr)); gap: 12px; align-items: start; }
.pictures.four { grid-template-columns: repeat(4, 1fr); gap: 8px; }
.pictures.sheet { grid-template-columns: repeat(3, 1fr); gap: 6px; }
.pictures.one { grid-template-columns: 1fr; } .pictures.one img { max-height: 70vh; width: auto; max-width: 100%; }
figure { margin: 0; } figcaption { font-size: .8rem; color: var(--soft); }
svg { width: 100%; height: auto; font: 12px system-ui, sans-serif; } svg text { fill: currentColor; }
.failed { color: #c33; }
)css";

std::string escaped(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        switch (c) {
            case '&':
                safe += "&amp;";
                break;
            case '<':
                safe += "&lt;";
                break;
            case '>':
                safe += "&gt;";
                break;
            case '"':
                safe += "&quot;";
                break;
            default:
                safe += c;
        }
    }
    return safe;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

/// Runs kovcam itself with these arguments; returns its exit status.
int runSelf(const std::vector<std::string>& arguments) {
    std::string self = fs::read_symlink("/proc/self/exe").string();
    std::vector<char*> argv = {self.data()};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    if (posix_spawn(&child, self.c_str(), nullptr, nullptr, argv.data(), environ) != 0)
        throw Error("kovcam cannot start itself from " + self);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string joined(const std::vector<std::string>& words) {
    std::string line = "kovcam";
    for (const std::string& word : words)
        line += " " + word;
    return line;
}

/// Runs one demonstration into a folder of its own. False when it failed.
bool runItem(const Mode& mode, const Demo& demo, const fs::path& folder) {
    fs::remove_all(folder);
    prepareFolder(folder);
    std::vector<std::string> words = {"shoot", mode.name};
    words.insert(words.end(), demo.arguments.begin(), demo.arguments.end());
    std::vector<std::string> all = words;
    for (const std::string& word :
         {std::string("-o"), folder.string(), std::string("--trace"), (folder / kTraceFile).string(),
          std::string("--save-preview"), std::to_string(demo.previewEvery)})
        all.push_back(word);
    std::printf("%s: %s\n", mode.name.c_str(), demo.title.c_str());
    std::fflush(stdout);
    const int status = runSelf(all);
    words.insert(words.end(), {"-o", "out"});
    std::ofstream(folder / kItemFile) << Json{
        {"mode", mode.name},
        {"summary", mode.summary},
        {"title", demo.title},
        {"command", joined(words)},
        {"status", status}}.dump(1);
    return status == 0;
}

// --- The page

struct Item {
    fs::path folder;
    Json about;
    std::vector<Json> trace;
};

std::vector<Json> readTrace(const fs::path& path) {
    std::vector<Json> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        Json parsed = Json::parse(line, nullptr, false);
        if (!parsed.is_discarded())
            lines.push_back(std::move(parsed));
    }
    return lines;
}

std::vector<Item> readItems(const std::string& folder) {
    std::vector<Item> items;
    for (const auto& entry : fs::directory_iterator(folder)) {
        std::ifstream file(entry.path() / kItemFile);
        if (file)
            items.push_back({entry.path(), Json::parse(file), readTrace(entry.path() / kTraceFile)});
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

void writeImages(std::ostream& page, const Item& item, const std::vector<std::string>& names, bool captions) {
    const fs::path folder = item.folder.filename();
    for (const std::string& name : names) {
        const std::string path = escaped((folder / name).string());
        page << "<figure><a href=\"" << path << "\"><img loading=\"lazy\" src=\"" << path << "\" alt=\""
             << escaped(name) << "\"></a>";
        if (captions)
            page << "<figcaption>" << escaped(name) << "</figcaption>";
        page << "</figure>\n";
    }
}

/// The name of the lane that a line of the trace belongs to; empty for lines that are not drawn.
std::string lane(const Json& line) {
    const std::string kind = line.value("kind", "");
    if (kind == "call")
        return "calls";
    if (kind == "command")
        return "commands";
    if (kind == "notify" || kind == "data")
        return line.value("name", "").empty() ? line.value("type", "") : line.value("name", "");
    return {};
}

std::string tip(const Json& line) {
    Json rest = line;
    rest.erase("kind");
    return rest.dump();
}

/// One lane for calls, one for commands, one for each type of message; a mark for each line of the trace.
void writeTimeLine(std::ostream& page, const Item& item) {
    std::map<std::string, size_t> rows;
    std::vector<std::string> names;
    double end = 0.1;
    for (const Json& line : item.trace) {
        const std::string name = lane(line);
        if (name.empty())
            continue;
        if (rows.emplace(name, names.size()).second)
            names.push_back(name);
        end = std::max(end, line.value("t", 0.0));
    }
    if (names.empty())
        return;
    const double height = kLaneHeight * (static_cast<double>(names.size()) + 1);
    const auto x = [&](double seconds) { return kLabelWidth + seconds / end * (kLineWidth - kLabelWidth - 10); };
    page << "<svg viewBox=\"0 0 " << kLineWidth << ' ' << height
         << "\" role=\"img\" aria-label=\"messages over time\">\n";
    for (size_t row = 0; row < names.size(); ++row) {
        const double y = kLaneHeight * (static_cast<double>(row) + 0.5);
        page << "<line x1=\"" << kLabelWidth << "\" x2=\"" << kLineWidth << "\" y1=\"" << y << "\" y2=\"" << y
             << "\" stroke=\"#8884\"/><text x=\"0\" y=\"" << y + 4 << "\">" << escaped(names[row]) << "</text>\n";
    }
    for (const Json& line : item.trace) {
        const std::string name = lane(line);
        if (name.empty())
            continue;
        const double y = kLaneHeight * (static_cast<double>(rows[name]) + 0.5);
        const bool frame = name == "PREVIEW_FRAME";
        const bool saved = line.contains("file") && !frame;
        page << "<circle cx=\"" << number(x(line.value("t", 0.0))) << "\" cy=\"" << y << "\" r=\""
             << (frame   ? 1.5
                 : saved ? 7
                         : 4.5)
             << "\" fill=\""
             << (saved   ? "#d6582f"
                 : frame ? "#888"
                         : "#2f7fd6")
             << "\"><title>" << escaped(tip(line)) << "</title></circle>\n";
    }
    for (int second = 0; second <= static_cast<int>(end); second += std::max(1, static_cast<int>(end / 10)))
        page << "<text x=\"" << number(x(second)) << "\" y=\"" << height - 6 << "\" text-anchor=\"middle\">" << second
             << " s</text>\n";
    page << "</svg>\n";
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
    writeImages(page, item, spread(files(item.folder, true), kThumbnails), false);
    page << "</div>\n<h3>What was called and what came back</h3>\n";
    writeTimeLine(page, item);
    const std::vector<std::string> pictures = files(item.folder, false);
    const char* const form = pictures.size() == 1               ? " one"
                             : pictures.size() == 4             ? " four"
                             : pictures.size() >= kContactSheet ? " sheet"
                                                                : "";
    page << "<h3>Pictures</h3>\n<div class=\"pictures" << form << "\">\n";
    writeImages(page, item, pictures, true);
    page << "</div>\n</section>\n";
}

}  // namespace

int runDemo(const std::string& folder) {
    int failed = 0;
    int item = 0;
    for (const auto& mode : allModes()) {
        for (const Demo& demo : mode->demos()) {
            char prefix[16];
            std::snprintf(prefix, sizeof prefix, "%02d-", ++item);
            failed += runItem(*mode, demo, fs::path(folder) / (prefix + mode->name)) ? 0 : 1;
        }
    }
    writeGallery(folder);
    return failed;
}

void writeGallery(const std::string& folder) {
    if (!fs::is_directory(folder))
        throw Error("there is no folder " + folder + "; kovcam demo makes one");
    const std::vector<Item> items = readItems(folder);
    std::ostringstream page;
    page << "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n<meta name=\"viewport\" "
            "content=\"width=device-width\">\n<title>kovcam gallery</title>\n<style>"
         << kStyle
         << "</style>\n<header><h1>Eight ways to take a picture</h1>\n<p>Every mode on a built-in scene, taken "
         << "through libkovcameraadaptor.</p>\n<nav>";
    for (const Item& item : items)
        page << "<a href=\"#" << escaped(anchor(item)) << "\">" << escaped(item.about.value("title", "")) << "</a> ";
    page << "</nav></header>\n";
    for (const Item& item : items)
        writeItem(page, item);
    page << "</html>\n";
    const fs::path path = fs::path(folder) / "index.html";
    std::ofstream file(path);
    file << page.str();
    file.close();
    if (!file)
        throw Error(path.string() + " cannot be written");
}

}  // namespace kov::cam
