// The outdoor scenery that several scenes share: sky, mountains, woods, houses, meadow.

#include "host/camera/scenes/Outdoors.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace kov::camera {

namespace {

constexpr int kHouseWalls[] = {0xF2E6CE, 0xE9C9A0, 0xD98C6A, 0xF5F1E6, 0xC9D4C5, 0xE3B7A0, 0xBFCBD8};
constexpr int kRoofs[] = {0xA5452F, 0x8C3B2B, 0x6E4A3A, 0xB5623F, 0x5C5F66};
constexpr int kDoors[] = {0x2F5D50, 0x7A2E2E, 0x2E4A7A, 0x5B3A21};
constexpr int kFlowers[] = {0xF4D03F, 0xE74C3C, 0xFDFEFE, 0xAF7AC5, 0xF39C12};

template <size_t Count>
Colour pick(const int (&colours)[Count], uint32_t seed) {
    return rgb(colours[seed % Count]);
}

/// A chain of hills: the ground below a line that `height` gives, as a polygon over the view's width.
template <typename Height>
std::vector<cv::Point2d> ground(const View& view, double step, Height height) {
    const double left = std::floor(view.origin.x / step) * step - step;
    const double right = view.origin.x + view.width() + step;
    std::vector<cv::Point2d> points;
    const int count = cvCeil((right - left) / step);
    for (int i = 0; i < count; ++i)
        points.emplace_back(left + i * step, height(left + i * step));
    points.emplace_back(right, 600);
    points.emplace_back(left, 600);
    return points;
}

/// Sharp crests where the noise passes through its middle.
double crest(double x, double cell, uint32_t seed) {
    return 1 - std::abs(2 * noise1(x, cell, 3, seed) - 1);
}
double farRidge(double x) {
    return 238 - 130 * std::pow(crest(x, 380, 11), 2.2) - 34 * crest(x, 90, 13) - 14 * noise1(x, 22, 3, 12);
}
double nearRidge(double x) {
    return 262 - 110 * noise1(x, 300, 6, 21);
}
double woodLine(double x) {
    return 292 - 46 * noise1(x, 240, 4, 31);
}
double meadowLine(double x) {
    return 318 - 26 * noise1(x, 330, 3, 41);
}

/// Rock with snow above an uneven line, lit from the left.
void drawFarRange(Canvas& canvas) {
    const View& view = canvas.view();
    const auto outline = ground(view, 3, farRidge);
    canvas.textured(outline, rgb(0x5F7391), rgb(0xA9B9CC), noise(view, 60, 6, 51));
    const cv::Mat snowNoise = noise(view, 46, 5, 52);
    cv::Mat snow(view.size, CV_32F);
    for (int y = 0; y < snow.rows; ++y) {
        const double height = view.toScene({0, static_cast<double>(y)}).y;
        for (int x = 0; x < snow.cols; ++x)
            snow.at<float>(y, x) =
                static_cast<float>((150 - height) / 22 + (snowNoise.at<float>(y, x) - 0.5) * 6.5 + 0.6);
    }
    cv::Mat base = canvas.picture().clone();
    canvas.textured(outline, rgb(0x8B9DB8), rgb(0xFAFCFF), noise(view, 22, 4, 53));
    for (int y = 0; y < snow.rows; ++y)
        for (int x = 0; x < snow.cols; ++x) {
            auto& pixel = canvas.picture().at<cv::Vec3b>(y, x);
            const double part = std::clamp(snow.at<float>(y, x), 0.0F, 1.0F);
            pixel = base.at<cv::Vec3b>(y, x) * (1 - part) + pixel * part;
        }
    canvas.shaded(outline, noise(view, 34, 5, 54, 0.6), 0.34);
}

void drawNearRange(Canvas& canvas) {
    const auto outline = ground(canvas.view(), 3, nearRidge);
    canvas.textured(outline, rgb(0x48654F), rgb(0x8FA67C), noise(canvas.view(), 70, 6, 61));
    canvas.shaded(outline, noise(canvas.view(), 16, 4, 62), 0.42);
}

/// Trees stand in columns of `step` units; each column decides by its own number.
template <typename Line>
void drawWood(Canvas& canvas, Line line, double step, double depth, double size, uint32_t seed) {
    const View& view = canvas.view();
    const int first = static_cast<int>((view.origin.x - size) / step) - 1;
    const int last = static_cast<int>((view.origin.x + view.width() + size) / step) + 1;
    for (int row = 0; row < 4; ++row)
        for (int i = first; i <= last; ++i) {
            const double x = (i + random01(i, row, seed)) * step;
            if (noise1(x, 170, 2, seed + 5) + 0.25 * random01(i, row, seed + 1) < 0.52)
                continue;
            const cv::Point2d base(x, line(x) + depth * (row + random01(i, row, seed + 2)) / 4);
            const double height = size * (0.65 + 0.6 * random01(i, row, seed + 3)) * (0.8 + 0.12 * row);
            if (!canvas.sees(base, height))
                continue;
            if (random01(i, row, seed + 4) < 0.62)
                drawFir(canvas, base, height, hash(i, row, seed));
            else
                drawTree(canvas, base, height, hash(i, row, seed));
        }
}

void drawMeadow(Canvas& canvas) {
    const View& view = canvas.view();
    const auto outline = ground(view, 6, meadowLine);
    canvas.textured(outline, rgb(0x55863A), rgb(0xB7C968), noise(view, 110, 7, 71, 2.5));
    canvas.shaded(outline, noise(view, 9, 3, 72, 0.5), 0.3);
}

/// Fields, hedges and paths on the valley's floor give the ground large shapes.
void drawFields(Canvas& canvas) {
    const View& view = canvas.view();
    constexpr double kStep = 150;
    const cv::Mat grain = noise(view, 12, 3, 81, 3);
    const int first = static_cast<int>(view.origin.x / kStep) - 2;
    const int last = static_cast<int>((view.origin.x + view.width()) / kStep) + 2;
    constexpr int kFieldColours[] = {0xD9C46A, 0xA8B85A, 0x8FA84A, 0xC7A65B, 0x7C9A45};
    for (int i = first; i <= last; ++i) {
        if (random01(i, 0, 82) < 0.35)
            continue;
        const double x = (i + 0.3 * random01(i, 1, 82)) * kStep;
        const double top = meadowLine(x) + 14 + 14 * random01(i, 2, 82);
        const double deep = 22 + 30 * random01(i, 3, 82);
        const double wide = 90 + 110 * random01(i, 4, 82);
        const double lean = 60 * (random01(i, 5, 82) - 0.5);
        const Colour colour = pick(kFieldColours, hash(i, 6, 82));
        canvas.textured({{x, top}, {x + wide, top - 3}, {x + wide + lean + 30, top + deep}, {x + lean, top + deep + 4}},
                        colour * 0.88, colour * 1.06, grain);
        for (int row = 1; row < 7; ++row)
            canvas.line({x + lean * row / 7, top + (deep + 4) * row / 7},
                        {x + wide + (lean + 30) * row / 7, top - 3 + (deep + 3) * row / 7}, 1.0, colour * 0.8);
    }
}

void drawVillage(Canvas& canvas) {
    constexpr double kStep = 64;
    const View& view = canvas.view();
    const int first = static_cast<int>(view.origin.x / kStep) - 2;
    const int last = static_cast<int>((view.origin.x + view.width()) / kStep) + 2;
    for (int row = 0; row < 2; ++row)
        for (int i = first; i <= last; ++i) {
            if (random01(i, row, 91) < 0.45)
                continue;
            const double x = (i + 0.6 * random01(i, row, 92)) * kStep;
            const cv::Point2d base(x, meadowLine(x) + 34 + 52 * row + 12 * random01(i, row, 93));
            if (canvas.sees(base, 100))
                drawHouse(canvas, base, 40 + 14 * row + 16 * random01(i, row, 94), hash(i, row, 95));
        }
}

void drawForeground(Canvas& canvas) {
    const View& view = canvas.view();
    constexpr double kStep = 5;
    const int first = static_cast<int>(view.origin.x / kStep) - 2;
    const int last = static_cast<int>((view.origin.x + view.width()) / kStep) + 2;
    for (int row = 0; row < 16; ++row)
        for (int i = first; i <= last; ++i) {
            const double near = (row + random01(i, row, 101)) / 16;
            const cv::Point2d base((i + random01(i, row, 102)) * kStep, 424 + 78 * near);
            if (random01(i, row, 103) < 0.045) {
                canvas.circle(base, 1.2 + 2.2 * near, pick(kFlowers, hash(i, row, 104)));
                continue;
            }
            const double tall = (5 + 13 * near) * (0.6 + 0.7 * random01(i, row, 105));
            const Colour green = mix(rgb(0x3E6B2A), rgb(0xA5BF5B), random01(i, row, 106));
            canvas.line(base, base + cv::Point2d(tall * (random01(i, row, 107) - 0.5), -tall), 0.9 + near, green);
        }
}

/// Posts differ in height and gap; two rails run along.
void drawFence(Canvas& canvas) {
    const View& view = canvas.view();
    constexpr double kStep = 46;
    const Colour wood = rgb(0x7B6148);
    const auto foot = [](double x) { return 432 - 14 * noise1(x, 260, 2, 111); };
    const int first = static_cast<int>(view.origin.x / kStep) - 2;
    const int last = static_cast<int>((view.origin.x + view.width()) / kStep) + 2;
    const auto post = [&](int i) { return (i + 0.35 * random01(i, 0, 112)) * kStep; };
    for (int i = first; i <= last; ++i) {
        const double x = post(i);
        const double next = post(i + 1);
        for (const double rail : {12.0, 24.0})
            canvas.line({x, foot(x) - rail}, {next, foot(next) - rail - 3 + 6 * random01(i, 1, 112)}, 3, wood * 1.15);
    }
    for (int i = first; i <= last; ++i) {
        const double x = post(i);
        const double tall = 30 + 8 * random01(i, 2, 112);
        canvas.line({x, foot(x) + 4}, {x + 3 * (random01(i, 3, 112) - 0.5), foot(x) - tall}, 5, wood * 0.8);
        canvas.line({x - 1, foot(x) + 4}, {x - 1, foot(x) - tall}, 2, wood * 1.3);
    }
}

void drawWindow(Canvas& canvas, cv::Rect2d box, uint32_t seed) {
    canvas.rectangle({box.x - 1.2, box.y - 1.2, box.width + 2.4, box.height + 2.8}, rgb(0xF7F4EC));
    canvas.rectangle(box, rgb(0x37485A));
    canvas.polygon({box.tl(), {box.x + box.width * 0.7, box.y}, {box.x, box.y + box.height * 0.8}},
                   mix(rgb(0x37485A), rgb(0xA9C7E0), 0.5 + 0.4 * random01(1, 0, seed)));
    canvas.line({box.x + box.width / 2, box.y}, {box.x + box.width / 2, box.y + box.height}, 0.9, rgb(0xF7F4EC));
    canvas.line({box.x, box.y + box.height / 2}, {box.x + box.width, box.y + box.height / 2}, 0.9, rgb(0xF7F4EC));
    if (seed & 1) {
        const Colour shutter = pick(kDoors, seed >> 3);
        canvas.rectangle({box.x - box.width * 0.5 - 1, box.y, box.width * 0.45, box.height}, shutter);
        canvas.rectangle({box.x + box.width * 1.05 + 1, box.y, box.width * 0.45, box.height}, shutter);
    }
}

}  // namespace

