// Files that people give the camera to look at.
#pragma once

#include <utils/threads.h>

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace kov::live {

/// Keeps the newest few in a folder of its own, which is deleted with it, under names of its own: what a client calls a
/// file is for people only. Any thread.
class Uploads {
public:
    Uploads() = default;
    ~Uploads() { clear(); }
    Uploads(const Uploads&) = delete;
    Uploads& operator=(const Uploads&) = delete;

    struct File {
        std::string path;
        std::string name;  // for people
        bool still = false;
    };
    /// The number of the file. Throws kov::cam::Error when it is neither a picture nor a film, or cannot be written.
    int add(const std::string& bytes, const std::string& name);
    /// Nothing when it is not there, or no more.
    std::optional<File> find(int id) const;
    nlohmann::ordered_json json() const;
    /// Deletes them all.
    void clear();

private:
    mutable android::Mutex mLock;
    std::string mFolder GUARDED_BY(mLock);
    std::map<int, File> mFiles GUARDED_BY(mLock);
    int mLastId GUARDED_BY(mLock) = 0;
};

}  // namespace kov::live
