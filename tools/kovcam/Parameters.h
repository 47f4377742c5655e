// The camera parameters that the command line sets.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

namespace kov::cam {

/// What every session's options say of sizes, rate and quality.
struct ParameterOptions {
    std::string previewSize;
    std::string pictureSize;
    std::string previewFormat;
    int framesPerSecond = 0;
    int quality = 0;

    void addTo(CLI::App& app);
    /// The parameters that they set; what is not given leaves the camera's own. Throws Error for a size that is none.
    std::map<std::string, std::string> parameters() const;
};

}  // namespace kov::cam
