// Writes pictures and preview frames to files, on a thread of its own.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/session/Listener.h"

namespace kov::cam {

/// Makes the folder and proves that it can be written to. Throws Error when it cannot.
void prepareFolder(const std::string& folder);

/// Takes copies, so that callbacks return quickly. Any thread may add.
class PictureWriter {
public:
    PictureWriter();
    /// Writes what is left.
    ~PictureWriter();
    PictureWriter(const PictureWriter&) = delete;
    PictureWriter& operator=(const PictureWriter&) = delete;

    /// Adds a finished file.
    void addFile(const std::string& path, std::vector<uint8_t> bytes);
    /// Adds a frame, which is written as JPEG. False when too many frames wait already; the frame is left out then.
    bool addFrame(const std::string& path, const Frame& frame);
    /// Waits until all is written. Throws Error when something could not be.
    void flush();

private:
    struct Job {
        std::string path;
        std::vector<uint8_t> bytes;
        std::optional<Frame> frame;  // what the bytes are, but for a finished file
    };

    void add(Job job);
    void run();
    static bool write(const Job& job);

    std::mutex mLock;  // guards all below
    std::condition_variable mChanged;
    std::deque<Job> mJobs;
    bool mBusy = false;
    bool mStop = false;
    std::string mFailed;  // the first file that could not be written
    std::thread mThread;
};

}  // namespace kov::cam
