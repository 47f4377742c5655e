// Writes pictures and preview frames to files, on a thread of its own.

#include "tools/kovcam/PictureWriter.h"

#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "tools/kovcam/Error.h"

namespace kov::cam {

namespace {
constexpr size_t kMostFramesWaiting = 24;
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
    const cv::Mat yuv(job.frameSize.height * 3 / 2, job.frameSize.width, CV_8UC1,
                      const_cast<uint8_t*>(job.bytes.data()));
    cv::Mat bgr;
    cv::cvtColor(yuv, bgr, job.planar ? cv::COLOR_YUV2BGR_I420 : cv::COLOR_YUV2BGR_NV21);
    return cv::imwrite(job.path, bgr, {cv::IMWRITE_JPEG_QUALITY, 92});
}

}  // namespace kov::cam
