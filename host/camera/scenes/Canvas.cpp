// Drawing in scene units: the same picture at any size.

#include "host/camera/scenes/Canvas.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace kov::camera {

namespace {
constexpr int kShift = 5;  // fractional bits of the coordinates that the drawing calls take
constexpr double kLeastCellPixels = 1.5;

constexpr double kCoarseCellPixels = 32;  // octaves of larger cells are drawn small and enlarged
constexpr int kCoarseFactor = 4;
constexpr double kOctaveWeight = 0.55;  // of an octave against the next coarser one

/// One octave of noise; the next has half the cell.
struct Octave {
    double cell;
    double stretch;
    uint32_t seed;
    double weight;

    Octave next() const { return {cell / 2, stretch, seed + 1, weight * kOctaveWeight}; }
};

void addOctave(const Octave& octave, const View& view, cv::Mat& sum) {
    const double wide = octave.cell * octave.stretch;
    const int left = static_cast<int>(std::floor(view.origin.x / wide)) - 1;
    const int top = static_cast<int>(std::floor(view.origin.y / octave.cell)) - 1;
    cv::Mat grid(static_cast<int>(view.height() / octave.cell) + 5, static_cast<int>(view.width() / wide) + 5, CV_32F);
    for (int y = 0; y < grid.rows; ++y)
        for (int x = 0; x < grid.cols; ++x)
            grid.at<float>(y, x) = static_cast<float>(random01(left + x, top + y, octave.seed));
    const double fx = wide * view.scale;
    const double fy = octave.cell * view.scale;
    cv::Mat layer;
    cv::resize(grid, layer, {}, fx, fy, cv::INTER_CUBIC);
    const cv::Point corner(cvRound((view.origin.x / wide - left) * fx),
                           cvRound((view.origin.y / octave.cell - top) * fy));
    cv::scaleAdd(layer(cv::Rect(corner, view.size)), octave.weight, sum, sum);
}

/// Adds `count` octaves from `octave` on to `sum`, which has the view's size.
void addOctaves(Octave octave, const View& view, int count, cv::Mat& sum) {
    int coarse = 0;
    for (double pixels = octave.cell * view.scale; coarse < count && pixels >= kCoarseCellPixels; pixels /= 2)
        ++coarse;
    if (coarse > 0) {
        View small = view;
        small.scale /= kCoarseFactor;
        small.size = (view.size + cv::Size(kCoarseFactor - 1, kCoarseFactor - 1)) / kCoarseFactor;
        cv::Mat part = cv::Mat::zeros(small.size, CV_32F);
        addOctaves(octave, small, coarse, part);
        cv::resize(part, part, {}, kCoarseFactor, kCoarseFactor, cv::INTER_LINEAR);
        sum += part(cv::Rect({}, view.size));
    }
    for (int i = 0; i < count; ++i, octave = octave.next())
        if (i >= coarse)
            addOctave(octave, view, sum);
}

int thickness(double width, double scale) {
    return std::max(1, static_cast<int>(std::lround(width * scale)));
}
}  // namespace

View View::around(cv::Point2d centre, cv::Size size) {
    View view;
    view.size = size;
    view.scale = size.height / kViewHeight;
    view.origin = centre - cv::Point2d(size.width, size.height) / (2 * view.scale);
    return view;
}

uint32_t hash(int32_t a, int32_t b, uint32_t seed) {
    uint32_t h = static_cast<uint32_t>(a) * 0x9E3779B1U ^ static_cast<uint32_t>(b) * 0x85EBCA77U ^ seed * 0xC2B2AE3DU;
    h = (h ^ h >> 15) * 0x2C1B3C6DU;
    h = (h ^ h >> 12) * 0x297A2D39U;
    return h ^ h >> 15;
}

double random01(int32_t a, int32_t b, uint32_t seed) {
    return hash(a, b, seed) / 4294967296.0;
}

cv::Mat noise(const View& view, double cell, int octaves, uint32_t seed, double stretch) {
    double total = 0;
    double weight = 1;
    int visible = 0;
    for (double size = cell * view.scale; visible < octaves && size >= kLeastCellPixels; size /= 2, ++visible) {
        total += weight;
        weight *= kOctaveWeight;
    }
    cv::Mat sum = cv::Mat::zeros(view.size, CV_32F);
    addOctaves({cell, stretch, seed, 1 / std::max(total, 1.0)}, view, visible, sum);
    return sum;
}

double noise1(double x, double cell, int octaves, uint32_t seed) {
    double sum = 0;
    double weight = 0.5;
    double total = 0;
    for (int octave = 0; octave < octaves; ++octave) {
        const double at = x / cell;
        const int left = static_cast<int>(std::floor(at));
        const double part = at - left;
        const double smooth = part * part * (3 - 2 * part);
        const double a = random01(left, 7, seed + octave);
        sum += weight * (a + (random01(left + 1, 7, seed + octave) - a) * smooth);
        total += weight;
        weight *= 0.5;
        cell *= 0.5;
    }
    return sum / total;
}

Colour mix(const Colour& a, const Colour& b, double amount) {
    return a + (b - a) * std::clamp(amount, 0.0, 1.0);
}

