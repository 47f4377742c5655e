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
using namespace kov::test;

namespace {

const __tag_rect kFace = {20, 10, 80, 70};
const __tag_rect kSmile = {30, 20, 60, 50};

const Lines kLooked = {"AMFPAF_FaceFeatureDetect", "ASSD_SmileDetect 1"};
const Lines kDelivered = {"app.data 0x10 28800"};
constexpr char kSuccess[] = "D ShotSmile: Smile Detection Success - m_nFaceNum(1), IFaceNumber(%d), ISmileNumber(%d)";

std::string faceEngine(int width, int height, int format, int stride) {
    return text("AMFPAF_InitialFaceEngine %dx%d format %d stride %d: 1 16 3", width, height, format, stride);
}

/// All that making the engines does.
Lines initLines(int width, int height) {
    const Lines face = {"MMemAlloc 1572864", "MMemMgrCreate 1572864", faceEngine(width, height, 10, (width + 3) & ~3)};
    const Lines set = {"AMFPAF_SetFaceOutPriority 2", "AMFPAF_SetTrackingFrameNumber 5",
                       "D ShotSmile: InitFaceTracking Success"};
    return face + set +
           Lines{"MMemAlloc 614400", "MMemMgrCreate 614400", text("ASSD_InitSmileEngine 1 %d", height),
                 text("D ShotSmile: InitSmileDetection Success WH[%d %d]", width, height)};
}

const Lines kFreed = {"MMemMgrDestroy", "MMemFree"};
const Lines kReleased = Lines{"ASSD_UninitSmileEngine"} + kFreed + Lines{"AMFPAF_UninitialFaceEngine"} + kFreed;

Lines error(const char* operation, int line) {
    return {text("E ShotSmile: ShotSmile::%s() %d", operation, line)};
}

class ShotSmileTest : public ShotTest<ShotSmile> {
protected:
    ~ShotSmileTest() override {
        EXPECT_EQ(std::pair(fakeArcFace().blocksAlive, fakeArcFace().managersAlive), std::pair(0, 0));
        fakeArcFace() = {};
    }

    /// A shot in place of the one before; what making it does.
    Lines make(int width = 160, int height = 120, const char* format = "yuv420sp") {
        retireShot();
        hardware->params.setPreviewSize(width, height);
        hardware->params.setPreviewFormat(format);
        makeShot();
        const Lines lines = recorder.take();
        return {std::find(lines.begin(), lines.end(), "I ShotSmile: ShotSmile created: pid=PID") + 1, lines.end()};
    }
    void start() {
        EXPECT_EQ(shot->sendCommand(1017, 0, 0), NO_ERROR);
        recorder.take();
    }
    /// The engines see a face and a smile, `examined` faces and `smiles` smiling ones from now on.
    static void show(int examined, int smiles = 1) {
        fakeArcFace().faces = {kFace};
        fakeArcFace().smiles = {kSmile, kSmile, kSmile};
        fakeArcFace().examined = examined;
        fakeArcFace().smileCount = smiles;
    }
    /// A frame as the application gets it.
    std::vector<uint8_t> frame(uint8_t fill = 0) {
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill));
        return bytesOf(lastData);
    }
};

TEST_F(ShotSmileTest, MakesItsEnginesAndMakesThemAnewForANewSize) {
    EXPECT_EQ(make(638, 480), initLines(638, 480) + Lines{"hw.setCallbacks"});
    start();
    hardware->params.setPreviewSize(320, 240);
    hardware->results["startPreview"] = 5;
    EXPECT_EQ(shot->startPreview(), 5);
    EXPECT_EQ(recorder.take(), kReleased + initLines(320, 240) + Lines{"hw.startPreview"});
    show(1);
    frame();  // the detection was stopped
    EXPECT_EQ(recorder.take(), (Lines{"AMFPAF_FaceFeatureDetect", "app.data 0x10 115200"}));
    retireShot();
    EXPECT_EQ(recorder.take(), Lines{"I ShotSmile: ShotSmile destroyed: pid=PID"} + kReleased +
                                   Lines{"I ShotCommon: ShotCommon destroyed: pid=PID"});
}

TEST_F(ShotSmileTest, TheConditionForEveryNumberOfFacesAndSmiles) {
    make();
    for (int faces = 0; faces <= 6; ++faces)
        for (int smiles = 0; smiles <= 6; ++smiles) {
            SCOPED_TRACE(text("%d faces, %d smiles", faces, smiles));
            start();
            show(faces, smiles);
            frame();
            const bool met = faces > 3 ? smiles >= 3 : smiles == faces;
            const Lines told = {text(kSuccess, faces, smiles), "app.notify 0x2200 0 0"};
            EXPECT_EQ(recorder.take(), kLooked + (met ? told : Lines{}) + kDelivered);
            frame();  // goes on detecting only when it was not met
            EXPECT_EQ(recorder.take(), (met ? Lines{kLooked[0]} : kLooked) + kDelivered);
        }
}

