// Names of message types and command codes, for people.

#include "tools/session/Names.h"

#include <camera/Camera.h>

#include <algorithm>
#include <cstdio>
#include <span>

#include "shots/Commands.h"

namespace kov::cam {

namespace {

using namespace android;

struct Named {
    int32_t value;
    std::string name;
};

const Named kMessages[] = {
    {CAMERA_MSG_ERROR, "ERROR"},
    {CAMERA_MSG_SHUTTER, "SHUTTER"},
    {CAMERA_MSG_FOCUS, "FOCUS"},
    {CAMERA_MSG_ZOOM, "ZOOM"},
    {CAMERA_MSG_PREVIEW_FRAME, "PREVIEW_FRAME"},
    {CAMERA_MSG_VIDEO_FRAME, "VIDEO_FRAME"},
    {CAMERA_MSG_POSTVIEW_FRAME, "POSTVIEW_FRAME"},
    {CAMERA_MSG_RAW_IMAGE, "RAW_IMAGE"},
    {CAMERA_MSG_COMPRESSED_IMAGE, "COMPRESSED_IMAGE"},
    {CAMERA_MSG_PANORAMA_ERROR, "PANORAMA_ERROR"},
    {CAMERA_MSG_PANORAMA_FIRST_FRAME, "PANORAMA_FIRST_FRAME"},
    {CAMERA_MSG_PANORAMA_PROGRESS, "PANORAMA_PROGRESS"},
    {CAMERA_MSG_PANORAMA_FRAME_ADDED, "PANORAMA_FRAME_ADDED"},
    {CAMERA_MSG_CONTINUOUS_FRAME_TAKEN, "CONTINUOUS_FRAME_TAKEN"},
    {CAMERA_MSG_CONTINUOUS_STOPPED, "CONTINUOUS_STOPPED"},
    {CAMERA_MSG_CONTINUOUS_DELIVERED, "CONTINUOUS_DELIVERED"},
    {CAMERA_MSG_ACTION_CREATION_BEGIN, "ACTION_CREATION_BEGIN"},
    {CAMERA_MSG_ACTION_CREATION_PROGRESS, "ACTION_CREATION_PROGRESS"},
    {CAMERA_MSG_ACTION_CREATION_END, "ACTION_CREATION_END"},
    {CAMERA_MSG_ACTION_ACQUISITION_PROGRESS, "ACTION_ACQUISITION_PROGRESS"},
    {CAMERA_MSG_ACTION_FRAME_ACCEPTED, "ACTION_FRAME_ACCEPTED"},
    {CAMERA_MSG_ADDME_ERROR, "ADDME_ERROR"},
    {CAMERA_MSG_ADDME_NO_RESULT, "ADDME_NO_RESULT"},
    {CAMERA_MSG_ADDME_PROGRESS, "ADDME_PROGRESS"},
    {CAMERA_MSG_SMILE_DETECTED, "SMILE_DETECTED"},
    {CAMERA_MSG_CARTOON_PROGRESS, "CARTOON_PROGRESS"},
};

const Named kCommands[] = {
    {KOV_MODE_SINGLE, "MODE_SINGLE"},
    {KOV_MODE_CONTINUOUS, "MODE_CONTINUOUS"},
    {KOV_MODE_PANORAMA, "MODE_PANORAMA"},
    {KOV_MODE_SMILE, "MODE_SMILE"},
    {KOV_MODE_SELF, "MODE_SELF"},
    {KOV_MODE_ADDME, "MODE_ADDME"},
    {KOV_MODE_ACTION, "MODE_ACTION"},
    {KOV_MODE_CARTOON, "MODE_CARTOON"},
    {SMILE_SHOT_DETECTION_START, "SMILE_SHOT_DETECTION_START"},
    {SMILE_SHOT_DETECTION_STOP, "SMILE_SHOT_DETECTION_STOP"},
    {PANORAMA_SHOT_START, "PANORAMA_SHOT_START"},
    {PANORAMA_SHOT_STOP, "PANORAMA_SHOT_STOP"},
    {PANORAMA_SHOT_CANCEL, "PANORAMA_SHOT_CANCEL"},
    {CONTINUOUS_SHOT_START_CAPTURE, "CONTINUOUS_SHOT_START_CAPTURE"},
    {CONTINUOUS_SHOT_STOP_CAPTURE, "CONTINUOUS_SHOT_STOP_CAPTURE"},
    {CONTINUOUS_SHOT_TERMINATE, "CONTINUOUS_SHOT_TERMINATE"},
    {CONTINUOUS_SHOT_SOUND, "CONTINUOUS_SHOT_SOUND"},
    {ACTION_SHOT_START_CAPTURE, "ACTION_SHOT_START_CAPTURE"},
    {ACTION_SHOT_CANCEL_CAPTURE, "ACTION_SHOT_CANCEL_CAPTURE"},
    {ACTION_SHOT_STOP_CAPTURE, "ACTION_SHOT_STOP_CAPTURE"},
    {ADDME_SHOT_INIT, "ADDME_SHOT_INIT"},
    {ADDME_SHOT_START_CAPTURE, "ADDME_SHOT_START_CAPTURE"},
    {ADDME_SHOT_SWITCH_FIRST_PERSON, "ADDME_SHOT_SWITCH_FIRST_PERSON"},
    {ADDME_SHOT_CANCEL_CAPTURE, "ADDME_SHOT_CANCEL_CAPTURE"},
    {ADDME_SHOT_RELEASE, "ADDME_SHOT_RELEASE"},
    {CARTOON_SHOT_SELECT_EFFECT, "CARTOON_SHOT_SELECT_EFFECT"},
};

std::string nameIn(std::span<const Named> table, int32_t value) {
    const auto found = std::ranges::find(table, value, &Named::value);
    return found == table.end() ? std::string() : found->name;
}

std::optional<int32_t> valueIn(std::span<const Named> table, const std::string& name) {
    const auto found = std::ranges::find(table, name, &Named::name);
    return found == table.end() ? std::nullopt : std::optional(found->value);
}

std::vector<NamedCode> allOf(std::span<const Named> table) {
    std::vector<NamedCode> all;
    for (const Named& named : table)
        all.push_back({named.value, named.name});
    std::ranges::sort(all, {}, &NamedCode::code);
    return all;
}

}  // namespace

std::string messageName(int32_t type) {
    return nameIn(kMessages, type);
}

std::string commandName(int32_t code) {
    return nameIn(kCommands, code);
}

std::optional<int32_t> messageType(const std::string& name) {
    return valueIn(kMessages, name);
}

std::optional<int32_t> commandCode(const std::string& name) {
    return valueIn(kCommands, name);
}

std::vector<NamedCode> allMessages() {
    return allOf(kMessages);
}

std::vector<NamedCode> allCommands() {
    return allOf(kCommands);
}

std::string hex(int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(value));
    return text;
}

}  // namespace kov::cam
