// The smile shot and its engine binding.

#include "shots/smile/ShotSmile.h"

#include <algorithm>
#include <climits>
#include <set>

#include "tests/smile/FakeArcFace.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

const __tag_rect kFace = {20, 10, 80, 70};
const __tag_rect kSmile = {30, 20, 60, 50};
const Lines kDelivered = {"app.data 0x10 28800"};
const std::string kThick = "I ShotSmile: mPreviewWidth >= PREVEW_WIDTH_THRESHOLD_TO_DRAW_THICK_LINE";

/// What making the engines does, for the `n`th time.
Lines initLines(int width, int height, int n = 1, int format = 10) {
    const int a = 2 * n - 1, b = 2 * n;  // block and manager of the one engine, and of the other
    return {"MMemAlloc 1572864",
            text("MMemMgrCreate b%d 1572864", a),
            text("AMFPAF_InitialFaceEngine m%d %dx%d format %d stride %d: 1 16 3", a, width, height, format,
                 (width + 3) / 4 * 4),
            text("AMFPAF_SetFaceOutPriority f%d 2", n),
            text("AMFPAF_SetTrackingFrameNumber f%d 5", n),
            "D ShotSmile: InitFaceTracking Success",
            "MMemAlloc 614400",
            text("MMemMgrCreate b%d 614400", b),
            text("ASSD_InitSmileEngine m%d 1 %d", b, height),
            text("D ShotSmile: InitSmileDetection Success WH[%d %d]", width, height)};
}
Lines freed(int n) {
    return {text("MMemMgrDestroy m%d", n), text("MMemFree b%d", n)};
}
Lines released(int n) {
    return Lines{text("ASSD_UninitSmileEngine m%d s%d", 2 * n, n)} + freed(2 * n) +
           Lines{text("AMFPAF_UninitialFaceEngine m%d f%d", 2 * n - 1, n)} + freed(2 * n - 1);
}
Lines tracked(int fill = 0) {
    return {text("AMFPAF_FaceFeatureDetect m1 f1 frame %d", fill)};
}
/// Faces and smiles looked for in a frame of 160 x 120.
Lines looked(const std::string& faces = ", face 20 info 7") {
    return tracked() +
           Lines{"ASSD_SmileDetect m2 s1 frame 0 160x120 format 10 strides 160 80 80 planes 19200 24000" + faces};
}
Lines success(int examined, int smiling) {
    return {text("D ShotSmile: Smile Detection Success - m_nFaceNum(1), IFaceNumber(%d), ISmileNumber(%d)", examined,
                 smiling)};
}
Lines error(const char* operation, int line) {
    return {text("E ShotSmile: ShotSmile::%s() %d", operation, line)};
}

class ShotSmileTest : public ShotTest<ShotSmile> {
protected:
    ~ShotSmileTest() override { gFakeArcFace = {}; }

    /// A shot in place of the one before; what making it does.
    Lines make(int width = 160, int height = 120, const char* format = "yuv420sp") {
        retireShot();
        gFakeArcFace.made.clear();
        hardware->params.setPreviewSize(width, height);
        hardware->params.setPreviewFormat(format);
        return made();
    }
    void start() {
        EXPECT_EQ(shot->sendCommand(1017, 0, 0), NO_ERROR);
        recorder.take();
    }
    /// The engines see a face and a smile, `examined` faces and `smiles` smiling ones from now on.
    static void show(int examined, int smiles = 1) {
        gFakeArcFace.faces = {kFace};
        gFakeArcFace.smiles = {kSmile, kSmile, kSmile, kSmile, kSmile, kSmile};
        gFakeArcFace.examined = examined;
        gFakeArcFace.smileCount = smiles;
    }
    /// A frame as the application gets it.
    std::vector<uint8_t> frame(uint8_t fill = 0) {
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill));
        return bytesOf(lastData);
    }
    Lines framed() {
        frame();
        return recorder.take();
    }
};

