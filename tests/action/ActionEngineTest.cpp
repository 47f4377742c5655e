// The host's action engine on the crossing scene, called directly and through kovcam.

#include <actionshot/actionshot.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "host/camera/scenes/Crossing.h"
#include "tests/support/KovcamSession.h"
#include "tests/support/SceneFrames.h"

using kov::camera::Crossing;
using namespace kov::test;

namespace {

const cv::Size kFrame(640, 480);

/// A film of somebody who passes by at an even pace, before a wall of many colours.
class Passing {
public:
    /// `body` in the frame's coordinates when its left side is at 0; `pace` in pixels a frame, negative to the left.
    Passing(cv::Size frame, cv::Rect body, int pace) : mFrame(frame), mBody(body), mPace(pace) {
        cv::RNG random(1);
        cv::Mat tiles(frame / 40, CV_8UC3);
        random.fill(tiles, cv::RNG::UNIFORM, 90, 220);
        cv::resize(tiles, mWall, frame, 0, 0, cv::INTER_LINEAR);
    }
    int count() const { return kBefore + (mFrame.width + mBody.width) / std::abs(mPace) + kAfter; }
    cv::Mat frame(int index) const {
        cv::Mat picture = mWall.clone();
        const int way = std::abs(mPace) * (index - kBefore) - mBody.width;
        const int x = mPace > 0 ? way : mFrame.width - mBody.width - way;
        if (index >= kBefore) {
            const cv::Rect box = mBody + cv::Point(x, 0);
            // The head goes in front: at first there is less of the body to be seen, and in another place.
            const int lead = mPace > 0 ? mBody.width / 2 : 0;
            cv::rectangle(picture, {box.x, box.y + box.height / 3, box.width, box.height * 2 / 3}, {40, 30, 120}, -1);
            cv::rectangle(picture, {box.x + lead, box.y, box.width / 2, box.height / 3}, {40, 30, 120}, -1);
        }
        return picture;
    }

private:
    static constexpr int kBefore = 8;
    static constexpr int kAfter = 30;
    const cv::Size mFrame;
    const cv::Rect mBody;
    const int mPace;
    cv::Mat mWall;
};

struct Series {
    cv::Mat luma;     // of the result; empty when there is none
    int moments = 0;  // that were taken
};

/// Runs a whole series of at most `count` frames over `blocks` blocks of working memory, until it ends by itself.
Series run(cv::Size size, const std::function<cv::Mat(int)>& film, int count, uint32_t blocks = 25) {
    const ActionShot_MemoryFunctions functions = {std::memcpy, std::memset};
    ActionShot_SetMemoryFunctions(&functions);
    std::vector<uint8_t> memory(blocks * 460800);
    ActionShot_Handle engine = nullptr;
    EXPECT_EQ(ActionShot_Initialize(&engine, size.width, size.height, memory.data(), blocks * 460800), 1);
    ActionShot_SetConfigurationParameter(engine, 0, 8);
    EXPECT_EQ(ActionShot_StartSeries(engine), 1);
    Series series;
    int32_t progress = 0, last = 0;
    for (int i = 0; i < count && last >= 0 && last <= 3; ++i) {
        auto bytes = toFrame(film(i));
        const OPT_API_ASImage image = {0, size.width, size.height, {bytes.data(), bytes.data() + size.area(), nullptr}};
        last = ActionShot_HandleFrame(engine, &image);
        series.moments += last == 0;
        const int32_t before = std::exchange(progress, ActionShot_AcquisitionProgress(engine));
        EXPECT_GE(progress, before);
    }
    progress = 0;
    OPT_API_ASImage made = {};
    while (ActionShot_CreateResult(engine, &progress, &made)) {
    }
    if (progress == 100) {
        EXPECT_EQ(cv::Size(made.width, made.height), size);
        series.luma = cv::Mat(size, CV_8U, made.plane[0]).clone();
    }
    progress = 0;
    EXPECT_EQ(ActionShot_CreateResult(engine, &progress, &made), 0);  // once is enough
    EXPECT_EQ(progress, 0);
    ActionShot_Finalize(&engine);
    EXPECT_EQ(engine, nullptr);
    return series;
}

TEST(ActionEngineTest, WhoeverPassesIsTakenAtEachEdgePaceAndPreviewSize) {
    const struct {
        const char* name;
        cv::Size frame;
        cv::Rect body;
        int pace;
        int least;  // moments
    } cases[] = {
        {"a quarter of the height, clear of the edges", {640, 480}, {0, 180, 50, 120}, 12, 6},
        {"the same to the left", {640, 480}, {0, 180, 50, 120}, -12, 6},
        {"fast", {640, 480}, {0, 180, 50, 120}, 24, 6},
        {"feet out of the picture", {640, 480}, {0, 240, 80, 300}, 10, 4},
        {"head out of the picture", {640, 480}, {0, -40, 80, 300}, 10, 4},
        {"taller than the picture", {640, 480}, {0, -40, 80, 600}, 10, 4},
        {"320x240", {320, 240}, {0, 90, 25, 60}, 6, 6},
        {"1280x720", {1280, 720}, {0, 300, 80, 180}, 24, 6},
        {"1920x1080", {1920, 1080}, {0, 450, 120, 270}, 36, 6},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const Passing film(each.frame, each.body, each.pace);
        const Series series = run(
            each.frame, [&](int i) { return film.frame(i); }, film.count());
        EXPECT_GE(series.moments, each.least);
        ASSERT_FALSE(series.luma.empty());
        // Nobody else is in the picture, and everybody is: the dark bodies' share of it.
        const double body = each.body.width * 5 / 6 * (each.body & cv::Rect(0, 0, 4000, each.frame.height)).height;
        EXPECT_NEAR(cv::countNonZero(series.luma < 80), series.moments * body, 0.25 * series.moments * body);
    }
}

TEST(ActionEngineTest, LittleMemoryMakesASmallerPictureAndTooLittleRefuses) {
    kov::camera::SourceOptions parsed("shake=3");
    Crossing scene(parsed);
    for (const auto& [blocks, moments] : {std::pair(25U, 4), {4U, 3}}) {
        const Series series = run(
            kFrame, [&](int i) { return scene.frame(i / 15.0, kFrame); }, 127, blocks);
        EXPECT_GE(series.moments, moments);
        EXPECT_FALSE(series.luma.empty());
    }
    uint8_t little[16];
    for (const int32_t side : {-2, 0, 14, 641, 4098, INT32_MAX, INT32_MIN}) {
        ActionShot_Handle none = little;
        EXPECT_EQ(ActionShot_Initialize(&none, side, 480, little, sizeof little), 0) << side;
        EXPECT_EQ(none, nullptr);
    }
    ActionShot_Handle engine = nullptr;
    EXPECT_EQ(ActionShot_Initialize(&engine, 640, 480, little, sizeof little), 0);
    EXPECT_EQ(ActionShot_Initialize(&engine, 640, 480, nullptr, 0), 0);
    EXPECT_EQ(ActionShot_HandleFrame(nullptr, nullptr), 4);
}

using ActionSession = KovcamSession;

// The whole subject in several distinct places, and elsewhere the empty scene.
TEST_F(ActionSession, TheCrossingSceneMakesOnePictureOfWholePeopleInDistinctPlaces) {
    shoot("action -i scene:crossing", "KOV_CAMERA_SPEED=2 ");
    const cv::Mat made = picture("action-001.jpg");
    ASSERT_EQ(made.size(), kFrame);
    kov::camera::SourceOptions parsed("");
    Crossing scene(parsed);
    const cv::Rect inside(1, 1, kFrame.width - 2, kFrame.height - 2);
    cv::Mat people(kFrame, CV_8U, cv::Scalar(0));
    int found = 0, last = -1000;
    for (double time = 1; time < 7; time += 1 / 30.0) {
        const cv::Rect box = scene.subjectBox(time, kFrame);
        if (box.empty() || (box & inside) != box || box.x <= last + 40)
            continue;
        const cv::Mat mask = scene.subjectMask(time, kFrame);
        cv::Mat inner;
        cv::erode(mask, inner, cv::Mat(), {-1, -1}, 2);
        if (difference(made, scene.frame(time, kFrame), inner) >= 4)
            continue;
        ++found;
        last = box.x;
        people |= mask;
    }
    EXPECT_GE(found, 4);
    cv::dilate(people, people, cv::Mat(), {-1, -1}, 24);  // with the shadows
    EXPECT_LT(difference(made, scene.background(0, kFrame), ~people), 2);
}

}  // namespace
