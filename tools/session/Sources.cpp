// What a camera can be pointed at.

#include "tools/session/Sources.h"

#include <opencv2/imgcodecs.hpp>

#include "host/camera/Sources.h"
#include "host/camera/Views.h"
#include "host/control/Control.h"
#include "tools/session/Error.h"
#include "tools/session/Pictures.h"
#include "tools/session/Session.h"

namespace kov::cam {

using kov::host::PushedFrame;

std::vector<Scene> scenes() {
    std::vector<Scene> all;
    for (const auto& scene : kov::camera::builtinScenes())
        all.push_back({scene.name, scene.summary, scene.options});
    return all;
}

std::string checkSource(const std::string& text) {
    return kov::camera::checkSource(text);
}

void setLogLevel(const std::string& name) {
    const int level = kov::host::logLevelFromName(name);
    if (level < 0)
        throw Error("\"" + name + "\" is no log level; use verbose, debug, info, warn, error or silent");
    kov::host::setLogLevel(level);
}

void pushJpeg(const uint8_t* bytes, size_t size) {
    cv::Mat picture;
    try {
        picture =
            cv::imdecode(cv::Mat(1, static_cast<int>(size), CV_8U, const_cast<uint8_t*>(bytes)), cv::IMREAD_COLOR);
    } catch (const cv::Exception&) {
        picture.release();  // no picture, or one whose header asks for more than OpenCV gives
    }
    if (picture.empty())
        throw Error("what was pushed is no picture; push a whole JPEG");
    auto frame = std::make_shared<PushedFrame>(PushedFrame{PushedFrame::Format::Bgr, picture.cols, picture.rows, {}});
    frame->bytes.assign(picture.data, picture.data + picture.total() * picture.elemSize());
    kov::host::pushFrame(std::move(frame));
}

void pushFrame(const uint8_t* bytes, size_t size, int width, int height, PixelLayout layout) {
    constexpr int kMostSide = 8192;
    if (width < 2 || height < 2 || width > kMostSide || height > kMostSide || width % 2 || height % 2)
        throw Error("a pushed frame has even sides of at most 8192 pixels, not " + std::to_string(width) + "x" +
                    std::to_string(height));
    if (const size_t wanted = static_cast<size_t>(width) * height * 3 / 2; size != wanted)
        throw Error("a pushed frame of " + std::to_string(width) + "x" + std::to_string(height) + " has " +
                    std::to_string(wanted) + " bytes, not " + std::to_string(size));
    const auto format = layout == PixelLayout::Yuv420sp ? PushedFrame::Format::Yuv420sp : PushedFrame::Format::Yuv420p;
    kov::host::pushFrame(std::make_shared<PushedFrame>(PushedFrame{format, width, height, {bytes, bytes + size}}));
}

cv::Mat toBgr(const Frame& frame) {
    if (!frame.bytes || frame.width == 0)
        return {};
    return kov::camera::frameToBgr(
        frame.bytes, {frame.width, frame.height},
        frame.layout == PixelLayout::Yuv420sp ? kov::camera::PixelLayout::Yuv420sp : kov::camera::PixelLayout::Yuv420p);
}

}  // namespace kov::cam
