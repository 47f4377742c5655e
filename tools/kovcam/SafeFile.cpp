// Files that are there whole or not at all.

#include "tools/kovcam/SafeFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tools/session/Error.h"

namespace kov::cam {

namespace {

constexpr int kMostNames = 100000;

[[noreturn]] void fail(const std::string& path) {
    throw Error(path + " cannot be written: " + std::strerror(errno));
}

/// False when there is a file of the new name already.
bool moveUnlessThere(const std::string& file, const std::string& path) {
    if (renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    // Not every file system knows that; a link is exclusive too.
    if (errno == EINVAL && link(file.c_str(), path.c_str()) == 0) {
        unlink(file.c_str());
        return true;
    }
    if (errno == EEXIST)
        return false;
    fail(path);
}

/// A file of this process's own beside the one that it becomes; removed unless it was renamed.
class Temporary {
public:
    explicit Temporary(const std::string& beside) {
        static std::atomic<int> count{0};
        const std::string folder = std::filesystem::path(beside).parent_path().string();
        mPath = (folder.empty() ? "" : folder + "/") + ".kovcam-" + std::to_string(getpid()) + "-" +
                std::to_string(count++);
    }
    ~Temporary() { unlink(mPath.c_str()); }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    void write(const std::vector<uint8_t>& bytes, const std::string& wanted) const {
        const int file = open(mPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (file < 0)
            fail(wanted);
        size_t written = 0;
        ssize_t more = 1;
        while (written < bytes.size() && (more = ::write(file, bytes.data() + written, bytes.size() - written)) > 0)
            written += static_cast<size_t>(more);
        const int failure = more < 0 ? errno : 0;
        if (close(file) != 0 || failure || written < bytes.size()) {
            errno = failure ? failure : ENOSPC;
            fail(wanted);
        }
    }
    const std::string& path() const { return mPath; }

private:
    std::string mPath;
};

}  // namespace

std::string writeWhole(const std::vector<uint8_t>& bytes, const std::function<std::string(int)>& name, bool overwrite) {
    std::string first = name(1);
    const Temporary temporary(first);
    temporary.write(bytes, first);
    if (!overwrite)
        return moveToFreeName(temporary.path(), name);
    if (rename(temporary.path().c_str(), first.c_str()) != 0)
        fail(first);
    return first;
}

std::string moveToFreeName(const std::string& file, const std::function<std::string(int)>& name) {
    for (int number = 1; number <= kMostNames; ++number) {
        if (std::string path = name(number); moveUnlessThere(file, path))
            return path;
    }
    throw Error("every name up to " + name(kMostNames) + " is taken; choose another with -o");
}

}  // namespace kov::cam
