// What the camera can be set to, and what it is set to.
#pragma once

#include <camera/CameraParameters.h>

#include <cstddef>
#include <string>

namespace kov::camera {

/// Layouts of YUV 4:2:0 frames, both of full range (0 to 255): "yuv420sp" is luma, then V and U interleaved, V first;
/// "yuv420p" is luma, then U, then V.
enum class PixelLayout { Yuv420sp, Yuv420p };

struct FrameSize {
    int width = 0;
    int height = 0;
    bool operator==(const FrameSize&) const = default;
    size_t frameBytes() const { return static_cast<size_t>(width) * height * 3 / 2; }
};

/// The settings as the camera works with them.
struct CameraSettings {
    FrameSize preview;
    PixelLayout previewLayout = PixelLayout::Yuv420sp;
    int framesPerSecond = 0;
    FrameSize picture;
    bool jpeg = true;  // else pictures are raw, in pictureLayout
    PixelLayout pictureLayout = PixelLayout::Yuv420sp;
    int jpegQuality = 0;  // 1 to 100
};

/// The parameters after power-on, with the lists of supported values.
android::CameraParameters defaultParameters();

/// Reads the settings. False when a value is missing or impossible; `error` then names it and what is possible.
bool readSettings(const android::CameraParameters& parameters, CameraSettings* settings, std::string* error);

/// Puts back the lists of supported values, which an application cannot change.
void restoreSupportedValues(android::CameraParameters* parameters);

}  // namespace kov::camera
