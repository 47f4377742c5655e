// The self shot: what it calls, sends and logs, in its order.

#include "shots/self/ShotSelf.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "tests/support/CapsCalls.h"
#include "tests/support/FakeCaps.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

/// What a picture's thread was to be started with: run by the test, so that one thread at a time works.
std::pair<android_thread_func_t, void*> gThread;

int keepForLater(android_thread_func_t entry, void* start) {
    gThread = {entry, start};
    return 1;
}

Lines setFormat(const std::string& format) {
    return {"hw.setParameters jpeg-quality=85;picture-format=" + format +
            ";picture-size=2560x1920;preview-format=yuv420sp;preview-size=640x480"};
}

const Lines kBegun = {"E ShotSelf: takePicture is called"};
const Lines kStarted =
    kBegun + setFormat("yuv420sp") + Lines{"W ShotSelf: pictureThread - mPreviewWidth(640), mPreviewHeight(480)"};
const Lines kShutter = {"app.notify 0x2 0 0"};
const Lines kNoHardware = {"E ShotSelf: mHardware is NULL, returning."};
const Lines kFreed = caps("destroySession", "destroyStream out", "destroyBuffer", "destroyImage");

/// Calls that make a JPEG of a frame whose bytes are `fill`.
Lines rendering(int fill = 20) {
    return caps("pixelBitSize 4380", text("createImage 460800 of %d, 640x480 stride 640 4380", fill), "createBuffer 0",
                "createBufferStream out 0", text("newSessionWithRaw of %d..%d", fill, fill), "beginRotate",
                "setRotate 0", "endRotate", "setJpegQuality 0.95", "render 640x480 0 1 at once");
}

Lines pictureLines(int fill = 20) {
    return kStarted + kShutter + rendering(fill) + Lines{"app.data 0x80 460808"} + setFormat("jpeg") +
           Lines{"app.data 0x100 9"} + kFreed;
}

class ShotSelfTest : public ShotTest<ShotSelf> {
protected:
    ShotSelfTest() {
        ShotSelf::resources = {std::malloc, keepForLater};
        hardware->params.set("jpeg-quality", 85);
        makeReady();
    }
    ~ShotSelfTest() override {
        retireShot();
        EXPECT_EQ(fakeCapsObjects(), 0);
        fakeCaps() = {};
        ShotSelf::resources = {std::malloc, androidCreateThread};
    }

    void makeReady() {
        retireShot();
        makeShot();
        shot->startPreview();
        frames(3);
    }
    void frames(int count, uint8_t fill = 20) {
        for (int i = 0; i < count; ++i)
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill));
        recorder.take();
    }
    void ask() {
        EXPECT_EQ(shot->takePicture(), NO_ERROR);
        EXPECT_EQ(recorder.take(), Lines{"hw.stopPreview"});
    }
    Lines runThread(const std::string& prefix = "") {
        gThread.first(gThread.second);
        return recorder.take(prefix);
    }
    Lines picture(const std::string& prefix = "") {
        ask();
        return runThread(prefix);
    }
};

TEST_F(ShotSelfTest, GoesAndComesWithItsLinesAndHoldsTheFirstTwoFramesBack) {
    retireShot();
    EXPECT_EQ(recorder.take(),
              (Lines{"I ShotSelf: ShotSelf destroyed: pid=PID", "I ShotCommon: ShotCommon destroyed: pid=PID"}));
    makeShot();
    EXPECT_EQ(recorder.take("I ShotSelf"), Lines{"I ShotSelf: ShotSelf created: pid=PID"});
    EXPECT_FALSE(shot->getRawHeap().get());
    for (const bool delivered : {false, false, true, true}) {
        const sp<IMemory> frame = makeFrame();
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        EXPECT_EQ(recorder.take(), delivered ? Lines{"app.data 0x10 460800"} : Lines{});
        EXPECT_EQ(lastData.get() == frame.get(), delivered);
    }
}

TEST_F(ShotSelfTest, APictureIsMadeOfTheLastFrame) {
    EXPECT_EQ(picture(), pictureLines());
    EXPECT_EQ(std::string(static_cast<const char*>(lastData->pointer()), lastData->size()), fakeCaps().jpeg);
    std::vector<uint8_t> raw(460808, 20);
    const uint8_t sides[] = {0x80, 0x02, 0, 0, 0xE0, 0x01, 0, 0};
    std::copy(std::begin(sides), std::end(sides), raw.begin() + 4);
    std::fill(raw.end() - 8, raw.end(), uint8_t{0});
    EXPECT_EQ(bytesOf(new MemoryBase(shot->getRawHeap(), 0, shot->getRawHeap()->getSize())), raw);
    frames(1, 30);  // kept again
    EXPECT_EQ(picture(), pictureLines(30));
}

