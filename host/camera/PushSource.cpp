// A source that shows what the program pushes.

#include "host/camera/PushSource.h"

#include "host/camera/Views.h"

namespace kov::camera {

namespace {

using kov::host::PushedFrame;

const cv::Scalar kWall(96, 96, 96);

cv::Mat toBgr(const PushedFrame& frame) {
    const cv::Size size(frame.width, frame.height);
    if (frame.format == PushedFrame::Format::Bgr)
        return {size, CV_8UC3, const_cast<uint8_t*>(frame.bytes.data())};  // only read; mFrame keeps the bytes
    const auto layout = frame.format == PushedFrame::Format::Yuv420sp ? PixelLayout::Yuv420sp : PixelLayout::Yuv420p;
    return frameToBgr(frame.bytes.data(), size, layout);
}

}  // namespace

cv::Mat PushSource::frame(double, cv::Size size) {
    if (auto newest = kov::host::pushedFrame(); newest != mFrame) {
        mFrame = std::move(newest);
        mPicture = mFrame ? toBgr(*mFrame) : cv::Mat();
    }
    return mPicture.empty() ? cv::Mat(size, CV_8UC3, kWall) : fill(mPicture, size);
}

}  // namespace kov::camera
