// kovcamerasrc: the camera as an element.
#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

#define GST_TYPE_KOV_CAMERA_SRC (gst_kov_camera_src_get_type())
G_DECLARE_FINAL_TYPE(GstKovCameraSrc, gst_kov_camera_src, GST, KOV_CAMERA_SRC, GstElement)
GST_ELEMENT_REGISTER_DECLARE(kovcamerasrc)

G_END_DECLS