TEST_F(ShotSelfTest, QualityShutterAndFormatFollowTheVendorLayer) {
    for (const auto& [parameter, quality] : {std::pair(70, "0.90"), {40, "0.70"}, {100, "0.95"}}) {
        hardware->params.set("jpeg-quality", parameter);
        EXPECT_EQ(picture("caps.setJpeg"), caps(text("setJpegQuality %s", quality))) << parameter;
    }
    hardware->enabledTypes = ~(CAMERA_MSG_SHUTTER | CAMERA_MSG_RAW_IMAGE);
    hardware->params.remove("picture-format");
    EXPECT_EQ(picture("app."), (Lines{"app.data 0x80 460808", "app.data 0x100 9"}));  // raw, enabled or not
    EXPECT_EQ(hardware->params.getPictureFormat(), nullptr);
}

TEST_F(ShotSelfTest, APlanarFrameIsPutInTheLibrarysOrder) {
    hardware->params.setPreviewSize(4, 2);
    hardware->params.setPreviewFormat("yuv420p");
    makeReady();
    const sp<IMemory> frame = makeFrame(1);
    const uint8_t chroma[] = {20, 21, 30, 31};
    std::copy(std::begin(chroma), std::end(chroma), static_cast<uint8_t*>(frame->pointer()) + 8);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
    recorder.take();
    EXPECT_EQ(picture("caps.newSession"), caps("newSessionWithRaw of 1..21"));  // ends with a U
}

TEST_F(ShotSelfTest, FramesThatComeWhileAPictureIsMadeAreDeliveredButNotKept) {
    ask();
    const auto [firstEntry, firstStart] = gThread;
    ask();  // a second one, before the first has begun
    shot->startPreview();
    recorder.take();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(30));
    EXPECT_EQ(recorder.take(), Lines{"app.data 0x10 460800"});
    firstEntry(firstStart);
    EXPECT_EQ(recorder.take(), pictureLines());
    frames(1, 40);
    EXPECT_EQ(runThread(), pictureLines());
}

TEST_F(ShotSelfTest, AFailedCallEndsThePictureAndLeavesTheFormat) {
    const Lines all = rendering(), opened(all.begin(), all.begin() + 5);
    const std::tuple<const char*, Lines, int, Lines> cases[] = {
        {"createImage", {all.begin(), all.begin() + 4}, 0, caps("destroyStream out", "destroyBuffer")},
        {"createBuffer", {all[0], all[1], all[2], all[4]}, 0, caps("destroySession", "destroyImage")},
        {"createBufferStream out", opened, 0, caps("destroySession", "destroyBuffer", "destroyImage")},
        {"newSessionWithRaw", opened, 0, caps("destroyStream out", "destroyBuffer", "destroyImage")},
        {"render", all, -7, kFreed},
    };
    for (const auto& [failing, made, result, freed] : cases) {
        fakeCaps().results = {{failing, -7}};
        const Lines failed = {text("E ShotSelf: caps_render - [%d]", result)};
        EXPECT_EQ(picture(), kStarted + kShutter + made + failed + freed) << failing;
    }
}

TEST_F(ShotSelfTest, WithoutAWholeFrameOrAVendorLayerThereIsNoPicture) {
    const char* const noFrame = "E ShotSelf: no whole frame of %d bytes, 640 x 480; start the preview first";
    ask();
    hardware->params.setPreviewSize(1280, 720);
    EXPECT_EQ(runThread(), kBegun + Lines{text(noFrame, 1382400)});
    ask();
    hardware->params.setPreviewSize(320, 240);
    EXPECT_EQ(runThread(), kBegun + Lines{text(noFrame, 115200)});
    ask();
    hardware->params.setPreviewFormat("jpeg");
    const Lines unknown = {"E ShotSelf: Invalid preview format for real preview"};
    EXPECT_EQ(runThread(), kBegun + unknown + Lines{text(noFrame, 0)});
    ask();
    shot->setCameraHardware(nullptr);
    EXPECT_EQ(runThread(), kBegun + kNoHardware);
}

