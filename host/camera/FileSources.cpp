// Frame sources from the file system: pictures, videos, folders, webcams.

#include "host/camera/FileSources.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "host/camera/PictureFile.h"
#include "host/camera/Views.h"
#include "host/camera/scenes/Hand.h"

namespace kov::camera {

namespace {

namespace fs = std::filesystem;

/// Keeps OpenCV and its decoders from writing lines of their own to standard error: what is wrong is told once, by us.
class Quiet {
public:
    Quiet() : mBefore(cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT)) {
        setenv("OPENCV_FFMPEG_LOGLEVEL", "-8", 0);  // read when the first video is opened
    }
    ~Quiet() { cv::utils::logging::setLogLevel(mBefore); }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

private:
    const cv::utils::logging::LogLevel mBefore;
};

/// A camera that moves over a still picture.
class StillSource : public FrameSource {
public:
    StillSource(cv::Mat picture, SourceOptions& options)
        : mPicture(std::move(picture)),
          mPath(options.choice("path", {"still", "pan-right", "pan-left", "pan-down", "pan-up", "wobble"})),
          mSeconds(options.number("seconds", 8, 0.5, 600)) {}

    cv::Mat frame(double seconds, cv::Size size) override {
        if (mPath == "still")
            return fill(mPicture, size);
        const double scale = windowScale(size);
        const cv::Size2d window(size.width * scale, size.height * scale);
        const cv::Point2d corner =
            cornerAt(seconds, cv::Size2d(mPicture.cols - window.width, mPicture.rows - window.height));
        const cv::Matx23d toPicture(scale, 0, corner.x + scale / 2 - 0.5, 0, scale, corner.y + scale / 2 - 0.5);
        cv::Mat view;
        cv::warpAffine(reduced(scale), view, reducedMatrix(toPicture), size, cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                       cv::BORDER_REPLICATE);
        return view;
    }

private:
    static constexpr double kPanWindow = 0.5;
    static constexpr double kWobbleWindow = 0.92;
    static constexpr double kLongEnough = 1.8;  // a picture this much longer than the frame is seen at its full breadth

    /// Picture pixels a frame pixel. The window has the shape of the frame and leaves the picture room to move in.
    double windowScale(cv::Size size) const {
        const double across = static_cast<double>(mPicture.cols) / size.width;
        const double down = static_cast<double>(mPicture.rows) / size.height;
        const double limit = std::min(across, down);
        if (mPath == "wobble")
            return limit * kWobbleWindow;
        const bool level = mPath == "pan-right" || mPath == "pan-left";
        return limit * ((level ? across / down : down / across) > kLongEnough ? 1 : kPanWindow);
    }

    cv::Point2d cornerAt(double seconds, cv::Size2d room) const {
        const double part = std::clamp(seconds / mSeconds, 0.0, 1.0);
        const cv::Point2d middle(room.width / 2, room.height / 2);
        if (mPath == "pan-right")
            return {room.width * part, middle.y};
        if (mPath == "pan-left")
            return {room.width * (1 - part), middle.y};
        if (mPath == "pan-down")
            return {middle.x, room.height * part};
        if (mPath == "pan-up")
            return {middle.x, room.height * (1 - part)};
        return middle + handShake(seconds, std::min(middle.x, middle.y));
    }

    /// The picture, made small enough by whole steps that a linear warp to `scale` does not alias; kept between frames.
    const cv::Mat& reduced(double scale) {
        const int steps = scale < 2 ? 0 : static_cast<int>(std::log2(scale));
        if (mReduced.empty() || steps != mReducedSteps) {
            mReducedSteps = steps;
            cv::resize(mPicture, mReduced, {}, 1.0 / (1 << steps), 1.0 / (1 << steps), cv::INTER_AREA);
        }
        return mReduced;
    }
    cv::Matx23d reducedMatrix(cv::Matx23d toPicture) const {
        const double factor = 1.0 / (1 << mReducedSteps);
        cv::Matx23d matrix = toPicture * factor;
        matrix(0, 2) += (factor - 1) / 2;
        matrix(1, 2) += (factor - 1) / 2;
        return matrix;
    }

    const cv::Mat mPicture;
    const std::string mPath;
    const double mSeconds;
    cv::Mat mReduced;
    int mReducedSteps = 0;
};

/// A video file; it starts over at its end.
class VideoSource : public FrameSource {
public:
    VideoSource(std::string path, const cv::VideoCapture& capture, cv::Mat first)
        : mPath(std::move(path)), mCapture(capture), mLast(std::move(first)) {
        const double rate = mCapture.get(cv::CAP_PROP_FPS);
        mRate = rate > 0 && rate < 1000 ? rate : 30;
    }

