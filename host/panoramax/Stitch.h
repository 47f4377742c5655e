// Putting shifted frames together into one picture.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/stitching/detail/blenders.hpp>
#include <vector>

namespace kov::panorama {

/// A frame of the panorama: 4:2:0 semi-planar, V first, one row of bytes after the other (height * 3 / 2 rows).
/// Borrowed.
struct PlacedFrame {
    cv::Mat yuv;
    cv::Point2d place;  // of its top left corner, in pixels; rough until it is refined
    double gain = 1;    // brings it to the common exposure
};

/// Works in steps so that progress can be shown. One thread.
class Stitch {
public:
    /// All frames have one size. `sideways` when the sweep is horizontal.
    Stitch(std::vector<PlacedFrame> frames, bool sideways);

    int steps() const { return static_cast<int>(2 * mFrames.size()); }
    /// Does the next step. False when two frames do not match.
    bool step();
    /// After the last step: the picture with luma, V and U for every pixel, with even sides.
    cv::Mat result();

private:
    bool refine(size_t second);
    void settleGains();
    void prepareBlender();
    void feed(size_t index);
    cv::Rect area(size_t index) const;
    cv::Mat seamMask(size_t index) const;

    std::vector<PlacedFrame> mFrames;
    const bool mSideways;
    const cv::Size mSize;
    size_t mDone = 0;  // steps
    cv::detail::MultiBandBlender mBlender;
};

}  // namespace kov::panorama
