// Drawing what a trace says.

#include "tools/kovcam/TraceDrawing.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "tools/kovcam/Html.h"
#include "tools/kovcam/SafeFile.h"
#include "tools/session/Error.h"

namespace kov::cam {

using Json = nlohmann::ordered_json;

namespace {

constexpr double kShortest = 0.1;  // seconds that a time line shows at least
constexpr int kTicks = 5;

/// A lane of the time line, and how its marks look.
struct Lane {
    std::string name;
    std::string look;  // a class of the page's style
};

/// The lane that a line of the trace belongs to; without a name for lines that are not drawn.
Lane laneOf(const Json& line) {
    const std::string kind = line.value("kind", "");
    const std::string name = line.value("name", "");
    if (kind == "call")
        return {"calls", "call"};
    if (kind == "command")
        return {"commands", "call"};
    if (kind == "inner")
        return {line.value("library", ""), "inner"};
    if (kind == "file")
        return {"files", "file"};
    if (kind == "notify" || kind == "data")
        return {name.empty() ? line.value("type", "") : name, name == "PREVIEW_FRAME" ? "frame" : "message"};
    return {};
}

std::string tip(const Json& line) {
    Json rest = line;
    rest.erase("kind");
    return rest.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string fixed(double value, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

/// What a line of a trace says, without its time and kind.
std::string says(const Json& line) {
    const std::string kind = line.value("kind", "");
    if (kind == "log")
        return line.value("priority", "") + " " + line.value("tag", "") + ": " + line.value("text", "");
    std::string text;
    if (kind == "inner")
        return line.value("library", "") + " " + line.value("name", "") + "(" + line.value("arguments", "") + ")" +
               (line.contains("result") ? " = " + line.value("result", "") : "");
    for (const auto& [key, value] : line.items()) {
        if (key == "t" || key == "kind" || (key == "type" && !line.value("name", "").empty()))
            continue;
        text += (text.empty() ? "" : " ") + (key == "name" ? "" : key + "=") +
                (value.is_string() ? value.get<std::string>() : value.dump());
    }
    return text;
}

void printTrace(const std::vector<Json>& trace) {
    for (const Json& line : trace) {
        std::string text = says(line);
        while (!text.empty() && text.back() == '\n')
            text.pop_back();
        std::printf("%10s  %-8s %s\n", fixed(line.value("t", 0.0), 6).c_str(), line.value("kind", "").c_str(),
                    text.c_str());
    }
}

}  // namespace

std::vector<Json> readTrace(const std::string& path) {
    std::vector<Json> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        Json parsed = Json::parse(line, nullptr, false);
        if (parsed.is_object())
            lines.push_back(std::move(parsed));
    }
    return lines;
}

void writeTimeLine(std::ostream& page, const std::vector<Json>& trace) {
    std::map<std::string, std::string> marks;
    std::vector<std::string> names;
    double end = kShortest;
    for (const Json& line : trace)
        end = std::max(end, line.value("t", 0.0));
    for (const Json& line : trace) {
        const Lane lane = laneOf(line);
        if (lane.name.empty())
            continue;
        if (!marks.contains(lane.name))
            names.push_back(lane.name);
        marks[lane.name] += "<i class=\"" + lane.look + "\" style=\"left:" +
                            fixed(100 * line.value("t", 0.0) / end, 2) + "%\" title=\"" + escaped(tip(line)) +
                            "\"></i>";
    }
    page << "<div class=\"time\">\n";
    for (const std::string& name : names)
        page << "<span>" << escaped(name) << "</span><div role=\"img\" aria-label=\"" << escaped(name)
             << " over time\">" << marks[name] << "</div>\n";
    page << "<span></span><div class=\"ticks\">";
    for (int tick = 0; tick <= kTicks; ++tick)
        page << "<b style=\"left:" << 100 * tick / kTicks << "%\">" << fixed(end * tick / kTicks, 1) << " s</b>";
    page << "</div>\n</div>\n<p class=\"legend\"><i class=\"call\"></i> asked by the application <i class=\"inner\"></i> "
            "asked by the library <i class=\"message\"></i> message <i class=\"frame\"></i> preview frame "
            "<i class=\"file\"></i> file saved</p>\n";
}

void drawTrace(const std::string& path, const std::string& output) {
    const std::vector<Json> trace = readTrace(path);
    if (trace.empty())
        throw Error(path + " is no trace; give a file that --trace wrote");
    if (output.empty())
        return printTrace(trace);
    std::ostringstream page;
    page << pageHead(path) << "<header><h1>" << escaped(path) << "</h1></header>\n";
    writeTimeLine(page, trace);
    page << "</html>\n";
    const std::string text = page.str();
    writeWhole({text.begin(), text.end()}, [&](int) { return output; }, true);
    std::printf("%s\n", output.c_str());
}

}  // namespace kov::cam