TEST_F(ShotSmileTest, FacesAndSmilesAreFramedToTheByte) {
    for (const auto& [width, format] :
         {std::pair(638, "yuv420sp"), {640, "yuv420sp"}, {638, "yuv420p"}, {640, "yuv420p"}, {640, "yuv422i-yuyv"}}) {
        SCOPED_TRACE(text("%d %s", width, format));
        make(width, 120, format);
        start();
        show(2);  // not met
        const auto bytes = frame(9);
        // The same marks drawn by the primitives.
        const bool planar = std::string(format) == "yuv420p";
        const OverlayLayout layout = planar ? OverlayLayout::Planar : OverlayLayout::SemiPlanar;
        const auto style = width == 640 ? OverlayFrame::Inward4 : OverlayFrame::Inward2;
        std::vector<uint8_t> expected(bytes.size(), 9);
        uint8_t* const chroma = expected.data() + width * 120;
        const OverlayImage image = {width, 120, {expected.data(), chroma, chroma + (planar ? width * 30 : 1)}};
        drawRectangle(image, layout, 20, 10, 80, 70, {149, 43, 21}, style);
        drawRectangle(image, layout, 30, 20, 60, 50, {118, 204, 43}, style);
        EXPECT_TRUE(bytes == expected);
        EXPECT_EQ(recorder.take("I ShotSmile: mPreviewWidth >= PREVEW_WIDTH_THRESHOLD_TO_DRAW_THICK_LINE").size(),
                  !planar && width == 640 ? 2U : 0U);
        shot->sendCommand(1018, 0, 0);
        EXPECT_EQ(frame(9), std::vector<uint8_t>(bytes.size(), 9));
    }
}

TEST_F(ShotSmileTest, WithoutANotifyCallbackDetectionGoesOn) {
    make();
    shot->setCallbacks(nullptr, onData, onDataTimestamp, this);
    start();
    show(1);
    for (int i = 0; i < 2; ++i) {
        frame();
        EXPECT_EQ(recorder.take(), kLooked + Lines{text(kSuccess, 1, 1)} + kDelivered);
    }
    fakeArcFace().results["ASSD_SmileDetect"] = 1;
    frame();  // leaves a result that meets the condition, but does not count
    EXPECT_EQ(recorder.take(), kLooked + error("SmileDetect", 3) + kDelivered);
    fakeArcFace().results = {{"AMFPAF_FaceFeatureDetect", 1}};
    EXPECT_EQ(frame(3), std::vector<uint8_t>(28800, 3));
    EXPECT_EQ(recorder.take("E "), error("FaceTrackingDetect", 3));
}

TEST_F(ShotSmileTest, EachStepOfMakingTheEnginesMayFail) {
    const Lines noFace = {"D ShotSmile: InitFaceTracking error"};
    const Lines noSmile = {"D ShotSmile: InitSmileDetection error", "AMFPAF_UninitialFaceEngine"};
    const struct {
        size_t calls;  // of those that making the engines does
        Lines then;
        std::function<void(FakeArcFace&)> prepare;
    } cases[] = {
        {1, error("InitFaceTracking", 3) + noFace, [](auto& fake) { fake.allocates = false; }},
        {2, Lines{"MMemFree"} + error("InitFaceTracking", 4) + noFace, [](auto& fake) { fake.makesManagers = false; }},
        {3, kFreed + error("InitFaceTracking", 5) + noFace,
         [](auto& fake) { fake.results["AMFPAF_InitialFaceEngine"] = 1; }},
        {9, error("InitSmileDetection", 4) + kFreed + noSmile + kFreed,
         [](auto& fake) { fake.results["ASSD_InitSmileEngine"] = 1; }},
    };
    const Lines all = initLines(160, 120);
    for (const auto& failing : cases) {
        fakeArcFace() = {};
        failing.prepare(fakeArcFace());
        EXPECT_EQ(make(), Lines(all.begin(), all.begin() + failing.calls) + failing.then + Lines{"hw.setCallbacks"});
        start();
        EXPECT_EQ(frame(3), std::vector<uint8_t>(28800, 3));
        EXPECT_EQ(recorder.take(), error("FaceTrackingDetect", 1) + kDelivered);
        retireShot();
    }
}

