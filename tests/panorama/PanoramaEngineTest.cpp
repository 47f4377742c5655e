// The host's panorama engine against pans over a known wide picture.

#include <gtest/gtest.h>
#include <malloc.h>
#include <panoramax/panoramax.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "host/camera/scenes/Landscape.h"
#include "tests/support/HandHeldSweep.h"
#include "tests/support/SceneFrames.h"

using namespace kov::test;

namespace {

constexpr int32_t kBudget = 100 * 1024 * 1024;
const cv::Size kFrame(640, 480);

/// The allocation table's memory, counted.
size_t gUsed;
size_t gMost;

void* countedAllocate(size_t size) {
    void* memory = std::malloc(size);
    gMost = std::max(gMost, gUsed += malloc_usable_size(memory));
    return memory;
}

void countedRelease(void* memory) {
    gUsed -= malloc_usable_size(memory);
    std::free(memory);
}

cv::Mat landscape(cv::Size frame, const std::string& options = "") {
    kov::camera::SourceOptions parsed(options);
    return kov::camera::Landscape(parsed).widePicture(frame);
}

class PanoramaEngineTest : public ::testing::Test {
protected:
    PanoramaEngineTest() {
        gUsed = gMost = 0;
        const px_allocator counted = {countedAllocate, countedRelease};
        EXPECT_EQ(px_init(&counted, nullptr, 0, &engine), 0);
    }
    ~PanoramaEngineTest() override {
        px_free(engine);
        EXPECT_EQ(gUsed, 0U);
    }

    void begin(int frames = 8, int32_t budget = kBudget) {
        ASSERT_EQ(px_setParams(engine, 640, 480, 0, 640, 480, 0, frames, 15, 15, budget), 0);
        ASSERT_EQ(px_start(engine), 0);
        ASSERT_EQ(px_beginCapture(engine, 0), 0);
        status = {};
    }
    /// Hands in a view; whether it was added, because it is ready or is to be added `always`.
    bool show(const cv::Mat& view, bool always = false) {
        auto bytes = toFrame(view);
        const px_image image = {0, 640, 480, {bytes.data(), bytes.data() + kFrame.area(), nullptr}};
        EXPECT_EQ(px_handleFrame(engine, &image, 0, &status), 0);
        offset = {status.dx, status.dy};
        const bool adds = always || status.status == 2;
        EXPECT_TRUE(!adds || px_addFrame(engine, &image, 0, &status) == 0);
        return adds;
    }
    /// Stitches; the luma of the result.
    cv::Mat stitch() {
        EXPECT_EQ(px_endCapture(engine), 0);
        uint32_t progress = 0;
        for (uint32_t before = 0; progress < 100 && !HasFailure(); before = progress) {
            EXPECT_EQ(px_createPanorama(engine, &progress), 0);
            EXPECT_GT(progress, before);
        }
        px_image image = {};
        EXPECT_EQ(px_getPanoramaImage(engine, &image), 0);
        EXPECT_EQ((image.width | image.height) % 2, 0);
        return cv::Mat(image.height, image.width, CV_8U, image.plane[0]).clone();
    }

