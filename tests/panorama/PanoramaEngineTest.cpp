// The host's panorama engine against pans over a known wide picture.

#include <gtest/gtest.h>
#include <panoramax/panoramax.h>

#include <malloc.h>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "host/camera/scenes/Landscape.h"

namespace {

constexpr int32_t kBudget = 100 * 1024 * 1024;
const cv::Size kFrame(640, 480);

/// The allocation table's memory, counted.
std::atomic<size_t> gUsed{0};
std::atomic<size_t> gMost{0};

void* countedAllocate(size_t size) {
    void* memory = std::malloc(size);
    gUsed += malloc_usable_size(memory);
    gMost = std::max(gMost.load(), gUsed.load());
    return memory;
}

void countedRelease(void* memory) {
    gUsed -= malloc_usable_size(memory);
    std::free(memory);
}

const px_allocator kCounted = {countedAllocate, countedRelease};

/// BGR as a full-range frame, V first.
std::vector<uint8_t> toFrame(const cv::Mat& bgr) {
    cv::Mat picture;
    cv::cvtColor(bgr, picture, cv::COLOR_BGR2YCrCb);
    std::vector<uint8_t> frame(static_cast<size_t>(bgr.total()) * 3 / 2);
    cv::Mat luma(bgr.size(), CV_8U, frame.data());
    cv::extractChannel(picture, luma, 0);
    cv::Mat pairs(bgr.size(), CV_8UC2);
    const int order[] = {1, 0, 2, 1};
    cv::mixChannels(&picture, 1, &pairs, 1, order, 2);
    cv::Mat chroma(bgr.size() / 2, CV_8UC2, frame.data() + bgr.total());
    cv::resize(pairs, chroma, chroma.size(), 0, 0, cv::INTER_AREA);
    return frame;
}

cv::Mat lumaOf(const cv::Mat& bgr) {
    cv::Mat picture;
    cv::cvtColor(bgr, picture, cv::COLOR_BGR2YCrCb);
    cv::Mat luma;
    cv::extractChannel(picture, luma, 0);
    return luma;
}

class PanoramaEngineTest : public ::testing::Test {
protected:
    PanoramaEngineTest() {
        gUsed = gMost = 0;
        EXPECT_EQ(px_init(&kCounted, nullptr, 0, &engine), 0);
    }
    ~PanoramaEngineTest() override {
        if (engine)
            px_free(engine);
        EXPECT_EQ(gUsed, 0U);
    }

    void begin(cv::Size size = kFrame, int frames = 8, int32_t budget = kBudget) {
        ASSERT_EQ(px_setParams(engine, size.width, size.height, 0, size.width, size.height, 0, frames, 15, 15, budget),
                  0);
        ASSERT_EQ(px_start(engine), 0);
        ASSERT_EQ(px_beginCapture(engine, 0), 0);
    }

    /// Hands a frame in, and adds it when it is ready. Returns the status after it was handled.
    px_status show(std::vector<uint8_t>& frame, cv::Size size = kFrame) {
        px_image image = {0, size.width, size.height, {frame.data(), frame.data() + size.area(), nullptr}};
        EXPECT_EQ(px_handleFrame(engine, &image, 0, &status), 0);
        const px_status handled = status;
        if (status.status == 2) {
            EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 0);
        }
        return handled;
    }

    /// Stitches; the luma of the result.
    cv::Mat stitch() {
        EXPECT_EQ(px_endCapture(engine), 0);
        uint32_t progress = 0;
        while (progress < 100) {
            const uint32_t before = progress;
            EXPECT_EQ(px_createPanorama(engine, &progress), 0);
            EXPECT_GT(progress, before);
            if (progress <= before)
                return {};
        }
        px_image image = {};
        EXPECT_EQ(px_getPanoramaImage(engine, &image), 0);
        EXPECT_EQ(image.width % 2, 0);
        EXPECT_EQ(image.height % 2, 0);
        return cv::Mat(image.height, image.width, CV_8U, image.plane[0]).clone();
    }

    px_instance engine = nullptr;
    px_status status = {};
};

/// How well a panorama fits its source at the best place, to a fraction of a pixel.
struct Fit {
    double psnr = 0;       // dB
    double worstLine = 0;  // mean difference of the worst column or row: a seam
};

