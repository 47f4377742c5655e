// Writes pictures and preview frames to files, on a thread of its own.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <opencv2/core.hpp>
#include <string>
#include <thread>
#include <vector>

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
    /// Adds a 4:2:0 frame, `planar` or with interleaved chroma (V first), which is written as JPEG. False when too many
    /// frames wait already; the frame is left out then.
    bool addFrame(const std::string& path, std::vector<uint8_t> bytes, cv::Size size, bool planar);
    /// Waits until all is written. Throws Error when something could not be.
    void flush();

private:
    struct Job {
        std::string path;
        std::vector<uint8_t> bytes;
        cv::Size frameSize;  // empty for a finished file
        bool planar = false;
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
