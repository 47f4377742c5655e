// Drawing marks into preview frames, in place: lines, rectangles and blended spans.

#include "imaging/Overlay.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace android {

namespace {

/// Writes chroma at the column and row of a luma pixel. Frames of odd size have no chroma for their last column and
/// row.
class ChromaWriter {
public:
    ChromaWriter(const OverlayImage& image, OverlayLayout layout, OverlayColor color)
        : mImage(image), mPlanar(layout == OverlayLayout::Planar), mColor(color) {}

    void row(int64_t y, int64_t x0, int64_t x1) const {
        if (y / 2 >= mImage.height / 2)
            return;
        if (mPlanar) {
            const int64_t first = (y / 2) * (mImage.width / 2) + x0 / 2;
            const int64_t count = std::min<int64_t>(mImage.width / 2 - x0 / 2, (x1 - x0) / 2 + 1);
            std::memset(mImage.plane[1] + first, mColor.c1, static_cast<size_t>(count));
            std::memset(mImage.plane[2] + first, mColor.c2, static_cast<size_t>(count));
            return;
        }
        uint8_t* pair = mImage.plane[1] + (y / 2) * mImage.width + x0;
        for (int64_t x = x0; x <= x1 && x + 1 < mImage.width; x += 2, pair += 2) {
            pair[0] = mColor.c1;
            pair[1] = mColor.c2;
        }
    }

    void column(int64_t x, int64_t y0, int64_t y1) const {
        if (mPlanar ? x / 2 >= mImage.width / 2 : x + 1 >= mImage.width)
            return;
        const int64_t rows = std::min<int64_t>(mImage.height / 2 - y0 / 2, (y1 - y0) / 2 + 1);
        const int64_t stride = mPlanar ? mImage.width / 2 : mImage.width;
        const int64_t first = (y0 / 2) * stride + (mPlanar ? x / 2 : x);
        uint8_t* const second = mPlanar ? mImage.plane[2] + first : mImage.plane[1] + first + 1;
        for (int64_t row = 0; row < rows; ++row) {
            mImage.plane[1][first + row * stride] = mColor.c1;
            second[row * stride] = mColor.c2;
        }
    }

private:
    const OverlayImage& mImage;
    const bool mPlanar;
    const OverlayColor mColor;
};

uint8_t truncated(double value) {
    return static_cast<uint8_t>(static_cast<unsigned>(value));
}

uint8_t blend(int32_t over, uint8_t under, int32_t alpha) {
    return static_cast<uint8_t>(std::clamp((over * alpha + under * (255 - alpha) + 128) >> 8, 0, 255));
}

int64_t madeEven(int32_t corner) {
    return corner % 2 == 1 ? int64_t{corner} - 1 : corner;
}

}  // namespace

OverlayColor overlayColor(uint32_t rgb) {
    const double r = (rgb >> 16) & 0xFF;
    const double g = (rgb >> 8) & 0xFF;
    const double b = rgb & 0xFF;
    // The order of the terms decides the last bit, and with it the truncation.
    return {truncated(0.299 * r + 0.587 * g + 0.114 * b), truncated(-0.168736 * r + 128 - 0.331264 * g + 0.5 * b),
            truncated(0.5 * r + 128 - 0.418688 * g - 0.081312 * b)};
}

void drawHorizontalLine(const OverlayImage& image, OverlayLayout layout, int64_t y, int64_t x0, int64_t x1,
                        OverlayColor color) {
    x0 = std::max<int64_t>(x0, 0);
    x1 = std::min<int64_t>(x1, int64_t{image.width} - 1);
    if (y < 0 || y >= image.height || x0 > x1)
        return;
    std::memset(image.plane[0] + y * image.width + x0, color.y, static_cast<size_t>(x1 - x0 + 1));
    if (y % 2 == 0)
        ChromaWriter(image, layout, color).row(y, x0, x1);
}

void drawVerticalLine(const OverlayImage& image, OverlayLayout layout, int64_t x, int64_t y0, int64_t y1,
                      OverlayColor color) {
    y0 = std::max<int64_t>(y0, 0);
    y1 = std::min<int64_t>(y1, int64_t{image.height} - 1);
    if (x < 0 || x >= image.width || y0 > y1)
        return;
    uint8_t* pixel = image.plane[0] + y0 * image.width + x;
    for (int64_t y = y0; y <= y1; ++y, pixel += image.width)
        *pixel = color.y;
    if (x % 2 == 0)
        ChromaWriter(image, layout, color).column(x, y0, y1);
}

void drawRectangle(const OverlayImage& image, OverlayLayout layout, int32_t left, int32_t top, int32_t right,
                   int32_t bottom, OverlayColor color, OverlayFrame frame) {
    const int64_t l = madeEven(left);
    const int64_t t = madeEven(top);
    const int64_t r = madeEven(right);
    const int64_t b = madeEven(bottom);
    const int width = frame == OverlayFrame::Inward4 ? 4 : 2;
    const int farStep = frame == OverlayFrame::Outward2 ? 1 : -1;
    for (int i = 0; i < width; ++i) {
        drawHorizontalLine(image, layout, t + i, l, r, color);
        drawHorizontalLine(image, layout, b + farStep * i, l, r, color);
    }
    for (int i = 0; i < width; ++i) {
        drawVerticalLine(image, layout, l + i, t, b, color);
        drawVerticalLine(image, layout, r + farStep * i, t, b, color);
    }
}

void blendHorizontalSpan(const OverlayImage& image, int32_t y, int32_t x0, int32_t length, OverlayColor color,
                         int32_t alpha) {
    const int64_t begin = std::max(x0, 0);
    const int64_t end = std::min<int64_t>(int64_t{x0} + length, image.width);
    if (y < 0 || y >= image.height)
        return;
    uint8_t* const luma = image.plane[0] + int64_t{y} * image.width;
    for (int64_t x = begin; x < end; ++x)
        luma[x] = blend(color.y, luma[x], alpha);
    if (y % 2 != 0 || y / 2 >= image.height / 2)
        return;
    uint8_t* const chroma = image.plane[1] + int64_t{y / 2} * image.width;
    for (int64_t x = begin; x < end && x + 1 < image.width; x += 2) {
        chroma[x] = blend(color.c1, chroma[x], alpha);
        chroma[x + 1] = blend(color.c2, chroma[x + 1], alpha);
    }
}

}  // namespace android
