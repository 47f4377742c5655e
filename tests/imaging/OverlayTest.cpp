// Marks drawn into frames, to the byte.

#include "imaging/Overlay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <tuple>
#include <vector>

using namespace android;

namespace {

constexpr uint8_t kBlank = 7;
using Places = std::vector<int32_t>;

constexpr OverlayColor kMark = {200, 1, 2};

/// A frame between two guards that must stay as they are.
class Canvas {
public:
    Canvas(int32_t width, int32_t height, OverlayLayout frameLayout = OverlayLayout::SemiPlanar)
        : layout(frameLayout), image{width, height, {}} {
        const bool planar = layout == OverlayLayout::Planar;
        const size_t luma = static_cast<size_t>(width) * height;
        const size_t chroma = static_cast<size_t>(planar ? width / 2 : width) * (height / 2);
        end = kGuard + luma + (planar ? 2 : 1) * chroma;
        bytes.assign(end + kGuard, kBlank);
        image.plane[0] = bytes.data() + kGuard;
        image.plane[1] = image.plane[0] + luma;
        image.plane[2] = image.plane[1] + (planar ? chroma : 1);
    }

    /// Bytes of a row of a plane.
    Places row(int plane, int32_t row, int32_t from, int32_t to) const {
        const uint8_t* const begin = image.plane[plane] + row * image.width;
        return {begin + from, begin + to};
    }

    /// Whether all is blank from a place in `bytes` to another.
    bool blank(size_t from, size_t to) const {
        return std::all_of(bytes.data() + from, bytes.data() + to, [](uint8_t byte) { return byte == kBlank; });
    }
    /// The rows in the column, or columns in the row, `where` that have the luma 200.
    Places marked(bool rows, int32_t where) const {
        Places places;
        for (int32_t i = 0; i < (rows ? image.height : image.width); ++i) {
            if (image.plane[0][(rows ? i : where) * image.width + (rows ? where : i)] == 200)
                places.push_back(i);
        }
        return places;
    }

