// The scene of a face that begins to smile.

#include "host/camera/scenes/Portrait.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "host/camera/scenes/Hand.h"
#include "host/camera/scenes/Outdoors.h"

namespace kov::camera {

namespace {

constexpr double kChange = 0.7;  // seconds from neutral to the full smile
constexpr int kSteps = 10;       // drawn states of the face beside the neutral one

constexpr double kFarScale = 0.5;  // pixels a unit at which the background is drawn
constexpr double kFarBlur = 7;     // units

const cv::Point2d kFace(0, 228);
constexpr double kHalfWidth = 88;
constexpr double kHalfHeight = 120;

const Colour kSkin = rgb(0xE3B091);
const Colour kSkinLight = rgb(0xFAD9BF);
const Colour kSkinShade = rgb(0xA86E54);
const Colour kHair = rgb(0x3A2418);
const Colour kLip = rgb(0xB5564F);

/// Shapes with soft edges, as light makes them.
class Brush {
public:
    explicit Brush(Canvas& canvas) : mCanvas(canvas) {}

    /// Lays `colour` over what `shape` draws white, `opacity` strong, its edge softened over `softness` units.
    template <typename Shape>
    void soft(cv::Rect2d bounds, const Colour& colour, double opacity, double softness, Shape shape) {
        const View& view = mCanvas.view();
        const double reach = 3 * softness + 2;
        const cv::Point2d first = view.toPixels(bounds.tl() - cv::Point2d(reach, reach));
        const cv::Point2d last = view.toPixels(bounds.br() + cv::Point2d(reach, reach));
        const cv::Rect box =
            cv::Rect(cv::Point(cvFloor(first.x), cvFloor(first.y)), cv::Point(cvCeil(last.x), cvCeil(last.y))) &
            cv::Rect({}, view.size);
        if (box.empty())
            return;
        // What is very soft is drawn small and enlarged.
        const double sigma = softness * view.scale;
        const double shrink = std::max(1.0, sigma / kSigmaPixels);
        View part = view;
        part.size = cv::Size(cvCeil(box.width / shrink), cvCeil(box.height / shrink));
        part.scale /= shrink;
        part.origin = view.toScene(box.tl());
        cv::Mat mask = cv::Mat::zeros(part.size, CV_8U);
        Canvas drawing(mask, part);
        shape(drawing);
        if (softness > 0)
            cv::GaussianBlur(mask, mask, {}, std::max(0.5, sigma / shrink));
        if (shrink > 1)
            cv::resize(mask, mask, box.size(), 0, 0, cv::INTER_LINEAR);
        blend(mCanvas.picture()(box), mask, colour, opacity);
    }

    void ellipse(cv::Point2d centre, cv::Size2d axes, const Colour& colour, double opacity, double softness,
                 double degrees = 0, double from = 0, double to = 360) {
        const double reach = std::max(axes.width, axes.height);
        soft({centre.x - reach, centre.y - reach, 2 * reach, 2 * reach}, colour, opacity, softness,
             [&](Canvas& c) { c.ellipse(centre, axes, kWhite, degrees, from, to); });
    }
    void curve(const std::vector<cv::Point2d>& points, double width, const Colour& colour, double opacity,
               double softness) {
        soft(bounds(points, width), colour, opacity, softness, [&](Canvas& c) { c.curve(points, width, kWhite); });
    }
    void polygon(const std::vector<cv::Point2d>& points, const Colour& colour, double opacity, double softness) {
        soft(bounds(points, 0), colour, opacity, softness, [&](Canvas& c) { c.polygon(points, kWhite); });
    }

private:
    static constexpr double kSigmaPixels = 3;
    static inline const Colour kWhite{255, 255, 255};

    static cv::Rect2d bounds(const std::vector<cv::Point2d>& points, double more) {
        cv::Point2d least = points.front();
        cv::Point2d most = points.front();
        for (const cv::Point2d p : points) {
            least = {std::min(least.x, p.x), std::min(least.y, p.y)};
            most = {std::max(most.x, p.x), std::max(most.y, p.y)};
        }
        return {least - cv::Point2d(more, more), most + cv::Point2d(more, more)};
    }
    static void blend(cv::Mat picture, const cv::Mat& mask, const Colour& colour, double opacity) {
        const auto strength = static_cast<int>(opacity * 256);
        const int bgr[] = {cvRound(colour[0]), cvRound(colour[1]), cvRound(colour[2])};
        for (int y = 0; y < mask.rows; ++y) {
            auto* pixel = picture.ptr<cv::Vec3b>(y);
            const uint8_t* cover = mask.ptr(y);
            for (int x = 0; x < mask.cols; ++x) {
                const int part = cover[x] * strength;
                if (part == 0)
                    continue;
                for (int c = 0; c < 3; ++c)
                    pixel[x][c] = cv::saturate_cast<uint8_t>(pixel[x][c] + (bgr[c] - pixel[x][c]) * part / 65280);
            }
        }
    }

