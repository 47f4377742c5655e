// Putting shifted and turned frames together into one picture.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/stitching/detail/blenders.hpp>
#include <vector>

namespace kov::panorama {

/// A frame of the panorama: 4:2:0 semi-planar, V first, one row of bytes after the other (height * 3 / 2 rows).
/// Borrowed.
struct PlacedFrame {
    cv::Mat yuv;
    cv::Point2d offset;  // from the frame before, in pixels, to within a few percent of a frame
};

/// Works in steps so that progress can be shown. One thread.
class Stitch {
public:
    /// All frames have one size. `sideways` when the sweep is horizontal.
    Stitch(const std::vector<PlacedFrame>& frames, bool sideways);

    /// Steps that are left. A frame that does not fit takes those of the frames behind it away.
    int left() const;
    /// Does the next step. False when no two frames fit together.
    bool step();
    /// After the last step: the picture with luma, V and U for every pixel, with even sides.
    cv::Mat result();

private:
    /// A frame, and what is found out about it.
    struct Part {
        cv::Mat yuv;
        cv::Mat half;            // luma of half the size; empty once it is not needed any more
        cv::Point2d offset;      // from the frame before
        cv::Matx33d pose;        // of its pixels in the panorama
        double gain = 1;         // brings it to the common exposure
        int begin = 0, end = 0;  // where it shows along the sweep, in the panorama
    };

    bool join(Part& before, Part& after) const;
    void settle();
    void findSeams();
    cv::Rect area(const Part& part) const;
    std::vector<cv::Point2f> corners(const Part& part) const;
    void feed(const Part& part);

    std::vector<Part> mParts;
    const bool mSideways;
    const cv::Size mSize;
    size_t mJoined = 1;  // parts, from the first one
    size_t mFed = 0;     // likewise
    bool mSettled = false;
    cv::Rect mAll;  // the panorama before it is cropped
    cv::detail::MultiBandBlender mBlender;
};

}  // namespace kov::panorama
