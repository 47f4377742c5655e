// libgstkovcamera.so: the plug-in that has kovcamerasrc.

#include <gst/gst.h>

#include <cstdlib>

#include "tools/gst/Element.h"
#include "tools/session/Sources.h"

namespace {

gboolean start(GstPlugin* plugin) {
    if (!std::getenv("KOV_LOG"))
        kov::cam::setLogLevel("silent");  // the lines are on the bus
    return GST_ELEMENT_REGISTER(kovcamerasrc, plugin);
}

}  // namespace

#define PACKAGE "kovcameraadaptor"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, kovcamera, "Camera with eight capture modes", start,
                  KOV_VERSION, "Apache 2.0", PACKAGE, "https://localhost/kovcameraadaptor")
