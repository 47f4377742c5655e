// The guide: colours, arrows, their spans and their pulse.

#include "shots/panorama/PanoramaGuide.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

using namespace android;

namespace {

TEST(PanoramaGuideTest, ArrowsPointToTheOffset) {
    const struct {
        uint32_t status;
        int32_t direction, dx, dy, arrow;
    } cases[] = {{0, 1, 30, 10, 1},   {1, 1, 30, 25, 9},  {1, 2, 10, 20, 8}, {1, 4, -30, -25, 6},
                 {1, 8, 0, 0, 1},     {1, 1, -5, 0, 2},   {1, 1, 0, 3, 8},   {1, 1, 30, -25, 5},
                 {1, 1, -30, 25, 10}, {1, 1, 10, -20, 4}, {1, 1, 20, 30, 9},  // 30 is not above 1.5 x 20
                 {1, 1, 10, 7, 1},                                            // 7 is not above 0.7 x 10
                 {1, 1, 0, -1, 4},    {2, 1, 30, 10, 0},  {3, 1, 30, 10, 0}, {4, 1, 30, 10, 1},
                 {1, 3, 30, 10, 0},   {1, 0, 30, 10, 0},  {1, 9, 30, 10, 0}, {1, 1, INT32_MIN, INT32_MIN, 6}};
    for (const auto& each : cases) {
        px_status status = {};
        status.status = each.status;
        status.direction = each.direction;
        status.dx = each.dx;
        status.dy = each.dy;
        EXPECT_EQ(panoramaArrows(status), each.arrow)
            << each.status << ' ' << each.direction << ' ' << each.dx << ' ' << each.dy;
    }
    const px_color colors[] = {0xFFFF, 0x00FF00, 0x00FF00, 0xFF0000, 0xFFFF, 0xFFFF};
    for (uint32_t status = 0; status < 6; ++status)
        EXPECT_EQ(panoramaRectColor(status), colors[status]);
}

struct Span {
    int32_t first, last;
    bool operator==(const Span&) const = default;
};

class Frame {
public:
    Frame(int32_t width, int32_t height) : bytes(static_cast<size_t>(width) * height * 3 / 2) {
        image = {0, width, height, {bytes.data(), bytes.data() + static_cast<size_t>(width) * height, nullptr}};
    }
    /// The rows that were drawn on, with the span of each.
    std::map<int32_t, Span> drawn() const {
        std::map<int32_t, Span> spans;
        for (int32_t row = 0; row < image.height; ++row) {
            for (int32_t column = 0; column < image.width; ++column) {
                if (image.plane[0][row * image.width + column] == 0)
                    continue;
                spans.try_emplace(row, Span{column, column}).first->second.last = column;
            }
        }
        return spans;
    }
    std::vector<uint8_t> bytes;
    px_image image;
};

TEST(PanoramaGuideTest, ArrowsLieWhereTheyBelong) {
    const struct {
        px_direction code;
        int32_t firstRow;
        Span first;
        int32_t lastRow;
        Span last;
    } cases[] = {{8, 430, {294, 343}, 454, {318, 319}}, {4, 26, {318, 319}, 50, {294, 343}},
                 {6, 24, {24, 58}, 58, {24, 24}},       {5, 24, {580, 614}, 58, {614, 614}},
                 {10, 420, {24, 24}, 454, {24, 58}},    {9, 420, {614, 614}, 454, {580, 614}},
                 {2, 216, {48, 48}, 264, {48, 48}},     {1, 216, {590, 590}, 264, {590, 590}}};
    for (const auto& each : cases) {
        Frame frame(640, 480);
        drawFadingArrows(frame.image, each.code);
        const auto spans = frame.drawn();
        ASSERT_FALSE(spans.empty()) << each.code;
        EXPECT_EQ(spans.begin()->first, each.firstRow) << each.code;
        EXPECT_EQ(spans.begin()->second, each.first) << each.code;
        EXPECT_EQ(spans.rbegin()->first, each.lastRow) << each.code;
        EXPECT_EQ(spans.rbegin()->second, each.last) << each.code;
    }
    Frame sideways(640, 480);
    drawFadingArrows(sideways.image, 2);
    EXPECT_EQ(sideways.drawn().at(240), (Span{24, 48}));
    EXPECT_EQ(sideways.drawn().at(243), (Span{27, 48}));
}

TEST(PanoramaGuideTest, TheirOpacityPulsesWithEveryCall) {
    // The counter is the process's: go on to where a cycle begins (full opacity twice in a row).
    const auto opacity = [](px_direction code) {
        Frame frame(64, 64);
        drawFadingArrows(frame.image, code);
        return frame.bytes[24 * 64 + 24];
    };
    const uint8_t full = (178 * 255 + 128) >> 8;
    int calls = 0;
    for (uint8_t last = 0, now = 0; !(last == full && now == full) && calls < 40; ++calls) {
        last = now;
        now = opacity(6);
    }
    ASSERT_LT(calls, 40);
    const int32_t rest[] = {230, 200, 120, 40, 120, 200, 230, 255, 255, 230};
    for (const int32_t expected : rest)
        EXPECT_EQ(opacity(6), (178 * expected + 128) >> 8);
    opacity(0);  // draws nothing, but the pulse goes on past 200
    EXPECT_EQ(opacity(6), (178 * 120 + 128) >> 8);
}

}  // namespace
