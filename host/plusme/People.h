// Finding the people in two aligned pictures, and where to cut between them.
#pragma once

#include <opencv2/core.hpp>

namespace kov::plusme {

/// How the second picture's exposure and colour differ from the first's.
struct Tone {
    double gain = 1;  // of luma
    double u = 0;     // to be added
    double v = 0;
};

/// The tone that makes `second` like `first` where both show the same. Pictures are 8-bit Y, U, V of one size; `valid`
/// is 255 where the second one has content.
Tone matchTone(const cv::Mat& first, const cv::Mat& second, const cv::Mat& valid);
void applyTone(const Tone& tone, cv::Mat& picture);

/// What must come from which picture: 255 there, both of the pictures' size, never in the same place.
struct People {
    cv::Mat first;
    cv::Mat second;
};

/// Finds what differs and decides which of the pictures shows a person there. `front` (0 or 1) is the picture that wins
/// where both do. The pictures are those of `matchTone`, with equal tone.
People findPeople(const cv::Mat& first, const cv::Mat& second, const cv::Mat& valid, int front);

/// 255 where the second picture is to be taken: at least its people, and around them up to a cut along which both
/// pictures look the same.
cv::Mat cut(const cv::Mat& first, const cv::Mat& second, const cv::Mat& valid, const People& people);

}  // namespace kov::plusme
