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

void readFrame(const uint8_t* frame, cv::Size size, Picture& picture) {
    picture.y = lumaOf(frame, size);
    picture.u.create(size / 2, CV_8U);
    picture.v.create(size / 2, CV_8U);
    std::array<cv::Mat, 2> chroma = {picture.v, picture.u};
    const uint8_t* const pairs = frame + size.area();
    cv::split(cv::Mat(size / 2, CV_8UC2, const_cast<uint8_t*>(pairs)), chroma.data());
}

void writeFrame(const Picture& band, int row, uint8_t* frame, cv::Size size) {
    cv::Mat luma = lumaOf(frame, size).rowRange(row, row + band.size().height);
    if (luma.data != band.y.data)
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
