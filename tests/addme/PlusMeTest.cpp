// The host's add-me engine against scenes whose truth is known.

#include <gtest/gtest.h>
#include <plusme/plusme.h>

#include <chrono>
#include <cstring>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "host/camera/scenes/Outdoors.h"
#include "host/camera/scenes/Person.h"
#include "host/plusme/Status.h"
#include "shots/addme/JpegEncoderAddMe.h"
#include "tests/addme/MergedScene.h"

using enum kov::plusme::Status;
using kov::plusme::Status;
using namespace kov::camera;
using namespace kov::test;

namespace {

const cv::Size kLarge(2560, 1920);
const cv::Size kMiddle(1280, 960);
const View kView = View::around({0, kViewHeight / 2}, kMiddle);
const PME_API_Memory kMemory = {memcpy, memset};

/// An instance set up as the shot does it.
struct Engine {
    explicit Engine(cv::Size size, PME_API_Encoder encoder = android::jpeg_compress_yuv420sp_AddMe) {
        PlusMe_PreInitialize(kLarge.width, kLarge.height, 640, 480, 0, &kMemory, 1, 1900000, encoder);
        permanent.resize(PlusMe_GetPermanentBufferSize());
        EXPECT_EQ(PlusMe_Initialize(&instance, permanent.data(), permanent.size()), 0);
        EXPECT_EQ(PlusMe_SetResolution(instance, size.width, size.height, 640, 480), 0);
        temp.resize(PlusMe_GetTemporaryBufferSize());
        EXPECT_EQ(PlusMe_SetTempBuffer(instance, temp.data(), temp.size()), 0);
        EXPECT_EQ(PlusMe_StartCapture(instance), 0);
    }
    ~Engine() { PlusMe_Finalize(&instance); }
    Engine(Engine&&) = delete;

    Status add(const cv::Mat& picture) {
        std::vector<uint8_t> jpeg;
        cv::imencode(".jpg", picture, jpeg);
        return Status{PlusMe_HandleSnapshotJpeg(instance, jpeg.data(), jpeg.size(), nullptr)};
    }
    /// How the steps of a merge end.
    Status finish() {
        int32_t status = 0;
        for (int32_t before = -1, progress = 0; status == 0 && progress < 100; before = progress) {
            status = PlusMe_CreateResult(instance, &progress);
            EXPECT_TRUE(status != 0 || progress > before);
        }
        return Status{status};
    }
    cv::Mat merge(const cv::Mat& first, const cv::Mat& second) {
        EXPECT_EQ(add(first), Good);
        EXPECT_EQ(add(second), Good);
        EXPECT_EQ(finish(), Good);
        return result();
    }
    cv::Mat result() const {
        void* jpeg = nullptr;
        long size = 0;
        EXPECT_EQ(PlusMe_GetResultJpeg(instance, &jpeg, &size), 0);
        return cv::imdecode(cv::Mat(1, static_cast<int>(size), CV_8U, jpeg), cv::IMREAD_COLOR);
    }

    PME_API_Instance instance = nullptr;
    std::vector<uint8_t> permanent, temp;
};

/// As a hand that has moved a little sees it.
cv::Mat moved(const cv::Mat& picture, double degrees, double brighter = 1) {
    cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(picture.size()) / 2, degrees, 1);
    turn.at<double>(0, 2) += 0.008 * picture.cols;
    cv::Mat result;
    cv::warpAffine(picture, result, turn, picture.size(), cv::INTER_CUBIC, cv::BORDER_REFLECT);
    result.convertTo(result, -1, brighter);
    return result;
}

TEST(PlusMe, PutsBothPeopleIntoTheSceneWholeWithinThreeSeconds) {
    const MergedScene scene(kLarge);
    Engine engine(kLarge);
    ASSERT_EQ(engine.add(scene.first), Good);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(engine.add(scene.second), Good);
    ASSERT_EQ(engine.finish(), Good);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    RecordProperty("milliseconds", static_cast<int>(took.count() * 1000));
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(took.count(), 3);
#endif
    expectBothPeopleWhole(engine.result(), scene);
}