void drawSky(Canvas& canvas, double horizon) {
    const View& view = canvas.view();
    const cv::Mat shape = noise(view, 190, 7, 1, 2.2);
    const cv::Mat light = noise(view, 60, 5, 2, 2.0);
    for (int y = 0; y < view.size.height; ++y) {
        const double height = view.toScene({0, static_cast<double>(y)}).y / horizon;
        const Colour blue = mix(rgb(0x2F74C0), rgb(0xC4DFF0), height * 0.9 + 0.05);
        auto* pixel = canvas.picture().ptr<cv::Vec3b>(y);
        for (int x = 0; x < view.size.width; ++x) {
            const double cloud = std::clamp((shape.at<float>(y, x) - 0.5) * 5.5, 0.0, 1.0);
            const Colour white = mix(rgb(0xB9C5D3), rgb(0xFFFFFF), 0.35 + light.at<float>(y, x));
            pixel[x] = mix(blue, white, cloud * (0.95 - 0.3 * height));
        }
    }
}

void drawTree(Canvas& canvas, cv::Point2d base, double height, uint32_t seed) {
    const Colour leaf = mix(rgb(0x2F5A26), rgb(0x8FA03A), random01(0, 1, seed));
    canvas.limb(base, base - cv::Point2d(0, height * 0.5), height * 0.045, height * 0.03, rgb(0x5A4632));
    constexpr int kBlobs = 34;
    for (int i = 0; i < kBlobs; ++i) {
        const double turn = 6.283 * random01(i, 2, seed);
        const double out = std::sqrt(random01(i, 3, seed));
        const cv::Point2d at(base.x + std::cos(turn) * out * height * 0.3,
                             base.y - height * 0.64 + std::sin(turn) * out * height * 0.32);
        const double lit = 0.5 - (at.x - base.x) / height - (at.y - base.y + height * 0.64) / height;
        const Colour colour = leaf * (0.62 + 0.75 * std::clamp(lit, 0.0, 1.0) * (0.75 + 0.5 * random01(i, 4, seed)));
        canvas.circle(at, height * (0.07 + 0.06 * random01(i, 5, seed)), colour);
    }
}

