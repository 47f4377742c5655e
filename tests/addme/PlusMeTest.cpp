// The host's add-me engine against scenes whose truth is known.

#include <gtest/gtest.h>
#include <plusme/plusme.h>

#include <chrono>
#include <cstring>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "host/camera/scenes/Outdoors.h"
#include "host/camera/scenes/Person.h"
#include "host/plusme/Status.h"
#include "shots/addme/JpegEncoderAddMe.h"
#include "tests/addme/MergedScene.h"

using kov::camera::Look;
using kov::plusme::Status;
using kov::test::difference;
using kov::test::wrongShare;

namespace {

const cv::Size kLarge(2560, 1920);
const cv::Size kMiddle(1280, 960);
const PME_API_Memory kMemory = {memcpy, memset};

constexpr int32_t code(Status status) {
    return static_cast<int32_t>(status);
}

/// An instance set up as the shot does it.
class Engine {
public:
    explicit Engine(cv::Size size, size_t tempShort = 0,
                    PME_API_Encoder encoder = android::jpeg_compress_yuv420sp_AddMe) {
        PlusMe_PreInitialize(kLarge.width, kLarge.height, 640, 480, 0, &kMemory, 1, 1900000, encoder);
        mPermanent.resize(PlusMe_GetPermanentBufferSize());
        EXPECT_EQ(PlusMe_Initialize(&instance, mPermanent.data(), mPermanent.size()), 0);
        EXPECT_EQ(PlusMe_SetResolution(instance, size.width, size.height, 640, 480), 0);
        mTemp.resize(PlusMe_GetTemporaryBufferSize() - tempShort);
        tempStatus = PlusMe_SetTempBuffer(instance, mTemp.data(), mTemp.size());
        startStatus = PlusMe_StartCapture(instance);
    }
    ~Engine() { PlusMe_Finalize(&instance); }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    int32_t add(const cv::Mat& picture, int quality = 95) {
        std::vector<uint8_t> jpeg;
        cv::imencode(".jpg", picture, jpeg, {cv::IMWRITE_JPEG_QUALITY, quality});
        return PlusMe_HandleSnapshotJpeg(instance, jpeg.data(), jpeg.size(), nullptr);
    }
    cv::Mat merge() {
        int32_t progress = 0;
        for (int32_t before = -1; progress < 100; before = progress) {
            EXPECT_EQ(PlusMe_CreateResult(instance, &progress), 0);
            EXPECT_GT(progress, before);
        }
        void* jpeg = nullptr;
        long size = 0;
        EXPECT_EQ(PlusMe_GetResultJpeg(instance, &jpeg, &size), 0);
        return cv::imdecode(cv::Mat(1, static_cast<int>(size), CV_8U, jpeg), cv::IMREAD_COLOR);
    }

    PME_API_Instance instance = nullptr;
    int32_t tempStatus = -1;
    int32_t startStatus = -1;

private:
    std::vector<uint8_t> mPermanent;
    std::vector<uint8_t> mTemp;
};

/// Two views of a street, the second turned and shifted, with a person each.
struct Pair {
    cv::Mat first, second;
    cv::Mat person[2];  // where the people are, in the first view: 255