TEST_F(ShotSmileTest, TheBindingChecksWhatItIsGiven) {
    make(640, 480);
    const AutoMutex held(shot->engineLock());
    unsigned char pixels[640 * 480 * 3 / 2];
    __tag_rect rects[3];
    int32_t info[3];
    EXPECT_EQ(shot->FaceTrackingDetect(641, 480, pixels, rects), -1);
    EXPECT_EQ(shot->FaceTrackingDetect(640, 480, nullptr, rects), -1);
    EXPECT_EQ(shot->SmileDetect(640, 481, pixels, rects, info, 1), -1);
    EXPECT_EQ(shot->SmileDetect(640, 480, pixels, nullptr, info, 1), -1);
    EXPECT_EQ(recorder.take(), error("FaceTrackingDetect", 2) + error("FaceTrackingDetect", 1) +
                                   error("SmileDetect", 2) + error("SmileDetect", 1));
    // An engine that reports more faces than there is room for.
    fakeArcFace().faces = std::vector<__tag_rect>(9, kFace);
    EXPECT_EQ(shot->FaceTrackingDetect(640, 480, pixels, rects), 3);
    // The smile engine gets the frame as planar, and every face's value.
    EXPECT_EQ(shot->SmileDetect(640, 480, pixels, rects, info, 3), 0);
    const ASSD_IMAGE& image = fakeArcFace().lastImage;
    EXPECT_EQ(std::vector(image.plane, image.plane + 3), std::vector({pixels, pixels + 307200, pixels + 384000}));
    EXPECT_EQ(std::vector(image.stride, image.stride + 3), std::vector({640, 320, 320}));
    EXPECT_EQ(std::vector(info, info + 3), std::vector({7, 7, 7}));
    fakeArcFace().faceCount = 0;
    EXPECT_EQ(shot->FaceTrackingDetect(640, 480, pixels, rects), 0);

    for (int i = 0; i < 2; ++i) {
        shot->UnInitSmile();
        shot->UnInitFaceTracking();
    }
    recorder.take();
    const int32_t cases[][4] = {{10, 640, 0, 5}, {6, 1276, 1, 0}, {4, 1276, 1, 0}};
    for (const auto& [format, stride, noTracking, frames] : cases) {
        EXPECT_EQ(shot->InitFaceTracking(638, 480, format, noTracking, 3), 1);
        shot->UnInitFaceTracking();
        EXPECT_EQ(recorder.take("AMFPAF_"),
                  (Lines{faceEngine(638, 480, format, stride), "AMFPAF_SetFaceOutPriority 2",
                         text("AMFPAF_SetTrackingFrameNumber %d", frames), "AMFPAF_UninitialFaceEngine"}));
    }
    EXPECT_EQ(shot->InitFaceTracking(0, 120, 10, 0, 3), 0);
    EXPECT_EQ(shot->InitFaceTracking(160, 0, 10, 0, 3), 0);
    EXPECT_EQ(shot->InitFaceTracking(160, 120, 3, 0, 3), 0);
    EXPECT_EQ(recorder.take(),
              error("InitFaceTracking", 1) + error("InitFaceTracking", 1) + error("InitFaceTracking", 2));
    fakeArcFace().makesManagers = false;
    EXPECT_EQ(shot->InitSmileDetection(640, 480), 0);
    fakeArcFace().allocates = false;
    EXPECT_EQ(shot->InitSmileDetection(640, 480), 0);
    EXPECT_EQ(shot->InitSmileDetection(0, 480), 0);
    EXPECT_EQ(recorder.take("E "),
              error("InitSmileDetection", 3) + error("InitSmileDetection", 2) + error("InitSmileDetection", 1));
}

TEST_F(ShotSmileTest, ThePreviewRestartsWhileFramesCome) {
    make();
    fakeArcFace().faces = {kFace};
    std::atomic<int> inEngines{0};
    std::atomic<int> overlaps{0};
    fakeArcFace().during = [&] {
        overlaps += inEngines.fetch_add(1) != 0;
        std::this_thread::yield();
        --inEngines;
    };
    const sp<IMemory> sizes[] = {makeMemory(320 * 240 * 3 / 2), makeMemory(160 * 120 * 3 / 2)};
    std::jthread frames([&](const std::stop_token& over) {
        for (int i = 0; !over.stop_requested(); ++i)
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, sizes[i % 2]);
    });
    for (int i = 0; i < 20; ++i) {
        const ShotGate::Entry inside(shot->gate());
        hardware->params.setPreviewSize(i % 2 ? 160 : 320, i % 2 ? 120 : 240);
        EXPECT_EQ(shot->startPreview(), NO_ERROR);
        EXPECT_EQ(shot->sendCommand(1017, 0, 0), NO_ERROR);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    retireShot();
    frames = {};
    EXPECT_EQ(overlaps, 0);
}

TEST_F(ShotSmileTest, OtherMessagesAndNoVendorLayer) {
    make();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(100));
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(5));
    EXPECT_EQ(shot->sendCommand(1018, 1, 2), NO_ERROR);
    EXPECT_EQ(shot->sendCommand(1019, 1, 2), NO_ERROR);
    EXPECT_EQ(
        recorder.take(),
        (Lines{"E ShotSmile: Null data returned in data callback", "app.notify 0x1 -2147483648 0", "app.data 0x10 null",
               "app.data 0x10 100", "I ShotSmile: CAMERA_MSG_COMPRESSED_IMAGE", "app.data 0x100 5",
               "I ShotSmile: ShotSmile::sendCommand 1018, 1, 2", "I ShotSmile: SMILE_SHOT_DETECTION_STOP",
               "I ShotSmile: ShotSmile::sendCommand 1019, 1, 2", "hw.sendCommand 1019 1 2"}));
    shot->setCameraHardware(nullptr);
    EXPECT_EQ(shot->startPreview(), INVALID_OPERATION);
    EXPECT_EQ(shot->sendCommand(1017, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(recorder.take(), Lines(2, "E ShotSmile: mHardware is NULL, returning."));
}

}  // namespace
