// Marks drawn into frames, to the byte.

#include "imaging/Overlay.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

using namespace android;

namespace {

constexpr uint8_t kBlank = 7;

/// A frame between two guards that must stay as they are.
class Canvas {
public:
    Canvas(int32_t width, int32_t height, OverlayLayout frameLayout = OverlayLayout::SemiPlanar)
        : layout(frameLayout), image{width, height, {}} {
        const size_t luma = static_cast<size_t>(width) * height;
        const size_t chroma = frameLayout == OverlayLayout::Planar ? 2 * static_cast<size_t>(width / 2) * (height / 2)
                                                                   : static_cast<size_t>(width) * (height / 2);
        bytes.assign(kGuard + luma + chroma + kGuard, kBlank);
        image.plane[0] = bytes.data() + kGuard;
        image.plane[1] = image.plane[0] + luma;
        image.plane[2] = frameLayout == OverlayLayout::Planar
                             ? image.plane[1] + static_cast<size_t>(width / 2) * (height / 2)
                             : image.plane[1] + 1;
        end = kGuard + luma + chroma;
    }

    uint8_t y(int32_t row, int32_t column) const { return image.plane[0][row * image.width + column]; }
    uint8_t c(int32_t row, int32_t byte) const { return image.plane[1][row * image.width + byte]; }

    bool guardsIntact() const {
        for (size_t i = 0; i < bytes.size(); ++i) {
            if ((i < kGuard || i >= end) && bytes[i] != kBlank)
                return false;
        }
        return true;
    }
    bool blank() const {
        for (const uint8_t byte : bytes) {
            if (byte != kBlank)
                return false;
        }
        return true;
    }
    /// Rows whose pixel at `column` has the luma.
    std::vector<int32_t> rowsWith(uint8_t luma, int32_t column) const {
        std::vector<int32_t> rows;
        for (int32_t row = 0; row < image.height; ++row) {
            if (y(row, column) == luma)
                rows.push_back(row);
        }
        return rows;
    }
    std::vector<int32_t> columnsWith(uint8_t luma, int32_t row) const {
        std::vector<int32_t> columns;
        for (int32_t column = 0; column < image.width; ++column) {
            if (y(row, column) == luma)
                columns.push_back(column);
        }
        return columns;
    }