    px_instance engine = nullptr;
    px_status status = {};
    cv::Point offset;  // of the frame that was shown last from the one that was added last before it
};

/// Expects the panorama to be as its source: `least` dB, and below `most` grey levels in the worst column or row.
void expectFit(const cv::Mat& panorama, const cv::Mat& source, double least, double most) {
    const Fit fit = fitOf(panorama, source);
    EXPECT_GE(fit.psnr, least);
    EXPECT_LT(fit.worst, most);
}

TEST_F(PanoramaEngineTest, SweepsAreStitchedAsTheSceneIs) {
    const struct {
        const char* name;
        int32_t direction;
        cv::Point2d step;
        Hand hand;
        uint32_t frames;     // to add
        double detail;       // of the picture's, that is left
        double psnr, worst;  // of the fit
    } cases[] = {{"right", 1, {24, 0}, {}, 4, 1, 30, 12},
                 {"left", 2, {-24, 0}, {}, 4, 1, 30, 12},
                 {"up", 4, {0, -24}, {}, 4, 1, 30, 12},
                 {"down", 8, {0, 24}, {}, 4, 1, 30, 12},
                 {"a hand that turns, and a light that drifts", 1, {32, 0}, {1, 3, 0.1, 7}, 7, 1, 35, 8},
                 {"the same, down", 8, {0, 24}, {1, 3, 0.1, 7}, 7, 1, 35, 8},
                 {"slowly over soft pictures", 1, {3, 0}, {}, 4, 0.4, 30, 12}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const bool upright = each.step.y != 0;
        cv::Mat wide = landscape({740, 560}, upright ? "direction=down" : "");
        cv::Mat small;
        cv::resize(wide, small, {}, each.detail, each.detail, cv::INTER_AREA);
        cv::resize(small, wide, wide.size(), 0, 0, cv::INTER_CUBIC);
        HandHeldSweep sweep(wide, kFrame, each.step, each.hand);
        begin();
        int added = 0;  // the frame that was added last
        for (int i = 0; i < sweep.count() && status.frame_count < each.frames; ++i) {
            const int from = added;
            added = show(sweep.frame(i)) ? i : added;
            EXPECT_NEAR(offset.x, each.step.x * (i - from), 4 + 3 * each.hand.jitter) << i;
            EXPECT_NEAR(offset.y, each.step.y * (i - from), 4 + 3 * each.hand.jitter) << i;
        }
        EXPECT_EQ(status.frame_count, each.frames);
        EXPECT_EQ(status.direction, each.direction);
        const cv::Mat panorama = stitch();
        const cv::Size2d swept(640 + std::abs(each.step.x) * added, 480 + std::abs(each.step.y) * added);
        EXPECT_GE(panorama.cols, 0.95 * swept.width);
        EXPECT_GE(panorama.rows, 0.95 * swept.height);
        expectFit(panorama, lumaOf(wide), each.psnr, each.worst);
        EXPECT_LT(gMost, static_cast<size_t>(kBudget));
        EXPECT_GT(gMost, size_t{status.frame_count} * kFrame.area() * 3 / 2);  // the frames are counted
    }
}

TEST_F(PanoramaEngineTest, WhereTheCameraSeesNothingItKnowsItIsLostUntilItComesBack) {
    const cv::Mat wide = landscape(kFrame);
    begin();
    for (const int x : {0, 20, 1500, 40}) {
        show(wide(cv::Rect({x, 0}, kFrame)));
        EXPECT_NEAR(offset.x, x == 1500 ? 20 : x, 2);
        EXPECT_EQ(status.status == 0, x == 1500) << x;
    }
    for (int i = 0; i < 20; ++i)  // a hand that trembles, and does not sweep
        show(wide(cv::Rect({40 * (i % 2), 0}, kFrame)));
    EXPECT_EQ(status.frame_count, 1U);
    EXPECT_EQ(px_endCapture(engine), 0);
    uint32_t progress = 0;
    EXPECT_EQ(px_createPanorama(engine, &progress), 7);
    EXPECT_EQ(progress, 0U);
}

TEST_F(PanoramaEngineTest, AFrameThatDoesNotFitEndsThePanoramaThere) {
    const cv::Mat wide = landscape(kFrame);
    const auto at = [&](int x) { return wide(cv::Rect({x, 0}, kFrame)).clone(); };
    cv::Mat strange(kFrame, CV_8UC3);
    cv::theRNG().state = 1;
    cv::randu(strange, 0, 255);
    const struct {
        const char* name;
        std::vector<cv::Mat> frames;
        int width;
    } cases[] = {{"in the middle", {at(0), at(250), at(500), strange, at(750)}, 1140},
                 {"at the beginning", {strange, at(0), at(250), at(500)}, 1140},
                 {"at the end", {at(0), at(250), strange}, 890}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        begin();
        for (const cv::Mat& frame : each.frames)
            show(frame, true);
        const cv::Mat panorama = stitch();
        EXPECT_NEAR(panorama.cols, each.width, 8);
        expectFit(panorama, lumaOf(wide), 35, 8);
    }
}

TEST_F(PanoramaEngineTest, EachFailureHasItsCode) {
    std::vector<uint8_t> frame(kFrame.area() * 3 / 2, 128);
    const px_image image = {0, 640, 480, {frame.data(), frame.data() + kFrame.area(), nullptr}};
    uint32_t progress = 0;
    EXPECT_EQ(px_start(engine), 3);
    for (const int32_t side : {-2, 0, 62, 641, 4098, INT32_MAX - 1, INT32_MIN})
        EXPECT_EQ(px_setParams(engine, side, 480, 0, 0, 0, 0, 8, 15, 15, kBudget), 1) << side;
    begin(2, kFrame.area() * 2);  // memory for one frame
    EXPECT_EQ(px_createPanorama(engine, &progress), 3);
    EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 0);
    EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 2);
    EXPECT_EQ(px_beginCapture(engine, 0), 0);
    EXPECT_EQ(px_endCapture(engine), 4);

    begin(2);
    cv::theRNG().state = 1;
    for (int i = 0; i < 2; ++i) {  // frames that have nothing in common
        cv::randu(frame, 0, 255);
        EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 0);
    }
    EXPECT_EQ(px_endCapture(engine), 0);
    EXPECT_EQ(px_createPanorama(engine, &progress), 5);
    // Other parameters drop what was captured.
    EXPECT_EQ(px_setParams(engine, 4096, 4096, 0, 0, 0, 0, 8, 15, 15, 1000), 0);
    EXPECT_LT(gUsed, frame.size());
    EXPECT_EQ(px_createPanorama(engine, &progress), 3);
}

}  // namespace
