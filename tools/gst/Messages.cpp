// What the element tells on the bus.

#include "tools/gst/Messages.h"

#include <string_view>

#include "tools/session/Names.h"

namespace kov::gst {

namespace {

MessagePtr message(GstElement* element, GstStructure* structure) {
    return MessagePtr(gst_message_new_element(GST_OBJECT(element), structure));
}

/// Sets a text, whatever bytes it has.
void setText(GstStructure* structure, const char* field, std::string_view text) {
    GValue value = G_VALUE_INIT;
    g_value_init(&value, G_TYPE_STRING);
    g_value_take_string(&value, g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    gst_structure_take_value(structure, field, &value);
}

}  // namespace

MessagePtr notificationMessage(GstElement* element, const cam::Notification& notification) {
    return message(element,
                   gst_structure_new("kovcamera-notification", "type", G_TYPE_INT, notification.type, "name",
                                     G_TYPE_STRING, cam::messageName(notification.type).c_str(), "ext1", G_TYPE_INT,
                                     notification.ext1, "ext2", G_TYPE_INT, notification.ext2, "running-time",
                                     G_TYPE_UINT64, gst_element_get_current_running_time(element), nullptr));
}

MessagePtr pictureMessage(GstElement* element, const cam::Picture& picture) {
    return message(element, gst_structure_new("kovcamera-picture", "number", G_TYPE_UINT64, guint64{picture.number},
                                              "bytes", G_TYPE_UINT64, guint64{picture.size}, "running-time",
                                              G_TYPE_UINT64, gst_element_get_current_running_time(element), nullptr));
}

MessagePtr logMessage(GstElement* element, const cam::LogLine& line) {
    const char priority[] = {line.priority, '\0'};
    GstStructure* const structure = gst_structure_new("kovcamera-log", "priority", G_TYPE_STRING, priority, nullptr);
    setText(structure, "tag", line.tag);
    setText(structure, "text", line.text);
    return message(element, structure);
}

}  // namespace kov::gst
