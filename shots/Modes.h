// What makes the shot of each mode.
#pragma once

#include <camera/CameraHardwareInterface.h>

#include "shots/Commands.h"

namespace android {

class ShotCommon;

/// Makes a mode's shot over a vendor layer (empty for none) and opens it for callbacks. The caller owns it.
using ShotMaker = ShotCommon* (*)(const sp<CameraHardwareInterface>& hardware);

// makeShotSingle and its siblings; each mode defines its own.
#define KOV_MODE(id, code, shot, ...) ShotCommon* make##shot(const sp<CameraHardwareInterface>& hardware);
#include "shots/Modes.def"

struct ShotOfMode {
    int32_t code;
    ShotMaker make;
};
inline constexpr ShotOfMode kShotsOfModes[] = {
#define KOV_MODE(id, code, shot, ...) {code, make##shot},
#include "shots/Modes.def"
};

/// What makes the shot for a mode's code; null for a code that only releases the current shot.
constexpr ShotMaker shotMakerOf(int32_t code) {
    for (const ShotOfMode& mode : kShotsOfModes) {
        if (mode.code == code)
            return mode.make;
    }
    return nullptr;
}

constexpr bool allModesAreInRange() {
    for (const ShotOfMode& mode : kShotsOfModes) {
        if (mode.code < KOV_MODE_FIRST || mode.code > KOV_MODE_LAST)
            return false;
    }
    return true;
}
static_assert(allModesAreInRange(), "a mode's code is outside the range that the adaptor keeps for modes");

}  // namespace android
