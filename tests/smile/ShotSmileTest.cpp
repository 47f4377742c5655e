// The smile shot and its engine binding.

#include "shots/smile/ShotSmile.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "shots/Commands.h"
#include "tests/smile/FakeArcFace.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::fakeArcFace;
using kov::test::Lines;
using kov::test::operator+;
using kov::test::text;

namespace {

const __tag_rect kFace = {20, 10, 80, 70};
const __tag_rect kSmile = {30, 20, 60, 50};

class ShotSmileTest : public kov::test::ShotTest<ShotSmile> {
protected:
    ShotSmileTest() { fakeArcFace() = {}; }
    ~ShotSmileTest() override {
        retireShot();
        EXPECT_EQ(fakeArcFace().blocksAlive, 0);
        EXPECT_EQ(fakeArcFace().managersAlive, 0);
        fakeArcFace() = {};
    }

    void make(int width = 160, int height = 120, const char* format = "yuv420sp") {
        retireShot();
        hardware->params.setPreviewSize(width, height);
        hardware->params.setPreviewFormat(format);
        makeShot();
        recorder.take();
    }
    void start() {
        EXPECT_EQ(shot->sendCommand(1017, 0, 0), NO_ERROR);
        recorder.take();
    }
    std::vector<uint8_t> frame(uint8_t fill = 0) {
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill));
        return kov::test::bytesOf(lastData);
    }
};

Lines initLines(int width, int height) {
    return {"MMemAlloc 1572864",
            "MMemMgrCreate 1572864",
            text("AMFPAF_InitialFaceEngine %dx%d format 10 stride %d: 1 16 3", width, height, (width + 3) & ~3),
            "AMFPAF_SetFaceOutPriority 2",
            "AMFPAF_SetTrackingFrameNumber 5",
            "D ShotSmile: InitFaceTracking Success",
            "MMemAlloc 614400",
            "MMemMgrCreate 614400",
            text("ASSD_InitSmileEngine 1 %d", height),
            text("D ShotSmile: InitSmileDetection Success WH[%d %d]", width, height)};
}

const Lines kReleased = {"ASSD_UninitSmileEngine",     "MMemMgrDestroy", "MMemFree",
                         "AMFPAF_UninitialFaceEngine", "MMemMgrDestroy", "MMemFree"};

TEST_F(ShotSmileTest, MakesItsEnginesAndMakesThemAnewForANewSize) {
    hardware->params.setPreviewSize(638, 480);
    makeShot();
    Lines lines = recorder.take();
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), "I ShotSmile: ShotSmile created: pid=PID"));
    EXPECT_EQ(lines,
              (Lines{"I ShotSmile: ShotSmile created: pid=PID"} + initLines(638, 480) + Lines{"hw.setCallbacks"}));
    start();
    hardware->params.setPreviewSize(320, 240);
    hardware->results["startPreview"] = 5;
    EXPECT_EQ(shot->startPreview(), 5);
    EXPECT_EQ(recorder.take(), (kReleased + initLines(320, 240) + Lines{"hw.startPreview"}));
    fakeArcFace().faces = {kFace};
    frame();  // the detection was stopped
    EXPECT_EQ(recorder.take(), (Lines{"AMFPAF_FaceFeatureDetect", "app.data 0x10 115200"}));
    retireShot();
    EXPECT_EQ(recorder.take(), (Lines{"I ShotSmile: ShotSmile destroyed: pid=PID"} + kReleased +
                                Lines{"I ShotCommon: ShotCommon destroyed: pid=PID"}));
}

TEST_F(ShotSmileTest, TheConditionForEveryNumberOfFacesAndSmiles) {
    make();
    fakeArcFace().faces = {kFace};
    fakeArcFace().smiles = {kSmile, kSmile, kSmile};
    for (int faces = 0; faces <= 6; ++faces) {
        for (int smiles = 0; smiles <= 6; ++smiles) {
            SCOPED_TRACE(text("%d faces, %d smiles", faces, smiles));
            start();
            fakeArcFace().examined = faces;
            fakeArcFace().smileCount = smiles;
            frame();
            const bool met = faces > 3 ? smiles >= 3 : smiles == faces;
            const Lines lines = recorder.take();
            EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.notify 0x2200 0 0"), met);
            EXPECT_EQ(std::count(lines.begin(), lines.end(),
                                 text("D ShotSmile: Smile Detection Success - m_nFaceNum(1), IFaceNumber(%d), "
                                      "ISmileNumber(%d)",
                                      faces, smiles)),
                      met);
            frame();  // goes on detecting only when it was not met
            const Lines next = recorder.take();
            EXPECT_EQ(std::count(next.begin(), next.end(), "ASSD_SmileDetect 1"), !met);
        }
    }
}