    static constexpr size_t kGuard = 256;
    OverlayLayout layout;
    OverlayImage image;
    std::vector<uint8_t> bytes;
    size_t end;
};

TEST(OverlayTest, ColoursAreTruncated) {
    // From 0x002828 on: those that come out otherwise where a product is added unrounded.
    const int32_t cases[][4] = {{0x00FF00, 149, 43, 21},  {0x0099FF, 118, 204, 43},  {0xFF0000, 76, 84, 255},
                                {0x000000, 0, 128, 128},  {0xFFFFFF, 255, 128, 127}, {0x7B00FF00, 149, 43, 21},
                                {0x002828, 28, 134, 107}, {0x004E97, 63, 177, 83},   {0x1B9B9B, 116, 149, 64},
                                {0x34E2EB, 175, 161, 40}, {0x6AD4B7, 176, 131, 77},  {0x828200, 115, 63, 138},
                                {0xDEDE1A, 199, 29, 143}, {0xF5F51D, 220, 20, 145}};
    for (const auto& [rgb, y, c1, c2] : cases) {
        const OverlayColor color = overlayColor(static_cast<uint32_t>(rgb));
        EXPECT_EQ(std::tuple(color.y, color.c1, color.c2), std::tuple(y, c1, c2)) << std::hex << rgb;
    }
}

TEST(OverlayTest, RectanglesGrowAsTheirUserWants) {
    const std::vector<std::tuple<OverlayFrame, Places, Places, Places>> cases = {
        // corners, and the edges' places
        {OverlayFrame::Outward2, {10, 10, 20, 20}, {10, 11, 20, 21}, {10, 11, 20, 21}},
        {OverlayFrame::Inward4, {10, 10, 20, 20}, {10, 11, 12, 13, 17, 18, 19, 20}, {10, 11, 12, 13, 17, 18, 19, 20}},
        {OverlayFrame::Inward2, {5, 7, 101, 51}, {6, 7, 49, 50}, {4, 5, 99, 100}},
        {OverlayFrame::Inward2, {0, 0, 119, 59}, {0, 1, 57, 58}, {0, 1, 117, 118}},  // to the frame's edges
        {OverlayFrame::Outward2, {14, 15, 15, 14}, {14}, {14}}};                     // a point, grown
    for (const auto& [frame, corners, rows, columns] : cases) {
        Canvas canvas(120, 60);
        drawRectangle(canvas.image, canvas.layout, corners[0], corners[1], corners[2], corners[3], kMark, frame);
        EXPECT_EQ(canvas.marked(true, 15), rows);
        EXPECT_EQ(canvas.marked(false, 15), columns);
        EXPECT_EQ(canvas.row(1, rows[0] / 2, 14, 16), (Places{1, 2}));  // pairs of the top edge
        for (const int32_t column : columns)                            // and of the others; an odd column has none
            EXPECT_TRUE(column % 2 || canvas.row(1, 7, column, column + 2) == (Places{1, 2})) << column;
    }
}

TEST(OverlayTest, OddLinesChangeLumaOnlyAndOutsideNothing) {
    Canvas canvas(16, 8);
    drawHorizontalLine(canvas.image, canvas.layout, 3, -3, 19, kMark);
    drawVerticalLine(canvas.image, canvas.layout, 5, -10, 18, kMark);
    EXPECT_EQ(canvas.marked(true, 5).size(), 8U);
    EXPECT_EQ(canvas.marked(false, 3).size(), 16U);
    EXPECT_TRUE(canvas.blank(Canvas::kGuard + 16 * 8, canvas.bytes.size()));
    drawHorizontalLine(canvas.image, canvas.layout, 4, 12, 15, kMark);
    drawHorizontalLine(canvas.image, canvas.layout, 4, 8, 8, kMark);  // one pixel has its pair
    EXPECT_EQ(canvas.row(1, 2, 7, 16), (Places{kBlank, 1, 2, kBlank, kBlank, 1, 2, 1, 2}));
    Canvas blank(8, 8);
    for (const int64_t outside : {int64_t{-1}, int64_t{8}, int64_t{INT_MAX} + 3}) {
        drawHorizontalLine(blank.image, blank.layout, outside, 0, 7, kMark);
        drawVerticalLine(blank.image, blank.layout, outside, 0, 7, kMark);
    }
    drawHorizontalLine(blank.image, blank.layout, 2, 6, 3, kMark);
    EXPECT_TRUE(blank.blank(0, blank.bytes.size()));
}

TEST(OverlayTest, PlanarChromaGoesToItsPlanes) {
    Canvas canvas(8, 8, OverlayLayout::Planar);
    drawHorizontalLine(canvas.image, canvas.layout, 4, 2, 5, kMark);
    for (const int64_t x : {0, 6})
        drawVerticalLine(canvas.image, canvas.layout, x, 0, 7, {200, 3, 4});
    drawHorizontalLine(canvas.image, canvas.layout, 6, 4, 4, kMark);
    const uint8_t o = kBlank;  // two rows of the frame are four of a plane
    EXPECT_EQ(canvas.row(1, 0, 0, 16), (Places{3, o, o, 3, 3, o, o, 3, 3, 1, 1, 3, 3, o, 1, 3}));
    EXPECT_EQ(canvas.row(2, 0, 0, 16), (Places{4, o, o, 4, 4, o, o, 4, 4, 2, 2, 4, 4, o, 2, 4}));
}

TEST(OverlayTest, NothingOutsideTheFrameIsEverWritten) {
    const int32_t extremes[] = {INT_MIN, -7, -2, -1, 0, 1, 5, 6, 7, 8, 9, 30, INT_MAX};
    for (const OverlayLayout layout : {OverlayLayout::SemiPlanar, OverlayLayout::Planar}) {
        for (const auto& [width, height] : {std::pair{8, 8}, {7, 9}, {9, 7}, {1, 1}}) {
            Canvas canvas(width, height, layout);
            for (const int32_t a : extremes) {
                for (const int32_t b : extremes) {
                    drawRectangle(canvas.image, layout, a, b, b, a, kMark, OverlayFrame::Outward2);
                    drawRectangle(canvas.image, layout, a, a, b, b, kMark, OverlayFrame::Inward4);
                    if (layout == OverlayLayout::SemiPlanar)
                        blendHorizontalSpan(canvas.image, a, b, a, kMark, 255);
                }
            }
            EXPECT_TRUE(canvas.blank(0, Canvas::kGuard) && canvas.blank(canvas.end, canvas.bytes.size()))
                << width << 'x' << height;
        }
    }
}

TEST(OverlayTest, SpansAreBlendedWithTheirRounding) {
    Canvas canvas(16, 4);
    std::fill(canvas.bytes.begin(), canvas.bytes.end(), uint8_t{100});
    blendHorizontalSpan(canvas.image, 0, 4, 4, {178, 171, 0}, 40);
    blendHorizontalSpan(canvas.image, 2, 0, 3, {178, 171, 0}, 255);
    blendHorizontalSpan(canvas.image, 1, 8, 8, {178, 171, 0}, 255);  // an odd row has no chroma
    EXPECT_EQ(canvas.row(0, 0, 0, 9), (Places{100, 100, 100, 100, 112, 112, 112, 112, 100}));
    EXPECT_EQ(canvas.row(1, 0, 8, 16), Places(8, 100));
    canvas.image.plane[1][15] = 60;
    blendHorizontalSpan(canvas.image, 0, 14, 9, {178, 171, 0}, 40);  // up to the last pair
    EXPECT_EQ(canvas.row(1, 0, 12, 16), (Places{100, 100, 111, 50}));
    EXPECT_EQ(canvas.row(0, 2, 0, 4), (Places{177, 177, 177, 100}));   // full alpha stops one short
    EXPECT_EQ(canvas.row(1, 1, 0, 5), (Places{170, 0, 170, 0, 100}));  // the odd length reaches into the second pair
}

TEST(OverlayTest, MissingPlanesAreCompleted) {
    uint8_t frame[24] = {};
    for (const OverlayLayout layout : {OverlayLayout::SemiPlanar, OverlayLayout::Planar}) {
        OverlayImage record = {4, 4, {frame, nullptr, nullptr}};
        completePlanes(record, layout);
        EXPECT_EQ(record.plane[1], frame + 16);
        EXPECT_EQ(record.plane[2], frame + (layout == OverlayLayout::Planar ? 20 : 17));
    }
}

}  // namespace
