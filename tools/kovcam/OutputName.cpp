// Where a picture goes: what -o says.

#include "tools/kovcam/OutputName.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <utility>

#include "tools/session/Error.h"

namespace kov::cam {

namespace fs = std::filesystem;

namespace {

constexpr const char* kNumber = "{n}";
constexpr const char* kMode = "{mode}";
constexpr const char* kWord = "{word}";

void replaceAll(std::string& text, const std::string& what, const std::string& with) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
}

std::string threeDigits(int number) {
    char text[16];
    std::snprintf(text, sizeof text, "%03d", number);
    return text;
}

std::string withTime(const std::string& pattern) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[4096];
    if (std::strftime(text, sizeof text, pattern.c_str(), &local) == 0)
        throw Error("the pattern " + pattern + " is too long");
    return text;
}

bool isPicture(const std::string& text) {
    const std::string ending = fs::path(text).extension().string();
    return ending == ".jpg" || ending == ".jpeg" || ending == ".JPG";
}

}  // namespace

OutputName::OutputName(const std::string& text, std::string mode) : mPattern(text), mMode(std::move(mode)) {
    if (text.empty())
        throw Error("-o has an empty name; give a folder, a pattern as out/%Y%m%d-{n}.jpg, or - for standard output");
    if (standardOutput())
        return;
    if (!isPicture(text) && text.find('{') == std::string::npos && text.find('%') == std::string::npos)
        mPattern += std::string("/") + kMode + "-" + kNumber + kWord + ".jpg";
    std::string rest = mPattern;
    for (const char* field : {kNumber, kMode, kWord})
        replaceAll(rest, field, "");
    if (const size_t at = rest.find('{'); at != std::string::npos)
        throw Error("-o " + text + " has the unknown field " + rest.substr(at, rest.find('}', at) - at + 1) +
                    "; use {mode}, {n}, {word} and the fields of date, as %Y");
}

std::string OutputName::folder() const {
    if (standardOutput())
        return ".";
    const std::string parent = fs::path(path(1, "")).parent_path().string();
    return parent.empty() ? "." : parent;
}

std::string OutputName::path(int number, const std::string& word) const {
    std::string text = mPattern.find('%') == std::string::npos ? mPattern : withTime(mPattern);
    const bool numbered = text.find(kNumber) != std::string::npos;
    replaceAll(text, kMode, mMode);
    replaceAll(text, kWord, word.empty() ? "" : "-" + word);
    replaceAll(text, kNumber, threeDigits(number));
    if (numbered || number == 1)
        return text;
    const fs::path file(text);
    return (file.parent_path() / (file.stem().string() + "-" + std::to_string(number) + file.extension().string()))
        .string();
}

int OutputName::firstNumber() const {
    std::string begin = fs::path(mPattern).filename().string();
    const size_t at = begin.find(kNumber);
    if (standardOutput() || at == std::string::npos || mPattern.find('%') != std::string::npos)
        return 1;  // a name that is taken is passed over when the picture is written
    begin.resize(at);
    replaceAll(begin, kMode, mMode);
    int highest = 0;
    std::error_code failure;
    for (fs::directory_iterator entry(folder(), failure), end; !failure && entry != end; entry.increment(failure)) {
        const std::string name = entry->path().filename().string();
        int number = 0;
        if (name.starts_with(begin) &&
            std::from_chars(name.data() + begin.size(), name.data() + name.size(), number).ec == std::errc())
            highest = std::max(highest, number);
    }
    return highest + 1;
}

}  // namespace kov::cam