Fit fit(const cv::Mat& panorama, const cv::Mat& source) {
    cv::Mat scores;
    const cv::Rect inner(8, 8, panorama.cols - 16, panorama.rows - 16);
    cv::matchTemplate(source, panorama(inner), scores, cv::TM_SQDIFF);
    cv::Point best;
    cv::minMaxLoc(scores, nullptr, nullptr, &best);
    Fit found;
    for (int i = -4; i <= 4; ++i) {
        for (int j = -4; j <= 4; ++j) {
            const cv::Point2f center(static_cast<float>(best.x) + static_cast<float>(inner.width - 1) / 2 + 0.25F * i,
                                     static_cast<float>(best.y) + static_cast<float>(inner.height - 1) / 2 + 0.25F * j);
            cv::Mat part;
            cv::getRectSubPix(source, inner.size(), center, part);
            const double psnr = cv::PSNR(part, panorama(inner));
            if (psnr <= found.psnr)
                continue;
            cv::Mat difference;
            cv::absdiff(part, panorama(inner), difference);
            found = {psnr, 0};
            for (const int way : {0, 1}) {
                cv::Mat lines;
                cv::reduce(difference, lines, way, cv::REDUCE_AVG, CV_64F);
                double most = 0;
                cv::minMaxLoc(lines, nullptr, &most);
                found.worstLine = std::max(found.worstLine, most);
            }
        }
    }
    return found;
}

TEST_F(PanoramaEngineTest, PansAreStitchedAsTheSceneIs) {
    const struct {
        const char* direction;
        int32_t code;
    } cases[] = {{"right", 1}, {"left", 2}, {"up", 4}, {"down", 8}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.direction);
        kov::camera::SourceOptions options(std::string("direction=") + each.direction + "&seconds=8");
        kov::camera::Landscape scene(options);
        begin();
        cv::Rect swept = scene.crop(0, kFrame);
        int after = 0;  // frames since the fourth was added: the sweep ends between two strides
        for (int i = 0; i < 270 && after < 9; ++i) {
            const double seconds = i / 20.0;
            auto frame = toFrame(scene.frame(seconds, kFrame));
            if (show(frame).status == 2) {
                EXPECT_EQ(status.status, 3U);
            }
            swept |= scene.crop(seconds, kFrame);
            after += status.frame_count == 4;
        }
        ASSERT_EQ(status.frame_count, 4U);
        EXPECT_EQ(status.direction, each.code);
        const cv::Mat panorama = stitch();
        EXPECT_GE(panorama.total(), 0.95 * swept.area());
        const Fit found = fit(panorama, lumaOf(scene.widePicture(kFrame)));
        std::printf("%s: %.1f dB, worst line %.1f\n", each.direction, found.psnr, found.worstLine);
        EXPECT_GE(found.psnr, 30);
        EXPECT_LT(found.worstLine, 12);
    }
}

TEST_F(PanoramaEngineTest, WobbleAndDriftOfExposureAreEvenedOut) {
    kov::camera::SourceOptions options("");
    kov::camera::Landscape scene(options);
    const cv::Mat wide = scene.widePicture({800, 600});
    begin();
    for (int i = 0; i < 250 && status.frame_count < 8; ++i) {
        const cv::Point place(10 + 9 * i, 40 + cvRound(10 * std::sin(i / 12.0)));
        if (place.x + kFrame.width > wide.cols)
            break;
        cv::Mat view;
        wide(cv::Rect(place, kFrame)).convertTo(view, CV_8UC3, 0.95 + 0.1 * i / 200);
        auto frame = toFrame(view);
        show(frame);
    }
    ASSERT_EQ(status.frame_count, 8U);
    const cv::Mat panorama = stitch();
    EXPECT_GE(panorama.rows, 0.95 * (kFrame.height - 2));
    const Fit found = fit(panorama, lumaOf(wide));
    std::printf("wobble and drift: %.1f dB, worst line %.1f\n", found.psnr, found.worstLine);
    EXPECT_GE(found.psnr, 26);
    EXPECT_LT(found.worstLine, 25);
    EXPECT_LT(gMost, static_cast<size_t>(kBudget));
    EXPECT_GT(gMost, size_t{8} * kFrame.area() * 3 / 2);  // the frames are counted
}

