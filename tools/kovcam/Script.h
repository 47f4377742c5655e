// A session script: a small text file of timed steps.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

namespace kov::cam {

class Camera;

/// One step: what to do, and when.
struct ScriptStep {
    int line = 0;        // in the file, from 1
    double seconds = 0;  // since the session's start, or since the step before when `relative`
    bool relative = false;
    std::string what;                    // "start-preview", "picture", ...
    std::vector<std::string> arguments;  // as they are written
    std::vector<int32_t> numbers;        // mode: its code; command: code and arguments; wait: type, and ext1 if named
    std::optional<double> timeout;       // wait: seconds; else the session's patience
};

/// Reads and checks the whole file; - is standard input. Throws Error with a line for each line that does not parse.
std::vector<ScriptStep> readScript(const std::string& path);
/// The same from a stream, which errors call `name`.
std::vector<ScriptStep> readScript(std::istream& input, const std::string& name);
/// Carries the steps out, and waits for the pictures that they ask for. Throws Error with the number of the line.
void runScript(const std::vector<ScriptStep>& steps, Camera& camera);

}  // namespace kov::cam
