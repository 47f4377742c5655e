// Sweeps of a hand-held camera over a wide picture, and how well a panorama shows that picture again.
#pragma once

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#include <vector>

#include "tests/support/SceneFrames.h"

namespace kov::test {

/// How the camera is held.
struct Hand {
    double degrees = 0;   // by which it turns to either side
    double jitter = 0;    // pixels, by which single frames are off, in each direction
    double exposure = 0;  // share of the brightness that is gained on the whole way
    uint64_t seed = 1;
};

/// The frames of a sweep, one after the other. `step` pixels lie between two of them.
class HandHeldSweep {
public:
    HandHeldSweep(const cv::Mat& wide, cv::Size frame, cv::Point2d step, Hand hand)
        : mWide(wide), mFrame(frame), mStep(step), mHand(hand), mRandom(hand.seed) {
        for (double& phase : mPhases)
            phase = mRandom.uniform(0.0, 2 * CV_PI);
        const double margin = 8 + hand.jitter + std::hypot(frame.width, frame.height) / 2 * hand.degrees * CV_PI / 180;
        const cv::Point2d half(frame.width / 2.0 + margin, frame.height / 2.0 + margin);
        mStart = {step.x < 0 ? wide.cols - half.x : half.x, step.y < 0 ? wide.rows - half.y : half.y};
        mCount = 1 + static_cast<int>(step.x != 0 ? (wide.cols - 2 * half.x) / std::abs(step.x)
                                                  : (wide.rows - 2 * half.y) / std::abs(step.y));
    }

    int count() const { return mCount; }

    /// In order: the jitter is drawn anew for each frame.
    cv::Mat frame(int index) {
        const double time = index / 30.0;
        // Two slow waves, as an arm has, together of the whole reach.
        const double turn =
            mHand.degrees * (0.6 * std::sin(2.3 * time + mPhases[0]) + 0.4 * std::sin(5.1 * time + mPhases[1]));
        const cv::Point2d off(mRandom.uniform(-1.0, 1.0) * mHand.jitter, mRandom.uniform(-1.0, 1.0) * mHand.jitter);
        const cv::Point2d center = mStart + index * mStep + off;
        const cv::Point2d middle((mFrame.width - 1) / 2.0, (mFrame.height - 1) / 2.0);
        cv::Matx23d toWide = cv::getRotationMatrix2D(middle, -turn, 1);
        toWide(0, 2) += center.x - middle.x;
        toWide(1, 2) += center.y - middle.y;
        cv::Mat view;
        cv::warpAffine(mWide, view, toWide, mFrame, cv::INTER_CUBIC | cv::WARP_INVERSE_MAP, cv::BORDER_REFLECT);
        const double gain = 1 + mHand.exposure * (static_cast<double>(index) / std::max(mCount - 1, 1) - 0.5);
        view.convertTo(view, CV_8UC3, gain);
        return view;
    }

private:
    const cv::Mat mWide;
    const cv::Size mFrame;
    const cv::Point2d mStep;
    const Hand mHand;
    cv::RNG mRandom;
    double mPhases[2] = {};
    cv::Point2d mStart;
    int mCount = 0;
};

/// How a panorama compares with the picture that it was swept over, both luma, when it is laid over it as a whole
/// (shifted, turned, and of one brightness).
struct Fit {
    double psnr = 0;   // dB
    double worst = 0;  // grey levels on average in the worst column or row, where a seam would show
};

inline Fit fitOf(const cv::Mat& panorama, const cv::Mat& wide) {
    constexpr int kCoarse = 8;
    const cv::Mat inner = panorama(cv::Rect(8, 8, panorama.cols - 16, panorama.rows - 16));
    const cv::Mat smallInner = reduced(inner, inner.size() / kCoarse);
    const cv::Mat smallWide = reduced(wide, wide.size() / kCoarse);
    if (smallInner.cols > smallWide.cols || smallInner.rows > smallWide.rows)
        return {};
    cv::Mat scores;
    cv::matchTemplate(smallWide, smallInner, scores, cv::TM_CCOEFF_NORMED);
    cv::Point best;
    cv::minMaxLoc(scores, nullptr, nullptr, nullptr, &best);
    cv::Mat place = (cv::Mat_<float>(2, 3) << 1, 0, kCoarse * best.x, 0, 1, kCoarse * best.y);
    for (const int scale : {4, 1}) {
        place.col(2) /= scale;
        try {
            cv::findTransformECC(reduced(inner, inner.size() / scale), reduced(wide, wide.size() / scale), place,
                                 cv::MOTION_EUCLIDEAN, {cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 60, 1e-6},
                                 cv::noArray(), 5);
        } catch (const cv::Exception&) {
            return {};
        }
        place.col(2) *= scale;
    }
    cv::Mat truth;
    cv::warpAffine(wide, truth, place, inner.size(), cv::INTER_CUBIC | cv::WARP_INVERSE_MAP, cv::BORDER_REFLECT);
    truth.convertTo(truth, CV_8U, cv::mean(inner)[0] / cv::mean(truth)[0]);
    cv::Mat difference;
    cv::absdiff(truth, inner, difference);
    Fit fit{cv::PSNR(truth, inner), 0};
    for (const int way : {0, 1}) {
        cv::Mat lines;
        cv::reduce(difference, lines, way, cv::REDUCE_AVG, CV_64F);
        fit.worst = std::max(fit.worst, cv::norm(lines, cv::NORM_INF));
    }
    return fit;
}

}  // namespace kov::test
