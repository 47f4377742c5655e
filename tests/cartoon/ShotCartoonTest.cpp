// The cartoon shot: what it calls, sends and logs, in its order.

#include "shots/cartoon/ShotCartoon.h"

#include <algorithm>

#include "host/runtime/Heaps.h"
#include "tests/support/FakeCaps.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::bytesOf;
using kov::test::fakeCaps;
using kov::test::Lines;
using kov::test::makeMemory;
using kov::test::operator+;
using kov::test::text;

namespace {

const Lines kCartoon = {"caps.beginCartoon", "caps.setCartoon 1", "caps.endCartoon"};
const Lines kSketchColor = {"D ShotCartoon: applyEffectSketchColor", "caps.applySketch 1"};
const Lines kSketchGray = {"D ShotCartoon: applyEffectSketchGray", "caps.applySketch 0"};
const Lines kStamp = {"D ShotCartoon: applyEffectStamp", "caps.beginStamp", "caps.setStamp 3 100", "caps.endStamp"};
const Lines kFreedImages = {"caps.destroyImage", "caps.destroyImage"};
const Lines kFreed = {"caps.destroySession", "caps.destroyStream in", "caps.destroyStream out", "caps.destroyBuffer"};
const Lines kOpened = {"caps.createBuffer 0", "caps.createBufferStream in 0", "caps.createBufferStream out 0",
                       "caps.createSession 1"};

class ShotCartoonTest : public kov::test::ShotTest<ShotCartoon> {
protected:
    ShotCartoonTest() { fakeCaps() = {}; }
    ~ShotCartoonTest() override {
        retireShot();
        EXPECT_EQ(kov::test::fakeCapsObjects(), 0);
        fakeCaps() = {};
    }

    void makeReady() {
        makeShot();
        recorder.take();
    }
    void select(int32_t effect) {
        shot->sendCommand(1039, effect, 0);
        recorder.take();
    }
    Lines picture() {
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, 5));
        return withoutTime(recorder.take());
    }
    /// The duration in the line that ends a rendering is replaced.
    static Lines withoutTime(Lines lines) {
        for (std::string& line : lines) {
            const size_t at = line.find("HandlePreview in ");
            if (at != std::string::npos)
                line.replace(at + 17, line.find(' ', at + 17) - at - 17, "N");
        }
        return lines;
    }
    /// Lines of a preview frame whose bytes are `fill`.
    static Lines frameLines(uint8_t fill, const Lines& effect) {
        const std::string image = text("caps.createImage 460800 of %d, 640x480 stride 640 4380", fill);
        return Lines{"caps.pixelBitSize 4380", image, image, text("caps.newSessionWithRaw of %d..%d", fill, fill)} +
               effect + Lines{text("caps.renderAsRawToBuffer over %d, 0 0", fill), "caps.destroySession"} +
               kFreedImages + Lines{"app.data 0x10 460800"};
    }
    static Lines pictureLines(const Lines& effect, const char* quality = "0.95") {
        return kOpened + effect +
               Lines{text("caps.setJpegQuality %s", quality), "caps.render 2560x1920 0 1", "caps.doNextIteration",
                     "caps.estimateIterationCount", "caps.getCurIterationCount"};
    }
    static Lines lastStep(const Lines& progress) {
        return Lines{"caps.doNextIteration", "caps.getCurIterationCount"} + progress +
               Lines{"caps.destroyIterator",
                     "D ShotCartoon:  CAMERA_MSG_COMPRESSED_IMAGE after HandlePreview in N ms res[0]"} +
               kFreed + Lines{"app.data 0x100 9"};
    }
};

const Lines kProgress100 = {"D ShotCartoon: For Iteration[100]", "app.notify 0x2400 100 0"};

struct EffectCase {
    int32_t code;
    Lines calls;
};
const EffectCase kEffects[] = {{0, kCartoon}, {1, kSketchColor}, {2, kSketchGray}, {3, kStamp}, {7, {}}, {-1, {}}};

TEST_F(ShotCartoonTest, ComesAndGoesWithItsLines) {
    shot = android::makeShot<ShotCartoon>(hardware);
    EXPECT_EQ(recorder.take().back(), "I ShotCartoon: ShotCartoon created: pid=PID");
    retireShot();
    EXPECT_EQ(recorder.take(),
              (Lines{"I ShotCartoon: ShotCartoon destroyed: pid=PID", "I ShotCommon: ShotCommon destroyed: pid=PID"}));
}