TEST_F(ShotSelfTest, WithoutMemoryThereIsNoPicture) {
    retireShot();
    makeShot();
    recorder.take();
    EXPECT_EQ(picture(), kBegun + Lines{"E ShotSelf: mRawHeap is null"});  // before startPreview
    ShotSelf::resources.allocate = [](size_t) -> void* { return nullptr; };
    makeReady();
    EXPECT_EQ(picture(), kBegun + Lines{"E ShotSelf: pPreviewImage is null"});
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame());
    EXPECT_EQ(recorder.take(),
              (Lines{"E ShotSelf: a frame of 460800 bytes is too large to keep", "app.data 0x10 460800"}));
}

TEST_F(ShotSelfTest, AThreadThatCannotBeCreatedLeavesThePreviewStopped) {
    ShotSelf::resources.createThread = [](android_thread_func_t, void*) { return 0; };
    EXPECT_EQ(shot->takePicture(), -1);
    EXPECT_EQ(recorder.take(), Lines{"hw.stopPreview"});
    frames(1, 40);  // kept again
    ShotSelf::resources.createThread = keepForLater;
    EXPECT_EQ(picture(), pictureLines(40));
}

TEST_F(ShotSelfTest, TheCopyGrowsWithThePreview) {
    hardware->params.setPreviewSize(1280, 720);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(40));  // larger than the copy
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotSelf: a frame of 1382400 bytes is too large to keep"});
    shot->startPreview();
    frames(1, 50);
    EXPECT_EQ(shot->getRawHeap()->getSize(), size_t{1382408});
    EXPECT_EQ(picture("caps.createImage"), caps("createImage 1382400 of 50, 1280x720 stride 1280 4380"));
}

TEST_F(ShotSelfTest, EveryCommandReachesTheVendorLayer) {
    hardware->results = {{"sendCommand", -5}, {"startPreview", -6}};
    for (const int32_t code : {1039, 1017, 1}) {
        EXPECT_EQ(shot->sendCommand(code, 2, 3), -5);
        EXPECT_EQ(recorder.take(), Lines{text("hw.sendCommand %d 2 3", code)});
    }
    EXPECT_EQ(shot->startPreview(), -6);
    recorder.take();
    shot->setCameraHardware(nullptr);
    size_t size = 1;
    EXPECT_EQ(shot->sendCommand(1039, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(shot->takePicture(), INVALID_OPERATION);
    EXPECT_TRUE(shot->getPreviewMemSize(&size));
    EXPECT_EQ(size, size_t{0});
    EXPECT_EQ(recorder.take(), kNoHardware + kNoHardware + kNoHardware + kNoHardware);
}

TEST_F(ShotSelfTest, MessagesWithoutMemoryOrCallback) {
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    EXPECT_EQ(recorder.take(), (Lines{"E ShotSelf: Null data returned in data callback", "app.notify 0x1 -2147483648 0",
                                      "app.data 0x10 null"}));
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(3));
    EXPECT_EQ(recorder.take(), Lines{"app.data 0x100 3"});
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    recorder.take();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(20));
    EXPECT_EQ(recorder.take(), Lines{"E ShotSelf: mDataCb is NULL, returning."});
    EXPECT_EQ(picture(), kStarted + rendering() + setFormat("jpeg") + kFreed);
}

/// A switch from within whatever the picture's thread calls: nothing of the shot is touched after it, what was made is
/// released, and the vendor layer has its picture format back.
TEST_F(ShotSelfTest, ASwitchDuringAPictureEndsItAndRestoresTheFormat) {
    const auto retire = [this] { retireShot(); };
    const std::tuple<const char*, std::function<void()>, size_t, Lines> cases[] = {
        {"before its thread begins", retire, 0, {}},
        {"while the format is changed", [&] { hardware->during["setParameters"] = retire; }, 0, {}},
        {"in the raw picture's callback", [] {}, 460808, {"app.data 0x80 460808"}},
        {"in the JPEG's callback", [] {}, 9, {"app.data 0x80 460808", "app.data 0x100 9"}},
    };
    for (const auto& [name, disturb, retiredBy, delivered] : cases) {
        SCOPED_TRACE(name);
        makeReady();
        ask();
        whileReceiving = [&, size = retiredBy] {
            if (lastData->size() == size)
                retireShot();
        };
        disturb();
        EXPECT_EQ(runThread("app.data"), delivered);
        EXPECT_EQ(shot, nullptr);
        EXPECT_STREQ(hardware->params.getPictureFormat(), "jpeg");
        hardware->during.clear();
    }
}

}  // namespace