    Canvas& mCanvas;
};

cv::Point2d at(double x, double y) {
    return kFace + cv::Point2d(x, y);
}

/// A smooth curve through three points.
std::vector<cv::Point2d> bow(cv::Point2d a, cv::Point2d b, cv::Point2d c) {
    std::vector<cv::Point2d> points;
    for (int i = 0; i <= 24; ++i) {
        const double t = i / 24.0;
        const cv::Point2d control = 2 * b - 0.5 * (a + c);
        points.push_back((1 - t) * (1 - t) * a + 2 * t * (1 - t) * control + t * t * c);
    }
    return points;
}

void drawBody(Canvas& canvas, Brush& brush) {
    const Colour wool = rgb(0x33658A);
    for (const double side : {-1.0, 1.0})  // hair that falls behind the shoulders
        canvas.limb(at(side * 74, 0), at(side * 92, 176), 42, 34, kHair * 0.85);
    canvas.limb(at(-118, 232), at(-150, 330), 62, 70, wool);
    canvas.limb(at(118, 232), at(150, 330), 62, 70, wool);
    canvas.polygon({at(-70, 166), at(70, 166), at(150, 190), at(190, 330), at(-190, 330), at(-150, 190)}, wool);
    for (int row = 0; row < 9; ++row)
        brush.curve(bow(at(-180, 196 + 14 * row), at(0, 206 + 14 * row), at(180, 196 + 14 * row)), 3, wool * 0.8, 0.6,
                    1.2);
    brush.ellipse(at(90, 260), {90, 120}, wool * 0.45, 0.6, 24);
    canvas.polygon({at(-38, 80), at(38, 80), at(44, 168), at(0, 196), at(-44, 168)}, kSkin);
    brush.ellipse(at(4, 118), {50, 26}, kSkinShade * 0.8, 0.75, 9);
    brush.curve(bow(at(-66, 168), at(0, 206), at(66, 168)), 12, wool * 1.25, 1, 1);
}

/// Forehead and temples are an ellipse; the cheeks narrow towards the chin.
std::vector<cv::Point2d> faceOutline() {
    std::vector<cv::Point2d> outline;
    for (int i = 0; i < 72; ++i) {
        const double turn = i * CV_PI / 36;
        const double down = std::max(0.0, std::sin(turn));
        outline.push_back(at(kHalfWidth * std::cos(turn) * (1 - 0.14 * down * down),
                             -10 + std::sin(turn) * (turn < CV_PI ? 128 : 108)));
    }
    return outline;
}

void drawHead(Canvas& canvas, Brush& brush) {
    canvas.ellipse(at(0, -26), {kHalfWidth + 26, kHalfHeight + 4}, kHair);
    canvas.limb(at(-92, -10), at(-98, 120), 22, 26, kHair);
    canvas.limb(at(92, -10), at(98, 120), 22, 26, kHair);
    for (int i = -10; i <= 10; ++i)
        brush.curve(bow(at(i * 6, -144 + 0.45 * i * i), at(i * 10.4, -76), at(i * 10.8, 70)), 1.6,
                    mix(kHair, rgb(0x9A6A42), 0.5), 0.6, 0.8);
    for (const double side : {-1.0, 1.0})
        canvas.ellipse(at(side * (kHalfWidth - 1), 6), {11, 24}, kSkin * 0.9);
    canvas.polygon(faceOutline(), kSkin);
    // Light from the upper left; the sides turn away from it.
    brush.ellipse(at(-14, -66), {56, 30}, kSkinLight, 0.75, 14);
    brush.curve(bow(at(84, -60), at(90, -10), at(84, 40)), 16, kSkinShade, 0.55, 10);
    brush.curve(bow(at(-86, -50), at(-90, -10), at(-84, 40)), 8, kSkinShade, 0.4, 7);
    for (const double side : {-1.0, 1.0})
        brush.ellipse(at(side * 46, 18), {24, 13}, kSkinLight, 0.6, 9);
    brush.ellipse(at(0, 96), {20, 12}, kSkinLight, 0.6, 7);
    // Hair over the forehead.
    canvas.polygon({at(-90, -16), at(-84, -66), at(-48, -116), at(20, -126), at(72, -96), at(90, -16), at(74, -62),
                    at(36, -92), at(-6, -98), at(-52, -84), at(-78, -52)},
                   kHair);
    brush.curve(bow(at(-60, -78), at(-4, -92), at(60, -76)), 8, kSkinShade, 0.45, 5);
}

void drawEye(Canvas& canvas, Brush& brush, double side, double smile) {
    const cv::Point2d eye = at(side * 38, -18);
    const double open = 8.6 - 2.4 * smile;
    brush.ellipse(eye + cv::Point2d(0, -4), {30, 17}, kSkinShade, 0.8, 7);
    brush.ellipse(eye + cv::Point2d(-side * 20, 0), {10, 14}, kSkinShade, 0.45, 5);
    brush.ellipse(eye, {19, open}, rgb(0xF4F1EC), 1, 0.8);
    canvas.circle(eye + cv::Point2d(0, -0.5), std::min(8.4, open + 0.6), rgb(0x4A3423));
    canvas.circle(eye + cv::Point2d(0, -0.5), 4.2, rgb(0x100B09));
    canvas.circle(eye + cv::Point2d(-3, -3.4), 1.8, rgb(0xFFFFFF));
    brush.curve(bow(eye + cv::Point2d(-21, 1), eye + cv::Point2d(0, -open - 1.5), eye + cv::Point2d(21, 1)), 4.2,
                rgb(0x2A1A14), 1, 0.6);
    brush.curve(bow(eye + cv::Point2d(-18, 3), eye + cv::Point2d(0, open + 0.8), eye + cv::Point2d(18, 3)), 2,
                kSkinShade * 0.7, 0.9, 0.7);
    brush.curve(bow(eye + cv::Point2d(-18, 13 - 2 * smile), eye + cv::Point2d(0, 18 - 2 * smile),
                    eye + cv::Point2d(18, 13 - 2 * smile)),
                2.4, kSkinShade, 0.3 + 0.4 * smile, 1.8);
    brush.curve(
        bow(eye + cv::Point2d(-side * 22, -21), eye + cv::Point2d(side * 2, -31), eye + cv::Point2d(side * 27, -20)),
        7.5, kHair * 0.85, 0.95, 1.4);
}

void drawNose(Brush& brush) {
    brush.curve({at(-2, -36), at(-2, 26)}, 13, kSkinLight, 0.8, 5);
    brush.curve(bow(at(9, -26), at(12, 8), at(19, 28)), 8, kSkinShade, 0.55, 4);
    brush.curve(bow(at(-10, -24), at(-11, 8), at(-18, 26)), 5, kSkinShade, 0.35, 3);
    brush.ellipse(at(-2, 25), {12, 9}, kSkinLight, 0.75, 4);
    brush.curve(bow(at(-20, 32), at(0, 42), at(21, 32)), 6, kSkinShade * 0.85, 0.75, 2.5);
    for (const double side : {-1.0, 1.0})
        brush.ellipse(at(side * 10, 35), {6, 3.2}, rgb(0x4A2A20), 0.9, 1, side * -14);
}

/// The mouth opens from a closed line to a smile that shows the upper teeth.
void drawMouth(Brush& brush, double smile) {
    const double half = 24 + 22 * smile;
    const double corner = 70 - 13 * smile;
    const double upper = 67 - 1 * smile;
    const double lower = 68 + 15 * smile;
    const cv::Point2d left = at(-half, corner);
    const cv::Point2d right = at(half, corner);
    for (const double side : {-1.0, 1.0}) {
        brush.ellipse(at(side * (half + 5), corner + 1), {6 + 3 * smile, 7}, kSkinShade, 0.7 * smile, 3);
        brush.curve(
            bow(at(side * 22, 30), at(side * (37 + 12 * smile), 44), at(side * (40 + 22 * smile), 64 - 4 * smile)), 4,
            kSkinShade, 0.65 * smile, 2.6);
        brush.ellipse(at(side * (50 + 4 * smile), 22 - 4 * smile), {18, 11}, mix(kSkinLight, rgb(0xF0A08A), 0.5),
                      0.5 * smile, 6);
    }
    // Lips: the upper one in the shade, the lower one in the light.
    std::vector<cv::Point2d> outline = bow(left, at(0, upper - 8 + smile), right);
    const std::vector<cv::Point2d> low = bow(right, at(0, lower + 11 - 2 * smile), left);
    outline.insert(outline.end(), low.begin(), low.end());
    brush.polygon(outline, mix(kLip, kSkin, 0.74 * (1 - smile)), 0.95, 1.4);
    std::vector<cv::Point2d> opening = bow(left, at(0, upper), right);
    const std::vector<cv::Point2d> floor = bow(right, at(0, lower), left);
    opening.insert(opening.end(), floor.begin(), floor.end());
    if (smile > 0.05) {
        brush.polygon(opening, rgb(0x4A1A18), 1, 0.6);
        std::vector<cv::Point2d> teeth =
            bow(at(-half * 0.86, corner + 0.5), at(0, upper + 1), at(half * 0.86, corner + 0.5));
        const std::vector<cv::Point2d> edge =
            bow(at(half * 0.86, corner + 1), at(0, upper + (lower - upper) * 0.8), at(-half * 0.86, corner + 1));
        teeth.insert(teeth.end(), edge.begin(), edge.end());
        brush.polygon(teeth, rgb(0xFBF8F2), 1, 0.7);
        for (int i = -4; i <= 4; ++i) {
            const double x = i * half * 0.17;
            const double deep = (lower - upper) * 0.72 * (1 - 0.03 * i * i);
            brush.curve({at(x, upper + 2), at(x, upper + deep)}, 1, rgb(0xB9AFA4), 0.5 * smile, 0.5);
        }
    }
    if (smile < 0.95)
        brush.curve(bow(left, at(0, upper + 1.5), right), 2.6, rgb(0x9A5A50), 0.42 * (1 - smile), 1.1);
    brush.curve(bow(at(-half * 0.5, lower + 12), at(0, lower + 16), at(half * 0.5, lower + 12)), 5, kSkinShade,
                0.4 * smile, 3);
    brush.ellipse(at(-half * 0.25, lower + 4.5), {2, 1.2}, kSkinLight, 0.7 * smile, 0.6);
}

}  // namespace

SceneInfo Portrait::info() {
    return {"portrait", "a person who looks at the camera and, after three seconds, begins to smile",
            "neutral=3, shake=1.5"};
}

Portrait::Portrait(SourceOptions& options)
    : SteadyScene(options.number("shake", 1.5, 0, kSceneMargin)), mNeutral(options.number("neutral", 3, 0, 600)) {}

double Portrait::smile(double seconds) const {
    return ease(seconds, mNeutral, mNeutral + kChange);
}

cv::Rect Portrait::faceBox(double seconds, cv::Size size) const {
    const View view = viewAt(seconds, size);
    return {cv::Point(view.toPixels(at(-kHalfWidth, -96))), cv::Point(view.toPixels(at(kHalfWidth, 118)))};
}

cv::Mat Portrait::frame(double seconds, cv::Size size) {
    return cut(seconds, size, 1 + static_cast<int>(std::lround(kSteps * smile(seconds))));
}

cv::Mat Portrait::draw(const View& view, int state) {
    // State 0 is the part that does not change, 1 to 1 + kSteps are states of the face over it.
    if (state == 0) {
        // The street is out of focus: little of it is needed.
        View small = view;
        small.scale = kFarScale;
        small.size = cv::Size(cvCeil(view.width() * kFarScale), cvCeil(view.height() * kFarScale));
        cv::Mat far = drawStreet(small);
        cv::GaussianBlur(far, far, {}, kFarBlur * kFarScale);
        cv::resize(far, far, view.size, 0, 0, cv::INTER_CUBIC);
        Canvas canvas(far, view);
        Brush brush(canvas);
        drawBody(canvas, brush);
        drawHead(canvas, brush);
        return far;
    }
    const int margin = (view.size.height - cvRound(view.scale * kViewHeight)) / 2;
    Canvas canvas(backdrop(view.size - cv::Size(2 * margin, 2 * margin), 0).clone(), view);
    Brush brush(canvas);
    const double smile = static_cast<double>(state - 1) / kSteps;
    for (const double side : {-1.0, 1.0})
        drawEye(canvas, brush, side, smile);
    drawNose(brush);
    drawMouth(brush, smile);
    return canvas.picture();
}

}  // namespace kov::camera