TEST_F(ShotSmileTest, FacesAndSmilesAreFramedToTheByte) {
    const struct {
        int width;
        const char* format;
        int thickness;
    } cases[] = {
        {638, "yuv420sp", 2}, {640, "yuv420sp", 4}, {638, "yuv420p", 2}, {640, "yuv420p", 4}, {640, "yuv422i-yuyv", 4}};
    for (const auto& each : cases) {
        SCOPED_TRACE(text("%d %s", each.width, each.format));
        make(each.width, 120, each.format);
        start();
        fakeArcFace().faces = {kFace};
        fakeArcFace().smiles = {kSmile};
        fakeArcFace().examined = 2;  // not met
        const auto bytes = frame(9);
        // The same marks drawn by the primitives.
        const bool planar = std::string(each.format) == "yuv420p";
        const OverlayLayout layout = planar ? OverlayLayout::Planar : OverlayLayout::SemiPlanar;
        std::vector<uint8_t> expected(bytes.size(), 9);
        const size_t luma = static_cast<size_t>(each.width) * 120;
        const OverlayImage image = {
            each.width,
            120,
            {expected.data(), expected.data() + luma, expected.data() + luma + (planar ? luma / 4 : 1)}};
        const auto style = each.thickness == 4 ? OverlayFrame::Inward4 : OverlayFrame::Inward2;
        drawRectangle(image, layout, 20, 10, 80, 70, {149, 43, 21}, style);
        drawRectangle(image, layout, 30, 20, 60, 50, {118, 204, 43}, style);
        EXPECT_TRUE(bytes == expected);
        const Lines lines = recorder.take("I ShotSmile: mPreviewWidth >= PREVEW_WIDTH_THRESHOLD_TO_DRAW_THICK_LINE");
        EXPECT_EQ(lines.size(), !planar && each.thickness == 4 ? 2U : 0U);
        shot->sendCommand(1018, 0, 0);
        EXPECT_EQ(frame(9), std::vector<uint8_t>(bytes.size(), 9));
    }
}

TEST_F(ShotSmileTest, WithoutANotifyCallbackDetectionGoesOn) {
    make();
    shot->setCallbacks(nullptr, onData, onDataTimestamp, this);
    start();
    fakeArcFace().faces = {kFace};
    fakeArcFace().smiles = {kSmile};
    fakeArcFace().examined = 1;
    for (int i = 0; i < 2; ++i) {
        frame();
        EXPECT_EQ(recorder.take("D ShotSmile: Smile Detection Success").size(), 1U);
    }
}

