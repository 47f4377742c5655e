// Loading the library as the camera service does.
#pragma once

#include <camera/CameraHardwareInterface.h>

namespace kov::cam {

/// Loads libkovcameraadaptor.so, which lies beside kovcam or in ../lib from there (or where KOV_LIBRARY says), and
/// calls its one symbol. Throws Error.
android::sp<android::CameraHardwareInterface> openAdaptor();

}  // namespace kov::cam