TEST_F(ShotCartoonTest, TheEffectIsSelectedAndEveryCommandReachesTheVendorLayer) {
    makeReady();
    hardware->results["sendCommand"] = -5;
    for (const int32_t code : {1039, 1040, 1019}) {
        EXPECT_EQ(shot->sendCommand(code, 3, 4), -5);
        EXPECT_EQ(recorder.take(),
                  (Lines{text("I ShotCartoon: sendCommand %d, 3, 4", code), text("hw.sendCommand %d 3 4", code)}));
    }
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(1));
    EXPECT_EQ(recorder.take(), frameLines(1, kStamp));
    shot->setCameraHardware(nullptr);
    EXPECT_EQ(shot->sendCommand(1039, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(recorder.take(), Lines{"E ShotCartoon: mHardware is NULL, returning."});
}

TEST_F(ShotCartoonTest, FramesAreRenderedInPlaceFromOneCopy) {
    makeReady();
    for (const EffectCase& effect : kEffects) {
        SCOPED_TRACE(effect.code);
        if (&effect != kEffects)  // the cartoon needs no command
            select(effect.code);
        const sp<IMemory> frame = makeFrame(20);
        const size_t heaps = kov::host::heapsMade();
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        EXPECT_EQ(recorder.take(), frameLines(20, effect.calls));
        EXPECT_EQ(kov::host::heapsMade(), heaps + 1);
        EXPECT_EQ(lastData.get(), frame.get());
        EXPECT_EQ(bytesOf(frame), std::vector<uint8_t>(frame->size(), fakeCaps().look));
    }
}

TEST_F(ShotCartoonTest, APlanarFrameIsRenderedInTheLibrarysOrderAndDeliveredInItsOwn) {
    hardware->params.setPreviewSize(4, 2);
    hardware->params.setPreviewFormat("yuv420p");
    makeReady();
    const sp<IMemory> frame = makeMemory(12);
    const std::vector<uint8_t> planar = {1, 2, 3, 4, 5, 6, 7, 8, 20, 21, 30, 31};
    std::copy(planar.begin(), planar.end(), static_cast<uint8_t*>(frame->pointer()));
    fakeCaps().results["renderAsRawToBuffer"] = 0;  // leaves the frame to this instead
    fakeCaps().during = [&](const char* name) {
        const std::vector<uint8_t> rendered = {51, 52, 53, 54, 55, 56, 57, 58, 130, 120, 131, 121};
        if (std::string(name) == "renderAsRawToBuffer")
            std::copy(rendered.begin(), rendered.end(), static_cast<uint8_t*>(frame->pointer()));
    };
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
    EXPECT_EQ(recorder.take("caps.newSession"), Lines{"caps.newSessionWithRaw of 1..21"});  // ends with a U
    EXPECT_EQ(bytesOf(frame), (std::vector<uint8_t>{51, 52, 53, 54, 55, 56, 57, 58, 120, 121, 130, 131}));
}

TEST_F(ShotCartoonTest, OtherFramesGoByAsTheyAre) {
    const struct {
        const char* name;
        const char* format;
        int width, height;
        size_t size;
    } cases[] = {
        {"4:2:2", "yuv422i", 640, 480, 640 * 480 * 2},
        {"interleaved 4:2:0", "yuv420i", 640, 480, 640 * 480 * 3 / 2},
        {"smaller than the preview", "yuv420sp", 640, 480, 1000},
        {"empty", "yuv420sp", 640, 480, 0},
        {"no preview size", "yuv420sp", 0, 0, 100},
        {"odd sides", "yuv420sp", 3, 3, 13},
    };
    for (const auto& other : cases) {
        SCOPED_TRACE(other.name);
        hardware->params.setPreviewSize(other.width, other.height);
        hardware->params.setPreviewFormat(other.format);
        makeReady();
        const sp<IMemory> frame = makeMemory(other.size, 20);
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        EXPECT_EQ(recorder.take(), Lines{text("app.data 0x10 %zu", other.size)});
        EXPECT_EQ(bytesOf(frame), std::vector<uint8_t>(other.size, 20));
        retireShot();
    }
}

TEST_F(ShotCartoonTest, AFrameIsDeliveredWhateverTheLibraryAnswers) {
    makeReady();
    for (const char* name : {"createImage", "newSessionWithRaw", "beginCartoon", "setCartoon", "renderAsRawToBuffer"}) {
        SCOPED_TRACE(name);
        fakeCaps().results = {{name, -1}};
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(20));
        EXPECT_EQ(recorder.take().back(), "app.data 0x10 460800");
        EXPECT_EQ(kov::test::fakeCapsObjects(), 0);
    }
}

TEST_F(ShotCartoonTest, PicturesAreRenderedAndReplaced) {
    makeReady();
    for (const EffectCase& effect : kEffects) {
        SCOPED_TRACE(effect.code);
        select(effect.code);
        EXPECT_EQ(picture(), pictureLines(effect.calls) + lastStep(kProgress100));
        EXPECT_EQ(bytesOf(lastData), (std::vector<uint8_t>{'c', 'a', 'p', 's', ' ', 'J', 'P', 'E', 'G'}));
        EXPECT_EQ(lastData->getMemory()->getSize(), 9U);
    }
    for (const auto& [parameter, quality] : {std::pair("70", "0.90"), {"40", "0.70"}, {"85", "0.95"}, {"", "0.95"}}) {
        select(7);
        hardware->params.set("jpeg-quality", parameter);
        EXPECT_EQ(picture(), pictureLines({}, quality) + lastStep(kProgress100));
    }
}

