// OpenCV's cascades, where Debian's package puts them or where the environment says.

#include "host/arccamera/face/Engine.h"

#include <cstdlib>

namespace kov::arc {

bool loadCascade(cv::CascadeClassifier& cascade, const char* name) {
    const char* const named = std::getenv("KOV_CASCADES");
    const std::string folder = named && *named ? named : KOV_CASCADES;
    if (cascade.load(folder + "/" + name))
        return true;
    __android_log_print(ANDROID_LOG_ERROR, kTag, "no %s in %s; install opencv-data or set KOV_CASCADES", name,
                        folder.c_str());
    return false;
}

}  // namespace kov::arc
