// Where the moving subject is.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace kov::action {

/// What a frame shows.
struct Sighting {
    cv::Point2d shift;   // of this frame against the first one, in frame pixels
    cv::Rect subject;    // in this frame; empty when there is none
    int number = 0;      // of the subject; another one gets the next number
    bool whole = false;  // clear of the sides of its travel, of its usual size, and not standing where it began
    cv::Mat outline;     // the subject's pixels, reduced, where the first frame has them
};

/// Looks at one frame after the other. One thread.
class SubjectTracker {
public:
    explicit SubjectTracker(cv::Size frameSize);

    /// `luma` of the frame's size, `chroma` of half of it, two channels.
    Sighting look(const cv::Mat& luma, const cv::Mat& chroma);

private:
    /// What differs from the background and hangs together.
    struct Piece {
        cv::Rect box;
        int area = 0;
        cv::Mat outline;
    };

    cv::Mat reduce(const cv::Mat& luma, const cv::Mat& chroma) const;
    cv::Point2d shiftOf(const cv::Mat& luma) const;
    cv::Mat difference(const cv::Mat& aligned, cv::Mat* changed) const;
    void clearBeyond(cv::Point2d shift, cv::Mat* mask) const;
    void watchStillness(const cv::Mat& aligned);
    std::vector<Piece> piecesOf(const cv::Mat& mask) const;
    Piece choose(const cv::Mat& aligned, const std::vector<Piece>& pieces) const;
    double continuity(const cv::Mat& aligned, const Piece& piece) const;
    double unlikeness(const cv::Mat& aligned, const Piece& piece) const;
    bool atEdge(const cv::Rect& box) const;
    bool follow(const cv::Mat& aligned, const Piece& piece);
    void lose();
    void learn(const cv::Mat& aligned, const cv::Mat& changed);

    const cv::Size mFrame;
    const double mScale;  // frame pixels for each reduced one
    const cv::Size mReduced;
    const cv::Mat mWindow;
    cv::Mat mFirst;      // luma, reduced, float
    cv::Mat mFirstHalf;  // half as large again
    cv::Mat mSlopeX, mSlopeY;
    cv::Point mShift;     // of the current frame, reduced
    cv::Mat mBackground;  // luma and chroma, likewise
    cv::Mat mSteady;      // what each pixel has shown of late
    cv::Mat mStillFor;    // and for how many frames
    int mFrames = 0;

    // The subject, in the reduced first frame's coordinates.
    cv::Rect mLast;      // empty while there is none
    cv::Point2d mBegan;  // its centre when it was seen first
    cv::Point2d mPace;   // pixels it moves in a frame
    double mUsualArea = 0;
    cv::Vec3d mColor;
    int mNumber = 0;
    int mMissing = 0;  // frames since it was seen
};

}  // namespace kov::action
