// Laying the moments of a subject over a clean background.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace kov::action {

/// A frame of the series: 4:2:0 semi-planar, V first, height * 3 / 2 rows of bytes. Borrowed.
struct Moment {
    cv::Mat yuv;
    cv::Point2d shift;  // against the first frame, in pixels
    cv::Rect subject;   // in this frame; empty for a frame that only serves the background
};

/// Works in steps so that progress can be shown. One thread.
class Compose {
public:
    /// The first moment is what the others are brought over.
    explicit Compose(std::vector<Moment> moments);

    int steps() const { return static_cast<int>(2 * mMoments.size() + 1); }
    void step();
    /// After the last step: luma, V and U for every pixel.
    const cv::Mat& picture() const { return mPicture; }

private:
    void align(size_t index);
    void findBackground();
    void layOver(size_t index);

    std::vector<Moment> mMoments;
    std::vector<cv::Mat> mAligned;
    cv::Mat mBackground;
    cv::Mat mPicture;
    size_t mDone = 0;
};

}  // namespace kov::action
