// A session script: a small text file of timed steps.

#include "tools/kovcam/Script.h"

#include <charconv>
#include <chrono>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <thread>

#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/session/Error.h"

namespace kov::cam {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kWaitSeconds = 30;  // where a script names no time-out
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

bool allNumbers(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        if (!toNumber(argument))
            return false;
    }
    return true;
}

/// `wait TYPE [EXT1] [timeout SECONDS]`, taken apart.
struct Wait {
    int32_t type = 0;
    std::optional<int32_t> ext1;
    double seconds = kWaitSeconds;
};

std::optional<Wait> parseWait(std::vector<std::string> arguments) {
    Wait wait;
    if (arguments.size() >= 2 && arguments[arguments.size() - 2] == "timeout") {
        const auto seconds = toSeconds(arguments.back());
        if (!seconds)
            return std::nullopt;
        wait.seconds = *seconds;
        arguments.resize(arguments.size() - 2);
    }
    if (arguments.empty() || arguments.size() > 2 || !allNumbers(arguments))
        return std::nullopt;
    wait.type = *toNumber(arguments[0]);
    if (arguments.size() == 2)
        wait.ext1 = toNumber(arguments[1]);
    return wait;
}

using Arguments = std::vector<std::string>;

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
        {"command", "command CODE [ARG1 [ARG2]]",
         [](const Arguments& arguments) {
             return !arguments.empty() && arguments.size() <= 3 && allNumbers(arguments);
         },
         [](const Arguments& arguments, Camera& camera) {
             const auto argument = [&](size_t i) { return i < arguments.size() ? *toNumber(arguments[i]) : 0; };
             camera.session().sendCommand(argument(0), argument(1), argument(2));
         }},
        {"set", "set KEY VALUE", [](const Arguments& arguments) { return arguments.size() == 2; },
         [](const Arguments& arguments, Camera& camera) { camera.session().setParameter(arguments[0], arguments[1]); }},
        {"wait", "wait TYPE [EXT1] [timeout SECONDS]",
         [](const Arguments& arguments) { return parseWait(arguments).has_value(); },
         [](const Arguments& arguments, Camera& camera) {
             const Wait wait = *parseWait(arguments);
             camera.wait("message " + arguments[0], wait.seconds, [&](const Message& message) {
                 return message.type == wait.type && (!wait.ext1 || *wait.ext1 == message.ext1);
             });
         }},
    };
    return all;
}

const Verb* findVerb(const std::string& name) {
    for (const Verb& verb : verbs()) {
        if (verb.name == name)
            return &verb;
    }
    return nullptr;
}

std::string verbNames() {
    std::string names;
    for (const Verb& verb : verbs())
        names += (names.empty() ? "" : ", ") + std::string(verb.name);
    return names;
}

/// The step of one line; nothing for a line without one.
std::optional<ScriptStep> parseLine(const std::string& path, int number, const std::string& line) {
    const auto fail = [&](const std::string& what) -> Error {
        return Error(path + ":" + std::to_string(number) + ": " + what);
    };
    std::istringstream words(line.substr(0, line.find('#')));
    std::string time;
    if (!(words >> time))
        return std::nullopt;
    ScriptStep step{number, 0, time[0] == '+', {}, {}};
    const auto seconds = toSeconds(step.relative ? time.substr(1) : time);
    if (!seconds)
        throw fail("\"" + time + "\" is no time; begin the line with seconds, as 1.5 or +0.5");
    step.seconds = *seconds;
    words >> step.what;
    for (std::string word; words >> word;)
        step.arguments.push_back(word);
    const Verb* verb = findVerb(step.what);
    if (!verb)
        throw fail("\"" + step.what + "\" is no step; use one of " + verbNames());
    if (!verb->valid(step.arguments))
        throw fail("write it as " + std::string(verb->usage));
    return step;
}

}  // namespace

std::vector<ScriptStep> readScript(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw Error("the script " + path + " cannot be read");
    std::vector<ScriptStep> steps;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        if (auto step = parseLine(path, ++number, line))
            steps.push_back(std::move(*step));
    }
    if (file.bad())
        throw Error("the script " + path + " cannot be read");
    return steps;
}

void runScript(const std::vector<ScriptStep>& steps, Camera& camera) {
    const Clock::time_point begin = Clock::now();
    Clock::time_point last = begin;
    for (const ScriptStep& step : steps) {
        const auto offset = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(step.seconds));
        std::this_thread::sleep_until((step.relative ? last : begin) + offset);
        findVerb(step.what)->run(step.arguments, camera);
        last = Clock::now();
    }
}

}  // namespace kov::cam
