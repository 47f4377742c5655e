// Loading the library as the camera service does.
#pragma once

#include <camera/CameraHardwareInterface.h>

namespace kov::cam {

/// Loads libkovcameraadaptor.so, which lies in ../lib from the program or beside it, or where KOV_LIBRARY says, and
/// calls its one symbol. Throws Error.
android::sp<android::CameraHardwareInterface> openAdaptor();

}  // namespace kov::cam
