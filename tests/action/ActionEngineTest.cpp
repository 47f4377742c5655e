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

TEST(ActionEngineTest, LessMemoryMakesFewerMomentsAndNoneRefuses) {
    kov::camera::SourceOptions parsed("");
    Crossing scene(parsed);
    const Series series = run(scene, 5);
    EXPECT_EQ(series.moments, 2U);
    EXPECT_FALSE(series.luma.empty());
    uint8_t little[16];
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
