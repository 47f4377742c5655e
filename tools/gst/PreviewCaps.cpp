// The camera's preview as caps.

#include "tools/gst/PreviewCaps.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <vector>

namespace kov::gst {

namespace {

struct Format {
    const char* parameter;
    GstVideoFormat format;
    cam::PixelLayout layout;
};
constexpr Format kFormats[] = {{"yuv420sp", GST_VIDEO_FORMAT_NV21, cam::PixelLayout::Yuv420sp},
                               {"yuv420p", GST_VIDEO_FORMAT_I420, cam::PixelLayout::Yuv420p}};
// Frames have the full range and the matrix of JPEG.
constexpr char kColorimetry[] = "1:4:7:1";
constexpr char kChromaSite[] = "jpeg";

/// What the camera lists for a key, first what is set.
std::vector<std::string> valuesOf(const Parameters& parameters, const std::string& key) {
    std::vector<std::string> values;
    if (const auto now = parameters.find(key); now != parameters.end())
        values.push_back(now->second);
    const auto list = parameters.find(key + "-values");
    std::istringstream text(list == parameters.end() ? "" : list->second);
    for (std::string value; std::getline(text, value, ',');) {
        if (std::ranges::find(values, value) == values.end())
            values.push_back(value);
    }
    return values;
}

void append(GValue* list, GValue* value) {
    gst_value_list_append_value(list, value);
    g_value_unset(value);
}

/// The formats and rates, which go with every size.
GstStructure* formatsAndRates(const Parameters& parameters) {
    GValue formats = G_VALUE_INIT;
    GValue rates = G_VALUE_INIT;
    g_value_init(&formats, GST_TYPE_LIST);
    g_value_init(&rates, GST_TYPE_LIST);
    for (const std::string& name : valuesOf(parameters, "preview-format")) {
        const auto* const format =
            std::ranges::find_if(kFormats, [&](const Format& known) { return name == known.parameter; });
        if (format == std::end(kFormats))
            continue;
        GValue value = G_VALUE_INIT;
        g_value_init(&value, G_TYPE_STRING);
        g_value_set_string(&value, gst_video_format_to_string(format->format));
        append(&formats, &value);
    }
    for (const std::string& rate : valuesOf(parameters, "preview-frame-rate")) {
        GValue value = G_VALUE_INIT;
        g_value_init(&value, GST_TYPE_FRACTION);
        gst_value_set_fraction(&value, std::max(1, std::atoi(rate.c_str())), 1);
        append(&rates, &value);
    }
    GstStructure* const both = gst_structure_new(
        "video/x-raw", "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, "interlace-mode", G_TYPE_STRING, "progressive",
        "colorimetry", G_TYPE_STRING, kColorimetry, "chroma-site", G_TYPE_STRING, kChromaSite, nullptr);
    gst_structure_take_value(both, "format", &formats);
    gst_structure_take_value(both, "framerate", &rates);
    return both;
}

}  // namespace

CapsPtr previewCaps(const Parameters& parameters) {
    GstStructure* const common = formatsAndRates(parameters);
    CapsPtr caps(gst_caps_new_empty());
    for (const std::string& size : valuesOf(parameters, "preview-size")) {
        int width = 0;
        int height = 0;
        if (std::sscanf(size.c_str(), "%dx%d", &width, &height) != 2)
            continue;
        GstStructure* const one = gst_structure_copy(common);
        gst_structure_set(one, "width", G_TYPE_INT, width, "height", G_TYPE_INT, height, nullptr);
        gst_caps_append_structure(caps.get(), one);
    }
    gst_structure_free(common);
    return caps;
}

CapsPtr fixated(const CapsPtr& ours, const CapsPtr& theirs) {
    CapsPtr caps(gst_caps_intersect_full(ours.get(), theirs.get(), GST_CAPS_INTERSECT_FIRST));
    if (gst_caps_is_empty(caps.get()))
        return caps;
    caps.reset(gst_caps_make_writable(gst_caps_truncate(caps.release())));
    // An intersection has lists in either order.
    const CapsPtr set(gst_caps_fixate(gst_caps_copy(ours.get())));
    const GstStructure* const wanted = gst_caps_get_structure(set.get(), 0);
    GstStructure* const one = gst_caps_get_structure(caps.get(), 0);
    int numerator = 0;
    int denominator = 0;
    gst_structure_get_fraction(wanted, "framerate", &numerator, &denominator);
    gst_structure_fixate_field_string(one, "format", gst_video_format_to_string(kFormats[0].format));
    gst_structure_fixate_field_nearest_fraction(one, "framerate", numerator, denominator);
    return CapsPtr(gst_caps_fixate(caps.release()));
}

Parameters previewParameters(const GstVideoInfo& info) {
    const auto* const format = std::ranges::find(kFormats, GST_VIDEO_INFO_FORMAT(&info), &Format::format);
    return {{"preview-size", std::to_string(info.width) + "x" + std::to_string(info.height)},
            {"preview-format", format->parameter},
            {"preview-frame-rate", std::to_string(info.fps_n / info.fps_d)}};
}

bool fits(const cam::Frame& frame, const GstVideoInfo& info) {
    const auto* const format = std::ranges::find(kFormats, GST_VIDEO_INFO_FORMAT(&info), &Format::format);
    return frame.bytes && frame.width == info.width && frame.height == info.height && frame.layout == format->layout;
}

}  // namespace kov::gst