TEST_F(ShotSmileTest, MakesItsEnginesAndMakesThemAnewForANewSize) {
    EXPECT_EQ(make(638, 480), initLines(638, 480) + Lines{"hw.setCallbacks"});
    start();
    hardware->params.setPreviewSize(320, 240);
    hardware->results["startPreview"] = 5;
    EXPECT_EQ(shot->startPreview(), 5);
    EXPECT_EQ(recorder.take(), released(1) + initLines(320, 240, 2) + Lines{"hw.startPreview"});
    show(1);  // the detection was stopped
    EXPECT_EQ(framed(), (Lines{"AMFPAF_FaceFeatureDetect m3 f2 frame 0", "app.data 0x10 115200"}));
    retireShot();
    EXPECT_EQ(recorder.take(), Lines{"I ShotSmile: ShotSmile destroyed: pid=PID"} + released(2) +
                                   Lines{"I ShotCommon: ShotCommon destroyed: pid=PID"});
}

TEST_F(ShotSmileTest, TheConditionForEveryNumberOfFacesAndSmiles) {
    make();
    const std::set<int> met[] = {{0}, {1}, {2}, {3}, {3, 4, 5, 6}, {3, 4, 5, 6}};  // smiles, by faces
    for (int faces = 0; faces < 6; ++faces)
        for (int smiles = 0; smiles <= 6; ++smiles) {
            SCOPED_TRACE(text("%d faces, %d smiles", faces, smiles));
            start();
            show(faces, smiles);
            const Lines told = success(faces, smiles) + Lines{"app.notify 0x2200 0 0"};
            const bool isMet = met[faces].contains(smiles);
            EXPECT_EQ(framed(), looked() + (isMet ? told : Lines{}) + kDelivered);
            // Goes on detecting only when it was not met.
            EXPECT_EQ(framed(), (isMet ? tracked() : looked()) + kDelivered);
        }
}

TEST_F(ShotSmileTest, FacesAndSmilesAreFramedToTheByte) {
    const auto onFrame = [](int x, int y, const __tag_rect& at, int thick) {
        const auto within = [&](int by) {
            return x >= at.left + by && x <= at.right - by && y >= at.top + by && y <= at.bottom - by;
        };
        return within(0) && !within(thick);
    };
    const __tag_rect second = {90, 80, 120, 110};  // the third of two smiles is not one
    for (const auto& [width, format] :
         {std::pair(638, "yuv420sp"), {640, "yuv420sp"}, {638, "yuv420p"}, {640, "yuv420p"}, {640, "yuv422i-yuyv"}}) {
        SCOPED_TRACE(text("%d %s", width, format));
        const bool planar = std::string(format) == "yuv420p";
        const int thick = width == 640 ? 4 : 2;
        EXPECT_EQ(make(width, 120, format), initLines(width, 120, 1, planar ? 5 : 10) + Lines{"hw.setCallbacks"});
        start();
        show(1, 2);  // not met
        gFakeArcFace.smiles = {kSmile, second, {0, 0, 9, 9}};
        const auto bytes = frame(9);
        EXPECT_EQ(recorder.take(kThick).size(), !planar && width == 640 ? 3U : 0U);
        const uint8_t colours[][3] = {{9, 9, 9}, {149, 43, 21}, {118, 204, 43}};
        std::vector<uint8_t> expected(bytes.size());
        for (int y = 0; y < 120; ++y) {
            for (int x = 0; x < width; ++x) {
                const bool smile = onFrame(x, y, kSmile, thick) || onFrame(x, y, second, thick);
                const uint8_t* const colour = colours[smile ? 2 : onFrame(x, y, kFace, thick)];
                expected[y * width + x] = colour[0];
                if (x % 2 || y % 2)
                    continue;
                const int pair = y / 2 * (width / 2) + x / 2, luma = width * 120;
                expected[luma + (planar ? pair : 2 * pair)] = colour[1];
                expected[luma + (planar ? luma / 4 + pair : 2 * pair + 1)] = colour[2];
            }
        }
        EXPECT_TRUE(bytes == expected);
        shot->sendCommand(1018, 0, 0);
        EXPECT_EQ(frame(9), std::vector<uint8_t>(bytes.size(), 9));
    }
}

