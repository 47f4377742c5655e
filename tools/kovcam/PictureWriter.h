// Writes pictures and preview frames to files, on a thread of its own.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/session/Listener.h"

namespace kov::cam {

/// Makes the folder and proves that it can be written to. Throws Error when it cannot.
void prepareFolder(const std::string& folder);

/// Something to write.
struct WriteJob {
    int32_t type;  // of the message that it came with
    /// The names to try, by number from 1, as `writeWhole` wants them; none for standard output.
    std::function<std::string(int)> name;
    std::vector<uint8_t> bytes;
    std::optional<Frame> frame = {};  // what the bytes are, but for a finished file: a frame to be written as JPEG
};

/// Takes copies, so that callbacks return quickly. Any thread may add. After a first failure nothing more is written.
class PictureWriter {
public:
    /// `written` is called on the writer's thread with the type and the path of each file that is there.
    PictureWriter(bool overwrite, std::function<void(int32_t, const std::string&)> written);
    /// Writes what is left.
    ~PictureWriter();
    PictureWriter(const PictureWriter&) = delete;
    PictureWriter& operator=(const PictureWriter&) = delete;

    void add(WriteJob job);
    /// False when too many wait already; it is left out then.
    bool addIfThereIsRoom(WriteJob job);
    /// Waits until all is written. Throws Error when something could not be.
    void flush();
    /// Throws Error when something could not be written.
    void throwIfFailed();

private:
    void run();
    void write(WriteJob& job) const;

    const bool mOverwrite;
    const std::function<void(int32_t, const std::string&)> mWritten;
    std::mutex mLock;  // guards all below
    std::condition_variable mChanged;
    std::deque<WriteJob> mJobs;
    bool mBusy = false;
    bool mStop = false;
    std::string mFailure;  // the first
    std::thread mThread;
};

}  // namespace kov::cam
