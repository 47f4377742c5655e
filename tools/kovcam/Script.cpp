// A session script: a small text file of timed steps.

#include "tools/kovcam/Script.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>

#include "shots/Commands.h"
#include "tools/session/Error.h"
#include "tools/session/Names.h"

namespace kov::cam {

namespace {

using Arguments = std::vector<std::string>;

constexpr double kMostSeconds = 86400;

template <typename Number>
std::optional<int32_t> parse(const std::string& text, size_t begin, int base) {
    const char* const last = text.data() + text.size();
    Number value = 0;
    const auto [end, failure] = std::from_chars(text.data() + begin, last, value, base);
    return failure == std::errc() && end == last ? std::optional(static_cast<int32_t>(value)) : std::nullopt;
}

/// A whole number of 32 bits, decimal or with 0x.
std::optional<int32_t> toNumber(const std::string& text) {
    return text.starts_with("0x") ? parse<uint32_t>(text, 2, 16) : parse<int32_t>(text, 0, 10);
}

/// A command by name or code.
std::optional<int32_t> toCommand(const std::string& text) {
    const auto code = commandCode(text);
    return code ? code : toNumber(text);
}

/// A message by name or type.
std::optional<int32_t> toMessage(const std::string& text) {
    const auto type = messageType(text);
    return type ? type : toNumber(text);
}

std::optional<double> toSeconds(const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool valid = !text.empty() && *end == '\0' && value >= 0 && value <= kMostSeconds;
    return valid ? std::optional(value) : std::nullopt;
}

/// The numbers that words are; false where one is none.
bool toNumbers(Arguments::const_iterator begin, Arguments::const_iterator end, std::vector<int32_t>* numbers) {
    return std::all_of(begin, end, [&](const std::string& word) {
        const auto number = toNumber(word);
        numbers->push_back(number.value_or(0));
        return number.has_value();
    });
}

bool takesNothing(ScriptStep& step) {
    return step.arguments.empty();
}

bool takesMode(ScriptStep& step) {
    const auto mode = std::ranges::find_if(android::kKovModes,
                                           [&](const auto& known) { return step.arguments == Arguments{known.name}; });
    if (mode == std::end(android::kKovModes))
        return false;
    step.numbers = {mode->code};
    return true;
}

bool takesCommand(ScriptStep& step) {
    const Arguments& words = step.arguments;
    const auto code = words.empty() ? std::nullopt : toCommand(words[0]);
    if (!code || words.size() > 3)
        return false;
    step.numbers = {*code};
    const bool valid = toNumbers(words.begin() + 1, words.end(), &step.numbers);
    step.numbers.resize(3);
    return valid;
}

bool takesMessage(ScriptStep& step) {
    Arguments words = step.arguments;
    if (words.size() >= 2 && words[words.size() - 2] == "timeout") {
        step.timeout = toSeconds(words.back());
        if (!step.timeout)
            return false;
        words.resize(words.size() - 2);
    }
    const auto type = words.empty() ? std::nullopt : toMessage(words[0]);
    if (!type || words.size() > 2)
        return false;
    step.numbers = {*type};
    return toNumbers(words.begin() + 1, words.end(), &step.numbers);
}

/// What a script can do, and how it is written. `take` tells whether the arguments are right, and reads their numbers.
struct Verb {
    const char* name;
    const char* usage;
    bool (*take)(ScriptStep& step);
};

constexpr Verb kVerbs[] = {
    {"start-preview", "start-preview", takesNothing},
    {"stop-preview", "stop-preview", takesNothing},
    {"picture", "picture", takesNothing},
    {"autofocus", "autofocus", takesNothing},
    {"mode", "mode NAME, one of those that kovcam modes lists", takesMode},
    {"command", "command NAME [ARG1 [ARG2]], the name or code of one that kovcam commands lists", takesCommand},
    {"set", "set KEY VALUE, with the value in \"\" where it has spaces",
     [](ScriptStep& step) { return step.arguments.size() == 2; }},
    {"wait", "wait MESSAGE [EXT1] [timeout SECONDS], the name or type of one that kovcam messages lists", takesMessage},
};

const Verb* findVerb(const std::string& name) {
    const auto found = std::ranges::find_if(kVerbs, [&](const Verb& verb) { return verb.name == name; });
    return found == std::end(kVerbs) ? nullptr : found;
}

std::string verbNames() {
    std::string names;
    for (const Verb& verb : kVerbs)
        names += (names.empty() ? "" : ", ") + std::string(verb.name);
    return names;
}

/// The words of a line, up to a # that begins a word; a word may stand in "", and \ takes the next character as it is.
/// Nothing when a quotation has no end.
std::optional<Arguments> wordsOf(const std::string& line) {
    Arguments words;
    bool inWord = false;
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
            inWord = false;
            continue;
        }
        if (!inWord && c == '#')
            break;
        if (!inWord)
            words.emplace_back();
        inWord = true;
        if (c == '"')
            quoted = !quoted;
        else if (c == '\\' && i + 1 < line.size())
            words.back() += line[++i];
        else
            words.back() += c;
    }
    return quoted ? std::nullopt : std::optional(words);
}

/// The step of one line; nothing for a line without one. Throws Error with what is wrong.
std::optional<ScriptStep> parseLine(const std::string& line) {
    const auto words = wordsOf(line);
    if (!words)
        throw Error("the \" has no partner");
    if (words->empty())
        return std::nullopt;
    const std::string& time = words->front();
    ScriptStep step;
    step.relative = time[0] == '+';
    const auto seconds = toSeconds(step.relative ? time.substr(1) : time);
    if (!seconds)
        throw Error("\"" + time + "\" is no time; begin the line with seconds, as 1.5 or +0.5");
    step.seconds = *seconds;
    if (words->size() > 1)
        step.what = (*words)[1];
    const Verb* verb = findVerb(step.what);
    if (!verb)
        throw Error("\"" + step.what + "\" is no step; use one of " + verbNames());
    step.arguments.assign(words->begin() + 2, words->end());
    if (!verb->take(step))
        throw Error("write it as " + std::string(verb->usage));
    return step;
}

}  // namespace

std::vector<ScriptStep> readScript(const std::string& path) {
    if (path == "-")
        return readScript(std::cin, "standard input");
    std::ifstream file(path);
    std::error_code ignored;
    if (!file || std::filesystem::is_directory(path, ignored))
        throw Error("the script " + path + " cannot be read; give a text file, or - for standard input");
    return readScript(file, path);
}

std::vector<ScriptStep> readScript(std::istream& input, const std::string& name) {
    std::string whole{std::istreambuf_iterator<char>(input), {}};
    if (whole.starts_with("\xEF\xBB\xBF"))
        whole.erase(0, 3);  // an editor's byte-order mark
    if (whole.find('\0') != std::string::npos)
        throw Error("the script " + name + " is no text file");
    std::istringstream text(whole);
    std::vector<ScriptStep> steps;
    std::string errors;
    int number = 0;
    for (std::string line; std::getline(text, line);) {
        ++number;
        try {
            if (auto step = parseLine(line)) {
                step->line = number;
                steps.push_back(std::move(*step));
            }
        } catch (const Error& error) {
            errors += (errors.empty() ? "" : "\n") + name + ":" + std::to_string(number) + ": " + error.what();
        }
    }
    if (!errors.empty())
        throw Error(errors);
    return steps;
}

}  // namespace kov::cam
