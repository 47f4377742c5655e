// Loading the library as the camera service does.

#include "tools/session/Adaptor.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tools/session/Error.h"

namespace kov::cam {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLibrary = "libkovcameraadaptor.so";
constexpr const char* kCalls = "libkovcalls.so";
constexpr const char* kSymbol = "openKovCameraHardware";

/// The folder of the object that this code is in: of the program, or of a plug-in that has the session linked in.
fs::path ownFolder() {
    Dl_info info{};
    std::error_code ignored;
    if (dladdr(reinterpret_cast<void*>(&ownFolder), &info) == 0 || !info.dli_fname)
        return {};
    // The program's own name is as it was typed; the link knows where it lies.
    const fs::path named = fs::canonical(info.dli_fname, ignored);
    return named.empty() ? fs::read_symlink("/proc/self/exe", ignored).parent_path() : named.parent_path();
}

fs::path libraryPath() {
    if (const char* path = std::getenv("KOV_LIBRARY"); path && *path)
        return path;
    std::error_code ignored;
    for (const fs::path& folder : {ownFolder().parent_path() / "lib", ownFolder()}) {
        if (fs::exists(folder / kLibrary, ignored))
            return folder / kLibrary;
    }
    return kLibrary;  // where the loader looks
}

void* load(const fs::path& path) {
    // Before the adaptor and for all to see, so that the adaptor's calls go through it. It is no part of the product:
    // without it they are not told, and everything else is as always.
    dlopen((path.parent_path() / kCalls).c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
        return library;
    throw Error(std::string("the library cannot be loaded (") + dlerror() +
                "); KOV_LIBRARY names a build of libkovcameraadaptor.so, and may be left out");
}

}  // namespace

android::sp<android::CameraHardwareInterface> openAdaptor() {
    const fs::path path = libraryPath();
    void* const library = load(path);
    using Open = android::sp<android::CameraHardwareInterface> (*)();
    const auto open = reinterpret_cast<Open>(dlsym(library, kSymbol));
    if (!open)
        throw Error(path.string() + " is not the adaptor: it has no " + kSymbol);
    return open();
}

}  // namespace kov::cam