    cv::Mat frame(double seconds, cv::Size size) override {
        const auto wanted = static_cast<int64_t>(seconds * mRate + 1e-6);
        while (mRead <= wanted && mError.empty())
            advance();
        return mLast.empty() ? cv::Mat() : fill(mLast, size);
    }

private:
    void advance() {
        if (cv::Mat next; mCapture.read(next)) {
            mLast = next;
        } else {
            mCapture.release();
            if (!mCapture.open(mPath, cv::CAP_FFMPEG) || !mCapture.read(mLast)) {
                mLast.release();
                mError = mPath + " cannot be read again from its start";
            }
        }
        ++mRead;
    }

    const std::string mPath;
    cv::VideoCapture mCapture;
    cv::Mat mLast;
    int64_t mRead = 1;  // frames read so far, repeats included
    double mRate = 30;
};

/// The pictures of a folder, one after the other, over and over.
class FolderSource : public FrameSource {
public:
    FolderSource(std::vector<std::string> files, SourceOptions& options)
        : mFiles(std::move(files)), mSeconds(options.number("seconds", 1, 0.01, 600)) {}

    cv::Mat frame(double seconds, cv::Size size) override {
        const size_t wanted = static_cast<size_t>(seconds / mSeconds + 1e-6) % mFiles.size();
        if (mPicture.empty() || wanted != mShown) {
            const Quiet quiet;
            mPicture = readPicture(mFiles[wanted], &mError);
            mShown = wanted;
        }
        return mPicture.empty() ? cv::Mat() : fill(mPicture, size);
    }

private:
    const std::vector<std::string> mFiles;
    const double mSeconds;
    cv::Mat mPicture;
    size_t mShown = 0;
};

/// A webcam shows what it sees now; a still shows the frame that it gave last.
class WebcamSource : public FrameSource {
public:
    WebcamSource(const cv::VideoCapture& capture, cv::Mat first) : mCapture(capture), mLast(std::move(first)) {}

    cv::Mat frame(double seconds, cv::Size size) override {
        if (seconds > mLastTime) {
            mLastTime = seconds;
            if (!mCapture.read(mLast) || mLast.empty()) {
                mError = "the webcam gives no frames any more";
                return {};
            }
        }
        return fill(mLast, size);
    }

private:
    cv::VideoCapture mCapture;
    cv::Mat mLast;
    double mLastTime = 0;
};

std::unique_ptr<FrameSource> openFolder(const std::string& path, SourceOptions& options, std::string* error) {
    std::vector<std::string> files;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(path, ignored))
        if (entry.is_regular_file(ignored) && cv::haveImageReader(entry.path().string()))
            files.push_back(entry.path().string());
    if (files.empty()) {
        *error = "folder " + path + " holds no picture that can be read; put JPEG or PNG files there";
        return nullptr;
    }
    std::sort(files.begin(), files.end());
    return std::make_unique<FolderSource>(std::move(files), options);
}

std::unique_ptr<FrameSource> openCapture(const std::string& path, std::string* error) {
    const bool webcam = path.starts_with("/dev/video");
    cv::VideoCapture capture(path, webcam ? cv::CAP_V4L2 : cv::CAP_FFMPEG);
    cv::Mat first;
    if (!capture.isOpened() || !capture.read(first) || first.empty()) {
        *error = webcam ? path + " gives no pictures; check that it is a camera and that no other program uses it"
                        : path + " is neither a picture nor a video that can be read; give a JPEG, PNG or video file";
        return nullptr;
    }
    if (webcam)
        return std::make_unique<WebcamSource>(capture, std::move(first));
    return std::make_unique<VideoSource>(path, capture, std::move(first));
}

std::unique_ptr<FrameSource> openPicture(const std::string& path, SourceOptions& options, std::string* error) {
    cv::Mat picture = readPicture(path, error);
    return picture.empty() ? nullptr : std::make_unique<StillSource>(std::move(picture), options);
}

std::unique_ptr<FrameSource> open(const std::string& path, SourceOptions& options, std::string* error) {
    std::error_code ignored;
    if (!fs::exists(path, ignored)) {
        *error = "there is no file " + path + "; give a picture, a video, a folder, /dev/videoN or scene:NAME";
        return nullptr;
    }
    if (fs::is_directory(path, ignored))
        return openFolder(path, options, error);
    if (fs::is_regular_file(path, ignored) && cv::haveImageReader(path))
        return openPicture(path, options, error);
    return openCapture(path, error);
}

}  // namespace

std::unique_ptr<FrameSource> openFile(const std::string& path, SourceOptions& options, std::string* error) {
    const Quiet quiet;
    std::unique_ptr<FrameSource> source = open(path, options, error);
    if (source && !options.finish()) {
        *error = path + ": " + options.error();
        return nullptr;
    }
    return source;
}

}  // namespace kov::camera