void drawFir(Canvas& canvas, cv::Point2d base, double height, uint32_t seed) {
    const Colour needle = mix(rgb(0x1F4A33), rgb(0x4F7A45), random01(0, 1, seed));
    canvas.limb(base, base - cv::Point2d(0, height * 0.2), height * 0.03, height * 0.025, rgb(0x4A3728));
    constexpr int kTiers = 6;
    for (int i = 0; i < kTiers; ++i) {
        const double low = base.y - height * (0.1 + 0.14 * i);
        const double wide = height * (0.25 - 0.036 * i) * (0.85 + 0.3 * random01(i, 2, seed));
        const double lean = height * 0.03 * (random01(i, 3, seed) - 0.5);
        const cv::Point2d tip(base.x + lean, low - height * 0.27);
        canvas.polygon({tip, {base.x + wide, low}, {base.x, low - height * 0.035}, {base.x - wide, low}},
                       needle * 0.78);
        canvas.polygon({tip, {base.x - wide * 0.1, low - height * 0.05}, {base.x - wide, low}}, needle * 1.28);
    }
}

void drawHouse(Canvas& canvas, cv::Point2d base, double width, uint32_t seed) {
    const double tall = width * (0.62 + 0.35 * random01(0, 1, seed));
    const Colour wall = pick(kHouseWalls, seed >> 4);
    const Colour roof = pick(kRoofs, seed >> 7);
    const double left = base.x - width / 2;
    const double side = width * 0.36;  // the gable end, seen from the side and in the shade
    const double eaves = base.y - tall;
    const double ridge = eaves - width * 0.38;
    canvas.rectangle({left, eaves, width, tall}, wall);
    canvas.polygon({{left + width, base.y},
                    {left + width + side, base.y - 3},
                    {left + width + side, eaves - 2},
                    {left + width + side / 2, ridge},
                    {left + width, eaves}},
                   wall * 0.72);
    canvas.polygon({{left - 4, eaves + 2},
                    {left + width + 2, eaves + 2},
                    {left + width + side / 2, ridge},
                    {left + side / 2, ridge}},
                   roof);
    for (int i = 1; i < 6; ++i) {
        const double y = ridge + (eaves - ridge) * i / 6;
        canvas.line({left + side / 2 * (6 - i) / 6, y}, {left + width + side / 2 * (6 - i) / 6, y}, 0.8, roof * 0.82);
    }
    canvas.line({left + width + 2, eaves + 2}, {left + width + side / 2, ridge}, 1.6, roof * 0.7);
    canvas.rectangle({left + width * 0.68, ridge - width * 0.12, width * 0.09, width * 0.2}, rgb(0x8A5A4A));
    const int columns = 2 + static_cast<int>(seed % 2);
    const double pane = width / (columns * 2.6);
    const int rows = tall > width * 0.8 ? 2 : 1;
    for (int row = 0; row < rows; ++row)
        for (int i = 0; i < columns; ++i)
            drawWindow(
                canvas,
                {left + width * (i + 0.5) / columns - pane / 2, eaves + tall * (0.14 + 0.44 * row), pane, pane * 1.3},
                hash(i, row, seed));
    canvas.rectangle({left + width * 0.44, base.y - tall * 0.34, width * 0.14, tall * 0.34}, pick(kDoors, seed >> 9));
}

