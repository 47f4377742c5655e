// Pictures of a file system.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace kov::camera {

/// A picture in BGR, turned as its EXIF orientation says. Empty, with one line in `error`, when the file is broken, cut
/// short or larger than can be read; nothing is written to standard error. Any thread.
cv::Mat readPicture(const std::string& path, std::string* error);

}  // namespace kov::camera