TEST_F(ShotSmileTest, EachEngineCallFailingInTurn) {
    const struct {
        std::function<void()> prepare;
        Lines errors;
        const char* last;
    } cases[] = {
        {[] { fakeArcFace().allocates = false; },
         {"E ShotSmile: ShotSmile::InitFaceTracking() 3"},
         "InitFaceTracking error"},
        {[] { fakeArcFace().makesManagers = false; },
         {"E ShotSmile: ShotSmile::InitFaceTracking() 4"},
         "InitFaceTracking error"},
        {[] { fakeArcFace().results["AMFPAF_InitialFaceEngine"] = 1; },
         {"E ShotSmile: ShotSmile::InitFaceTracking() 5"},
         "InitFaceTracking error"},
        {[] { fakeArcFace().results["ASSD_InitSmileEngine"] = 1; },
         {"E ShotSmile: ShotSmile::InitSmileDetection() 4"},
         "InitSmileDetection error"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.errors.front());
        fakeArcFace() = {};
        each.prepare();
        hardware->params.setPreviewSize(160, 120);
        recorder.take();
        makeShot();
        Lines lines = recorder.take();
        Lines errors = lines;
        std::erase_if(errors, [](const std::string& line) { return !line.starts_with("E "); });
        EXPECT_EQ(errors, each.errors);
        EXPECT_NE(std::find(lines.begin(), lines.end(), std::string("D ShotSmile: ") + each.last), lines.end());
        EXPECT_EQ(fakeArcFace().blocksAlive, 0);
        EXPECT_EQ(fakeArcFace().managersAlive, 0);
        start();
        EXPECT_EQ(frame(3), std::vector<uint8_t>(28800, 3));
        EXPECT_EQ(recorder.take(), (Lines{"E ShotSmile: ShotSmile::FaceTrackingDetect() 1", "app.data 0x10 28800"}));
        retireShot();
    }
    fakeArcFace() = {};
    make();
    start();
    fakeArcFace().faces = {kFace};
    fakeArcFace().smiles = {kSmile};
    fakeArcFace().examined = 1;
    shot->setCallbacks(nullptr, onData, nullptr, this);
    frame();  // leaves a result that meets the condition
    recorder.take();
    fakeArcFace().results["ASSD_SmileDetect"] = 1;
    frame();
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotSmile: ShotSmile::SmileDetect() 3"});
    frame();
    EXPECT_EQ(recorder.take("D "), Lines{});  // the old result does not count
    fakeArcFace().results = {{"AMFPAF_FaceFeatureDetect", 1}};
    EXPECT_EQ(frame(3), std::vector<uint8_t>(28800, 3));
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotSmile: ShotSmile::FaceTrackingDetect() 3"});
}

TEST_F(ShotSmileTest, TheBindingChecksWhatItIsGiven) {
    make();
    const AutoMutex held(shot->engineLock());
    const auto error = [&] { return recorder.take("E "); };
    unsigned char pixels[1] = {};
    __tag_rect rects[3];
    int32_t info[3];
    EXPECT_EQ(shot->FaceTrackingDetect(161, 120, pixels, rects), -1);
    EXPECT_EQ(error(), Lines{"E ShotSmile: ShotSmile::FaceTrackingDetect() 2"});
    EXPECT_EQ(shot->FaceTrackingDetect(160, 120, nullptr, rects), -1);
    EXPECT_EQ(error(), Lines{"E ShotSmile: ShotSmile::FaceTrackingDetect() 1"});
    EXPECT_EQ(shot->SmileDetect(160, 121, pixels, rects, info, 1), -1);
    EXPECT_EQ(error(), Lines{"E ShotSmile: ShotSmile::SmileDetect() 2"});
    EXPECT_EQ(shot->SmileDetect(160, 120, pixels, nullptr, info, 1), -1);
    EXPECT_EQ(error(), Lines{"E ShotSmile: ShotSmile::SmileDetect() 1"});
    // An engine that reports more faces than there is room for.
    fakeArcFace().faces = std::vector<__tag_rect>(9, kFace);
    fakeArcFace().faceCount = 9;
    EXPECT_EQ(shot->FaceTrackingDetect(160, 120, pixels, rects), 3);
    fakeArcFace().faceCount = 0;
    EXPECT_EQ(shot->FaceTrackingDetect(160, 120, pixels, rects), 0);

    for (int i = 0; i < 2; ++i) {
        shot->UnInitSmile();
        shot->UnInitFaceTracking();
    }
    EXPECT_EQ(fakeArcFace().blocksAlive, 0);
    const struct {
        int32_t width, height, format, noTracking;
        const char* expected;  // the error's number, or what the engine was made with
    } cases[] = {{0, 120, 10, 0, "() 1"},
                 {160, 0, 10, 0, "() 1"},
                 {160, 120, 3, 0, "() 2"},
                 {638, 480, 10, 0, "format 10 stride 640:"},
                 {638, 480, 6, 1, "format 6 stride 1276:"},
                 {638, 480, 4, 1, "format 4 stride 1276:"}};
    for (const auto& each : cases) {
        recorder.take();
        const int32_t made = shot->InitFaceTracking(each.width, each.height, each.format, each.noTracking, 3);
        const Lines lines = recorder.take();
        EXPECT_EQ(made, std::string(each.expected).starts_with("format"));
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const auto& line) {
            return line.find(each.expected) != std::string::npos;
        })) << each.expected;
        if (made) {
            EXPECT_EQ(lines.back(), text("AMFPAF_SetTrackingFrameNumber %d", each.noTracking ? 0 : 5));
            shot->UnInitFaceTracking();
        }
    }
    EXPECT_EQ(shot->InitSmileDetection(0, 480), 0);
    fakeArcFace().allocates = false;
    EXPECT_EQ(shot->InitSmileDetection(640, 480), 0);
    fakeArcFace().allocates = true;
    fakeArcFace().makesManagers = false;
    EXPECT_EQ(shot->InitSmileDetection(640, 480), 0);
    EXPECT_EQ(recorder.take("E "),
              (Lines{"E ShotSmile: ShotSmile::InitSmileDetection() 1", "E ShotSmile: ShotSmile::InitSmileDetection() 2",
                     "E ShotSmile: ShotSmile::InitSmileDetection() 3"}));
}

