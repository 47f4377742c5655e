// The host's action engine on the crossing scene, called directly and through kovcam.

#include <actionshot/actionshot.h>
#include <gtest/gtest.h>

#include <cstring>
#include <opencv2/imgproc.hpp>
#include <utility>
#include <vector>

#include "host/camera/scenes/Crossing.h"
#include "tests/support/KovcamSession.h"
#include "tests/support/SceneFrames.h"

using kov::camera::Crossing;
using kov::test::lumaOf;

namespace {

const cv::Size kFrame(640, 480);

struct Series {
    cv::Mat luma;        // of the result; empty when there is none
    size_t moments = 0;  // that were taken
};

/// Runs a whole series over `blocks` blocks of working memory, until it ends by itself.
Series run(Crossing& scene, uint32_t blocks) {
    const ActionShot_MemoryFunctions functions = {std::memcpy, std::memset};
    ActionShot_SetMemoryFunctions(&functions);
    std::vector<uint8_t> memory(blocks * 460800);
    ActionShot_Handle engine = nullptr;
    EXPECT_EQ(ActionShot_Initialize(&engine, 640, 480, memory.data(), blocks * 460800), 1);
    ActionShot_SetConfigurationParameter(engine, 0, 8);
    EXPECT_EQ(ActionShot_StartSeries(engine), 1);
    Series series;
    int32_t progress = 0;
    bool ended = false;
    for (double time = 0; time < 8.5 && !ended; time += 1 / 15.0) {
        auto bytes = kov::test::toFrame(scene.frame(time, kFrame));
        const OPT_API_ASImage image = {0, 640, 480, {bytes.data(), bytes.data() + kFrame.area(), nullptr}};
        const int32_t result = ActionShot_HandleFrame(engine, &image);
        ended = result < 0 || result > 3;
        series.moments += result == 0;
        const int32_t before = std::exchange(progress, ActionShot_AcquisitionProgress(engine));
        EXPECT_GE(progress, before);
    }
    EXPECT_TRUE(ended);
    progress = 0;
    OPT_API_ASImage result = {};
    while (progress < 100 && ActionShot_CreateResult(engine, &progress, &result)) {
    }
    if (progress == 100)
        series.luma = cv::Mat(kFrame, CV_8U, result.plane[0]).clone();
    ActionShot_Finalize(&engine);
    EXPECT_EQ(engine, nullptr);
    return series;
}

/// How far the picture is from the scene, in grey levels on average, over the mask.
double difference(const cv::Mat& picture, const cv::Mat& scene, const cv::Mat& mask) {
    cv::Mat each;
    cv::absdiff(picture, lumaOf(scene), each);
    return cv::mean(each, mask)[0];
}

/// Expects the whole subject in so many distinct places, within `most` grey levels, and elsewhere the empty scene.
void expectPeople(Crossing& scene, const cv::Mat& picture, size_t places, double most) {
    const cv::Rect inside(1, 1, kFrame.width - 2, kFrame.height - 2);
    cv::Mat people(kFrame, CV_8U, cv::Scalar(0));
    size_t found = 0;
    int last = -1000;
    for (double time = 1; time < 7; time += 1 / 30.0) {
        const cv::Rect box = scene.subjectBox(time, kFrame);
        if (box.empty() || (box & inside) != box || box.x <= last + 40)
            continue;
        const cv::Mat mask = scene.subjectMask(time, kFrame);
        cv::Mat inner;
        cv::erode(mask, inner, cv::Mat(), {-1, -1}, 2);
        if (difference(picture, scene.frame(time, kFrame), inner) >= most)
            continue;
        ++found;
        last = box.x;
        people |= mask;
    }
    EXPECT_GE(found, places);
    cv::dilate(people, people, cv::Mat(), {-1, -1}, 24);  // with the shadows
    EXPECT_LT(difference(picture, scene.background(0, kFrame), ~people), 2);
}

TEST(ActionEngineTest, TheSubjectIsThereAtSeveralMomentsAndWhole) {
    for (const char* options : {"", "shake=3"}) {
        SCOPED_TRACE(options);
        kov::camera::SourceOptions parsed(options);
        Crossing scene(parsed);
        const Series series = run(scene, 25);
        ASSERT_FALSE(series.luma.empty());
        ASSERT_GE(series.moments, 4U);
        if (!*options)  // the ground truth is that of the first frame's place
            expectPeople(scene, series.luma, series.moments, 3);
    }
}

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
    const ActionShot_MemoryFunctions functions = {std::memcpy, std::memset};
    ActionShot_SetMemoryFunctions(&functions);
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const Passing film(each.frame, each.body, each.pace);
        std::vector<uint8_t> memory(25 * 460800);
        ActionShot_Handle engine = nullptr;
        ASSERT_EQ(ActionShot_Initialize(&engine, each.frame.width, each.frame.height, memory.data(), 25 * 460800), 1);
        ActionShot_SetConfigurationParameter(engine, 0, 8);
        EXPECT_EQ(ActionShot_StartSeries(engine), 1);
        int moments = 0;
        int32_t last = 0;
        for (int i = 0; i < film.count() && last >= 0 && last <= 3; ++i) {
            auto bytes = kov::test::toFrame(film.frame(i));
            const OPT_API_ASImage image = {
                0, each.frame.width, each.frame.height, {bytes.data(), bytes.data() + each.frame.area(), nullptr}};
            last = ActionShot_HandleFrame(engine, &image);
            moments += last == 0;
        }
        EXPECT_GE(moments, each.least);
        int32_t progress = 0;
        OPT_API_ASImage made = {};
        while (ActionShot_CreateResult(engine, &progress, &made)) {
        }
        ASSERT_EQ(progress, 100);
        EXPECT_EQ(cv::Size(made.width, made.height), each.frame);
        // Nobody else is in the picture, and everybody is: the dark bodies' share of it.
        const cv::Mat luma(each.frame, CV_8U, made.plane[0]);
        const double body = each.body.width * 5 / 6 * (each.body & cv::Rect(0, 0, 4000, each.frame.height)).height;
        EXPECT_NEAR(cv::countNonZero(luma < 80), moments * body, 0.25 * moments * body);
        progress = 0;
        EXPECT_EQ(ActionShot_CreateResult(engine, &progress, &made), 0);  // once is enough
        EXPECT_EQ(progress, 0);
        ActionShot_Finalize(&engine);
    }
}

