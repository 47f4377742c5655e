// What a camera can be pointed at.
#pragma once

#include <string>
#include <vector>

namespace kov::cam {

/// A built-in scene: "scene:NAME" or "scene:NAME?option=value&option=value".
struct Scene {
    std::string name;
    std::string summary;
    std::string options;  // "name=default" pairs joined by ", "; empty when it has none
};

std::vector<Scene> scenes();

/// Empty when a source can be opened, else one line that says why not and what to do. Opens it for that and closes it
/// again, so a webcam is switched on for a moment. `Session::open` says the same without that.
std::string checkSource(const std::string& text);

/// From which level on the log is written to standard error: verbose, debug, info, warn, error or silent. Throws Error
/// for another name.
void setLogLevel(const std::string& name);

}  // namespace kov::cam