TEST_F(ShotSmileTest, WithoutANotifyCallbackDetectionGoesOnAndAFailureCountsAsNoSmiles) {
    make();
    shot->setCallbacks(nullptr, onData, onDataTimestamp, this);
    start();
    const Lines failed = looked() + error("SmileDetect", 3);
    // A failing engine leaves a result that is not looked at: the faces examined are those of the last success.
    gFakeArcFace.results["ASSD_SmileDetect"] = 1;
    show(0, 0);
    EXPECT_EQ(framed(), failed + kDelivered);
    for (const int examined : {1, 0}) {
        gFakeArcFace.results = {};
        show(examined, examined);
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(framed(), looked() + success(examined, examined) + kDelivered);
        gFakeArcFace.results["ASSD_SmileDetect"] = 1;
        show(2, 2);
        EXPECT_EQ(framed(), failed + (examined ? Lines{} : success(0, 0)) + kDelivered);
        EXPECT_EQ(bytesOf(lastData)[20 * 160 + 35], 0) << "not framed as a smile";
    }
    gFakeArcFace.results = {{"AMFPAF_FaceFeatureDetect", 1}};
    EXPECT_EQ(frame(3), std::vector<uint8_t>(28800, 3));
    EXPECT_EQ(recorder.take(), tracked(3) + error("FaceTrackingDetect", 3) + kDelivered);
}

TEST_F(ShotSmileTest, EnginesThatLieAreSurvived) {
    make();
    start();
    show(6, 6);
    gFakeArcFace.smiles = std::vector<__tag_rect>(66, kSmile);
    gFakeArcFace.smiles[63] = {100, 20, 120, 40};
    gFakeArcFace.smiles[64] = {100, 60, 120, 80};  // one too many
    gFakeArcFace.smileCount = INT_MAX;
    gFakeArcFace.faces = {kFace, kSmile, kFace};
    gFakeArcFace.faceCount = INT_MAX;
    EXPECT_EQ(framed().size(), 5U);  // both looked for, success, told, delivered
    EXPECT_EQ(bytesOf(lastData)[20 * 160 + 110], 118);
    EXPECT_EQ(bytesOf(lastData)[60 * 160 + 110], 0);
    start();
    gFakeArcFace.smiles.clear();
    gFakeArcFace.smileCount = gFakeArcFace.faceCount = 1;
    EXPECT_EQ(framed(), looked() + error("SmileDetect", 3) + kDelivered);
    gFakeArcFace.faces.clear();
    EXPECT_EQ(framed(), tracked() + error("FaceTrackingDetect", 3) + kDelivered);
}

TEST_F(ShotSmileTest, EachStepOfMakingTheEnginesMayFail) {
    const Lines noFace = {"D ShotSmile: InitFaceTracking error"};
    const Lines noSmile = {"D ShotSmile: InitSmileDetection error", "AMFPAF_UninitialFaceEngine m1 f1"};
    const struct {
        size_t calls;  // of those that making the engines does
        Lines then;
        std::function<void(FakeArcFace&)> prepare;
    } cases[] = {
        {1, error("InitFaceTracking", 3) + noFace, [](auto& fake) { fake.allocates = false; }},
        {2, Lines{"MMemFree b1"} + error("InitFaceTracking", 4) + noFace,
         [](auto& fake) { fake.makesManagers = false; }},
        {3, freed(1) + error("InitFaceTracking", 5) + noFace,
         [](auto& fake) { fake.results["AMFPAF_InitialFaceEngine"] = 1; }},
        {9, error("InitSmileDetection", 4) + freed(2) + noSmile + freed(1),
         [](auto& fake) { fake.results["ASSD_InitSmileEngine"] = 1; }},
    };
    const Lines all = initLines(160, 120);
    for (const auto& failing : cases) {
        gFakeArcFace = {};
        failing.prepare(gFakeArcFace);
        EXPECT_EQ(make(), Lines(all.begin(), all.begin() + failing.calls) + failing.then + Lines{"hw.setCallbacks"});
        start();
        EXPECT_EQ(frame(3), std::vector<uint8_t>(28800, 3));
        EXPECT_EQ(recorder.take(), error("FaceTrackingDetect", 1) + kDelivered);
        retireShot();
        // Nothing is left of an engine that was not made.
        EXPECT_EQ(recorder.take("A"),
                  (Lines{"ASSD_UninitSmileEngine none none", "AMFPAF_UninitialFaceEngine none none"}));
    }
}