TEST(ActionEngineTest, LittleMemoryMakesASmallerPictureAndTooLittleRefuses) {
    kov::camera::SourceOptions parsed("");
    Crossing scene(parsed);
    const Series series = run(scene, 4);
    EXPECT_GE(series.moments, 3U);
    EXPECT_FALSE(series.luma.empty());
    uint8_t little[16];
    for (const int32_t side : {-2, 0, 14, 641, 4098, INT32_MAX, INT32_MIN}) {
        ActionShot_Handle none = little;
        EXPECT_EQ(ActionShot_Initialize(&none, side, 480, little, sizeof little), 0) << side;
        EXPECT_EQ(none, nullptr);
    }
    ActionShot_SetMemoryFunctions(nullptr);
    EXPECT_EQ(ActionShot_Initialize(nullptr, 640, 480, little, sizeof little), 0);
    EXPECT_EQ(ActionShot_HandleFrame(nullptr, nullptr), 4);
    EXPECT_EQ(ActionShot_SetTempMemory(nullptr, nullptr, 1, 1), 0);
    ActionShot_GetAcquisitionDisplayData(nullptr, nullptr);
    ActionShot_Finalize(nullptr);
    ActionShot_Handle engine = nullptr;
    EXPECT_EQ(ActionShot_Initialize(&engine, 640, 480, little, sizeof little), 0);
    EXPECT_EQ(ActionShot_Initialize(&engine, 640, 480, nullptr, 0), 0);
    EXPECT_EQ(ActionShot_StartSeries(nullptr), 0);
    EXPECT_EQ(ActionShot_CreateResult(nullptr, nullptr, nullptr), 0);
}

using ActionSession = kov::test::KovcamSession;

TEST_F(ActionSession, TheCrossingSceneMakesOnePictureOfWholePeopleInDistinctPlaces) {
    ASSERT_EQ(shoot("action -i scene:crossing", 2), 0);
    const cv::Mat bgr = picture("action-001.jpg");
    ASSERT_EQ(bgr.size(), kFrame);
    kov::camera::SourceOptions parsed("");
    Crossing scene(parsed);
    expectPeople(scene, lumaOf(bgr), 4, 4);
}

}  // namespace