TEST_F(PanoramaEngineTest, ASlowSweepOverSoftPicturesIsMeasuredAsItIs) {
    kov::camera::SourceOptions options("");
    kov::camera::Landscape scene(options);
    cv::Mat wide = scene.widePicture(kFrame);
    cv::Mat small;
    cv::resize(wide, small, {}, 0.4, 0.4, cv::INTER_AREA);
    cv::resize(small, wide, wide.size(), 0, 0, cv::INTER_CUBIC);
    begin();
    int32_t from = 0;
    for (int32_t x = 0; x < 1000; x += 3) {
        auto frame = toFrame(wide(cv::Rect({x, 0}, kFrame)));
        const px_status handled = show(frame);
        EXPECT_NEAR(handled.dx, x - from, 4) << x;
        EXPECT_NEAR(handled.dy, 0, 4) << x;
        if (handled.status == 2)
            from = x;
    }
    EXPECT_GE(fit(stitch(), lumaOf(wide)).psnr, 30);
}

TEST_F(PanoramaEngineTest, OffsetsAreThoseOfTheCamera) {
    kov::camera::SourceOptions options("");
    kov::camera::Landscape scene(options);
    const cv::Mat wide = scene.widePicture({800, 600});
    begin();
    auto first = toFrame(wide(cv::Rect({100, 60}, kFrame)));
    EXPECT_EQ(show(first).status, 2U);
    auto second = toFrame(wide(cv::Rect({140, 48}, kFrame)));
    const px_status moved = show(second);
    EXPECT_NEAR(moved.dx, 40, 2);
    EXPECT_NEAR(moved.dy, -12, 2);
    EXPECT_EQ(moved.direction, 1);
    EXPECT_EQ(moved.status, 1U);
    // Where the camera sees nothing that it knows it is lost, and found when it comes back.
    std::vector<uint8_t> noise(second.size());
    cv::theRNG().state = 1;
    cv::randu(noise, 0, 255);
    EXPECT_EQ(show(noise).status, 0U);
    const px_status found = show(second);
    EXPECT_EQ(found.status, 1U);
    EXPECT_NEAR(found.dx, 40, 2);
}

TEST_F(PanoramaEngineTest, EachFailureHasItsCode) {
    std::vector<uint8_t> frame(kFrame.area() * 3 / 2, 128);
    px_image image = {0, kFrame.width, kFrame.height, {frame.data(), frame.data() + kFrame.area(), nullptr}};
    uint32_t progress = 0;
    px_image out = {};
    EXPECT_NE(px_init(nullptr, nullptr, 0, &engine), 0);
    EXPECT_EQ(px_start(engine), 3);
    EXPECT_EQ(px_beginCapture(engine, 0), 3);
    EXPECT_EQ(px_setParams(engine, 641, 480, 0, 0, 0, 0, 8, 15, 15, kBudget), 1);
    EXPECT_EQ(px_setParams(engine, 640, 480, 0, 0, 0, 0, 0, 15, 15, kBudget), 1);
    begin(kFrame, 2, kFrame.area() * 2);  // memory for one frame
    EXPECT_EQ(px_handleFrame(engine, &image, 0, nullptr), 1);
    image.width = 320;
    EXPECT_EQ(px_handleFrame(engine, &image, 0, &status), 1);
    image.width = kFrame.width;
    EXPECT_EQ(px_createPanorama(engine, &progress), 3);
    EXPECT_EQ(px_getPanoramaImage(engine, &out), 3);
    EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 0);
    EXPECT_EQ(px_addFrame(engine, &image, 0, &status), 2);
    EXPECT_EQ(px_beginCapture(engine, 0), 0);
    EXPECT_EQ(px_endCapture(engine), 4);

    // Two frames that have nothing in common.
    begin(kFrame, 2);
    cv::Mat noise(kFrame, CV_8UC3);
    cv::theRNG().state = 1;
    for (int i = 0; i < 2; ++i) {
        cv::randu(noise, 0, 255);
        auto random = toFrame(noise);
        image.plane[0] = random.data();
        image.plane[1] = random.data() + kFrame.area();
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
