// The guide that is drawn over the preview during a sweep: where its lines and arrows are.

#include "shots/panorama/PanoramaGuide.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <iterator>
#include <limits>

#include "imaging/Overlay.h"

namespace android {

namespace {

constexpr px_color kGreen = 0x00FF00;
constexpr px_color kRed = 0xFF0000;
constexpr px_color kColors[] = {kPanoramaNoColor, kGreen, kGreen, kRed};

constexpr int32_t kLeastSide = 64;  // of a frame that is marked
constexpr int32_t kInset = 10;      // of the rectangle

constexpr px_direction kRight = 1, kLeft = 2, kUp = 4, kDown = 8;

// An offset is vertical above 1.5 times the horizontal one, and diagonal above 0.7 times.
constexpr double kVertical = 1.5;
constexpr double kDiagonal = 0.7;

constexpr int32_t kOpacities[] = {255, 230, 200, 120, 40, 120, 200, 230, 255};
constexpr int32_t kOpacitySteps = std::size(kOpacities);
constexpr OverlayColor kArrowColor = {178, 171, 0};

constexpr int32_t kMargin = 24;  // between an arrow and the frame's edges
constexpr int32_t kCorner = 35;  // legs of a corner arrow
constexpr int32_t kPoint = 25;   // height of an arrow at an edge
constexpr int32_t kBase = 50;    // its base

std::atomic<int32_t> gOpacityStep{0};

int32_t even(int32_t value) {
    return value % 2 == 1 ? value - 1 : value;
}

/// Whatever offset the library reports.
int clampedSum(int32_t offset, int32_t position) {
    const int64_t sum = int64_t{offset} + position;
    return static_cast<int>(std::clamp<int64_t>(sum, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
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

/// An arrow into a corner of the frame, from its long row on; steps are those from row to row.
void drawCorner(const Brush& brush, int32_t row, int32_t rowStep, int32_t column, int32_t columnStep) {
    for (int32_t i = 0; i < kCorner; ++i)
        brush.span(row + rowStep * i, column + columnStep * i, kCorner - i);
}

/// An arrow whose straight side is horizontal, in `row`; `step` rows from row to row away from it.
void drawUpright(const Brush& brush, int32_t row, int32_t step) {
    const int32_t column = even(brush.width() / 2 - kPoint);
    for (int32_t i = 0; i < kPoint; ++i)
        brush.span(row + step * i, column + i, kBase - 2 * i);
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

void DrawRectangle(px_image& image, int left, int top, int right, int bottom, px_color color) {
    if (color == kPanoramaNoColor)
        return;
    completePlanes(image, OverlayLayout::SemiPlanar);
    drawRectangle(overlayImage(image), OverlayLayout::SemiPlanar, left, top, right, bottom, overlayColor(color),
                  OverlayFrame::Outward2);
}

}  // namespace

void PanoramaGuide::GetRectToDraw(int& left, int& top, int& right, int& bottom) const {
    left = clampedSum(mPxStatus.dx, kInset);
    top = clampedSum(mPxStatus.dy, kInset);
    right = clampedSum(mPxStatus.dx, mFrameWidth - 1 - kInset);
    bottom = clampedSum(mPxStatus.dy, mFrameHeight - 1 - kInset);
}

px_color PanoramaGuide::GetRectColor() const {
    return mPxStatus.status < std::size(kColors) ? kColors[mPxStatus.status] : kPanoramaNoColor;
}

px_direction PanoramaGuide::GetArrows() const {
    if (mPxStatus.status == 2 || mPxStatus.status == 3)
        return 0;
    // The library's code only permits arrows; which one is drawn follows from the offset.
    const int32_t known = mPxStatus.direction;
    if (known != kRight && known != kLeft && known != kUp && known != kDown)
        return 0;
    const double across = std::abs(static_cast<double>(mPxStatus.dx));
    const double along = std::abs(static_cast<double>(mPxStatus.dy));
    const px_direction horizontal = mPxStatus.dx < 0 ? kLeft : kRight;
    const px_direction vertical = mPxStatus.dy < 0 ? kUp : kDown;
    if (along > kVertical * across)
        return vertical;
    if (along > kDiagonal * across)
        return vertical | horizontal;
    return horizontal;
}

void PanoramaGuide::draw(px_image& image) const {
    if (image.width < kLeastSide || image.height < kLeastSide)
        return;
    int left, top, right, bottom;
    GetRectToDraw(left, top, right, bottom);
    DrawRectangle(image, left, top, right, bottom, GetRectColor());
    DrawFadingArrows(image, GetArrows());
}

void DrawFadingArrows(const px_image& image, px_direction code) {
    const int32_t step = gOpacityStep.load(std::memory_order_relaxed);
    gOpacityStep.store((step + 1) % kOpacitySteps, std::memory_order_relaxed);
    const Brush brush(image, kOpacities[step]);
    const int32_t right = brush.width() - kMargin - kCorner - 1;
    const int32_t bottom = even(brush.height() - kMargin - 1);
    switch (code) {
        case kUp | kLeft:
            return drawCorner(brush, kMargin, 1, kMargin, 0);
        case kUp | kRight:
            return drawCorner(brush, kMargin, 1, even(right), 1);
        case kDown | kLeft:
            return drawCorner(brush, bottom, -1, kMargin, 0);
        case kDown | kRight:
            return drawCorner(brush, bottom, -1, right, 1);
        default:
            break;
    }
    if (code & kDown)
        drawUpright(brush, even(brush.height() - 2 * kPoint), 1);
    if (code & kUp)
        drawUpright(brush, 2 * kPoint, -1);
    if (code & kLeft)
        drawSideways(brush, kMargin, 1);
    if (code & kRight)
        drawSideways(brush, even(brush.width() - 2 * kPoint), 0);
}

}  // namespace android
