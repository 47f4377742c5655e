// The camera parameters that the command line sets.

#include "tools/kovcam/Parameters.h"

#include <utility>

#include "tools/kovcam/SizeText.h"

namespace kov::cam {

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
