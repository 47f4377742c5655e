// Where the moving subject is.
#pragma once

#include <opencv2/core.hpp>

namespace kov::action {

/// What a frame shows.
struct Sighting {
    cv::Point2d shift;   // of this frame against the first one, in frame pixels
    cv::Rect subject;    // in this frame; empty when there is none
    bool whole = false;  // the subject does not touch the frame's edges
    cv::Mat outline;     // the subject's pixels, reduced, where the first frame has them
};

/// Looks at one frame after the other. One thread.
class SubjectTracker {
public:
    explicit SubjectTracker(cv::Size frameSize);

    /// `luma` of the frame's size, `chroma` of half of it, two channels.
    Sighting look(const cv::Mat& luma, const cv::Mat& chroma);

private:
    cv::Mat reduce(const cv::Mat& luma, const cv::Mat& chroma) const;
    cv::Mat difference(const cv::Mat& aligned, cv::Mat* changed) const;
    cv::Rect choose(const cv::Mat& mask, cv::Mat* outline) const;
    void learn(const cv::Mat& aligned, const cv::Mat& changed);

    const cv::Size mFrame;
    const double mScale;  // frame pixels for each reduced one
    const cv::Size mReduced;
    const cv::Mat mWindow;
    cv::Mat mFirst;       // luma, reduced, float
    cv::Mat mBackground;  // luma and chroma, likewise
    cv::Rect mLast;       // subject in the reduced first frame's coordinates
    int mFrames = 0;
};

}  // namespace kov::action