cv::Mat drawValley(const View& view) {
    Canvas canvas(cv::Mat(view.size, CV_8UC3), view);
    drawSky(canvas, 240);
    drawFarRange(canvas);
    drawNearRange(canvas);
    drawWood(canvas, woodLine, 11, 34, 30, 131);
    drawMeadow(canvas);
    drawFields(canvas);
    drawVillage(canvas);
    drawWood(
        canvas, [](double x) { return meadowLine(x) + 70; }, 60, 34, 62, 151);
    drawFence(canvas);
    drawForeground(canvas);
    return canvas.picture();
}

cv::Mat drawStreet(const View& view) {
    Canvas canvas(cv::Mat(view.size, CV_8UC3), view);
    drawSky(canvas, 260);
    drawNearRange(canvas);
    drawWood(
        canvas, [](double x) { return woodLine(x) - 6; }, 12, 30, 40, 171);
    // A row of houses behind a hedge.
    constexpr double kFronts[] = {-452, -300, -128, 62, 236, 402};
    for (int i = 0; i < 6; ++i)
        drawHouse(canvas, {kFronts[i], 352 + 5 * random01(i, 0, 181)}, 104 + 26 * random01(i, 1, 181), hash(i, 2, 181));
    for (const double x : {-384.0, -214.0, -20.0, 158.0, 330.0, 470.0})
        drawTree(canvas, {x, 366}, 128 + 40 * random01(static_cast<int>(x), 0, 182), hash(static_cast<int>(x), 1, 182));
    for (int i = -62; i < 62; ++i) {
        const cv::Point2d leaf(i * 8 + 6 * random01(i, 0, 183), 366 + 9 * random01(i, 1, 183));
        canvas.circle(leaf, 9 + 4 * random01(i, 2, 183), mix(rgb(0x2F5A2A), rgb(0x5F8A3A), random01(i, 3, 183)));
    }
    // The pavement, slab by slab, and the kerb and road in front.
    const cv::Mat grain = noise(view, 7, 3, 184);
    const cv::Mat stains = noise(view, 90, 4, 185, 2);
    const auto strip = [](double top, double bottom) {
        return std::vector<cv::Point2d>{{-600, top}, {600, top}, {600, bottom}, {-600, bottom}};
    };
    canvas.textured(strip(378, 456), rgb(0xA8A297), rgb(0xCBC6BA), grain);
    for (int row = 0; row < 4; ++row) {
        const double y = 378 + 19.5 * row;
        canvas.line({-600, y}, {600, y}, 1.2, rgb(0x88827A));
        for (int i = -14; i < 15; ++i) {
            const double x = i * 44 + 22 * (row % 2);
            canvas.line({x * (0.86 + 0.05 * row), y}, {x * (0.91 + 0.05 * row), y + 19.5}, 1.2, rgb(0x8C867D));
        }
    }
    canvas.textured(strip(456, 463), rgb(0xB9B5AC), rgb(0xE2DFD8), grain);
    canvas.textured(strip(463, 520), rgb(0x55565A), rgb(0x74757A), grain);
    canvas.shaded(strip(378, 520), stains, 0.2);
    // A lamp and a bench.
    canvas.limb({-262, 384}, {-262, 196}, 3.4, 2.2, rgb(0x2E3B38));
    canvas.polygon({{-272, 196}, {-252, 196}, {-256, 172}, {-268, 172}}, rgb(0xF7EBC2));
    canvas.polygon({{-274, 174}, {-250, 174}, {-262, 162}}, rgb(0x2E3B38));
    for (int i = 0; i < 5; ++i)
        canvas.rectangle({190, 338 + 9.0 * i, 96, 6}, mix(rgb(0x8A5A32), rgb(0xB57B45), random01(i, 0, 186)));
    for (const double x : {196.0, 276.0})
        canvas.rectangle({x, 340, 5, 48}, rgb(0x33383A));
    return canvas.picture();
}

}  // namespace kov::camera
