// kovcamerasrc: the camera as an element. This is the framework's side of it; CameraSource works.

#include "tools/gst/Element.h"

#include "tools/gst/CameraSource.h"

using kov::gst::CameraSource;

struct _GstKovCameraSrc {
    GstElement element;
    CameraSource* source;
};

G_DEFINE_TYPE(GstKovCameraSrc, gst_kov_camera_src, GST_TYPE_ELEMENT)

namespace {

constexpr char kDescription[] =
    "A live camera with eight capture modes. vfsrc has the preview as an application sees it, with what the mode draws "
    "into it; imgsrc has the pictures that the mode makes. Every notification, picture and log line of the camera is "
    "also an element message on the bus: kovcamera-notification (type, name, ext1, ext2, running-time), "
    "kovcamera-picture (number, bytes, running-time), kovcamera-log (priority, tag, text). Actions: start-capture "
    "takes a picture or begins a sweep, burst, series or the wait for a smile; stop-capture ends it and gives its "
    "pictures; command(code, arg1, arg2) sends a command of a mode and returns its status. A process has one camera: a "
    "second element fails to open it.";

CameraSource& of(gpointer self) {
    return *GST_KOV_CAMERA_SRC(self)->source;
}

GstStateChangeReturn changeState(GstElement* element, GstStateChange change) {
    return of(element).changeState(change, GST_ELEMENT_CLASS(gst_kov_camera_src_parent_class)->change_state);
}

gboolean sendEvent(GstElement* element, GstEvent* event) {
    return of(element).sendEvent(event) ||
           GST_ELEMENT_CLASS(gst_kov_camera_src_parent_class)->send_event(element, event);
}

void finalize(GObject* object) {
    delete GST_KOV_CAMERA_SRC(object)->source;
    G_OBJECT_CLASS(gst_kov_camera_src_parent_class)->finalize(object);
}

void addPad(GstElementClass* elements, const char* name, const char* caps) {
    GstCaps* const all = gst_caps_from_string(caps);
    gst_element_class_add_pad_template(elements, gst_pad_template_new(name, GST_PAD_SRC, GST_PAD_ALWAYS, all));
    gst_caps_unref(all);
}

void addAction(GType type, const char* name, GCallback handler, GType result, guint count, const GType* arguments) {
    GClosure* const closure = g_cclosure_new(handler, nullptr, nullptr);
    g_signal_newv(name, type, static_cast<GSignalFlags>(G_SIGNAL_RUN_LAST | G_SIGNAL_ACTION), closure, nullptr, nullptr,
                  nullptr, result, count, const_cast<GType*>(arguments));
}

void addActions(GType type) {
    constexpr GType kNumbers[] = {G_TYPE_INT, G_TYPE_INT, G_TYPE_INT};
    addAction(type, "start-capture", G_CALLBACK(+[](GstElement* self) { of(self).startCapture(); }), G_TYPE_NONE, 0,
              nullptr);
    addAction(type, "stop-capture", G_CALLBACK(+[](GstElement* self) { of(self).stopCapture(); }), G_TYPE_NONE, 0,
              nullptr);
    addAction(type, "command", G_CALLBACK(+[](GstElement* self, gint code, gint arg1, gint arg2) {
                  return of(self).command(code, arg1, arg2);
              }),
              G_TYPE_INT, 3, kNumbers);
}

}  // namespace

static void gst_kov_camera_src_class_init(GstKovCameraSrcClass* type) {
    GObjectClass* const objects = G_OBJECT_CLASS(type);
    GstElementClass* const elements = GST_ELEMENT_CLASS(type);
    objects->set_property = [](GObject* self, guint property, const GValue* value, GParamSpec*) {
        of(self).set(property, value);
    };
    objects->get_property = [](GObject* self, guint property, GValue* value, GParamSpec*) {
        of(self).get(property, value);
    };
    objects->finalize = finalize;
    elements->change_state = changeState;
    elements->send_event = sendEvent;
    kov::gst::installProperties(objects);
    addActions(G_TYPE_FROM_CLASS(type));
    addPad(elements, "vfsrc", kov::gst::kPreviewTemplate);
    addPad(elements, "imgsrc", kov::gst::kPictureTemplate);
    gst_element_class_set_static_metadata(elements, "Camera with eight capture modes", "Source/Video/Image",
                                          kDescription, "The developers of libkovcameraadaptor");
}

static void gst_kov_camera_src_init(GstKovCameraSrc* self) {
    GST_OBJECT_FLAG_SET(self, GST_ELEMENT_FLAG_SOURCE);
    self->source = new CameraSource(GST_ELEMENT(self));
}

GST_ELEMENT_REGISTER_DEFINE(kovcamerasrc, "kovcamerasrc", GST_RANK_NONE, GST_TYPE_KOV_CAMERA_SRC)
