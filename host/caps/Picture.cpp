// Pictures of the effects engine.

#include "host/caps/Picture.h"

#include <array>
#include <opencv2/imgproc.hpp>

namespace kov::caps {

namespace {

void scalePlane(const cv::Mat& from, cv::Mat& to, cv::Size size) {
    const bool smaller = size.width < from.cols && size.height < from.rows;
    cv::resize(from, to, size, 0, 0, smaller ? cv::INTER_AREA : cv::INTER_CUBIC);
}

}  // namespace

Picture Picture::band(cv::Range rows) const {
    const cv::Range half(rows.start / 2, rows.end / 2);
    Picture part;
    part.y = y.rowRange(rows);
    part.u = u.rowRange(half);
    part.v = v.rowRange(half);
    return part;
}

Picture readFrame(const uint8_t* frame, cv::Size size) {
    auto* const pixels = const_cast<uint8_t*>(frame);  // cv::Mat knows no constant memory
    Picture picture(size);
    cv::Mat(size, CV_8U, pixels).copyTo(picture.y);
    std::array<cv::Mat, 2> chroma = {picture.v, picture.u};
    cv::split(cv::Mat(size / 2, CV_8UC2, pixels + size.area()), chroma.data());
    return picture;
}

void writeFrame(const Picture& band, int row, uint8_t* frame, cv::Size size) {
    cv::Mat luma(band.size(), CV_8U, frame + static_cast<size_t>(row) * size.width);
    band.y.copyTo(luma);
    cv::Mat pairs(band.u.size(), CV_8UC2, frame + size.area() + static_cast<size_t>(row / 2) * size.width);
    const std::array<cv::Mat, 2> chroma = {band.v, band.u};
    cv::merge(chroma.data(), chroma.size(), pairs);
}

Picture turned(const Picture& picture, int quarters) {
    if (quarters == 0)
        return picture;
    constexpr cv::RotateFlags kTurns[] = {cv::ROTATE_90_CLOCKWISE, cv::ROTATE_180, cv::ROTATE_90_COUNTERCLOCKWISE};
    Picture result;
    cv::rotate(picture.y, result.y, kTurns[quarters - 1]);
    cv::rotate(picture.u, result.u, kTurns[quarters - 1]);
    cv::rotate(picture.v, result.v, kTurns[quarters - 1]);
    return result;
}

Picture scaled(const Picture& picture, cv::Size size) {
    if (picture.size() == size)
        return picture;
    Picture result;
    scalePlane(picture.y, result.y, size);
    scalePlane(picture.u, result.u, size / 2);
    scalePlane(picture.v, result.v, size / 2);
    return result;
}

}  // namespace kov::caps
