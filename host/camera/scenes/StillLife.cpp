// The scene of a cup and fruit on a table.

#include "host/camera/scenes/StillLife.h"

#include <algorithm>
#include <cmath>

#include "host/camera/scenes/Outdoors.h"

namespace kov::camera {

namespace {

constexpr double kTableEdge = 300;
const cv::Vec3d kToLight = cv::normalize(cv::Vec3d(-0.55, -0.65, 0.6));

/// Fills a round body: `normal` gives the surface's direction at (x, y) in -1..1, or false outside of the body.
template <typename Normal, typename Paint>
void drawBody(Canvas& canvas, cv::Rect2d box, Normal normal, Paint paint, double gloss) {
    const View& view = canvas.view();
    const cv::Point2d first = view.toPixels(box.tl());
    const cv::Point2d last = view.toPixels(box.br());
    for (int y = std::max(0, cvFloor(first.y)); y < std::min(view.size.height, cvCeil(last.y)); ++y)
        for (int x = std::max(0, cvFloor(first.x)); x < std::min(view.size.width, cvCeil(last.x)); ++x) {
            const cv::Point2d p = view.toScene({x + 0.5, y + 0.5});
            const double u = 2 * (p.x - box.x) / box.width - 1;
            const double v = 2 * (p.y - box.y) / box.height - 1;
            cv::Vec3d n;
            if (!normal(u, v, &n))
                continue;
            const double light = std::max(0.0, n.dot(kToLight));
            const cv::Vec3d mirrored = 2 * n.dot(kToLight) * n - kToLight;
            const double shine = gloss * std::pow(std::max(0.0, mirrored[2]), 26);
            const Colour colour = mix(paint(u, v) * (0.34 + 0.78 * light), {255, 255, 255}, shine);
            // The outline fades over a pixel or so.
            const double edge = std::clamp(n[2] * box.width * view.scale / 6, 0.0, 1.0);
            auto& pixel = canvas.picture().at<cv::Vec3b>(y, x);
            pixel = mix(cv::Vec3d(pixel),
                        {std::min(255.0, colour[0]), std::min(255.0, colour[1]), std::min(255.0, colour[2])}, edge);
        }
}

void drawShadow(Canvas& canvas, cv::Point2d at, cv::Size2d axes) {
    for (int i = 5; i > 0; --i) {
        std::vector<cv::Point2d> rim;
        for (int k = 0; k < 40; ++k)
            rim.push_back(at + cv::Point2d(std::cos(k * 0.15708) * axes.width, std::sin(k * 0.15708) * axes.height) *
                                   (0.72 + 0.08 * i));
        canvas.shaded(rim, cv::Mat(canvas.picture().size(), CV_32F, cv::Scalar(0.0)), 0.13);
    }
}

void drawFruit(Canvas& canvas, cv::Point2d centre, cv::Size2d axes, const Colour& low, const Colour& high,
               uint32_t seed) {
    drawShadow(canvas, centre + cv::Point2d(axes.width * 0.3, axes.height * 0.86),
               {axes.width * 1.05, axes.height * 0.26});
    const auto round = [](double u, double v, cv::Vec3d* n) {
        const double rest = 1 - u * u - v * v;
        *n = {u, v, rest > 0 ? std::sqrt(rest) : 0};
        return rest > 0;
    };
    const auto paint = [&](double u, double v) {
        const double patch = noise1(u * 3 + 9, 1.1, 3, seed) + 0.4 * noise1(v * 5 + 3 + u, 0.4, 2, seed + 4);
        const bool dot = noise1(u * 40 + 61 * v, 0.9, 1, seed + 8) > 0.93;
        return mix(low, high, patch - 0.2 + 0.3 * v) * (dot ? 1.12 : 1.0);
    };
    drawBody(canvas, {centre.x - axes.width, centre.y - axes.height, 2 * axes.width, 2 * axes.height}, round, paint,
             0.75);
}

void drawStalk(Canvas& canvas, cv::Point2d from, cv::Point2d to) {
    canvas.ellipse(from, {9, 3.2}, rgb(0x5A4420));
    canvas.limb(from, to, 2.2, 2.8, rgb(0x5B4326));
}

void drawLeaf(Canvas& canvas, cv::Point2d from, cv::Point2d to) {
    const cv::Point2d along = to - from;
    const cv::Point2d across(-along.y * 0.28, along.x * 0.28);
    std::vector<cv::Point2d> rim;
    for (int i = 0; i <= 12; ++i)
        rim.push_back(from + along * (i / 12.0) + across * std::sin(i * 0.2618));
    canvas.polygon(rim, rgb(0x6FA03C));
    for (auto& p : rim)
        p -= 2 * (p - from - along * ((p - from).dot(along) / along.dot(along)));
    canvas.polygon(rim, rgb(0x4A7A2C));
    canvas.line(from, to, 1.2, rgb(0x9CC06A));
}

void drawCup(Canvas& canvas, cv::Rect2d box) {
    const Colour glaze = rgb(0xF3EEE2);
    drawShadow(canvas, {box.x + box.width * 0.68, box.y + box.height}, {box.width * 0.8, 20});
    // The handle first: the body covers its ends.
    const cv::Point2d grip(box.x + box.width + 2, box.y + box.height * 0.46);
    std::vector<cv::Point2d> ring;
    for (int i = 0; i <= 24; ++i)
        ring.push_back(grip + cv::Point2d(34 * std::sin(i * 0.1309), -40 * std::cos(i * 0.1309)));
    canvas.curve(ring, 15, rgb(0x2C6E8E));
    canvas.curve(ring, 7, rgb(0x4E9BBD));
    const auto side = [](double u, double v, cv::Vec3d* n) {
        const double narrow = 1 - 0.1 * (v + 1) / 2;  // it tapers to its foot
        const double at = u / narrow;
        const double bottom = 0.88 + 0.12 * std::sqrt(std::max(0.0, 1 - at * at));
        *n = {at, 0.05, std::sqrt(std::max(0.0, 1 - at * at))};
        return std::abs(at) < 1 && v < bottom && v > -0.99;
    };
    const auto paint = [&](double u, double v) -> Colour {
        const double y = v - 0.12 * std::sqrt(std::max(0.0, 1 - u * u));
        if (y > -0.62 && y < -0.5)
            return rgb(0xD9822B);
        if (y > 0.5 && y < 0.62)
            return rgb(0xD9822B);
        const double around = std::asin(std::clamp(u, -1.0, 1.0)) * 3.2;
        const double wave = 0.22 * std::sin(around * 2.2);
        if (std::abs(y - wave) < 0.11)
            return rgb(0xC23B3B);
        if (y > -0.5 && y < 0.5)
            return rgb(0x2C7DA0);
        return glaze;
    };
    drawBody(canvas, box, side, paint, 0.6);
    const cv::Point2d rim(box.x + box.width / 2, box.y + 3);
    canvas.ellipse(rim, {box.width / 2, 19}, glaze);
    canvas.ellipse(rim + cv::Point2d(0, 1.5), {box.width / 2 - 6, 15}, glaze * 0.62);
    canvas.ellipse(rim + cv::Point2d(0, 6), {box.width / 2 - 12, 10}, rgb(0x4B2A16));
    canvas.ellipse(rim + cv::Point2d(-18, 4), {22, 3.4}, rgb(0x7A4B2A), -6);
}

void drawRoom(Canvas& canvas) {
    const View& view = canvas.view();
    const auto strip = [](double top, double bottom) {
        return std::vector<cv::Point2d>{{-700, top}, {700, top}, {700, bottom}, {-700, bottom}};
    };
    canvas.textured(strip(-40, 420), rgb(0xD8CFA9), rgb(0xF2EBCF), noise(view, 180, 5, 301));
    for (int row = -1; row < 8; ++row)
        for (int i = -9; i < 10; ++i) {
            const cv::Point2d at(i * 56 + 28 * (row & 1), row * 44);
            for (int petal = 0; petal < 5; ++petal)
                canvas.circle(at + 6.5 * cv::Point2d(std::cos(petal * 1.2566), std::sin(petal * 1.2566)), 4,
                              rgb(0xC9B98A));
            canvas.circle(at, 3, rgb(0xB5654A));
        }
    canvas.shaded(strip(-40, 420), noise(view, 420, 2, 302), 0.28);
    canvas.textured(strip(kTableEdge, 540), rgb(0x7A4A28), rgb(0xC08A54), noise(view, 10, 4, 303, 14));
    canvas.shaded(strip(kTableEdge, 540), noise(view, 120, 3, 304, 2), 0.2);
    for (const double y : {kTableEdge, 346.0, 402.0, 470.0})
        canvas.line({-700, y}, {700, y}, 2, rgb(0x4A2C18));
    // A chequered cloth.
    const auto corner = [](double u, double v) {
        return cv::Point2d(-250 + 520 * u + (v - 0.5) * 90 * (u - 0.5), 338 + 96 * v);
    };
    for (int row = 0; row < 6; ++row)
        for (int i = 0; i < 16; ++i) {
            const auto at = [&](int a, int b) { return corner((i + a) / 16.0, (row + b) / 6.0); };
            constexpr int kCloth[] = {0xF7F3EA, 0xE08A83, 0xC8453F};
            canvas.polygon({at(0, 0), at(1, 0), at(1, 1), at(0, 1)}, rgb(kCloth[(i & 1) + (row & 1)]));
        }
    canvas.shaded({corner(0, 0), corner(1, 0), corner(1, 1), corner(0, 1)}, noise(view, 30, 4, 305, 2), 0.16);
}

}  // namespace

SceneInfo StillLife::info() {
    return {"still-life", "a painted cup and fruit on a table, full of colour", "shake=1"};
}

StillLife::StillLife(SourceOptions& options) : SteadyScene(options.number("shake", 1, 0, kSceneMargin)) {}

cv::Mat StillLife::draw(const View& view, int) {
    Canvas canvas(cv::Mat(view.size, CV_8UC3), view);
    drawRoom(canvas);
    drawCup(canvas, {-148, 166, 150, 196});
    drawFruit(canvas, {118, 300}, {66, 62}, rgb(0x9FB53A), rgb(0xD63A2E), 311);
    drawStalk(canvas, {116, 248}, {126, 226});
    drawLeaf(canvas, {122, 236}, {168, 222});
    drawFruit(canvas, {-196, 372}, {50, 47}, rgb(0xF08A1E), rgb(0xF7A93B), 321);
    drawStalk(canvas, {-198, 332}, {-197, 328});
    drawFruit(canvas, {206, 372}, {62, 44}, rgb(0xF2CF2F), rgb(0xFBE47A), 331);
    for (int i = 0; i < 11; ++i) {
        const int row = i < 5 ? 0 : i < 9 ? 1 : 2;
        const double x = row == 0 ? i * 30.0 : row == 1 ? (i - 5) * 30 + 15.0 : (i - 9) * 30 + 30.0;
        drawFruit(canvas, {-20 + x, 398 - 22.0 * (2 - row) + 12}, {18, 18}, rgb(0x3D2458), rgb(0x7A4A9A), 341 + i);
    }
    return canvas.picture();
}

}  // namespace kov::camera
