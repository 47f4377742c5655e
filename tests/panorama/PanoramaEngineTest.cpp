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

cv::Mat landscape(cv::Size frame) {
    kov::camera::SourceOptions options("");
    return kov::camera::Landscape(options).widePicture(frame);
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
    /// Hands in what the camera sees at `place`, and adds it when it is ready. Expects the offset from the frame that
    /// was added last to be measured to `most` pixels.
    void show(cv::Point place, const cv::Mat& view, int most) {
        auto bytes = toFrame(view);
        const px_image image = {0, 640, 480, {bytes.data(), bytes.data() + kFrame.area(), nullptr}};
        EXPECT_EQ(px_handleFrame(engine, &image, 0, &status), 0);
        EXPECT_NEAR(status.dx, place.x - from.x, most) << place;
        EXPECT_NEAR(status.dy, place.y - from.y, most) << place;
        if (status.status != 2)
            return;
        from = place;
        EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 0);
        EXPECT_EQ(status.status, 3U);
    }
    /// Hands in the whole sweep, as far as the buffer reaches.
    void sweepOver(HandHeldSweep& sweep) {
        for (int i = 0; i < sweep.count() && status.frame_count < 8; ++i)
            offer(sweep.frame(i));
    }
    void offer(const cv::Mat& view) {
        auto bytes = toFrame(view);
        const px_image image = {0, 640, 480, {bytes.data(), bytes.data() + kFrame.area(), nullptr}};
        EXPECT_EQ(px_handleFrame(engine, &image, 0, &status), 0);
        if (status.status == 2) {
            EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 0);
        }
    }
    /// Adds a frame, whatever the library thinks of it.
    void add(const cv::Mat& view) {
        auto bytes = toFrame(view);
        const px_image image = {0, 640, 480, {bytes.data(), bytes.data() + kFrame.area(), nullptr}};
        EXPECT_EQ(px_handleFrame(engine, &image, 0, &status), 0);
        EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 0);
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
    cv::Point from;  // where the frame that was added last is
};

/// Expects the panorama to be as its source: `least` dB, and in each column and row, where a seam would show, below
/// `most` grey levels on average.
void expectFit(const cv::Mat& panorama, const cv::Mat& source, double least, double most) {
    const Fit fit = fitOf(panorama, source);
    EXPECT_GE(fit.psnr, least);
    EXPECT_LT(fit.worst, most);
}

TEST_F(PanoramaEngineTest, PansAreStitchedAsTheSceneIs) {
    const std::pair<std::string, int32_t> cases[] = {{"right", 1}, {"left", 2}, {"up", 4}, {"down", 8}};
    for (const auto& [direction, code] : cases) {
        SCOPED_TRACE(direction);
        kov::camera::SourceOptions options("direction=" + direction + "&seconds=8");
        kov::camera::Landscape scene(options);
        begin();
        cv::Rect swept;
        from = scene.crop(0, kFrame).tl();
        int after = 0;  // frames since the fourth was added: the sweep ends between two strides
        for (int i = 0; i < 270 && after < 9; ++i) {
            const cv::Rect seen = scene.crop(i / 20.0, kFrame);
            show(seen.tl(), scene.frame(i / 20.0, kFrame), 4);
            swept |= seen;
            after += status.frame_count == 4;
        }
        ASSERT_EQ(status.frame_count, 4U);
        EXPECT_EQ(status.direction, code);
        const cv::Mat panorama = stitch();
        EXPECT_GE(panorama.total(), 0.95 * swept.area());
        expectFit(panorama, lumaOf(scene.widePicture(kFrame)), 30, 12);
    }
}

TEST_F(PanoramaEngineTest, WobbleAndDriftOfExposureAreEvenedOut) {
    const cv::Mat wide = landscape({800, 600});
    begin();
    from = {10, 40};
    for (int i = 0; i < 250 && status.frame_count < 8; ++i) {
        const cv::Point place(10 + 9 * i, 40 + cvRound(10 * std::sin(i / 12.0)));
        cv::Mat view;
        wide(cv::Rect(place, kFrame)).convertTo(view, CV_8UC3, 0.95 + 0.1 * i / 200);
        show(place, view, 2);
        if (i == 5) {  // where the camera sees nothing that it knows it is lost, and found when it comes back
            show(place, wide(cv::Rect({1500, 40}, kFrame)), 2);
            EXPECT_EQ(status.status, 0U);
        }
    }
    ASSERT_EQ(status.frame_count, 8U);
    const cv::Mat panorama = stitch();
    EXPECT_GE(panorama.rows, 0.95 * (kFrame.height - 2));
    expectFit(panorama, lumaOf(wide), 26, 25);
    EXPECT_LT(gMost, static_cast<size_t>(kBudget));
    EXPECT_GT(gMost, size_t{8} * kFrame.area() * 3 / 2);  // the frames are counted
}

