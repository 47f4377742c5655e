// A folder on a full disk, for programs that are run with this library preloaded: a file in the folder that
// KOV_FULL_DISK names holds 4096 bytes and no more.

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

extern "C" __attribute__((visibility("default"))) ssize_t write(int file, const void* bytes, size_t size) {
    constexpr off_t kRoom = 4096;
    const char* const folder = std::getenv("KOV_FULL_DISK");
    std::error_code none;
    const auto link = "/proc/self/fd/" + std::to_string(file);
    if (folder && std::filesystem::read_symlink(link, none).string().starts_with(folder)) {
        const off_t used = lseek(file, 0, SEEK_CUR);
        if (used >= kRoom) {
            errno = ENOSPC;
            return -1;
        }
        size = std::min(size, static_cast<size_t>(kRoom - used));
    }
    return syscall(SYS_write, file, bytes, size);
}
