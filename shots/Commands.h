// Codes of commands and notifications with their names, for the library and for the applications that use it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace android {

/// Codes of `sendCommand` that the adaptor and the shots understand. What each means, and its arguments, stands beside
/// the mode's code in its Mode.def; arguments that are not named there are ignored.
enum KovCameraCommand : int32_t {
    // The adaptor's own: all codes of this range select a mode; those that no mode has release the current shot only.
    KOV_MODE_FIRST = 1000,
    KOV_MODE_LAST = 1016,
#define KOV_MODE(id, code, ...) KOV_MODE_##id = (code),
#define KOV_COMMAND(mode, name, code, ...) name = (code),
#include "shots/Modes.def"
};

/// Message types of the modes' notifications. ext1 and ext2 are 0 unless the meaning names them.
enum KovCameraMessage : int32_t {
#define KOV_MESSAGE(mode, name, type, ...) CAMERA_MSG_##name = (type),
#include "shots/Modes.def"
};

/// A mode as people know it.
struct KovMode {
    int32_t code;
    const char* name;
    const char* summary;
};
/// A command or a notification as people know it.
struct KovName {
    int32_t mode;   // the code of the mode that has it
    int32_t value;  // the command's code, or the message type
    const char* name;
    const char* meaning;
};

inline constexpr KovMode kKovModes[] = {
#define KOV_MODE(id, code, shot, name, summary) {code, name, summary},
#include "shots/Modes.def"
};
inline constexpr KovName kKovCommands[] = {
#define KOV_MODE(id, code, shot, name, summary) {code, code, "MODE_" #id, summary},
#define KOV_COMMAND(mode, name, code, meaning) {KOV_MODE_##mode, code, #name, meaning},
#include "shots/Modes.def"
};
inline constexpr KovName kKovMessages[] = {
#define KOV_MESSAGE(mode, name, type, meaning) {KOV_MODE_##mode, type, #name, meaning},
#include "shots/Modes.def"
};

/// Whether two entries of a table have the same value; then a mode took a number that is not free.
template <size_t Count>
constexpr bool kovHasTwice(const KovName (&table)[Count]) {
    for (const KovName& name : table) {
        for (const KovName& other : table) {
            if (&name != &other && name.value == other.value)
                return true;
        }
    }
    return false;
}
static_assert(!kovHasTwice(kKovCommands), "two commands or modes have the same code");
static_assert(!kovHasTwice(kKovMessages), "two notifications have the same type");

}  // namespace android