TEST_F(PanoramaEngineTest, AHandThatTurnsIsFollowedEitherWay) {
    for (const bool upright : {false, true}) {
        SCOPED_TRACE(upright ? "down" : "right");
        kov::camera::SourceOptions options(upright ? "direction=down" : "");
        const cv::Mat wide = kov::camera::Landscape(options).widePicture({740, 560});
        HandHeldSweep sweep(wide, kFrame, upright ? cv::Point2d(0, 24) : cv::Point2d(32, 0), {1, 3, 0.1, 7});
        begin();
        sweepOver(sweep);
        EXPECT_GE(status.frame_count, 7U);
        const cv::Mat panorama = stitch();
        EXPECT_GE(upright ? panorama.cols : panorama.rows, 0.95 * (upright ? kFrame.width : kFrame.height));
        expectFit(panorama, lumaOf(wide), 35, 8);
    }
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
            add(frame);
        const cv::Mat panorama = stitch();
        EXPECT_NEAR(panorama.cols, each.width, 8);
        expectFit(panorama, lumaOf(wide), 35, 8);
    }
}

TEST_F(PanoramaEngineTest, ASweepThatNeverMovedHasACodeOfItsOwn) {
    const cv::Mat wide = landscape({800, 600});
    begin();
    for (int i = 0; i < 20; ++i)
        offer(wide(cv::Rect({100 + 40 * (i % 2), 40}, kFrame)));  // a hand that trembles, and does not sweep
    EXPECT_EQ(status.frame_count, 1U);
    EXPECT_EQ(px_endCapture(engine), 0);
    uint32_t progress = 0;
    EXPECT_EQ(px_createPanorama(engine, &progress), 7);
    EXPECT_EQ(progress, 0U);
}

TEST_F(PanoramaEngineTest, ParametersThatChangeDropWhatWasCaptured) {
    std::vector<uint8_t> frame(kFrame.area() * 3 / 2, 128);
    const px_image image = {0, 640, 480, {frame.data(), frame.data() + kFrame.area(), nullptr}};
    uint32_t progress = 0;
    begin();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 0);
    EXPECT_EQ(px_endCapture(engine), 0);
    EXPECT_EQ(px_setParams(engine, 4096, 4096, 0, 0, 0, 0, 8, 15, 15, 1000), 0);
    EXPECT_LT(gUsed, frame.size());
    EXPECT_EQ(px_createPanorama(engine, &progress), 3);
    EXPECT_EQ(px_start(engine), 0);
    EXPECT_EQ(px_beginCapture(engine, 0), 0);
    EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 1);  // of the size before
    for (const int32_t side : {-2, 0, 62, 4098, INT32_MAX - 1, INT32_MIN})
        EXPECT_EQ(px_setParams(engine, side, 480, 0, 0, 0, 0, 8, 15, 15, kBudget), 1) << side;
}

TEST_F(PanoramaEngineTest, ASlowSweepOverSoftPicturesIsMeasuredAsItIs) {
    cv::Mat wide = landscape(kFrame);
    cv::Mat small;
    cv::resize(wide, small, {}, 0.4, 0.4, cv::INTER_AREA);
    cv::resize(small, wide, wide.size(), 0, 0, cv::INTER_CUBIC);
    begin();
    for (int32_t x = 0; x < 1000; x += 3)
        show({x, 0}, wide(cv::Rect({x, 0}, kFrame)), 4);
    expectFit(stitch(), lumaOf(wide), 30, 12);
}

TEST_F(PanoramaEngineTest, EachFailureHasItsCode) {
    std::vector<uint8_t> frame(kFrame.area() * 3 / 2, 128);
    const px_image image = {0, 640, 480, {frame.data(), frame.data() + kFrame.area(), nullptr}};
    px_image none = {};
    uint32_t progress = 0;
    EXPECT_NE(px_init(nullptr, nullptr, 0, &engine), 0);
    EXPECT_EQ(px_start(engine), 3);
    EXPECT_EQ(px_beginCapture(engine, 0), 3);
    EXPECT_EQ(px_setParams(engine, 641, 480, 0, 0, 0, 0, 8, 15, 15, kBudget), 1);
    EXPECT_EQ(px_setParams(engine, 640, 480, 0, 0, 0, 0, 0, 15, 15, kBudget), 1);
    begin(2, kFrame.area() * 2);  // memory for one frame
    EXPECT_EQ(px_handleFrame(engine, &image, 0, nullptr), 1);
    EXPECT_EQ(px_handleFrame(engine, &none, 0, &status), 1);
    EXPECT_EQ(px_handleFrame(engine, nullptr, 0, &status), 1);
    EXPECT_EQ(px_addFrame(engine, nullptr, 0, &status), 1);
    EXPECT_EQ(px_createPanorama(engine, nullptr), 1);
    EXPECT_EQ(px_getPanoramaImage(engine, nullptr), 1);
    EXPECT_EQ(px_createPanorama(engine, &progress), 3);
    EXPECT_EQ(px_getPanoramaImage(engine, &none), 3);
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
    EXPECT_EQ(px_abort(engine), 0);
    EXPECT_EQ(px_createPanorama(engine, &progress), 6);
    for (const auto call : {px_start, px_endCapture, px_abort, px_free})
        EXPECT_EQ(call(nullptr), 1);
}

}  // namespace
