// The guide that is drawn over the preview during a sweep: where its lines and arrows are.

#include "shots/panorama/PanoramaGuide.h"

#include <atomic>
#include <cstdlib>

#include "imaging/Overlay.h"

namespace android {

namespace {

constexpr px_color kGreen = 0x00FF00;
constexpr px_color kRed = 0xFF0000;
constexpr px_color kColors[] = {kPanoramaNoColor, kGreen, kGreen, kRed};

constexpr px_direction kRight = 1, kLeft = 2, kUp = 4, kDown = 8;

// An offset is vertical above 1.5 times the horizontal one, and diagonal above 0.7 times.
constexpr double kVertical = 1.5;
constexpr double kDiagonal = 0.7;

constexpr int32_t kOpacities[] = {255, 230, 200, 120, 40, 120, 200, 230, 255};
constexpr int32_t kOpacitySteps = sizeof kOpacities / sizeof kOpacities[0];
constexpr OverlayColor kArrowColor = {178, 171, 0};

constexpr int32_t kMargin = 24;  // between an arrow and the frame's edges
constexpr int32_t kCorner = 35;  // legs of a corner arrow
constexpr int32_t kPoint = 25;   // height of an arrow at an edge
constexpr int32_t kBase = 50;    // its base

std::atomic<int32_t> gOpacityStep{0};

int32_t even(int32_t value) {
    return value % 2 == 1 ? value - 1 : value;
}

/// Blends one row of an arrow.
class Brush {
public:
    Brush(const px_image& image, int32_t opacity) : mImage(overlayImage(image)), mOpacity(opacity) {}

    void span(int32_t row, int32_t column, int32_t length) const {
        blendHorizontalSpan(mImage, row, column, length, kArrowColor, mOpacity);
    }
    int32_t width() const { return mImage.width; }
    int32_t height() const { return mImage.height; }

private:
    const OverlayImage mImage;
    const int32_t mOpacity;
};

void drawTopLeft(const Brush& brush) {
    for (int32_t n = kCorner; n >= 1; --n)
        brush.span(kMargin + kCorner - n, kMargin, n);
}

void drawTopRight(const Brush& brush) {
    const int32_t column = even(brush.width() - kMargin - kCorner - 1);
    for (int32_t i = 0; i < kCorner; ++i)
        brush.span(kMargin + i, column + i, kCorner - i);
}

void drawBottomLeft(const Brush& brush) {
    const int32_t row = even(brush.height() - kMargin - 1);
    for (int32_t i = 0; i < kCorner; ++i)
        brush.span(row - i, kMargin, kCorner - i);
}

void drawBottomRight(const Brush& brush) {
    const int32_t row = even(brush.height() - kMargin - 1);
    for (int32_t i = 0; i < kCorner; ++i)
        brush.span(row - i, brush.width() - kMargin - kCorner - 1 + i, kCorner - i);
}

void drawDown(const Brush& brush) {
    const int32_t row = even(brush.height() - 2 * kPoint);
    const int32_t column = even(brush.width() / 2 - kPoint);
    for (int32_t i = 0; i < kPoint; ++i)
        brush.span(row + i, column + i, kBase - 2 * i);
}

void drawUp(const Brush& brush) {
    const int32_t column = even(brush.width() / 2 - kPoint);
    for (int32_t i = 0; i < kPoint; ++i)
        brush.span(2 * kPoint - i, column + i, kBase - 2 * i);
}

/// An arrow whose straight side is vertical; `step` columns from row to row away from its middle.
void drawSideways(const Brush& brush, int32_t column, int32_t step) {
    const int32_t middle = brush.height() / 2 & ~1;
    brush.span(middle, column, kPoint);
    for (int32_t i = 1; i < kPoint; ++i) {
        brush.span(middle + i, column + step * i, kPoint - i);
        brush.span(middle - i, column + step * i, kPoint - i);
    }
}

}  // namespace

px_color panoramaRectColor(uint32_t status) {
    return status < sizeof kColors / sizeof kColors[0] ? kColors[status] : kPanoramaNoColor;
}

px_direction panoramaArrows(const px_status& status) {
    if (status.status == 2 || status.status == 3)
        return 0;
    const int32_t known = status.direction;
    if (known != kRight && known != kLeft && known != kUp && known != kDown)
        return 0;
    const double dx = status.dx;
    const double across = dx < 0 ? -dx : dx;
    const double along = status.dy < 0 ? -static_cast<double>(status.dy) : status.dy;
    const px_direction horizontal = dx < 0 ? kLeft : kRight;
    const px_direction vertical = status.dy < 0 ? kUp : kDown;
    if (along > 0 && along > kVertical * across)
        return vertical;
    if (dx != 0 && along > kDiagonal * across)
        return vertical | horizontal;
    return horizontal;
}

void drawFadingArrows(const px_image& image, px_direction code) {
    const int32_t step = gOpacityStep.load(std::memory_order_relaxed);
    gOpacityStep.store((step + 1) % kOpacitySteps, std::memory_order_relaxed);
    const Brush brush(image, kOpacities[step]);
    switch (code) {
        case kUp | kLeft:
            return drawTopLeft(brush);
        case kUp | kRight:
            return drawTopRight(brush);
        case kDown | kLeft:
            return drawBottomLeft(brush);
        case kDown | kRight:
            return drawBottomRight(brush);
        default:
            break;
    }
    if (code & kDown)
        drawDown(brush);
    if (code & kUp)
        drawUp(brush);
    if (code & kLeft)
        drawSideways(brush, kMargin, 1);
    if (code & kRight)
        drawSideways(brush, even(brush.width() - 2 * kPoint), 0);
}

}  // namespace android
