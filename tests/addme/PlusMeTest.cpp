// The host's add-me engine against scenes whose truth is known, called directly and through kovcam.

#include <gtest/gtest.h>
#include <plusme/plusme.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <tuple>
#include <vector>

#include "host/camera/SourceOptions.h"
#include "host/camera/scenes/AddMe.h"
#include "host/camera/scenes/Outdoors.h"
#include "host/camera/scenes/Person.h"
#include "host/plusme/Status.h"
#include "shots/addme/JpegEncoderAddMe.h"
#include "tests/support/KovcamSession.h"
#include "tests/support/SceneFrames.h"

using enum kov::plusme::Status;
using kov::plusme::Status;
using namespace kov::camera;
using namespace kov::test;

namespace {

const cv::Size kLarge(2560, 1920);
const cv::Size kMiddle(1280, 960);
const View kView = View::around({0, kViewHeight / 2}, kMiddle);
const PME_API_Memory kMemory = {memcpy, memset};
const PME_API_Encoder kEncoder = android::jpeg_compress_yuv420sp_AddMe;

/// Share of the pixels that are clearly other than they should be: a lost hand, a ghost, a speck. Edges that lie a
/// pixel off, as after compression and interpolation, do not count.
double wrongShare(const cv::Mat& picture, const cv::Mat& wanted, const cv::Mat& mask = {}) {
    cv::Mat wrong;
    cv::transform(cv::Mat(cv::abs(picture - wanted)), wrong, cv::Matx13f(1.F / 3, 1.F / 3, 1.F / 3));
    const int reach = std::max(3, picture.cols / 400) | 1;
    cv::morphologyEx(wrong > 40, wrong, cv::MORPH_OPEN, cv::Mat::ones(reach, reach, CV_8U));
    return cv::mean(wrong, mask)[0] / 255;
}

/// The scene as the first picture sees it.
struct MergedScene {
    explicit MergedScene(cv::Size size) {
        SourceOptions options("");
        AddMe scene(options);
        first = scene.frame(0, size);
        boxes[0] = scene.personBox(0, size);
        scene.pictureTaken();
        second = scene.frame(0, size);
        const cv::Matx23d movement = AddMe::movement(size);
        cv::warpAffine(second, straight, movement, size, cv::INTER_CUBIC | cv::WARP_INVERSE_MAP, cv::BORDER_REPLICATE);
        cv::Mat moved = cv::Mat::zeros(size, CV_8U);
        moved(scene.personBox(1, size)) = 255;
        cv::warpAffine(moved, moved, movement, size, cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
        boxes[1] = cv::boundingRect(moved);
    }

    cv::Mat first, second;
    cv::Mat straight;   // the second picture, brought over the first
    cv::Rect boxes[2];  // around the people, who do not overlap
};

/// Expects both people whole, and the rest as in the first picture. `most`: grey levels.
void expectBothPeopleWhole(const cv::Mat& merged, const MergedScene& scene, double most = 3) {
    ASSERT_EQ(merged.size(), scene.first.size());
    cv::Mat rest(merged.size(), CV_8U, cv::Scalar(255));
    for (const auto& [wanted, box] : {std::pair(scene.first, scene.boxes[0]), {scene.straight, scene.boxes[1]}}) {
        EXPECT_LT(difference(merged(box), wanted(box)), most) << box;
        EXPECT_LT(wrongShare(merged(box), wanted(box)), 0.001) << box;
        rest(box) = 0;
    }
    EXPECT_LT(difference(merged, scene.first, rest), 3);
    EXPECT_LT(wrongShare(merged, scene.first, rest), 0.0002);
}

/// An instance set up as the shot does it.
struct Engine {
    explicit Engine(cv::Size size, PME_API_Encoder encoder = kEncoder) {
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
    const struct {
        cv::Size size;
        double degrees, brighter;  // of the second picture, as a hand has it
        double most;               // grey levels
    } cases[] = {{kLarge, 0, 1, 3}, {kMiddle, -2.5, 1, 4}, {kMiddle, 3, 0.88, 4}, {kMiddle, 0, 1.08, 4}};
    for (const auto& [size, degrees, brighter, most] : cases) {
        SCOPED_TRACE(degrees);
        const MergedScene scene(size);
        Engine engine(size);
        ASSERT_EQ(engine.add(scene.first), Good);
        const cv::Mat second = size == kLarge ? scene.second : moved(scene.straight, degrees, brighter);
        const auto begin = std::chrono::steady_clock::now();
        ASSERT_EQ(engine.add(second), Good);
        ASSERT_EQ(engine.finish(), Good);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        RecordProperty("milliseconds", static_cast<int>(took.count() * 1000));
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        EXPECT_LT(took.count(), 3);
#endif
        expectBothPeopleWhole(engine.result(), scene, most);
    }
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
    Engine engine(kMiddle);
    for (const int position : {0, 1}) {
        SCOPED_TRACE(position);
        int32_t current = -1;
        EXPECT_EQ(PlusMe_GetFirstPersonPosition(engine.instance, &current), 0);
        EXPECT_EQ(current, position);
        EXPECT_EQ(engine.add(alone[0]), Good);
        EXPECT_EQ(engine.add(moved(alone[1], 0.8)), Good);
        EXPECT_EQ(engine.finish(), Good);
        const cv::Mat merged = engine.result();
        const cv::Mat& wanted = inFront[position];
        EXPECT_LT(difference(merged, wanted), 3);
        EXPECT_LT(difference(merged, wanted, both), 6);
        EXPECT_LT(wrongShare(merged, wanted, either), 0.012);
        PlusMe_SwitchFirstPersonPosition(engine.instance);
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
    EXPECT_EQ(Status{PlusMe_SetResolution(engine.instance, 641, 480, 640, 480)}, WrongSize);
    engine.temp.resize(engine.temp.size() - 8192);
    EXPECT_EQ(Status{PlusMe_SetTempBuffer(engine.instance, engine.temp.data(), engine.temp.size())}, BufferTooSmall);
    EXPECT_EQ(Status{PlusMe_StartCapture(engine.instance)}, NotReady);
}

TEST(PlusMe, APairIsDroppedWithItsMemoryAndEndedByAMergeThatFails) {
    const MergedScene scene(kMiddle);
    using Act = void (*)(Engine&);
    const Act none = [](Engine&) {};
    const std::tuple<PME_API_Encoder, Act, Status> cases[] = {
        {[](auto...) { return 0; }, none, EncoderFailed},
        {[](auto...) -> int { throw std::bad_alloc(); }, none, Internal},
        // Rather than to read pictures that are no longer there.
        {kEncoder, [](Engine& e) { PlusMe_SetResolution(e.instance, 2560, 1920, 640, 480); }, NotReady},
        {kEncoder, [](Engine& e) { PlusMe_SetTempBuffer(e.instance, e.temp.data(), e.temp.size()); }, NotReady}};
    for (const auto& [encoder, act, expected] : cases) {
        Engine engine(kMiddle, encoder);
        EXPECT_EQ(engine.add(scene.first), Good);
        EXPECT_EQ(engine.add(scene.second), Good);
        act(engine);
        EXPECT_EQ(engine.finish(), expected);
        EXPECT_TRUE(encoder == kEncoder || engine.add(scene.first) == Good) << "the next pair begins";
        EXPECT_EQ(engine.finish(), NotReady);
    }
}

using AddMeSession = KovcamSession;

constexpr const char* kOfTheMode = "ADDME_.*|COMPRESSED_IMAGE";

TEST_F(AddMeSession, TheSceneGivesBothPeople) {
    shoot("addme -i scene:addme --picture-size 640x480 --position 1");
    EXPECT_EQ(messages(kOfTheMode), (std::vector<std::string>{"ADDME_NO_RESULT", "COMPRESSED_IMAGE", "ADDME_PROGRESS",
                                                              "ADDME_PROGRESS", "ADDME_PROGRESS", "COMPRESSED_IMAGE"}));
    const MergedScene scene({640, 480});
    EXPECT_LT(difference(picture("addme-001.jpg"), scene.first), 3);
    expectBothPeopleWhole(picture("addme-002.jpg"), scene);
}

TEST_F(AddMeSession, UnrelatedPicturesAreRefusedAndDelivered) {
    shoot("addme -i scene:landscape -i scene:still-life --picture-size 1280x960", "", 1);
    EXPECT_EQ(messages(kOfTheMode), (std::vector<std::string>{"ADDME_NO_RESULT", "COMPRESSED_IMAGE", "ADDME_ERROR",
                                                              "ADDME_NO_RESULT", "COMPRESSED_IMAGE"}));
    EXPECT_EQ(picture("addme-002.jpg").size(), cv::Size(1280, 960));
}

}  // namespace