TEST_F(ShotSmileTest, TheSmileEngineGetsTheFrameAsPlanar) {
    make(640, 480);
    start();
    fakeArcFace().faces = {kFace, kFace};
    frame();
    const ASSD_IMAGE& image = fakeArcFace().lastImage;
    EXPECT_EQ(image.plane[1], image.plane[0] + 307200);
    EXPECT_EQ(image.plane[2], image.plane[0] + 384000);
    EXPECT_EQ((std::vector<int32_t>{image.stride[0], image.stride[1], image.stride[2]}),
              (std::vector<int32_t>{640, 320, 320}));
    EXPECT_EQ(fakeArcFace().lastInput.count, 2);
    EXPECT_EQ(fakeArcFace().lastInput.info[1], 7);
}

TEST_F(ShotSmileTest, ThePreviewRestartsWhileFramesCome) {
    make(160, 120);
    fakeArcFace().faces = {kFace};
    std::atomic<int> inEngines{0};
    std::atomic<int> overlaps{0};
    fakeArcFace().during = [&] {
        overlaps += inEngines.fetch_add(1) != 0;
        std::this_thread::yield();
        --inEngines;
    };
    std::atomic<bool> over{false};
    const sp<IMemory> small = kov::test::makeMemory(160 * 120 * 3 / 2);
    const sp<IMemory> large = kov::test::makeMemory(320 * 240 * 3 / 2);
    std::thread frames([&] {
        for (int i = 0; !over; ++i)
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, i % 2 ? small : large);
    });
    for (int i = 0; i < 20; ++i) {
        const ShotGate::Entry inside(shot->gate());
        hardware->params.setPreviewSize(i % 2 ? 160 : 320, i % 2 ? 120 : 240);
        EXPECT_EQ(shot->startPreview(), NO_ERROR);
        EXPECT_EQ(shot->sendCommand(1017, 0, 0), NO_ERROR);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    retireShot();
    over = true;
    frames.join();
    EXPECT_EQ(overlaps, 0);
}

TEST_F(ShotSmileTest, OtherMessagesAndNoVendorLayer) {
    make();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, kov::test::makeMemory(100));
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, kov::test::makeMemory(5));
    EXPECT_EQ(shot->sendCommand(1018, 1, 2), NO_ERROR);
    EXPECT_EQ(shot->sendCommand(1019, 1, 2), NO_ERROR);
    EXPECT_EQ(
        recorder.take(),
        (Lines{"E ShotSmile: Null data returned in data callback", "app.notify 0x1 -2147483648 0", "app.data 0x10 null",
               "app.data 0x10 100", "I ShotSmile: CAMERA_MSG_COMPRESSED_IMAGE", "app.data 0x100 5",
               "I ShotSmile: ShotSmile::sendCommand 1018, 1, 2", "I ShotSmile: SMILE_SHOT_DETECTION_STOP",
               "I ShotSmile: ShotSmile::sendCommand 1019, 1, 2", "hw.sendCommand 1019 1 2"}));
    retireShot();
    hardware.clear();
    makeShot();
    recorder.take();
    EXPECT_EQ(shot->startPreview(), INVALID_OPERATION);
    EXPECT_EQ(shot->sendCommand(1017, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(recorder.take(), Lines(2, "E ShotSmile: mHardware is NULL, returning."));
}

}  // namespace
