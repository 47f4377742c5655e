// Loading the library as the camera service does.

#include "tools/kovcam/Adaptor.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tools/kovcam/Error.h"

namespace kov::cam {

namespace {

constexpr const char* kLibrary = "libkovcameraadaptor.so";
constexpr const char* kSymbol = "openKovCameraHardware";

std::string libraryPath() {
    namespace fs = std::filesystem;
    if (const char* path = std::getenv("KOV_LIBRARY"))
        return path;
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path built = folder.parent_path() / "lib" / kLibrary;
    return fs::exists(built) ? built.string() : (folder / kLibrary).string();
}

}  // namespace

android::sp<android::CameraHardwareInterface> openAdaptor() {
    void* library = dlopen(libraryPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
        throw Error(std::string("the library cannot be loaded: ") + dlerror());
    using Open = android::sp<android::CameraHardwareInterface> (*)();
    const auto open = reinterpret_cast<Open>(dlsym(library, kSymbol));
    if (!open)
        throw Error(std::string("the library has no ") + kSymbol + ": " + dlerror());
    return open();
}

}  // namespace kov::cam