TEST(PlusMe, ThePositionDecidesWhoIsInFront) {
    const Look looks[] = {{{150, 190, 230}, {20, 40, 70}, {40, 60, 200}, {90, 50, 30}, {30, 30, 30}, true},
                          {{120, 150, 200}, {10, 10, 10}, {160, 80, 40}, {60, 90, 110}, {40, 40, 60}, false}};
    const auto with = [&](int who, const cv::Mat& background) {
        cv::Mat picture = background.clone();
        Canvas canvas(picture, kView);
        drawStander(canvas, {who == 0 ? -20.0 : 25.0, 446}, 330, looks[who]);
        return picture;
    };
    const cv::Mat street = drawStreet(kView);
    const cv::Mat alone[] = {with(0, street), with(1, street)};
    const cv::Mat inFront[] = {with(0, alone[1]), with(1, alone[0])};
    cv::Mat either, both;
    cv::extractChannel(inFront[0] != street, either, 1);
    cv::extractChannel(inFront[0] != inFront[1], both, 1);
    ASSERT_GT(cv::countNonZero(both), 20000);
    cv::Mat straight = inFront[0].clone();  // what is not wanted: each has a half of what both cover
    inFront[1].colRange(kMiddle.width / 2, kMiddle.width).copyTo(straight.colRange(kMiddle.width / 2, kMiddle.width));
    ASSERT_GT(straightSeam(straight, inFront[0]), 200);
    cv::Mat outlined = inFront[0].clone();
    std::vector<std::vector<cv::Point>> outlines;
    cv::findContours(both, outlines, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    cv::drawContours(outlined, outlines, -1, {30, 20, 60}, 3);
    ASSERT_GT(strangeShare(outlined, inFront[0], either), 0.03);
    Engine engine(kMiddle);
    for (const int position : {0, 1}) {
        SCOPED_TRACE(position);
        int32_t current = -1;
        EXPECT_EQ(PlusMe_GetFirstPersonPosition(engine.instance, &current), 0);
        EXPECT_EQ(current, position);
        const cv::Mat merged = engine.merge(alone[0], moved(alone[1], 0.8));
        const cv::Mat& wanted = inFront[position];
        EXPECT_LT(difference(merged, wanted), 3);
        EXPECT_LT(difference(merged, wanted, both), 6);
        EXPECT_LT(wrongShare(merged, wanted, either), 0.012);
        EXPECT_LT(straightSeam(merged, wanted), 30);
        EXPECT_LT(strangeShare(merged, wanted, either), 0.005) << "a dark or reddish outline";
        PlusMe_SwitchFirstPersonPosition(engine.instance);
    }
}

TEST(PlusMe, CopesWithAHandsMovementAndAnotherExposure) {
    const MergedScene scene(kMiddle);
    for (const auto& [degrees, brighter] : {std::pair(-2.5, 1.0), {3.0, 0.88}, {0.0, 1.08}}) {
        SCOPED_TRACE(degrees);
        expectBothPeopleWhole(Engine(kMiddle).merge(scene.first, moved(scene.straight, degrees, brighter)), scene, 4);
    }
}

TEST(PlusMe, RefusesWithACodeWhatItCannotDo) {
    const MergedScene scene(kMiddle);
    Engine engine(kMiddle);
    void* result = nullptr;
    long size = 0;
    EXPECT_EQ(engine.finish(), NotReady);
    EXPECT_EQ(Status{PlusMe_GetResultJpeg(engine.instance, &result, &size)}, NotReady);
    ASSERT_EQ(engine.add(scene.first), Good);
    EXPECT_EQ(engine.add(cv::Mat(480, 640, CV_8UC3, cv::Scalar())), WrongSize);
    std::vector<uint8_t> half;
    cv::imencode(".jpg", scene.second, half);
    half.resize(half.size() / 2);
    for (auto stream : {half, std::vector<uint8_t>{'n', 'o'}, {}})
        EXPECT_EQ(Status{PlusMe_HandleSnapshotJpeg(engine.instance, stream.data(), stream.size(), nullptr)}, NoJpeg);
    for (const cv::Mat& unrelated : {drawValley(kView), moved(scene.second, 180), cv::Mat(kMiddle, CV_8UC3, {9, 9, 9})})
        EXPECT_EQ(engine.add(unrelated), NoMatch);
    EXPECT_EQ(engine.add(scene.second), Good);  // the first one is kept
    EXPECT_EQ(engine.finish(), Good);
    ASSERT_EQ(engine.add(scene.first), Good);
    PlusMe_CancelCapture(engine.instance);
    EXPECT_EQ(engine.finish(), NotReady);
    EXPECT_EQ(engine.add(scene.second), NotReady);  // rather than as the first of another pair

    EXPECT_EQ(Status{PlusMe_StartCapture(nullptr)}, BadArgument);
    for (const auto& [width, height] : {std::pair(0, 480), {641, 480}, {2562, 1920}, {-640, 480}})
        EXPECT_EQ(Status{PlusMe_SetResolution(engine.instance, width, height, 640, 480)}, WrongSize);
    engine.temp.resize(engine.temp.size() - 8192);
    EXPECT_EQ(Status{PlusMe_SetTempBuffer(engine.instance, engine.temp.data(), engine.temp.size())}, BufferTooSmall);
    EXPECT_EQ(Status{PlusMe_StartCapture(engine.instance)}, NotReady);
    PME_API_Instance none = nullptr;
    EXPECT_EQ(Status{PlusMe_Initialize(&none, engine.temp.data(), 16)}, BufferTooSmall);
}

TEST(PlusMe, AnotherResolutionOrMemoryDropsThePair) {
    const MergedScene scene(kMiddle);
    for (const bool resolution : {true, false}) {
        Engine engine(kMiddle);
        ASSERT_EQ(engine.add(scene.first), Good);
        ASSERT_EQ(engine.add(scene.second), Good);
        if (resolution)
            EXPECT_EQ(PlusMe_SetResolution(engine.instance, kLarge.width, kLarge.height, 640, 480), 0);
        else
            EXPECT_EQ(PlusMe_SetTempBuffer(engine.instance, engine.temp.data(), engine.temp.size()), 0);
        EXPECT_EQ(engine.finish(), NotReady);  // rather than to read pictures that are no longer there
    }
    EXPECT_EQ(
        Status{PlusMe_PreInitialize(50000, 50000, 640, 480, 0, &kMemory, 1, 0, android::jpeg_compress_yuv420sp_AddMe)},
        WrongSize);
    const PME_API_Memory none = {nullptr, memset};
    EXPECT_EQ(Status{PlusMe_PreInitialize(640, 480, 640, 480, 0, &none, 1, 0, android::jpeg_compress_yuv420sp_AddMe)},
              BadArgument);
}

TEST(PlusMe, AMergeThatFailsEndsThePair) {
    const MergedScene scene(kMiddle);
    const std::pair<PME_API_Encoder, Status> cases[] = {{[](auto...) { return 0; }, EncoderFailed},
                                                        {[](auto...) -> int { throw std::bad_alloc(); }, Internal},
                                                        {[](auto...) -> int { throw 1; }, Internal}};
    for (const auto& [encoder, expected] : cases) {
        Engine engine(kMiddle, encoder);
        EXPECT_EQ(engine.add(scene.first), Good);
        EXPECT_EQ(engine.add(scene.second), Good);
        EXPECT_EQ(engine.finish(), expected);
        EXPECT_EQ(engine.add(scene.first), Good);  // the next pair begins
        EXPECT_EQ(engine.finish(), NotReady);
    }
}

}  // namespace
