// What the element tells on the bus: element messages with these structures.
//
//     kovcamera-notification  type (int), name (string), ext1 (int), ext2 (int), running-time (uint64)
//     kovcamera-picture       number (uint64), bytes (uint64; 0 when the mode had no picture to give), running-time
//     kovcamera-log           priority (string: V, D, I, W, E or F), tag (string), text (string)
//
// A notification has the camera's own numbers and the name without CAMERA_MSG_, empty when it has none.
#pragma once

#include "tools/gst/Pointers.h"
#include "tools/session/Listener.h"

namespace kov::gst {

MessagePtr notificationMessage(GstElement* element, const cam::Notification& notification);
MessagePtr pictureMessage(GstElement* element, const cam::Picture& picture);
MessagePtr logMessage(GstElement* element, const cam::LogLine& line);

}  // namespace kov::gst
