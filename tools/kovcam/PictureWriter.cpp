// Writes pictures and preview frames to files, on a thread of its own.

#include "tools/kovcam/PictureWriter.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <utility>

#include "tools/session/Error.h"
#include "tools/session/Pictures.h"

namespace kov::cam {

namespace {
constexpr size_t kMostFramesWaiting = 24;
}  // namespace

void prepareFolder(const std::string& folder) {
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    const std::string probe = folder + "/.kovcam";
    std::FILE* file = std::fopen(probe.c_str(), "w");
    if (!file)
        throw Error("the folder " + folder + " cannot be written to; choose another with -o");
    std::fclose(file);
    std::filesystem::remove(probe, failure);
}

PictureWriter::PictureWriter() : mThread([this] { run(); }) {}

PictureWriter::~PictureWriter() {
    {
        const std::lock_guard held(mLock);
        mStop = true;
    }
    mChanged.notify_all();
    mThread.join();
}

void PictureWriter::addFile(const std::string& path, std::vector<uint8_t> bytes) {
    add({path, std::move(bytes), {}});
}

bool PictureWriter::addFrame(const std::string& path, const Frame& frame) {
    {
        const std::lock_guard held(mLock);
        if (mJobs.size() >= kMostFramesWaiting)
            return false;
    }
    add({path, {frame.bytes, frame.bytes + frame.size}, frame});
    return true;
}

void PictureWriter::add(Job job) {
    {
        const std::lock_guard held(mLock);
        mJobs.push_back(std::move(job));
    }
    mChanged.notify_all();
}

void PictureWriter::flush() {
    std::unique_lock held(mLock);
    mChanged.wait(held, [this] { return mJobs.empty() && !mBusy; });
    if (!mFailed.empty())
        throw Error(mFailed + " cannot be written; is the disk full?");
}

void PictureWriter::run() {
    std::unique_lock held(mLock);
    for (;;) {
        mChanged.wait(held, [this] { return mStop || !mJobs.empty(); });
        if (mJobs.empty())
            return;
        const Job job = std::move(mJobs.front());
        mJobs.pop_front();
        mBusy = true;
        held.unlock();
        const bool written = write(job);
        held.lock();
        mBusy = false;
        if (!written && mFailed.empty())
            mFailed = job.path;
        mChanged.notify_all();
    }
}

bool PictureWriter::write(const Job& job) {
    if (!job.frame) {
        std::ofstream file(job.path, std::ios::binary);
        file.write(reinterpret_cast<const char*>(job.bytes.data()), static_cast<std::streamsize>(job.bytes.size()));
        file.close();
        return file.good();
    }
    Frame frame = *job.frame;
    frame.bytes = job.bytes.data();
    return cv::imwrite(job.path, toBgr(frame), {cv::IMWRITE_JPEG_QUALITY, 92});
}

}  // namespace kov::cam
