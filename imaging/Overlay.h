// Drawing marks into preview frames, in place: lines, rectangles and blended spans.
#pragma once

#include <cstdint>

namespace android {

/// A YUV 4:2:0 frame as the drawing sees it: luma rows of `width` bytes in plane 0. Semi-planar: rows of `width` bytes
/// of chroma pairs in plane 1. Planar: rows of `width / 2` bytes in planes 1 and 2. Borrowed.
struct OverlayImage {
    int32_t width;
    int32_t height;
    uint8_t* plane[3];
};

enum class OverlayLayout { SemiPlanar, Planar };

/// A colour as it is written: luma and the two chroma bytes in the order in which they stand in a pair.
struct OverlayColor {
    uint8_t y;
    uint8_t c1;
    uint8_t c2;
};

/// Full-range BT.601 from 0xRRGGBB (the highest byte is ignored), truncated: white has a Cr of 127.
OverlayColor overlayColor(uint32_t rgb);

/// How a rectangle's frame grows: into the rectangle, 2 or 4 pixels wide, or with its second line outside on the right
/// and at the bottom.
enum class OverlayFrame { Inward2, Inward4, Outward2 };

// All coordinates are pixels, all ranges inclusive. Whatever they are, nothing outside the frame is written; chroma is
// written from even rows and columns only. None of these allocates.

void drawHorizontalLine(const OverlayImage& image, OverlayLayout layout, int64_t y, int64_t x0, int64_t x1,
                        OverlayColor color);
void drawVerticalLine(const OverlayImage& image, OverlayLayout layout, int64_t x, int64_t y0, int64_t y1,
                      OverlayColor color);
/// Odd positive corners are made even first.
void drawRectangle(const OverlayImage& image, OverlayLayout layout, int32_t left, int32_t top, int32_t right,
                   int32_t bottom, OverlayColor color, OverlayFrame frame);
/// Blends `length` pixels of a semi-planar row, `alpha` from 0 to 255. What lies outside the frame is left out.
void blendHorizontalSpan(const OverlayImage& image, int32_t y, int32_t x0, int32_t length, OverlayColor color,
                         int32_t alpha);

/// Sets the chroma planes that a record leaves null to where they follow its luma. `Record` has width, height, plane.
template <typename Record>
void completePlanes(Record& record, OverlayLayout layout) {
    const auto luma = static_cast<int64_t>(record.width) * record.height;
    if (!record.plane[1])
        record.plane[1] = record.plane[0] + luma;
    if (!record.plane[2])
        record.plane[2] = layout == OverlayLayout::Planar ? record.plane[0] + luma + luma / 4 : record.plane[1] + 1;
}

template <typename Record>
OverlayImage overlayImage(const Record& record) {
    return {record.width, record.height, {record.plane[0], record.plane[1], record.plane[2]}};
}

}  // namespace android
