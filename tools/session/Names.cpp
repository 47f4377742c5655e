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

/// Messages that every camera sends. The modes describe their own.
constexpr KovName kPlatformMessages[] = {
    {0, CAMERA_MSG_ERROR, "ERROR", "the camera broke; the preview has ended"},
    {0, CAMERA_MSG_SHUTTER, "SHUTTER", "the picture is being taken"},
    {0, CAMERA_MSG_FOCUS, "FOCUS", "focusing has ended; ext1: 1 for success"},
    {0, CAMERA_MSG_ZOOM, "ZOOM", "zooming has gone on"},
    {0, CAMERA_MSG_PREVIEW_FRAME, "PREVIEW_FRAME", "a frame of the preview"},
    {0, CAMERA_MSG_VIDEO_FRAME, "VIDEO_FRAME", "a frame of a recording"},
    {0, CAMERA_MSG_POSTVIEW_FRAME, "POSTVIEW_FRAME", "a picture in preview size"},
    {0, CAMERA_MSG_RAW_IMAGE, "RAW_IMAGE", "a picture before it is compressed"},
    {0, CAMERA_MSG_COMPRESSED_IMAGE, "COMPRESSED_IMAGE", "a picture"},
};

std::vector<NamedCode> tableOf(std::span<const KovName> first, std::span<const KovName> second = {}) {
    std::vector<NamedCode> all;
    for (const auto& part : {first, second}) {
        for (const KovName& name : part)
            all.push_back({name.value, name.name, name.meaning});
    }
    std::ranges::sort(all, {}, &NamedCode::code);
    return all;
}

std::string nameIn(const std::vector<NamedCode>& table, int32_t code) {
    const auto found = std::ranges::find(table, code, &NamedCode::code);
    return found == table.end() ? std::string() : found->name;
}

std::optional<int32_t> codeIn(const std::vector<NamedCode>& table, const std::string& name) {
    const auto found = std::ranges::find(table, name, &NamedCode::name);
    return found == table.end() ? std::nullopt : std::optional(found->code);
}

}  // namespace

const std::vector<NamedCode>& allMessages() {
    static const std::vector<NamedCode> all = tableOf(kPlatformMessages, kKovMessages);
    return all;
}

const std::vector<NamedCode>& allCommands() {
    static const std::vector<NamedCode> all = tableOf(kKovCommands);
    return all;
}

std::string messageName(int32_t type) {
    return nameIn(allMessages(), type);
}

std::string commandName(int32_t code) {
    return nameIn(allCommands(), code);
}

std::optional<int32_t> messageType(const std::string& name) {
    return codeIn(allMessages(), name);
}

std::optional<int32_t> commandCode(const std::string& name) {
    return codeIn(allCommands(), name);
}

const std::vector<NamedCode>& cartoonEffects() {
    static const std::vector<NamedCode> all = {{0, "cartoon", "flat colours with dark lines"},
                                               {1, "sketch", "a drawing in colour"},
                                               {2, "sketch-gray", "a drawing in pencil"},
                                               {3, "stamp", "black on white, as from a stamp"},
                                               {4, "none", "frames and pictures as they are"}};
    return all;
}

std::string hex(int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(value));
    return text;
}

}  // namespace kov::cam
