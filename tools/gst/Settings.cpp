// What the element can be set to: its GObject properties.

#include "tools/gst/Settings.h"

#include <vector>

#include "shots/Commands.h"
#include "tools/session/Names.h"

namespace kov::gst {

namespace {

constexpr auto kAnyTime =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
constexpr auto kWhenNull = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
constexpr auto kWhenReady =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);

constexpr int kDefaultQuality = 95;
constexpr unsigned kDefaultDuration = 8000;  // ms: how long the built-in landscape is swept over

/// Registers an enumeration of names that live as long as the process.
GType enumType(const char* name, std::vector<GEnumValue>& values) {
    values.push_back({0, nullptr, nullptr});
    const GType type = g_enum_register_static(name, values.data());
    gst_type_mark_as_plugin_api(type, static_cast<GstPluginAPIFlags>(0));
    return type;
}

GType modeType() {
    static std::vector<GEnumValue> values;
    static const GType type = [] {
        for (const android::KovMode& mode : android::kKovModes)
            values.push_back({mode.code, mode.summary, mode.name});
        return enumType("GstKovCameraMode", values);
    }();
    return type;
}

GType effectType() {
    static std::vector<GEnumValue> values;
    static const GType type = [] {
        for (const cam::NamedCode& effect : cam::cartoonEffects())
            values.push_back({effect.code, effect.meaning.c_str(), effect.name.c_str()});
        return enumType("GstKovCameraEffect", values);
    }();
    return type;
}

std::string textOf(const GValue* value) {
    const char* const text = g_value_get_string(value);
    return text ? text : "";
}

}  // namespace

Settings::Settings()
    : mode(android::KOV_MODE_SINGLE),
      effect(cam::cartoonEffects().front().code),
      jpegQuality(kDefaultQuality),
      autoCapture(1),
      captureDuration(kDefaultDuration),
      numBuffers(-1),
      numPictures(-1) {}

std::map<std::string, std::string> Settings::parameters() const {
    std::map<std::string, std::string> values = {{"jpeg-quality", std::to_string(jpegQuality)}};
    if (!pictureSize.empty())
        values["picture-size"] = pictureSize;
    return values;
}

void installProperties(GObjectClass* objects) {
    const Settings standard;
    const auto install = [&](Property property, GParamSpec* description) {
        g_object_class_install_property(objects, property, description);
    };
    install(kSource, g_param_spec_string("source", "Source",
                                         "What the camera sees: scene:NAME (landscape, crossing, portrait, addme, "
                                         "still-life), a picture, a video, a folder of pictures, or /dev/videoN; "
                                         "unset: the camera's usual one",
                                         nullptr, kWhenNull));
    install(kMode, g_param_spec_enum("mode", "Mode", "Capture mode; changed while playing, it is switched at once",
                                     modeType(), standard.mode, kAnyTime));
    install(kEffect, g_param_spec_enum("effect", "Effect", "How the cartoon mode draws", effectType(), standard.effect,
                                       kAnyTime));
    install(kJpegQuality, g_param_spec_int("jpeg-quality", "JPEG quality", "Quality of the pictures of imgsrc", 1, 100,
                                           standard.jpegQuality, kAnyTime));
    install(kPictureSize,
            g_param_spec_string("picture-size", "Picture size",
                                "Size of the pictures that are taken singly, as 1280x960; panorama, continuous, action "
                                "and self make theirs from the preview; unset: the camera's own",
                                nullptr, kAnyTime));
    install(kAutoCapture, g_param_spec_int("auto-capture", "Automatic captures",
                                           "Captures that begin by themselves once the pipeline plays and imgsrc is "
                                           "linked, each after the one before; 0: start-capture alone, -1: without end",
                                           -1, G_MAXINT, standard.autoCapture, kWhenReady));
    install(
        kCaptureDuration,
        g_param_spec_uint("capture-duration", "Duration of automatic captures",
                          "Milliseconds after which a sweep, burst or series that began by itself is stopped, where "
                          "it is not full before; 0: never",
                          0, G_MAXUINT, standard.captureDuration, kWhenReady));
    install(kNumBuffers, g_param_spec_int("num-buffers", "Number of frames",
                                          "Preview frames until the end of the stream; -1: without end", -1, G_MAXINT,
                                          standard.numBuffers, kWhenReady));
    install(kNumPictures, g_param_spec_int("num-pictures", "Number of pictures",
                                           "Pictures until the end of the stream; -1: without end", -1, G_MAXINT,
                                           standard.numPictures, kWhenReady));
    install(kStats, g_param_spec_boxed("stats", "Statistics",
                                       "Since READY: frames and pictures pushed, and those dropped because what "
                                       "follows was too slow",
                                       GST_TYPE_STRUCTURE,
                                       static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
}

void setProperty(Settings& settings, guint property, const GValue* value) {
    switch (property) {
        case kSource:
            settings.source = textOf(value);
            break;
        case kMode:
            settings.mode = g_value_get_enum(value);
            break;
        case kEffect:
            settings.effect = g_value_get_enum(value);
            break;
        case kJpegQuality:
            settings.jpegQuality = g_value_get_int(value);
            break;
        case kPictureSize:
            settings.pictureSize = textOf(value);
            break;
        case kAutoCapture:
            settings.autoCapture = g_value_get_int(value);
            break;
        case kCaptureDuration:
            settings.captureDuration = g_value_get_uint(value);
            break;
        case kNumBuffers:
            settings.numBuffers = g_value_get_int(value);
            break;
        case kNumPictures:
            settings.numPictures = g_value_get_int(value);
            break;
        default:
            break;
    }
}

void getProperty(const Settings& settings, guint property, GValue* value) {
    switch (property) {
        case kSource:
            return g_value_set_string(value, settings.source.empty() ? nullptr : settings.source.c_str());
        case kMode:
            return g_value_set_enum(value, settings.mode);
        case kEffect:
            return g_value_set_enum(value, settings.effect);
        case kJpegQuality:
            return g_value_set_int(value, settings.jpegQuality);
        case kPictureSize:
            return g_value_set_string(value, settings.pictureSize.empty() ? nullptr : settings.pictureSize.c_str());
        case kAutoCapture:
            return g_value_set_int(value, settings.autoCapture);
        case kCaptureDuration:
            return g_value_set_uint(value, settings.captureDuration);
        case kNumBuffers:
            return g_value_set_int(value, settings.numBuffers);
        case kNumPictures:
            return g_value_set_int(value, settings.numPictures);
        default:
            return;
    }
}

}  // namespace kov::gst
