// The guide: colours, arrows, their spans and their pulse.

#include "shots/panorama/PanoramaGuide.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

using namespace android;

namespace {

using Rect = std::array<int, 4>;

PanoramaGuide guide(const px_status& status) {
    return {status, 640, 480};
}

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
    for (const auto& each : cases)
        EXPECT_EQ(guide({8, 0, 0, each.direction, each.dx, each.dy, {}, each.status}).GetArrows(), each.arrow)
            << each.status << ' ' << each.direction << ' ' << each.dx << ' ' << each.dy;
    const px_color colors[] = {0xFFFF, 0x00FF00, 0x00FF00, 0xFF0000, 0xFFFF, 0xFFFF};
    for (uint32_t status = 0; status < 6; ++status)
        EXPECT_EQ(guide({8, 0, 0, 0, 0, 0, {}, status}).GetRectColor(), colors[status]);
    const std::pair<int32_t, Rect> offsets[] = {{5, {15, 15, 634, 474}},
                                                {INT_MIN, {INT_MIN + 10, INT_MIN + 10, INT_MIN + 629, INT_MIN + 469}},
                                                {INT_MAX, {INT_MAX, INT_MAX, INT_MAX, INT_MAX}}};
    for (const auto& [offset, expected] : offsets) {
        Rect rect;
        guide({8, 0, 0, 0, offset, offset, {}, 0}).GetRectToDraw(rect[0], rect[1], rect[2], rect[3]);
        EXPECT_EQ(rect, expected);
    }
}

/// A black frame with these arrows.
std::vector<uint8_t> drawn(px_direction code, int32_t width, int32_t height) {
    const auto area = static_cast<size_t>(width) * height;
    std::vector<uint8_t> bytes(area * 3 / 2);
    DrawFadingArrows({0, width, height, {bytes.data(), bytes.data() + area, nullptr}}, code);
    return bytes;
}

TEST(PanoramaGuideTest, ArrowsLieWhereTheyBelong) {
    using Spans = std::map<int, std::pair<int, int>>;  // by row: first and last column
    const std::tuple<px_direction, int, Spans> cases[] = {
        // the frame's width, 160 more than its height; the first row, perhaps some between, the last
        {8, 640, {{430, {294, 343}}, {454, {318, 319}}}},
        {4, 640, {{26, {318, 319}}, {50, {294, 343}}}},
        {6, 640, {{24, {24, 58}}, {58, {24, 24}}}},
        {5, 640, {{24, {580, 614}}, {58, {614, 614}}}},
        {5, 641, {{24, {580, 614}}, {58, {614, 614}}}},
        {10, 640, {{420, {24, 24}}, {454, {24, 58}}}},
        {10, 641, {{422, {24, 24}}, {456, {24, 58}}}},
        {9, 641, {{422, {615, 615}}, {456, {581, 615}}}},
        {8, 641, {{430, {294, 343}}, {454, {318, 319}}}},
        {9, 640, {{420, {614, 614}}, {454, {580, 614}}}},
        {2, 640, {{216, {48, 48}}, {240, {24, 48}}, {243, {27, 48}}, {264, {48, 48}}}},
        {1, 640, {{216, {590, 590}}, {240, {590, 614}}, {264, {590, 590}}}},
        {1, 641, {{216, {590, 590}}, {264, {590, 590}}}}};
    for (const auto& [code, width, expected] : cases) {
        SCOPED_TRACE(code);
        const std::vector<uint8_t> frame = drawn(code, width, width - 160);
        Spans spans;
        for (int at = 0; at < width * (width - 160); ++at) {
            if (frame[at] != 0)
                spans.try_emplace(at / width, at % width, 0).first->second.second = at % width;
        }
        ASSERT_FALSE(spans.empty());
        EXPECT_EQ(spans.begin()->first, expected.begin()->first);
        EXPECT_EQ(spans.rbegin()->first, expected.rbegin()->first);
        EXPECT_EQ(spans.size(), static_cast<size_t>(spans.rbegin()->first - spans.begin()->first + 1)) << "a gap";
        for (const auto& [row, span] : expected)
            EXPECT_EQ(spans[row], span) << row;
    }
}

TEST(PanoramaGuideTest, SmallFramesAreNotMarkedAndOthersWithRectangleAndArrow) {
    for (const auto& [width, height] : {std::pair{64, 62}, {62, 64}, {64, 64}})
        for (const uint32_t status : {2, 4}) {  // a rectangle alone; an arrow alone
            std::vector<uint8_t> bytes(64 * 64 * 3 / 2);
            px_image image = {0, width, height, {bytes.data(), bytes.data() + width * height, nullptr}};
            PanoramaGuide({8, 0, 0, 1, 0, 0, {}, status}, width, height).draw(image);
            EXPECT_EQ(bytes == std::vector<uint8_t>(bytes.size()), width * height < 64 * 64) << status;
        }
}

TEST(PanoramaGuideTest, TheirOpacityPulsesWithEveryCall) {
    // The counter is the process's: go on to where a cycle begins (full opacity twice in a row).
    const auto opacity = [](px_direction code) { return drawn(code, 64, 64)[24 * 64 + 24]; };
    const uint8_t full = (178 * 255 + 128) >> 8;
    int calls = 0;
    while (!(opacity(6) == full && opacity(6) == full) && calls < 40)
        ++calls;
    ASSERT_LT(calls, 40);
    const std::vector<uint8_t> frame = drawn(6, 64, 64);  // at 230
    EXPECT_EQ(std::tuple(frame[24 * 64 + 24], frame[76 * 64 + 24], frame[76 * 64 + 25]), std::tuple(160, 154, 0));
    for (const int32_t expected : {200, 120, 40, 120, 200, 230, 255, 255, 230})
        EXPECT_EQ(opacity(6), (178 * expected + 128) >> 8);
    opacity(0);  // draws nothing, but the pulse goes on past 200
    EXPECT_EQ(opacity(6), (178 * 120 + 128) >> 8);
}

}  // namespace
