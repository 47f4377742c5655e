// Finding the people in two aligned pictures, and where to cut between them.

#include "host/plusme/People.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>
#include <opencv2/stitching/detail/seam_finders.hpp>
#include <vector>

namespace kov::plusme {

namespace {

// Lengths are in pixels of the small pictures that all of this works on, about 640 wide.
constexpr int kToneStep = 3;
constexpr int kLeastLuma = 16;  // for a ratio that means something
constexpr double kBlur = 1.2;
constexpr double kLeastDifference = 13;
constexpr double kNoiseFactor = 4;      // of the median difference
constexpr int kClose = 17;              // gaps within a person
constexpr double kLeastShare = 0.0015;  // of the picture's area
constexpr int kRing = 7;                // on each side of a person's outline
constexpr int kNear = 15;               // that belongs to a place of the outline
constexpr double kMixed = 0.2;          // share of the weaker votes from which on both pictures show a person
constexpr double kVoteReach = 18;
constexpr int kGrabRounds = 3;
constexpr int kLeastPart = 80;  // of a person, area
constexpr int kMargin = 9;      // around a person that must come along
constexpr int kCutReach = 61;   // around the people in which the cut is sought

cv::Mat ellipse(int size) {
    return cv::getStructuringElement(cv::MORPH_ELLIPSE, {size, size});
}

cv::Mat dilated(const cv::Mat& mask, int size) {
    cv::Mat out;
    cv::dilate(mask, out, ellipse(size));
    return out;
}

double median(std::vector<double>& values, double fallback) {
    if (values.empty())
        return fallback;
    const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The largest difference of the channels.
cv::Mat differenceOf(const cv::Mat& first, const cv::Mat& second, const cv::Mat& valid) {
    cv::Mat smooth[2];
    cv::GaussianBlur(first, smooth[0], {}, kBlur);
    cv::GaussianBlur(second, smooth[1], {}, kBlur);
    cv::Mat difference;
    cv::absdiff(smooth[0], smooth[1], difference);
    std::vector<cv::Mat> channels;
    cv::split(difference, channels);
    cv::Mat chroma = cv::max(channels[1], channels[2]) * 2;
    cv::Mat largest = cv::max(channels[0], chroma);
    largest.setTo(0, ~valid);
    return largest;
}

double noiseOf(const cv::Mat& difference) {
    std::vector<double> values;
    for (int y = 0; y < difference.rows; y += kToneStep)
        for (int x = 0; x < difference.cols; x += kToneStep)
            values.push_back(difference.at<uint8_t>(y, x));
    return median(values, 0);
}

/// The filled shapes of what differs.
std::vector<std::vector<cv::Point>> changedShapes(const cv::Mat& difference) {
    cv::Mat changed = difference > std::max(kLeastDifference, kNoiseFactor * noiseOf(difference));
    cv::morphologyEx(changed, changed, cv::MORPH_OPEN, ellipse(3));
    cv::morphologyEx(changed, changed, cv::MORPH_CLOSE, ellipse(kClose));
    std::vector<std::vector<cv::Point>> shapes;
    cv::findContours(changed, shapes, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    const double least = kLeastShare * static_cast<double>(difference.total());
    std::erase_if(shapes, [&](const auto& shape) { return cv::contourArea(shape) < least; });
    return shapes;
}

/// Mean colour near each pixel, of the pixels in `ring` only.
cv::Mat meanWithin(const cv::Mat& picture, const cv::Mat& ring) {
    cv::Mat weight;
    ring.convertTo(weight, CV_32F, 1 / 255.0);
    cv::Mat weights;
    cv::merge(std::vector<cv::Mat>(3, weight), weights);
    cv::Mat sum;
    picture.convertTo(sum, CV_32F);
    sum = sum.mul(weights);
    cv::boxFilter(sum, sum, -1, {kNear, kNear});
    cv::boxFilter(weights, weights, -1, {kNear, kNear});
    cv::Mat safe = cv::max(weights, 1e-4);
    return sum / safe;
}

/// How much the colour changes across the outline: much where the picture shows a person, little where it shows what is
/// behind.
cv::Mat jumpAcross(const cv::Mat& picture, const cv::Mat& inside, const cv::Mat& outside) {
    cv::Mat jump;
    cv::absdiff(meanWithin(picture, inside), meanWithin(picture, outside), jump);
    cv::transform(jump, jump, cv::Matx13f(1, 1, 1));
    return jump;
}

/// Along the outline: above 0 where the first picture shows a person, below where the second one does; else 0.
cv::Mat votesFor(const cv::Mat& first, const cv::Mat& second, const cv::Mat& shape,
                 const std::vector<cv::Point>& outline) {
    cv::Mat core;
    cv::erode(shape, core, ellipse(2 * kRing + 1));
    const cv::Mat inside = shape & ~core;
    const cv::Mat outside = dilated(shape, 2 * kRing + 1) & ~shape;
    const cv::Mat lead = jumpAcross(first, inside, outside) - jumpAcross(second, inside, outside);
    cv::Mat votes = cv::Mat::zeros(shape.size(), CV_32F);
    for (const cv::Point& point : outline) {
        // The picture's own edge says nothing.
        if (point.x > 1 && point.y > 1 && point.x < shape.cols - 2 && point.y < shape.rows - 2)
            votes.at<float>(point) = lead.at<float>(point);
    }
    return votes;
}

/// `mask` without what is too small or too thin to be a part of a person.
cv::Mat withoutSpecks(const cv::Mat& mask) {
    cv::Mat solid;
    cv::morphologyEx(mask, solid, cv::MORPH_OPEN, ellipse(3));
    cv::Mat parts;
    cv::Mat stats;
    cv::Mat centres;
    const int count = cv::connectedComponentsWithStats(solid, parts, stats, centres);
    for (int part = 1; part < count; ++part) {
        if (stats.at<int>(part, cv::CC_STAT_AREA) < kLeastPart)
            solid.setTo(0, parts == part);
    }
    return solid;
}

/// The person in `picture`: grown from where the votes say so, against what lies around the shape.
cv::Mat personIn(const cv::Mat& picture, const cv::Mat& shape, const cv::Mat& likely) {
    cv::Mat labels(shape.size(), CV_8U, cv::Scalar(cv::GC_BGD));
    labels.setTo(cv::GC_PR_BGD, shape);
    labels.setTo(cv::GC_PR_FGD, likely);
    if (cv::countNonZero(likely) < kNear * kNear)
        return likely.clone();
    cv::Mat background;
    cv::Mat foreground;
    cv::grabCut(picture, labels, {}, background, foreground, kGrabRounds, cv::GC_INIT_WITH_MASK);
    return withoutSpecks((labels == cv::GC_PR_FGD) | (labels == cv::GC_FGD));
}

/// The pixels of `picture` where `mask` is set, as a column.
cv::Mat pixelsOf(const cv::Mat& picture, const cv::Mat& mask) {
    std::vector<cv::Vec3b> pixels;
    for (int y = 0; y < picture.rows; ++y)
        for (int x = 0; x < picture.cols; ++x)
            if (mask.at<uint8_t>(y, x))
                pixels.push_back(picture.at<cv::Vec3b>(y, x));
    return cv::Mat(pixels, true);
}

/// The person in `picture` once more, where both pictures were found to show one: between an arm and the body one sees
/// what is behind. The colours of the person are learned where only this picture shows one, those of the background
/// around the shape and where only the other picture does.
cv::Mat personBeside(const cv::Mat& picture, const cv::Mat& shape, const cv::Mat& found, const cv::Mat& others) {
    const cv::Mat person = pixelsOf(picture, found & ~others);
    const cv::Mat behind = pixelsOf(picture, ~shape | (others & ~found));
    if (person.rows < kNear * kNear || behind.rows < kNear * kNear)
        return found;
    cv::Mat known;
    cv::vconcat(person, behind, known);
    cv::Mat labels(known.size(), CV_8U, cv::Scalar(cv::GC_BGD));
    labels.rowRange(0, person.rows).setTo(cv::GC_FGD);
    cv::Mat background;
    cv::Mat foreground;
    cv::grabCut(known, labels, {}, background, foreground, 0, cv::GC_INIT_WITH_MASK);  // only learns
    labels = cv::Mat(shape.size(), CV_8U, cv::Scalar(cv::GC_BGD));
    labels.setTo(cv::GC_PR_BGD, shape);
    labels.setTo(cv::GC_PR_FGD, found);
    cv::grabCut(picture, labels, {}, background, foreground, 1, cv::GC_EVAL_FREEZE_MODEL);
    return withoutSpecks(labels == cv::GC_PR_FGD);
}

/// Sorts a shape in which both pictures show a person.
void separate(const cv::Mat& first, const cv::Mat& second, const cv::Mat& shape, const cv::Mat& votes, People* people) {
    cv::Mat tendency;
    cv::GaussianBlur(votes, tendency, {}, kVoteReach);
    const cv::Mat inFirst = personIn(first, shape, shape & (tendency > 0));
    const cv::Mat inSecond = personIn(second, shape, shape & (tendency < 0));
    people->first |= personBeside(first, shape, inFirst, inSecond);
    people->second |= personBeside(second, shape, inSecond, inFirst);
}

void sortShape(const cv::Mat& first, const cv::Mat& second, const std::vector<cv::Point>& outline, People* people) {
    const int margin = 2 * kRing + kNear;
    cv::Rect box = cv::boundingRect(outline);
    box = (box + cv::Size(2 * margin, 2 * margin) - cv::Point(margin, margin)) & cv::Rect({}, first.size());
    std::vector<cv::Point> moved = outline;
    for (cv::Point& point : moved)
        point -= box.tl();
    cv::Mat shape = cv::Mat::zeros(box.size(), CV_8U);
    cv::drawContours(shape, std::vector<std::vector<cv::Point>>(1, moved), 0, 255, cv::FILLED);
    const cv::Mat votes = votesFor(first(box), second(box), shape, moved);
    const double forFirst = cv::sum(cv::max(votes, 0))[0];
    const double forSecond = cv::sum(cv::max(-votes, 0))[0];
    People part = {people->first(box), people->second(box)};
    if (std::min(forFirst, forSecond) > kMixed * (forFirst + forSecond))
        separate(first(box), second(box), shape, votes, &part);
    else
        (forFirst > forSecond ? part.first : part.second) |= shape;
}

}  // namespace

Tone matchTone(const cv::Mat& first, const cv::Mat& second, const cv::Mat& valid) {
    std::vector<double> ratios;
    std::vector<double> u;
    std::vector<double> v;
    for (int y = 0; y < first.rows; y += kToneStep) {
        for (int x = 0; x < first.cols; x += kToneStep) {
            const auto& a = first.at<cv::Vec3b>(y, x);
            const auto& b = second.at<cv::Vec3b>(y, x);
            if (!valid.at<uint8_t>(y, x) || b[0] < kLeastLuma)
                continue;
            ratios.push_back(static_cast<double>(a[0]) / b[0]);
            u.push_back(a[1] - b[1]);
            v.push_back(a[2] - b[2]);
        }
    }
    return {std::clamp(median(ratios, 1), 0.5, 2.0), median(u, 0), median(v, 0)};
}

void applyTone(const Tone& tone, cv::Mat& picture) {
    cv::transform(picture, picture, cv::Matx34d(tone.gain, 0, 0, 0, 0, 1, 0, tone.u, 0, 0, 1, tone.v));
}

People findPeople(const cv::Mat& first, const cv::Mat& second, const cv::Mat& valid, int front) {
    People people = {cv::Mat::zeros(first.size(), CV_8U), cv::Mat::zeros(first.size(), CV_8U)};
    for (const auto& outline : changedShapes(differenceOf(first, second, valid)))
        sortShape(first, second, outline, &people);
    cv::Mat wide[] = {dilated(people.first, kMargin), dilated(people.second, kMargin)};
    wide[1] &= valid;
    // Margins give way to people, and the person behind to the one in front.
    wide[0] &= ~people.second | people.first;
    wide[1] &= ~people.first | people.second;
    wide[1 - front] &= ~wide[front];
    return {wide[0], wide[1]};
}

cv::Mat cut(const cv::Mat& first, const cv::Mat& second, const cv::Mat& valid, const People& people) {
    cv::Mat result = cv::Mat::zeros(first.size(), CV_8U);
    if (cv::countNonZero(people.second) == 0)
        return result;
    const cv::Mat possible = dilated(people.second, kCutReach) & valid & ~people.first;
    const cv::Rect box = cv::boundingRect(possible);
    std::vector<cv::UMat> pictures(2);
    first(box).convertTo(pictures[0], CV_32F);
    second(box).convertTo(pictures[1], CV_32F);
    std::vector<cv::UMat> masks(2);
    cv::Mat(~people.second(box)).copyTo(masks[0]);
    possible(box).copyTo(masks[1]);
    cv::detail::GraphCutSeamFinder(cv::detail::GraphCutSeamFinderBase::COST_COLOR_GRAD)
        .find(pictures, {box.tl(), box.tl()}, masks);
    masks[1].copyTo(result(box));
    return result;
}

}  // namespace kov::plusme
