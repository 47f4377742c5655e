// A session script: a small text file of timed steps.
#pragma once

#include <string>
#include <vector>

namespace kov::cam {

class Camera;

/// One step: what to do, and when.
struct ScriptStep {
    int line;        // in the file, from 1
    double seconds;  // since the session's start, or since the step before when `relative`
    bool relative;
    std::string what;  // "start-preview", "picture", ...
    std::vector<std::string> arguments;
};

/// Reads and checks the whole file. Throws Error with the number of the first line that does not parse.
std::vector<ScriptStep> readScript(const std::string& path);
void runScript(const std::vector<ScriptStep>& steps, Camera& camera);

}  // namespace kov::cam