    static constexpr size_t kGuard = 256;
    OverlayLayout layout;
    OverlayImage image;
    std::vector<uint8_t> bytes;
    size_t end;
};

using Places = std::vector<int32_t>;

TEST(OverlayTest, ColoursAreTruncated) {
    const struct {
        uint32_t rgb;
        uint8_t y, cb, cr;
    } cases[] = {{0x00FF00, 149, 43, 21}, {0x0099FF, 118, 204, 43},  {0xFF0000, 76, 84, 255},
                 {0x000000, 0, 128, 128}, {0xFFFFFF, 255, 128, 127}, {0xAB00FF00, 149, 43, 21}};
    for (const auto& each : cases) {
        const OverlayColor color = overlayColor(each.rgb);
        EXPECT_EQ(color.y, each.y) << std::hex << each.rgb;
        EXPECT_EQ(color.c1, each.cb) << std::hex << each.rgb;
        EXPECT_EQ(color.c2, each.cr) << std::hex << each.rgb;
    }
}

TEST(OverlayTest, RectanglesGrowAsTheirUserWants) {
    const struct {
        OverlayFrame frame;
        Places edges;
    } cases[] = {{OverlayFrame::Inward2, {10, 11, 19, 20}},
                 {OverlayFrame::Inward4, {10, 11, 12, 13, 17, 18, 19, 20}},
                 {OverlayFrame::Outward2, {10, 11, 20, 21}}};
    for (const auto& each : cases) {
        Canvas canvas(40, 40);
        drawRectangle(canvas.image, canvas.layout, 10, 10, 20, 20, {200, 1, 2}, each.frame);
        EXPECT_EQ(canvas.rowsWith(200, 15), each.edges);
        EXPECT_EQ(canvas.columnsWith(200, 15), each.edges);
        EXPECT_EQ(canvas.c(5, 12), 1);  // row 10: pairs of the top edge
        EXPECT_EQ(canvas.c(5, 13), 2);
    }
    Canvas canvas(120, 60);
    drawRectangle(canvas.image, canvas.layout, 5, 7, 101, 51, {200, 1, 2}, OverlayFrame::Inward2);
    EXPECT_EQ(canvas.rowsWith(200, 50), (Places{6, 7, 49, 50}));
    EXPECT_EQ(canvas.columnsWith(200, 20), (Places{4, 5, 99, 100}));
}

TEST(OverlayTest, OddLinesChangeLumaOnlyAndOutsideNothing) {
    Canvas canvas(16, 8);
    drawHorizontalLine(canvas.image, canvas.layout, 3, 0, 15, {200, 1, 2});
    drawVerticalLine(canvas.image, canvas.layout, 5, -10, 18, {200, 1, 2});
    EXPECT_EQ(canvas.rowsWith(200, 5).size(), 8U);
    for (int32_t row = 0; row < 4; ++row) {
        for (int32_t byte = 0; byte < 16; ++byte)
            EXPECT_EQ(canvas.c(row, byte), kBlank);
    }
    for (const int64_t outside : {int64_t{-1}, int64_t{8}, int64_t{INT_MAX} + 3}) {
        Canvas blank(8, 8);
        drawHorizontalLine(blank.image, blank.layout, outside, 0, 7, {200, 1, 2});
        drawVerticalLine(blank.image, blank.layout, outside, 0, 7, {200, 1, 2});
        drawHorizontalLine(blank.image, blank.layout, 2, 6, 3, {200, 1, 2});
        EXPECT_TRUE(blank.blank());
    }
}

TEST(OverlayTest, PlanarChromaGoesToItsPlanes) {
    Canvas canvas(8, 8, OverlayLayout::Planar);
    drawHorizontalLine(canvas.image, canvas.layout, 4, 2, 5, {200, 1, 2});
    EXPECT_EQ(Places(canvas.image.plane[1] + 8, canvas.image.plane[1] + 12), (Places{kBlank, 1, 1, kBlank}));
    EXPECT_EQ(Places(canvas.image.plane[2] + 8, canvas.image.plane[2] + 12), (Places{kBlank, 2, 2, kBlank}));
    drawVerticalLine(canvas.image, canvas.layout, 0, 0, 7, {200, 3, 4});
    for (int row = 0; row < 4; ++row) {
        EXPECT_EQ(canvas.image.plane[1][row * 4], 3);
        EXPECT_EQ(canvas.image.plane[2][row * 4], 4);
    }
}

TEST(OverlayTest, NothingOutsideTheFrameIsEverWritten) {
    const int32_t extremes[] = {INT_MIN, -7, -2, -1, 0, 1, 5, 6, 7, 8, 9, 30, INT_MAX};
    for (const OverlayLayout layout : {OverlayLayout::SemiPlanar, OverlayLayout::Planar}) {
        for (const auto& [width, height] : {std::pair{8, 8}, std::pair{7, 9}, std::pair{9, 7}, std::pair{1, 1}}) {
            Canvas canvas(width, height, layout);
            for (const int32_t a : extremes) {
                for (const int32_t b : extremes) {
                    drawRectangle(canvas.image, layout, a, b, b, a, {200, 1, 2}, OverlayFrame::Outward2);
                    drawRectangle(canvas.image, layout, a, a, b, b, {200, 1, 2}, OverlayFrame::Inward4);
                    if (layout == OverlayLayout::SemiPlanar)
                        blendHorizontalSpan(canvas.image, a, b, a, {200, 1, 2}, 255);
                }
            }
            EXPECT_TRUE(canvas.guardsIntact()) << width << 'x' << height;
        }
    }
}

TEST(OverlayTest, SpansAreBlendedWithTheirRounding) {
    Canvas canvas(16, 4);
    std::fill(canvas.bytes.begin(), canvas.bytes.end(), uint8_t{100});
    blendHorizontalSpan(canvas.image, 0, 4, 4, {178, 171, 0}, 40);
    EXPECT_EQ(canvas.y(0, 3), 100);
    EXPECT_EQ(canvas.y(0, 4), 112);
    EXPECT_EQ(canvas.y(0, 8), 100);
    blendHorizontalSpan(canvas.image, 2, 0, 3, {178, 171, 0}, 255);
    EXPECT_EQ(canvas.y(2, 0), 177);  // full alpha stops one short
    EXPECT_EQ(canvas.c(1, 0), 170);
    EXPECT_EQ(canvas.c(1, 1), 0);
    EXPECT_EQ(canvas.c(1, 2), 170);  // the pair that the odd length reaches into
    EXPECT_EQ(canvas.c(1, 4), 100);
    blendHorizontalSpan(canvas.image, 1, 0, 16, {178, 171, 0}, 255);
    EXPECT_EQ(canvas.c(0, 0), 100);  // an odd row has no chroma
}

TEST(OverlayTest, MissingPlanesAreCompleted) {
    uint8_t frame[24] = {};
    struct Record {
        int32_t width, height;
        uint8_t* plane[3];
    };
    Record semi = {4, 4, {frame, nullptr, nullptr}};
    completePlanes(semi, OverlayLayout::SemiPlanar);
    EXPECT_EQ(semi.plane[1], frame + 16);
    EXPECT_EQ(semi.plane[2], frame + 17);
    Record planar = {4, 4, {frame, nullptr, nullptr}};
    completePlanes(planar, OverlayLayout::Planar);
    EXPECT_EQ(planar.plane[1], frame + 16);
    EXPECT_EQ(planar.plane[2], frame + 20);
}

}  // namespace