TEST_F(ShotSmileTest, TheBindingChecksWhatItIsGiven) {
    SmileEngines engines;
    std::vector<unsigned char> bytes(638 * 480 * 3 / 2, 5);
    unsigned char* const pixels = bytes.data();
    __tag_rect rects[3] = {};
    int32_t info[3] = {};
    const int32_t formats[][4] = {{10, 640, 0, 5}, {11, 640, 0, 5}, {5, 640, 0, 5},
                                  {2, 1276, 0, 5}, {6, 1276, 1, 0}, {4, 1276, 1, 0}};
    for (const auto& [format, stride, noTracking, frames] : formats) {
        gFakeArcFace.made.clear();
        EXPECT_EQ(engines.InitFaceTracking(638, 480, format, noTracking, 2), 1);
        engines.UnInitFaceTracking();
        EXPECT_EQ(recorder.take("AMFPAF_"),
                  (Lines{text("AMFPAF_InitialFaceEngine m1 638x480 format %d stride %d: 1 16 2", format, stride),
                         "AMFPAF_SetFaceOutPriority f1 2", text("AMFPAF_SetTrackingFrameNumber f1 %d", frames),
                         "AMFPAF_UninitialFaceEngine m1 f1"}));
    }
    // Sizes that cannot be told to the engines, and unknown formats.
    const int32_t sizes[][4] = {
        {0, 120, 10, 1},    {160, 0, 10, 1},          {-160, 120, 10, 1},    {160, INT_MIN, 6, 1}, {INT_MAX, 1, 10, 1},
        {1, INT_MAX, 4, 1}, {INT_MAX, INT_MAX, 2, 1}, {0x3FFFFFFF, 1, 6, 1}, {160, 120, 3, 2},     {160, 120, 0, 2}};
    for (const auto& [width, height, format, line] : sizes) {
        EXPECT_EQ(engines.InitFaceTracking(width, height, format, 0, 3), 0);
        EXPECT_EQ(recorder.take(), error("InitFaceTracking", line));
        if (line == 2)
            continue;
        EXPECT_EQ(engines.InitSmileDetection(width, height), 0);
        EXPECT_EQ(recorder.take(), error("InitSmileDetection", 1));
    }
    // The largest that can, and a frame of which the engines refuse what is not it.
    for (const auto& [width, height] : {std::pair{0x3FFFFFFE, 1}, {1, 0x3FFFFFFE}, {638, 480}}) {
        engines.UnInitSmile();
        engines.UnInitFaceTracking();
        gFakeArcFace.made.clear();
        EXPECT_EQ(engines.InitFaceTracking(width, height, 6, 0, 3), 1);
        EXPECT_EQ(engines.InitSmileDetection(width, height), 1);
    }
    recorder.take();
    const auto refused = [&](int32_t width, int32_t height, unsigned char* frame, __tag_rect* to, int line) {
        EXPECT_EQ(engines.FaceTrackingDetect(width, height, frame, to), -1);
        EXPECT_EQ(engines.SmileDetect(width, height, frame, to, info, 1), -1);
        EXPECT_EQ(recorder.take(), error("FaceTrackingDetect", line) + error("SmileDetect", line));
    };
    refused(638, 480, nullptr, rects, 1);
    refused(638, 480, pixels, nullptr, 1);
    refused(639, 480, pixels, rects, 2);
    refused(638, 479, pixels, rects, 2);
    // More faces than there is room for; then none.
    gFakeArcFace.faces = std::vector<__tag_rect>(9, kFace);
    EXPECT_EQ(engines.FaceTrackingDetect(638, 480, pixels, rects), 3);
    gFakeArcFace.smileCount = 0;
    EXPECT_EQ(engines.SmileDetect(638, 480, pixels, rects, info, 3), 0);
    gFakeArcFace.faceCount = 0;
    EXPECT_EQ(engines.FaceTrackingDetect(638, 480, pixels, rects), 0);
    const std::string found = ", face 20 info 7";
    EXPECT_EQ(recorder.take(), tracked(5) +
                                   Lines{"ASSD_SmileDetect m2 s1 frame 5 638x480 format 6 strides 640 320 320 planes "
                                         "306240 382800" +
                                         found + found + found} +
                                   tracked(5));
    for (int i = 0; i < 2; ++i) {
        engines.UnInitSmile();
        engines.UnInitFaceTracking();
        const Lines nothing = {"ASSD_UninitSmileEngine none none", "AMFPAF_UninitialFaceEngine none none"};
        EXPECT_EQ(recorder.take(), i == 0 ? released(1) : nothing);
    }
    for (const int line : {3, 2}) {
        gFakeArcFace.makesManagers = false;
        gFakeArcFace.allocates = line == 3;
        EXPECT_EQ(engines.InitSmileDetection(640, 480), 0);
        EXPECT_EQ(recorder.take("E "), error("InitSmileDetection", line));
    }
}

