// The host's action engine on the crossing scene, called directly and through kovcam.

#include <actionshot/actionshot.h>
#include <gtest/gtest.h>

#include <cstring>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "host/camera/scenes/Crossing.h"
#include "tests/support/KovcamSession.h"

namespace {

const cv::Size kFrame(640, 480);
const ActionShot_MemoryFunctions kFunctions = {std::memcpy, std::memset};

std::vector<uint8_t> toFrame(const cv::Mat& bgr) {
    cv::Mat picture;
    cv::cvtColor(bgr, picture, cv::COLOR_BGR2YCrCb);
    std::vector<uint8_t> frame(bgr.total() * 3 / 2);
    cv::Mat luma(bgr.size(), CV_8U, frame.data());
    cv::extractChannel(picture, luma, 0);
    cv::Mat pairs(bgr.size(), CV_8UC2);
    const int order[] = {1, 0, 2, 1};
    cv::mixChannels(&picture, 1, &pairs, 1, order, 2);
    cv::Mat chroma(bgr.size() / 2, CV_8UC2, frame.data() + bgr.total());
    cv::resize(pairs, chroma, chroma.size(), 0, 0, cv::INTER_AREA);
    return frame;
}

struct Series {
    cv::Mat luma;                 // of the result; empty when there is none
    std::vector<double> moments;  // when the scene's subject was taken
    bool endedByItself = false;
};

/// Runs a whole series over `blocks` blocks of working memory.
Series run(kov::camera::Crossing& scene, int blocks) {
    Series series;
    std::vector<uint8_t> memory(static_cast<size_t>(blocks) * 460800);
    ActionShot_SetMemoryFunctions(&kFunctions);
    ActionShot_Handle engine = nullptr;
    EXPECT_EQ(ActionShot_Initialize(&engine, kFrame.width, kFrame.height, memory.data(),
                                    static_cast<uint32_t>(memory.size())),
              1);
    ActionShot_SetConfigurationParameter(engine, 0, 8);
    EXPECT_EQ(ActionShot_StartSeries(engine), 1);
    int32_t lastProgress = 0;
    for (double time = 0; time < 8.5 && !series.endedByItself; time += 1 / 15.0) {
        auto bytes = toFrame(scene.frame(time, kFrame));
        const OPT_API_ASImage image = {
            0, kFrame.width, kFrame.height, {bytes.data(), bytes.data() + kFrame.area(), nullptr}};
        const int32_t result = ActionShot_HandleFrame(engine, &image);
        series.endedByItself = result < 0 || result > 3;
        const int32_t progress = ActionShot_AcquisitionProgress(engine);
        if (result == 0 || (series.endedByItself && progress == 100 && lastProgress < 100))
            series.moments.push_back(time);
        EXPECT_GE(progress, lastProgress);
        lastProgress = progress;
    }
    int32_t progress = 0;
    OPT_API_ASImage result = {};
    while (progress < 100 && ActionShot_CreateResult(engine, &progress, &result)) {
    }
    if (progress == 100)
        series.luma = cv::Mat(kFrame, CV_8U, result.plane[0]).clone();
    ActionShot_Finalize(&engine);
    EXPECT_EQ(engine, nullptr);
    return series;
}

cv::Mat lumaOf(const cv::Mat& bgr) {
    const auto frame = toFrame(bgr);
    return cv::Mat(kFrame, CV_8U, const_cast<uint8_t*>(frame.data())).clone();
}

TEST(ActionEngineTest, TheSubjectIsThereAtSeveralMomentsAndWhole) {
    for (const char* options : {"", "shake=3"}) {
        SCOPED_TRACE(options);
        kov::camera::SourceOptions parsed(options);
        kov::camera::Crossing scene(parsed);
        const Series series = run(scene, 25);
        ASSERT_FALSE(series.luma.empty());
        EXPECT_TRUE(series.endedByItself);
        ASSERT_GE(series.moments.size(), 4U);
        if (*options)
            continue;  // the ground truth is that of the first frame's place
        cv::Mat people(kFrame, CV_8U, cv::Scalar(0));
        cv::Rect before;
        for (const double time : series.moments) {
            const cv::Mat mask = scene.subjectMask(time, kFrame);
            const cv::Rect box = scene.subjectBox(time, kFrame);
            if (!before.empty()) {
                EXPECT_GT(box.x, before.x + 40);
            }
            before = box;
            cv::Mat inner;
            cv::erode(mask, inner, cv::Mat(), {-1, -1}, 2);
            cv::Mat difference;
            cv::absdiff(series.luma, lumaOf(scene.frame(time, kFrame)), difference);
            EXPECT_LT(cv::mean(difference, inner)[0], 3) << time;  // the whole of the subject
            people |= mask;
        }
        cv::dilate(people, people, cv::Mat(), {-1, -1}, 24);  // with the shadows
        cv::Mat difference;
        cv::absdiff(series.luma, lumaOf(scene.frame(0, kFrame)), difference);
        EXPECT_LT(cv::mean(difference, ~people)[0], 2);
    }
}

TEST(ActionEngineTest, LessMemoryMakesFewerMomentsAndNoneRefuses) {
    kov::camera::SourceOptions parsed("");
    kov::camera::Crossing scene(parsed);
    const Series series = run(scene, 5);
    EXPECT_EQ(series.moments.size(), 2U);
    EXPECT_FALSE(series.luma.empty());
    uint8_t little[16];
    ActionShot_Handle engine = nullptr;
    EXPECT_EQ(ActionShot_Initialize(&engine, 640, 480, little, sizeof little), 0);
    EXPECT_EQ(ActionShot_Initialize(&engine, 640, 480, nullptr, 0), 0);
    EXPECT_EQ(ActionShot_StartSeries(nullptr), 0);
    int32_t progress = 0;
    OPT_API_ASImage result = {};
    EXPECT_EQ(ActionShot_CreateResult(nullptr, &progress, &result), 0);
    EXPECT_EQ(progress, 0);
}

/// How far the picture is from the scene at `time`, in grey levels on average, where the scene shows its subject.
double differenceAt(kov::camera::Crossing& scene, const cv::Mat& picture, double time, const cv::Mat& mask) {
    cv::Mat inner;
    cv::Mat difference;
    cv::erode(mask, inner, cv::Mat(), {-1, -1}, 3);
    cv::absdiff(picture, lumaOf(scene.frame(time, kFrame)), difference);
    return cv::mean(difference, inner)[0];
}

using ActionSession = kov::test::KovcamSession;

TEST_F(ActionSession, TheCrossingSceneMakesOnePictureOfWholePeopleInDistinctPlaces) {
    ASSERT_EQ(shoot("action -i scene:crossing", 2), 0);
    const cv::Mat bgr = picture("action-001.jpg");
    ASSERT_EQ(bgr.size(), kFrame);
    const cv::Mat result = lumaOf(bgr);

    kov::camera::SourceOptions parsed("");
    kov::camera::Crossing scene(parsed);
    const cv::Rect inside(1, 1, kFrame.width - 2, kFrame.height - 2);
    cv::Mat people(kFrame, CV_8U, cv::Scalar(0));
    int moments = 0;
    double lastX = -1000;
    for (double time = 1; time < 7; time += 1 / 30.0) {
        const cv::Rect box = scene.subjectBox(time, kFrame);
        if (box.empty() || (box & inside) != box || box.x < lastX + 40)
            continue;
        const cv::Mat mask = scene.subjectMask(time, kFrame);
        if (differenceAt(scene, result, time, mask) > 4)
            continue;
        ++moments;
        lastX = box.x;
        people |= mask;
    }
    EXPECT_GE(moments, 4);
    cv::dilate(people, people, cv::Mat(), {-1, -1}, 24);  // with the shadows
    cv::Mat difference;
    cv::absdiff(result, lumaOf(scene.background(0, kFrame)), difference);
    EXPECT_LT(cv::mean(difference, ~people)[0], 2);
}

}  // namespace