    Pair(cv::Size size, double x0, double x1, double degrees = 0.8, double brighter = 1) {
        const kov::camera::View view = kov::camera::View::around({0, kov::camera::kViewHeight / 2}, size);
        const Look looks[] = {{{150, 190, 230}, {20, 40, 70}, {40, 60, 200}, {90, 50, 30}, {30, 30, 30}, true},
                              {{120, 150, 200}, {10, 10, 10}, {160, 80, 40}, {60, 90, 110}, {40, 40, 60}, false}};
        const double places[] = {x0, x1};
        const cv::Mat street = kov::camera::drawStreet(view);
        for (int i = 0; i < 2; ++i) {
            cv::Mat& picture = i == 0 ? first : second;
            picture = street.clone();
            kov::camera::Canvas canvas(picture, view);
            drawStander(canvas, {places[i], 446}, 330, looks[i]);
            cv::Mat shape = cv::Mat::zeros(size, CV_8UC3);
            kov::camera::Canvas stencil(shape, view);
            drawStander(stencil, {places[i], 446}, 330, Look::mask());
            cv::extractChannel(shape > 128, person[i], 1);
        }
        cv::Mat turn = cv::getRotationMatrix2D(cv::Point2f(size) / 2, degrees, 1);
        turn.at<double>(0, 2) += 0.008 * size.width;
        cv::warpAffine(second, second, turn, size, cv::INTER_CUBIC, cv::BORDER_REFLECT);
        second.convertTo(second, -1, brighter);
        withBoth = first.clone();
        kov::camera::Canvas canvas(withBoth, view);
        drawStander(canvas, {places[1], 446}, 330, looks[1]);
    }
    cv::Mat withBoth;  // the second person in front
};

TEST(PlusMe, PutsBothPeopleIntoTheSceneWholeWithinThreeSeconds) {
    const kov::test::MergedScene scene(kLarge);
    Engine engine(kLarge);
    ASSERT_EQ(engine.add(scene.first), 0);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(engine.add(scene.second), 0);
    const cv::Mat merged = engine.merge();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    RecordProperty("milliseconds", static_cast<int>(took.count() * 1000));
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(took.count(), 3);
#endif
    kov::test::expectBothPeopleWhole(merged, scene);
}

TEST(PlusMe, ThePositionDecidesWhoIsInFront) {
    const Pair pair(kMiddle, -20, 25);
    const cv::Mat both = pair.person[0] & pair.person[1];
    ASSERT_GT(cv::countNonZero(both), 20000);
    cv::Mat firstInFront = pair.withBoth.clone();
    pair.first.copyTo(firstInFront, pair.person[0]);
    Engine engine(kMiddle);
    for (const int position : {0, 1}) {
        SCOPED_TRACE(position);
        int32_t current = -1;
        EXPECT_EQ(PlusMe_GetFirstPersonPosition(engine.instance, &current), 0);
        EXPECT_EQ(current, position);
        ASSERT_EQ(engine.add(pair.first), 0);
        ASSERT_EQ(engine.add(pair.second), 0);
        const cv::Mat merged = engine.merge();
        const cv::Mat& wanted = position == 0 ? firstInFront : pair.withBoth;
        EXPECT_LT(difference(merged, wanted), 3);
        EXPECT_LT(difference(merged, wanted, both), 6);
        EXPECT_LT(difference(merged, wanted, pair.person[0] | pair.person[1]), 6);
        EXPECT_LT(wrongShare(merged, wanted, pair.person[0] | pair.person[1]), 0.012);
        PlusMe_SwitchFirstPersonPosition(engine.instance);
    }
}

TEST(PlusMe, CopesWithAHandsMovementAndAnotherExposure) {
    for (const auto& [degrees, brighter] : {std::pair(-2.5, 1.0), {3.0, 0.88}, {0.0, 1.08}}) {
        SCOPED_TRACE(degrees);
        const Pair pair(kMiddle, -190, 170, degrees, brighter);
        Engine engine(kMiddle);
        ASSERT_EQ(engine.add(pair.first), 0);
        ASSERT_EQ(engine.add(pair.second), 0);
        const cv::Mat merged = engine.merge();
        EXPECT_LT(difference(merged, pair.withBoth), 3);
        EXPECT_LT(difference(merged, pair.withBoth, pair.person[1]), 8);
    }
}

TEST(PlusMe, RefusesWithACodeWhatItCannotDo) {
    const Pair pair(kMiddle, -150, 150);
    cv::Mat other(kMiddle, CV_8UC3);
    cv::RNG random(3);
    for (int i = 0; i < 400; ++i)
        cv::circle(other, {random.uniform(0, 1280), random.uniform(0, 960)}, random.uniform(10, 90),
                   {random.uniform(0., 255.), random.uniform(0., 255.), random.uniform(0., 255.)}, cv::FILLED);
    Engine engine(kMiddle);
    ASSERT_EQ(engine.startStatus, 0);
    int32_t progress = 0;
    void* jpeg = nullptr;
    long size = 0;
    EXPECT_EQ(PlusMe_CreateResult(engine.instance, &progress), code(Status::NotReady));
    EXPECT_EQ(PlusMe_GetResultJpeg(engine.instance, &jpeg, &size), code(Status::NotReady));
    EXPECT_EQ(engine.add(cv::Mat(480, 640, CV_8UC3, cv::Scalar())), code(Status::WrongSize));
    char text[] = "no picture";
    EXPECT_EQ(PlusMe_HandleSnapshotJpeg(engine.instance, text, sizeof text, nullptr), code(Status::NoJpeg));
    EXPECT_EQ(PlusMe_HandleSnapshotJpeg(engine.instance, nullptr, 0, nullptr), code(Status::NoJpeg));
    ASSERT_EQ(engine.add(pair.first), 0);
    std::vector<uint8_t> stream;
    cv::imencode(".jpg", pair.second, stream);
    EXPECT_EQ(PlusMe_HandleSnapshotJpeg(engine.instance, stream.data(), stream.size() / 2, nullptr),
              code(Status::NoJpeg));
    cv::Mat turnedOver;
    cv::rotate(pair.second, turnedOver, cv::ROTATE_180);
    for (const cv::Mat& unrelated : {other, turnedOver, cv::Mat(kMiddle, CV_8UC3, cv::Scalar(90, 90, 90))})
        EXPECT_EQ(engine.add(unrelated), code(Status::NoMatch));
    EXPECT_EQ(engine.add(pair.second), 0);  // the first one is kept
    EXPECT_EQ(engine.merge().size(), kMiddle);
    ASSERT_EQ(engine.add(pair.first), 0);
    PlusMe_CancelCapture(engine.instance);
    EXPECT_EQ(PlusMe_CreateResult(engine.instance, &progress), code(Status::NotReady));
    EXPECT_EQ(engine.add(pair.second), code(Status::NotReady));  // rather than as the first of another pair
    ASSERT_EQ(PlusMe_StartCapture(engine.instance), 0);
    EXPECT_EQ(engine.add(pair.first), 0);

    EXPECT_EQ(PlusMe_StartCapture(nullptr), code(Status::BadArgument));
    for (const auto& [width, height] : {std::pair(0, 480), {641, 480}, {2562, 1920}, {-640, 480}})
        EXPECT_EQ(PlusMe_SetResolution(engine.instance, width, height, 640, 480), code(Status::WrongSize));
    const Engine tooSmall(kMiddle, 8192);
    EXPECT_EQ(tooSmall.tempStatus, code(Status::BufferTooSmall));
    EXPECT_EQ(tooSmall.startStatus, code(Status::NotReady));
    char few[16];
    PME_API_Instance none = nullptr;
    EXPECT_EQ(PlusMe_Initialize(&none, few, sizeof few), code(Status::BufferTooSmall));
}

TEST(PlusMe, AMergeThatFailsEndsThePair) {
    const Pair pair(kMiddle, -150, 150);
    const std::pair<PME_API_Encoder, Status> cases[] = {
        {[](unsigned char*, unsigned, unsigned char*, unsigned, unsigned) { return 0; }, Status::EncoderFailed},
        {[](unsigned char*, unsigned, unsigned char*, unsigned, unsigned) -> int { throw std::bad_alloc(); },
         Status::Internal}};
    for (const auto& [encoder, expected] : cases) {
        Engine engine(kMiddle, 0, encoder);
        EXPECT_EQ(engine.add(pair.first), 0);
        EXPECT_EQ(engine.add(pair.second), 0);
        int32_t status = 0;
        int32_t progress = 0;
        while (status == 0 && progress < 100)
            status = PlusMe_CreateResult(engine.instance, &progress);
        EXPECT_EQ(status, code(expected));
        EXPECT_EQ(engine.add(pair.first), 0);  // the next pair begins
        EXPECT_EQ(PlusMe_CreateResult(engine.instance, &progress), code(Status::NotReady));
    }
}

}  // namespace
