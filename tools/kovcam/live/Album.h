// The pictures and recordings of a session, on the disk and in a list.
#pragma once

#include <utils/threads.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/Lane.h"
#include "tools/kovcam/live/Http.h"

namespace kov::live {

/// Files are written on a thread of the album's own, and are there whole or not at all, under a name of our own that no
/// file has yet: MODE-001.jpg. The list keeps the newest `kMostItems`; older files stay in the folder.
class Album {
public:
    static constexpr size_t kMostItems = 500;
    using Bytes = std::vector<uint8_t>;

    struct Item {
        int id = 0;
        std::string type;  // "image/jpeg" or "video/mp4"
        std::string file;  // name within the folder
        std::string mode;
        double time = 0;  // seconds since 1970
        int width = 0;
        int height = 0;
        size_t bytes = 0;
        std::vector<std::string> story;  // lines of the journal that led to it
        Text thumbnail;                  // a small JPEG

        nlohmann::ordered_json json() const;
    };
    using ItemPtr = std::shared_ptr<const Item>;

    struct Hooks {
        std::function<void(ItemPtr)> added;
        std::function<void(int)> removed;
        std::function<void(const std::string&)> failed;  // with one line for people
    };

    /// Makes the folder. Throws kov::cam::Error when it cannot be written to.
    Album(std::string folder, Hooks hooks);

    /// Takes a finished JPEG. `item` has mode, time and story. Any thread.
    void addPicture(Bytes jpeg, Item item);
    /// Makes an empty file in the folder for a recording, under a temporary name, and returns its path. Throws
    /// kov::cam::Error when it cannot.
    std::string beginRecording();
    /// Takes a recording that is whole, by the path of `beginRecording`, with a JPEG of its first frame.
    void addRecording(const std::string& recording, Bytes firstFrame, Item item);
    std::string path(const std::string& name) const { return mFolder + "/" + name; }

    ItemPtr find(int64_t id) const;
    std::vector<ItemPtr> items() const;  // oldest first
    /// Deletes the file too. False when there is no such item.
    bool remove(int id);
    /// Waits until everything is written.
    void flush();

private:
    /// Path number N of the album's files of a kind.
    std::function<std::string(int)> names(const std::string& prefix, const std::string& ending) const;
    void keep(Item item, const std::string& file, const Bytes& shown);

    const std::string mFolder;
    const Hooks mHooks;
    mutable android::Mutex mLock;
    std::vector<ItemPtr> mItems GUARDED_BY(mLock);
    int mLastId GUARDED_BY(mLock) = 0;
    int mRecordings GUARDED_BY(mLock) = 0;
    Lane mWriter{64};
};

}  // namespace kov::live