TEST_F(ShotCartoonTest, ProgressIsToldInStepsOfFivePercent) {
    const struct {
        std::vector<int32_t> counts;
        int32_t total;
        Lines told;
    } cases[] = {
        {{0, 3, 10, 10, 21, 30}, 30, {"app.notify 0x2400 10 0", "app.notify 0x2400 70 0", "app.notify 0x2400 100 0"}},
        {{1, 2, 3, 4}, 0, {}},
        {{1, 2, 3, 4}, -4, {}},
        {{-5, -1, 0, 1}, 20, {"app.notify 0x2400 5 0"}},
        {{10, 5, 20, 10}, 20, {"app.notify 0x2400 25 0", "app.notify 0x2400 100 0"}},
        {{1, 40, 20}, 20, {"app.notify 0x2400 100 0"}},  // 200 percent is not told
        {{30}, 30, {}},                                  // done in the first step
    };
    makeReady();
    for (const auto& example : cases) {
        fakeCaps().counts = example.counts;
        fakeCaps().total = example.total;
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, 5));
        EXPECT_EQ(recorder.take("app."), example.told + Lines{"app.data 0x100 9"}) << example.total;
    }
}

TEST_F(ShotCartoonTest, AFailureEndsThePictureAndReleasesWhatWasMade) {
    const Lines parameters = {"caps.setJpegQuality 0.95"};
    const auto line = [](const char* operation) { return text("E ShotCartoon: %s - [-7]", operation); };
    const struct {
        const char* failing;
        Lines expected;
    } cases[] = {
        {"createBuffer", {"caps.createBuffer 0", "E ShotCartoon: caps_createBuffer - [0]"}},
        {"createBufferStream in", Lines(kOpened.begin(), kOpened.begin() + 2) +
                                      Lines{line("ctstream_createBufferStream"), "caps.destroyBuffer"}},
        {"createBufferStream out",
         Lines(kOpened.begin(), kOpened.begin() + 3) +
             Lines{line("ctstream_createBufferStream"), "caps.destroyStream in", "caps.destroyBuffer"}},
        {"createSession", kOpened + Lines{line("caps_createSession")} + Lines(kFreed.begin() + 1, kFreed.end())},
        {"beginCartoon", kOpened + Lines{"caps.beginCartoon", line("applyEffect")} + kFreed},
        {"setCartoon", kOpened + Lines{"caps.beginCartoon", "caps.setCartoon 1", line("applyEffect")} + kFreed},
        {"endCartoon", kOpened + kCartoon + Lines{line("applyEffect")} + kFreed},
        {"render", kOpened + kCartoon +
                       Lines{"caps.setJpegQuality 0.95", "caps.render 2560x1920 0 1", line("caps_render")} + kFreed},
    };
    makeReady();
    for (const auto& failure : cases) {
        SCOPED_TRACE(failure.failing);
        fakeCaps().results = {{failure.failing, -7}};
        EXPECT_EQ(picture(), failure.expected);
        EXPECT_EQ(kov::test::fakeCapsObjects(), 0);
    }
    // The other effects go on whatever the library answers, and so does a quality that it refuses.
    fakeCaps().results = {{"applySketch", -7}, {"beginStamp", -7}, {"setStamp", -7}, {"setJpegQuality", -7}};
    for (const int32_t effect : {1, 2, 3}) {
        select(effect);
        EXPECT_EQ(picture().back(), "app.data 0x100 9");
    }
}

TEST_F(ShotCartoonTest, MessagesWithoutMemoryOrCallback) {
    makeReady();
    const Lines without = {"E ShotCartoon: Null data returned in data callback", "app.notify 0x1 -2147483648 0"};
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    EXPECT_EQ(recorder.take(), without + Lines{"app.data 0x10 null"});
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(0));
    EXPECT_EQ(recorder.take(), without + Lines{"app.data 0x100 0"});
    hardware->data(CAMERA_MSG_RAW_IMAGE, makeMemory(3));
    EXPECT_EQ(recorder.take(), Lines{"app.data 0x80 3"});
    shot->setCallbacks(nullptr, onData, nullptr, this);
    recorder.take();
    EXPECT_EQ(picture().back(), "app.data 0x100 9");  // without a word of progress
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    recorder.take();
    EXPECT_EQ(picture(), Lines{"E ShotCartoon: mDataCb is NULL, returning."});
}

/// Retires the shot when the application is told of progress.
struct RetireOnProgress {
    static std::function<void()> act;
    static void onNotify(int32_t, int32_t, int32_t, void*) {
        if (act)
            std::exchange(act, nullptr)();
    }
};
std::function<void()> RetireOnProgress::act;

TEST_F(ShotCartoonTest, ASwitchFromWithinTheProgressEndsThePicture) {
    makeShot();
    shot->setCallbacks(RetireOnProgress::onNotify, onData, onDataTimestamp, this);
    fakeCaps().counts = {5, 10, 15, 20};
    fakeCaps().total = 20;
    RetireOnProgress::act = [this] { retireShot(); };
    const Lines lines = picture();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "caps.doNextIteration"), 2);
    EXPECT_EQ(Lines(lines.end() - 5, lines.end()), Lines{"caps.destroyIterator"} + kFreed);
    EXPECT_EQ(kov::test::fakeCapsObjects(), 0);
}

}  // namespace
