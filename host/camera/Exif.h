// What a JPEG says of itself.
#pragma once

#include <cstdint>
#include <ctime>
#include <vector>

namespace kov::camera {

/// How a picture is to be turned, as EXIF counts it; 1 is upright.
constexpr int kUpright = 1;

/// Puts an EXIF block behind the begin of a JPEG: when it was taken (local time), its size in pixels, how it lies, and
/// the software that made it. What is no JPEG stays as it is. Any thread.
void addExif(std::vector<uint8_t>& jpeg, int width, int height, std::time_t taken, int orientation = kUpright);

/// How a JPEG is to be turned; upright when it does not say. Any thread.
int orientationOf(const std::vector<uint8_t>& jpeg);

}  // namespace kov::camera
