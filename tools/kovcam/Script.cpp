// A session script: a small text file of timed steps.

#include "tools/kovcam/Script.h"

#include <utils/Timers.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>

#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
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

const Mode* findMode(const std::string& name) {
    for (const auto& mode : allModes()) {
        if (mode->name == name)
            return mode.get();
    }
    return nullptr;
}

bool allNumbers(Arguments::const_iterator begin, Arguments::const_iterator end) {
    return std::all_of(begin, end, [](const std::string& argument) { return toNumber(argument).has_value(); });
}

/// `wait MESSAGE [EXT1] [timeout SECONDS]`, taken apart.
struct Wait {
    int32_t type = 0;
    std::optional<int32_t> ext1;
    std::optional<double> seconds;  // else the session's patience
};

std::optional<Wait> parseWait(Arguments arguments) {
    Wait wait;
    if (arguments.size() >= 2 && arguments[arguments.size() - 2] == "timeout") {
        wait.seconds = toSeconds(arguments.back());
        if (!wait.seconds)
            return std::nullopt;
        arguments.resize(arguments.size() - 2);
    }
    if (arguments.empty() || arguments.size() > 2 || !toMessage(arguments[0]))
        return std::nullopt;
    wait.type = *toMessage(arguments[0]);
    if (arguments.size() == 2 && !(wait.ext1 = toNumber(arguments[1])))
        return std::nullopt;
    return wait;
}

void runWait(const Arguments& arguments, Camera& camera) {
    const Wait wait = *parseWait(arguments);
    const auto done = [&](const Message& message) {
        return message.type == wait.type && (!wait.ext1 || *wait.ext1 == message.ext1);
    };
    const std::string what = "message " + arguments[0];
    if (!wait.seconds)
        camera.wait(what, done);
    else if (!camera.waitAtMost(*wait.seconds, done))
        throw Error("no " + what + " came in time; \"timeout S\" waits longer, --trace FILE shows what did come");
}

/// What a script can do: how it is written, what is right, what it does.
struct Verb {
    const char* name;
    const char* usage;
    std::function<bool(const Arguments&)> valid;
    std::function<void(const Arguments&, Camera&)> run;
};

const std::vector<Verb>& verbs() {
    const auto none = [](const Arguments& arguments) { return arguments.empty(); };
    static const std::vector<Verb> all = {
        {"start-preview", "start-preview", none,
         [](const Arguments&, Camera& camera) { camera.session().startPreview(); }},
        {"stop-preview", "stop-preview", none,
         [](const Arguments&, Camera& camera) { camera.session().stopPreview(); }},
        {"picture", "picture", none, [](const Arguments&, Camera& camera) { camera.session().takePicture(); }},
        {"autofocus", "autofocus", none, [](const Arguments&, Camera& camera) { camera.session().autoFocus(); }},
        {"mode", "mode NAME, one of those that kovcam modes lists",
         [](const Arguments& arguments) { return arguments.size() == 1 && findMode(arguments[0]); },
         [](const Arguments& arguments, Camera& camera) { camera.session().selectMode(findMode(arguments[0])->code); }},
        {"command", "command NAME [ARG1 [ARG2]], the name or code of one that kovcam commands lists",
         [](const Arguments& arguments) {
             return !arguments.empty() && arguments.size() <= 3 && toCommand(arguments[0]) &&
                    allNumbers(arguments.begin() + 1, arguments.end());
         },
         [](const Arguments& arguments, Camera& camera) {
             const auto argument = [&](size_t i) { return i < arguments.size() ? *toNumber(arguments[i]) : 0; };
             camera.session().sendCommand(*toCommand(arguments[0]), argument(1), argument(2));
         }},
        {"set", "set KEY VALUE, with the value in \"\" where it has spaces",
         [](const Arguments& arguments) { return arguments.size() == 2; },
         [](const Arguments& arguments, Camera& camera) { camera.session().setParameter(arguments[0], arguments[1]); }},
        {"wait", "wait MESSAGE [EXT1] [timeout SECONDS], the name or type of one that kovcam messages lists",
         [](const Arguments& arguments) { return parseWait(arguments).has_value(); }, runWait},
    };
    return all;
}

const Verb* findVerb(const std::string& name) {
    const auto found = std::ranges::find_if(verbs(), [&](const Verb& verb) { return verb.name == name; });
    return found == verbs().end() ? nullptr : &*found;
}

std::string verbNames() {
    std::string names;
    for (const Verb& verb : verbs())
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
    ScriptStep step{0, 0, time[0] == '+', {}, {}};
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
    if (!verb->valid(step.arguments))
        throw Error("write it as " + std::string(verb->usage));
    return step;
}

std::string readAll(std::istream& input) {
    return {std::istreambuf_iterator<char>(input), {}};
}

std::string readText(const std::string& path) {
    std::ifstream file;
    if (path != "-") {
        file.open(path);
        std::error_code ignored;
        if (!file || std::filesystem::is_directory(path, ignored))
            throw Error("the script " + path + " cannot be read; give a text file, or - for standard input");
    }
    std::string text = readAll(path == "-" ? std::cin : file);
    if (text.starts_with("\xEF\xBB\xBF"))
        text.erase(0, 3);  // an editor's byte-order mark
    if (text.find('\0') != std::string::npos)
        throw Error("the script " + path + " is no text file");
    return text;
}

}  // namespace

std::vector<ScriptStep> readScript(const std::string& path) {
    std::istringstream text(readText(path));
    const std::string name = path == "-" ? "standard input" : path;
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

void runScript(const std::vector<ScriptStep>& steps, Camera& camera) {
    const auto now = [] { return static_cast<double>(systemTime()) / 1e9; };
    const double begin = now();
    double last = begin;
    int asked = 0;  // pictures that must have been received
    const auto waitForPictures = [&] {
        while (camera.saver().received() < asked)
            camera.wait("picture", [&](const Message&) { return camera.saver().received() >= asked; });
    };
    for (const ScriptStep& step : steps) {
        // Messages that come meanwhile are still there for a wait.
        camera.sleepUntil((step.relative ? last : begin) + step.seconds);
        // Counted before it is asked for: a fast camera delivers it meanwhile.
        const int before = camera.saver().received();
        try {
            findVerb(step.what)->run(step.arguments, camera);
        } catch (const Error& error) {
            try {
                waitForPictures();
            } catch (const Error&) {
                // Told already: what stopped the script stopped the camera too.
            }
            throw Error("line " + std::to_string(step.line) + ": " + error.what());
        }
        if (step.what == "picture")
            asked = before + 1;
        last = now();
    }
    waitForPictures();
}

}  // namespace kov::cam
