// Drawing in scene units: the same picture at any size.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace kov::camera {

/// The height of a view in scene units, whatever its size in pixels.
constexpr double kViewHeight = 480.0;

/// A window on the scene: a picture of `size` pixels whose top left corner lies at `origin` (scene units), with
/// `scale` pixels a unit.
struct View {
    cv::Size size;
    double scale = 1.0;
    cv::Point2d origin;

    /// The window of `size` pixels and kViewHeight units of height whose centre lies at `centre`.
    static View around(cv::Point2d centre, cv::Size size);
    /// What these pixels of it show, which may lie outside.
    View part(const cv::Rect& pixels) const {
        return {pixels.size(), scale, origin + cv::Point2d(pixels.tl()) / scale};
    }

    double width() const { return size.width / scale; }
    double height() const { return size.height / scale; }
    cv::Point2d toPixels(cv::Point2d p) const { return (p - origin) * scale; }
    cv::Point2d toScene(cv::Point2d pixel) const { return pixel / scale + origin; }
};

/// Pseudo-random numbers that depend on their arguments alone.
uint32_t hash(int32_t a, int32_t b, uint32_t seed);
/// The same in 0..1.
double random01(int32_t a, int32_t b, uint32_t seed);

/// Smooth noise, fixed to the scene: CV_32F, about 0..1, `size` of the view. `cell` is the size in scene units of the
/// coarsest of `octaves` octaves; what is finer than a pixel is left out. `stretch` makes it wider than tall.
cv::Mat noise(const View& view, double cell, int octaves, uint32_t seed, double stretch = 1.0);
/// The same in one dimension.
double noise1(double x, double cell, int octaves, uint32_t seed);

/// BGR colour.
using Colour = cv::Vec3d;
Colour mix(const Colour& a, const Colour& b, double amount);
inline Colour rgb(int hex) {
    return {static_cast<double>(hex & 255), static_cast<double>(hex >> 8 & 255), static_cast<double>(hex >> 16 & 255)};
}

/// Draws anti-aliased shapes, given in scene units, into a BGR picture or a one-channel mask.
class Canvas {
public:
    Canvas(cv::Mat picture, View view);

    cv::Mat& picture() { return mPicture; }
    const View& view() const { return mView; }
    /// Whether a shape around `centre` of the given reach can touch the picture.
    bool sees(cv::Point2d centre, double reach) const;

    void polygon(const std::vector<cv::Point2d>& points, const Colour& colour);
    void line(cv::Point2d from, cv::Point2d to, double width, const Colour& colour);
    void curve(const std::vector<cv::Point2d>& points, double width, const Colour& colour);
    void ellipse(cv::Point2d centre, cv::Size2d axes, const Colour& colour, double degrees = 0, double from = 0,
                 double to = 360);
    void circle(cv::Point2d centre, double radius, const Colour& colour) { ellipse(centre, {radius, radius}, colour); }
    void rectangle(cv::Rect2d box, const Colour& colour);
    /// An elongated drop whose ends are circles.
    void limb(cv::Point2d from, cv::Point2d to, double fromRadius, double toRadius, const Colour& colour);

    /// Fills a polygon with a mixture of two colours, by `amount` (CV_32F of the picture's size).
    void textured(const std::vector<cv::Point2d>& points, const Colour& a, const Colour& b, const cv::Mat& amount);
    /// Multiplies the inside of a polygon by 1 + depth * (amount - 0.5) * 2.
    void shaded(const std::vector<cv::Point2d>& points, const cv::Mat& amount, double depth);

private:
    cv::Point fixed(cv::Point2d p) const;
    /// The polygon's coverage within `box`, which is filled: CV_8U; empty when it lies outside of the picture.
    cv::Mat coverage(const std::vector<cv::Point2d>& points, cv::Rect* box) const;
    /// Gives each pixel of a polygon the colour that `colourOf` makes of its old one and its share in `amount`.
    template <typename ColourOf>
    void blend(const std::vector<cv::Point2d>& points, const cv::Mat& amount, ColourOf colourOf);

    cv::Mat mPicture;
    View mView;
};

}  // namespace kov::camera