Canvas::Canvas(cv::Mat picture, View view) : mPicture(std::move(picture)), mView(view) {}

bool Canvas::sees(cv::Point2d centre, double reach) const {
    return centre.x + reach >= mView.origin.x && centre.x - reach <= mView.origin.x + mView.width() &&
           centre.y + reach >= mView.origin.y && centre.y - reach <= mView.origin.y + mView.height();
}

cv::Point Canvas::fixed(cv::Point2d p) const {
    const cv::Point2d pixel = mView.toPixels(p) * (1 << kShift);
    return {static_cast<int>(std::lround(pixel.x)), static_cast<int>(std::lround(pixel.y))};
}

void Canvas::polygon(const std::vector<cv::Point2d>& points, const Colour& colour) {
    std::vector<cv::Point> corners(points.size());
    std::transform(points.begin(), points.end(), corners.begin(), [&](cv::Point2d p) { return fixed(p); });
    cv::fillPoly(mPicture, std::vector<std::vector<cv::Point>>{corners}, cv::Scalar(colour), cv::LINE_AA, kShift);
}

void Canvas::line(cv::Point2d from, cv::Point2d to, double width, const Colour& colour) {
    cv::line(mPicture, fixed(from), fixed(to), cv::Scalar(colour), thickness(width, mView.scale), cv::LINE_AA, kShift);
}

void Canvas::curve(const std::vector<cv::Point2d>& points, double width, const Colour& colour) {
    std::vector<cv::Point> corners(points.size());
    std::transform(points.begin(), points.end(), corners.begin(), [&](cv::Point2d p) { return fixed(p); });
    cv::polylines(mPicture, corners, false, cv::Scalar(colour), thickness(width, mView.scale), cv::LINE_AA, kShift);
}

void Canvas::ellipse(cv::Point2d centre, cv::Size2d axes, const Colour& colour, double degrees, double from,
                     double to) {
    const double unit = mView.scale * (1 << kShift);
    const cv::Size reach(static_cast<int>(std::lround(axes.width * unit)),
                         static_cast<int>(std::lround(axes.height * unit)));
    cv::ellipse(mPicture, fixed(centre), reach, degrees, from, to, cv::Scalar(colour), cv::FILLED, cv::LINE_AA, kShift);
}

void Canvas::rectangle(cv::Rect2d box, const Colour& colour) {
    polygon({box.tl(), {box.x + box.width, box.y}, box.br(), {box.x, box.y + box.height}}, colour);
}

void Canvas::limb(cv::Point2d from, cv::Point2d to, double fromRadius, double toRadius, const Colour& colour) {
    const cv::Point2d along = to - from;
    const double length = std::max(1e-6, std::hypot(along.x, along.y));
    const cv::Point2d across(-along.y / length, along.x / length);
    polygon({from + across * fromRadius, to + across * toRadius, to - across * toRadius, from - across * fromRadius},
            colour);
    circle(from, fromRadius, colour);
    circle(to, toRadius, colour);
}

cv::Mat Canvas::coverage(const std::vector<cv::Point2d>& points, cv::Rect* box) const {
    std::vector<cv::Point> corners(points.size());
    std::transform(points.begin(), points.end(), corners.begin(), [&](cv::Point2d p) { return fixed(p); });
    cv::Rect bounds = cv::boundingRect(corners);
    bounds =
        cv::Rect(bounds.x >> kShift, bounds.y >> kShift, (bounds.width >> kShift) + 3, (bounds.height >> kShift) + 3);
    *box = bounds & cv::Rect(cv::Point(), mPicture.size());
    if (box->empty())
        return {};
    cv::Mat mask = cv::Mat::zeros(box->size(), CV_8U);
    cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{corners}, cv::Scalar(255), cv::LINE_AA, kShift,
                 cv::Point(-box->x * (1 << kShift), -box->y * (1 << kShift)));
    return mask;
}

template <typename ColourOf>
void Canvas::blend(const std::vector<cv::Point2d>& points, const cv::Mat& amount, ColourOf colourOf) {
    cv::Rect box;
    const cv::Mat mask = coverage(points, &box);
    for (int y = 0; y < mask.rows; ++y) {
        const uint8_t* cover = mask.ptr(y);
        const float* share = amount.ptr<float>(box.y + y) + box.x;
        auto* pixel = mPicture.ptr<cv::Vec3b>(box.y + y) + box.x;
        for (int x = 0; x < mask.cols; ++x) {
            if (cover[x]) {
                const cv::Vec3f old = pixel[x];
                pixel[x] = old + (colourOf(old, share[x]) - old) * (static_cast<float>(cover[x]) / 255);
            }
        }
    }
}

void Canvas::textured(const std::vector<cv::Point2d>& points, const Colour& a, const Colour& b, const cv::Mat& amount) {
    blend(points, amount, [&](const cv::Vec3f&, float share) { return cv::Vec3f(mix(a, b, share)); });
}

void Canvas::shaded(const std::vector<cv::Point2d>& points, const cv::Mat& amount, double depth) {
    blend(points, amount, [&](const cv::Vec3f& old, float share) {
        return old * (1 + static_cast<float>(depth) * (share - 0.5F) * 2);
    });
}

}  // namespace kov::camera