TEST_F(ShotSmileTest, OneRunTellsOnceWhicheverThreadsTheFramesComeOn) {
    make();
    start();
    show(1);
    const auto deliver = [&] { hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame()); };
    runMeeting(gFakeArcFace, "ASSD_SmileDetect", deliver, deliver);
    const Lines lines = recorder.take();
    for (const Lines& once : {Lines{"app.notify 0x2200 0 0"}, success(1, 1), Lines{looked()[1]}})
        EXPECT_EQ(std::count(lines.begin(), lines.end(), once[0]), 1);
}

TEST_F(ShotSmileTest, AFrameInTheEnginesHasTheSizeThatTheyWereMadeFor) {
    make(640, 120);
    start();
    show(2);
    runMeeting(
        gFakeArcFace, "AMFPAF_FaceFeatureDetect", [&] { frame(); },
        [&] {
            hardware->params.setPreviewSize(160, 120);
            EXPECT_EQ(shot->startPreview(), NO_ERROR);
        });
    EXPECT_EQ(recorder.take(kThick).size(), 2U);
}

TEST_F(ShotSmileTest, CommandsAndMessagesHaveTheirLines) {
    make();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(30000));  // with something behind it
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(5));
    EXPECT_EQ(shot->sendCommand(1018, 1, 2), NO_ERROR);
    EXPECT_EQ(shot->sendCommand(1017, 1, 2), NO_ERROR);
    EXPECT_EQ(shot->sendCommand(1019, 1, 2), NO_ERROR);
    EXPECT_EQ(
        recorder.take(),
        tracked() + (Lines{"app.data 0x10 30000", "I ShotSmile: CAMERA_MSG_COMPRESSED_IMAGE", "app.data 0x100 5",
                           "I ShotSmile: ShotSmile::sendCommand 1018, 1, 2", "I ShotSmile: SMILE_SHOT_DETECTION_STOP",
                           "I ShotSmile: ShotSmile::sendCommand 1017, 1, 2", "I ShotSmile: SMILE_SHOT_DETECTION_START",
                           "I ShotSmile: ShotSmile::sendCommand 1019, 1, 2", "hw.sendCommand 1019 1 2"}));
}

}  // namespace
