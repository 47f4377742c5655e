// Makes a video file of the preview.

#include "tools/kovcam/Recorder.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <thread>
#include <utility>

#include "tools/session/Error.h"
#include "tools/session/Pictures.h"

namespace kov::cam {

using android::AutoMutex;

namespace {
constexpr int64_t kLongestGapFrames = 60;  // a preview that stood still longer is shortened to this
}  // namespace

/// One recording.
class Recorder::Film {
public:
    Film(std::string path, double framesPerSecond)
        : mPath(std::move(path)), mRate(framesPerSecond), mThread([this] { run(); }) {}

    void take(const Frame& frame) {
        {
            const AutoMutex held(mLock);
            mBytes.assign(frame.bytes, frame.bytes + frame.size);
            mFrame = frame;
            mFrame.bytes = mBytes.data();
            mTimeNs = systemTime(SYSTEM_TIME_MONOTONIC);
            mWaiting = true;
        }
        mChanged.signal();
    }

    Result finish() {
        {
            const AutoMutex held(mLock);
            mStop = true;
        }
        mChanged.signal();
        mThread.join();
        mWriter.release();
        if (mWritten > 0 && !cv::VideoCapture(mPath, cv::CAP_FFMPEG).isOpened())
            mWritten = 0;  // the disk is full: nobody can open what there is
        return {mWritten, std::move(mFirst)};
    }

private:
    void run() {
        for (;;) {
            cv::Mat picture;
            int64_t timeNs = 0;
            {
                const AutoMutex held(mLock);
                while (!mWaiting && !mStop)
                    mChanged.wait(mLock);
                if (!mWaiting)
                    return;
                mWaiting = false;
                picture = toBgr(mFrame);
                timeNs = mTimeNs;
            }
            if (!picture.empty())
                write(picture, timeNs);
        }
    }

    void write(const cv::Mat& picture, int64_t timeNs) {
        if (mFirst.empty()) {
            mBeginNs = timeNs;
            mSize = picture.size();
            cv::imencode(".jpg", picture, mFirst);
            mWriter.open(mPath, cv::CAP_FFMPEG, cv::VideoWriter::fourcc('a', 'v', 'c', '1'), mRate, mSize);
        }
        if (picture.size() != mSize || !mWriter.isOpened())
            return;
        const auto place = static_cast<int64_t>(std::lround(static_cast<double>(timeNs - mBeginNs) / 1e9 * mRate));
        const int64_t times = std::clamp<int64_t>(place + 1 - mShown, mWritten == 0 ? 1 : 0, kLongestGapFrames);
        for (int64_t i = 0; i < times; ++i, ++mWritten)
            mWriter.write(picture);
        mShown = std::max(mShown, place + 1);
    }

    const std::string mPath;
    const double mRate;

    // The thread's own, and `finish`'s after it.
    cv::VideoWriter mWriter;
    cv::Size mSize;
    std::vector<uint8_t> mFirst;
    int64_t mBeginNs = 0;
    int64_t mShown = 0;  // places of the film that are filled
    int64_t mWritten = 0;

    android::Mutex mLock;
    android::Condition mChanged;
    std::vector<uint8_t> mBytes GUARDED_BY(mLock);
    Frame mFrame GUARDED_BY(mLock){};
    int64_t mTimeNs GUARDED_BY(mLock) = 0;
    bool mWaiting GUARDED_BY(mLock) = false;
    bool mStop GUARDED_BY(mLock) = false;
    std::thread mThread;
};

Recorder::~Recorder() {
    stop();
}

void Recorder::start(const std::string& path, double framesPerSecond) {
    const AutoMutex held(mLock);
    if (mFilm)
        throw Error("a recording runs already; stop it first");
    mFilm = std::make_shared<Film>(path, framesPerSecond);
}

Recorder::Result Recorder::stop() {
    std::shared_ptr<Film> film;
    {
        const AutoMutex held(mLock);
        film = std::exchange(mFilm, nullptr);
    }
    return film ? film->finish() : Result();
}

bool Recorder::running() const {
    const AutoMutex held(mLock);
    return mFilm != nullptr;
}

void Recorder::onFrame(const Frame& frame) {
    std::shared_ptr<Film> film;
    {
        const AutoMutex held(mLock);
        film = mFilm;
    }
    if (film && frame.bytes && frame.width > 0)
        film->take(frame);
}

}  // namespace kov::cam
