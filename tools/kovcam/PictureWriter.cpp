// Writes pictures and preview frames to files, on a thread of its own.

#include "tools/kovcam/PictureWriter.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "tools/kovcam/Error.h"

namespace kov::cam {

namespace {
constexpr size_t kMostFramesWaiting = 24;

/// A full-range 4:2:0 frame as BGR.
cv::Mat toBgr(const uint8_t* frame, cv::Size size, bool planar) {
    auto* bytes = const_cast<uint8_t*>(frame);
    const cv::Mat luma(size, CV_8U, bytes);
    const cv::Size half = size / 2;
    uint8_t* const chroma = bytes + size.area();
    cv::Mat v;
    cv::Mat u;
    if (planar) {
        u = cv::Mat(half, CV_8U, chroma);
        v = cv::Mat(half, CV_8U, chroma + half.area());
    } else {
        const cv::Mat pairs(half, CV_8UC2, chroma);
        cv::extractChannel(pairs, v, 0);
        cv::extractChannel(pairs, u, 1);
    }
    cv::resize(v, v, size);
    cv::resize(u, u, size);
    cv::Mat picture;
    cv::merge(std::vector<cv::Mat>{luma, v, u}, picture);
    cv::cvtColor(picture, picture, cv::COLOR_YCrCb2BGR);
    return picture;
}
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
    add({path, std::move(bytes), {}, false});
}

bool PictureWriter::addFrame(const std::string& path, std::vector<uint8_t> bytes, cv::Size size, bool planar) {
    {
        const std::lock_guard held(mLock);
        if (mJobs.size() >= kMostFramesWaiting)
            return false;
    }
    add({path, std::move(bytes), size, planar});
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
    if (job.frameSize.empty()) {
        std::ofstream file(job.path, std::ios::binary);
        file.write(reinterpret_cast<const char*>(job.bytes.data()), static_cast<std::streamsize>(job.bytes.size()));
        file.close();
        return file.good();
    }
    const cv::Mat bgr = toBgr(job.bytes.data(), job.frameSize, job.planar);
    return cv::imwrite(job.path, bgr, {cv::IMWRITE_JPEG_QUALITY, 92});
}

}  // namespace kov::cam
