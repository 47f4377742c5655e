// A folder on a full disk, for programs that are run with this library preloaded: a file in the folder that
// KOV_FULL_DISK names holds 4096 bytes and no more.

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool isInFolder(int file, const char* folder) {
    char link[64];
    char path[4096] = {};
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    return readlink(link, path, sizeof path - 1) > 0 && std::strncmp(path, folder, std::strlen(folder)) == 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) ssize_t write(int file, const void* bytes, size_t size) {
    constexpr off_t kRoom = 4096;
    const char* const folder = std::getenv("KOV_FULL_DISK");
    if (folder && isInFolder(file, folder)) {
        const off_t used = lseek(file, 0, SEEK_CUR);
        if (used >= kRoom) {
            errno = ENOSPC;
            return -1;
        }
        size = std::min(size, static_cast<size_t>(kRoom - used));
    }
    return syscall(SYS_write, file, bytes, size);
}
