// The camera parameters that the command line sets.

#include "tools/kovcam/Parameters.h"

#include <cstdio>
#include <utility>

#include "tools/session/Error.h"

namespace kov::cam {

namespace {

/// Throws Error for what is not of the form 640x480.
void requireSize(const std::string& text) {
    int width = 0;
    int height = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%dx%d%c", &width, &height, &rest) != 2 || width <= 0 || height <= 0)
        throw Error("\"" + text + "\" is no size; write it as 640x480");
}

}  // namespace

void ParameterOptions::addTo(CLI::App& app) {
    app.add_option("--preview-size", previewSize, "WxH of preview frames");
    app.add_option("--picture-size", pictureSize, "WxH of pictures");
    app.add_option("--preview-format", previewFormat, "yuv420sp or yuv420p");
    app.add_option("--fps", framesPerSecond, "Preview frames a second")->check(CLI::Range(1, 1000));
    app.add_option("--quality", quality, "JPEG quality of pictures")->check(CLI::Range(1, 100));
}

std::map<std::string, std::string> ParameterOptions::parameters() const {
    std::map<std::string, std::string> values;
    for (const auto& [key, size] : {std::pair("preview-size", &previewSize), std::pair("picture-size", &pictureSize)}) {
        if (size->empty())
            continue;
        requireSize(*size);
        values[key] = *size;
    }
    if (!previewFormat.empty())
        values["preview-format"] = previewFormat;
    if (framesPerSecond)
        values["preview-frame-rate"] = std::to_string(framesPerSecond);
    if (quality)
        values["jpeg-quality"] = std::to_string(quality);
    return values;
}

}  // namespace kov::cam
