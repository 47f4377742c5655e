// Writes pictures and preview frames to files, on a thread of its own.

#include "tools/kovcam/PictureWriter.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <utility>

#include "tools/kovcam/SafeFile.h"
#include "tools/session/Error.h"
#include "tools/session/Pictures.h"

namespace kov::cam {

namespace {

constexpr size_t kMostWaiting = 24;
constexpr int kFrameQuality = 92;

void writeToStandardOutput(const std::vector<uint8_t>& bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0)
        throw Error("the picture cannot be written to standard output; is its reader gone?");
}

}  // namespace

void prepareFolder(const std::string& folder) {
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    if (!std::filesystem::is_directory(folder, failure) || access(folder.c_str(), W_OK | X_OK) != 0)
        throw Error("the folder " + folder + " cannot be written to; choose another with -o");
}

PictureWriter::PictureWriter(bool overwrite, std::function<void(int32_t, const std::string&)> written)
    : mOverwrite(overwrite), mWritten(std::move(written)), mThread([this] { run(); }) {}

PictureWriter::~PictureWriter() {
    {
        const std::lock_guard held(mLock);
        mStop = true;
    }
    mChanged.notify_all();
    mThread.join();
}

void PictureWriter::add(WriteJob job) {
    {
        const std::lock_guard held(mLock);
        mJobs.push_back(std::move(job));
    }
    mChanged.notify_all();
}

bool PictureWriter::addIfThereIsRoom(WriteJob job) {
    {
        const std::lock_guard held(mLock);
        if (mJobs.size() >= kMostWaiting)
            return false;
    }
    add(std::move(job));
    return true;
}

void PictureWriter::flush() {
    {
        std::unique_lock held(mLock);
        mChanged.wait(held, [this] { return mJobs.empty() && !mBusy; });
    }
    throwIfFailed();
}

void PictureWriter::throwIfFailed() {
    const std::lock_guard held(mLock);
    if (!mFailure.empty())
        throw Error(mFailure);
}

void PictureWriter::run() {
    std::unique_lock held(mLock);
    for (;;) {
        mChanged.wait(held, [this] { return mStop || !mJobs.empty(); });
        if (mJobs.empty())
            return;
        WriteJob job = std::move(mJobs.front());
        mJobs.pop_front();
        mBusy = true;
        const bool failed = !mFailure.empty();
        held.unlock();
        std::string failure;
        try {
            if (!failed)
                write(job);
        } catch (const std::exception& error) {
            failure = error.what();
        }
        held.lock();
        mBusy = false;
        if (!failure.empty())
            mFailure = failure;
        mChanged.notify_all();
    }
}

void PictureWriter::write(WriteJob& job) const {
    if (job.frame) {
        job.frame->bytes = job.bytes.data();
        std::vector<uint8_t> jpeg;
        cv::imencode(".jpg", toBgr(*job.frame), jpeg, {cv::IMWRITE_JPEG_QUALITY, kFrameQuality});
        job.bytes = std::move(jpeg);
    }
    if (job.name)
        mWritten(job.type, writeWhole(job.bytes, job.name, mOverwrite));
    else
        writeToStandardOutput(job.bytes);
}

}  // namespace kov::cam
