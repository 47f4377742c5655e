// Pictures of the effects engine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>

namespace kov::caps {

constexpr int kMostSide = 8192;  // pixels, of any picture

/// A picture, or a band of rows of one, as JPEG has it: full-range luma, and Cb and Cr at half the size each way.
/// Both sides are even. Copies share the pixels.
struct Picture {
    cv::Mat y, u, v;

    Picture() = default;
    explicit Picture(cv::Size size) : y(size, CV_8U), u(size / 2, CV_8U), v(size / 2, CV_8U) {}

    cv::Size size() const { return y.size(); }
    /// A view of the rows from the even `rows.start` to before the even `rows.end`.
    Picture band(cv::Range rows) const;
};

/// The smallest even size that holds `size`.
inline cv::Size evenSize(cv::Size size) {
    return {(size.width + 1) / 2 * 2, (size.height + 1) / 2 * 2};
}

/// Bytes of a semi-planar frame.
inline size_t frameBytes(cv::Size size) {
    return static_cast<size_t>(size.area()) * 3 / 2;
}

/// The luma of a frame, in place.
inline cv::Mat lumaOf(const uint8_t* frame, cv::Size size) {
    return cv::Mat(size, CV_8U, const_cast<uint8_t*>(frame));  // cv::Mat knows no constant memory
}

/// A semi-planar frame, V before U, as a picture: its luma in place, its chroma copied into the memory of `picture`.
void readFrame(const uint8_t* frame, cv::Size size, Picture& picture);

/// Writes `band`, whose first row is the even `row` of the frame, into a semi-planar frame of `size`, V before U.
void writeFrame(const Picture& band, int row, uint8_t* frame, cv::Size size);

/// The picture turned clockwise by `quarters` (0 to 3) quarter turns.
Picture turned(const Picture& picture, int quarters);

/// The picture scaled to the even `size`.
Picture scaled(const Picture& picture, cv::Size size);

}  // namespace kov::caps
