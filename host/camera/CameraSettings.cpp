// What the camera can be set to, and what it is set to.

#include "host/camera/CameraSettings.h"

#include <charconv>
#include <cstring>
#include <string_view>

namespace kov::camera {

namespace {

using android::CameraParameters;

constexpr int kLeastQuality = 1;
constexpr int kBestQuality = 100;

/// A parameter with a list of values; the list is published under the key with "-values" behind it.
struct Choice {
    const char* key;
    const char* valuesKey;
    const char* values;
    const char* initial;
};

const Choice kPreviewSize = {CameraParameters::KEY_PREVIEW_SIZE, "preview-size-values",
                             "176x144,320x240,352x288,640x480,720x480,720x576,800x480,800x600,1024x768,1280x720,"
                             "1280x960,1920x1080",
                             "640x480"};
const Choice kPreviewFormat = {CameraParameters::KEY_PREVIEW_FORMAT, "preview-format-values", "yuv420sp,yuv420p",
                               "yuv420sp"};
const Choice kPreviewRate = {CameraParameters::KEY_PREVIEW_FRAME_RATE, "preview-frame-rate-values",
                             "5,7,10,12,15,20,24,25,30,50,60", "30"};
const Choice kPictureSize = {CameraParameters::KEY_PICTURE_SIZE, "picture-size-values",
                             "320x240,640x480,800x480,800x600,1024x768,1280x720,1280x960,1600x1200,1920x1080,"
                             "2048x1536,2560x1440,2560x1920",
                             "2560x1920"};
const Choice kPictureFormat = {CameraParameters::KEY_PICTURE_FORMAT, "picture-format-values", "jpeg,yuv420sp,yuv420p",
                               "jpeg"};
const Choice* const kChoices[] = {&kPreviewSize, &kPreviewFormat, &kPreviewRate, &kPictureSize, &kPictureFormat};

bool contains(std::string_view list, std::string_view value) {
    while (!list.empty()) {
        const size_t end = list.find(',');
        if (list.substr(0, end) == value)
            return true;
        list = end == std::string_view::npos ? std::string_view() : list.substr(end + 1);
    }
    return false;
}

bool number(const char* text, int* value) {
    const char* end = text + std::strlen(text);
    const auto [stop, failure] = std::from_chars(text, end, *value);
    return failure == std::errc() && stop == end;
}

PixelLayout layout(const char* format) {
    return std::strcmp(format, "yuv420p") == 0 ? PixelLayout::Yuv420p : PixelLayout::Yuv420sp;
}

}  // namespace

CameraParameters defaultParameters() {
    CameraParameters parameters;
    for (const Choice* choice : kChoices)
        parameters.set(choice->key, choice->initial);
    parameters.set(CameraParameters::KEY_JPEG_QUALITY, 95);
    restoreSupportedValues(&parameters);
    return parameters;
}

void restoreSupportedValues(CameraParameters* parameters) {
    for (const Choice* choice : kChoices)
        parameters->set(choice->valuesKey, choice->values);
}

bool readSettings(const CameraParameters& parameters, CameraSettings* settings, std::string* error) {
    for (const Choice* choice : kChoices) {
        const char* value = parameters.get(choice->key);
        if (value && contains(choice->values, value))
            continue;
        *error =
            value ? std::string(choice->key) + " cannot be \"" + value + '"' : std::string(choice->key) + " is missing";
        *error += "; possible are " + std::string(choice->values);
        return false;
    }
    CameraSettings read;
    const char* quality = parameters.get(CameraParameters::KEY_JPEG_QUALITY);
    if (!quality || !number(quality, &read.jpegQuality) || read.jpegQuality < kLeastQuality ||
        read.jpegQuality > kBestQuality) {
        *error = std::string("jpeg-quality cannot be \"") + (quality ? quality : "") + "\"; possible are 1 to 100";
        return false;
    }
    parameters.getPreviewSize(&read.preview.width, &read.preview.height);
    parameters.getPictureSize(&read.picture.width, &read.picture.height);
    read.previewLayout = layout(parameters.getPreviewFormat());
    read.framesPerSecond = parameters.getPreviewFrameRate();
    read.jpeg = std::strcmp(parameters.getPictureFormat(), "jpeg") == 0;
    read.pictureLayout = layout(parameters.getPictureFormat());
    *settings = read;
    return true;
}

}  // namespace kov::camera
