// Frame sources from the file system: pictures, videos, folders, webcams.
#pragma once

#include "host/camera/SourceOptions.h"
#include "host/camera/Sources.h"

namespace kov::camera {

/// Opens what `path` names; null after filling `error`.
std::unique_ptr<FrameSource> openFile(const std::string& path, SourceOptions& options, std::string* error);

}  // namespace kov::camera
