// What the element can be set to: its GObject properties.
#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <map>
#include <string>

namespace kov::gst {

struct Settings {
    std::string source;
    int32_t mode;
    int32_t effect;
    int32_t jpegQuality;
    std::string pictureSize;  // empty: the camera's own
    int autoCapture;
    unsigned captureDuration;  // ms
    int numBuffers;
    int numPictures;

    Settings();
    /// The camera's parameters that follow from them.
    std::map<std::string, std::string> parameters() const;
};

enum Property : guint {
    kSource = 1,
    kMode,
    kEffect,
    kJpegQuality,
    kPictureSize,
    kAutoCapture,
    kCaptureDuration,
    kNumBuffers,
    kNumPictures,
    kStats,
};

void installProperties(GObjectClass* objects);
/// Takes a property's value. Not kStats.
void setProperty(Settings& settings, guint property, const GValue* value);
void getProperty(const Settings& settings, guint property, GValue* value);

}  // namespace kov::gst
