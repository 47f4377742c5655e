// The self shot: what it calls, sends and logs, in its order.

#include "shots/self/ShotSelf.h"

#include <algorithm>
#include <cstdlib>

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

constexpr size_t kFrame = 640 * 480 * 3 / 2;

/// What a picture's thread was to be started with: run by the test, so that one thread at a time works.
android_thread_func_t gEntry;
void* gStart;

int keepForLater(android_thread_func_t entry, void* start) {
    gEntry = entry;
    gStart = start;
    return 1;
}
int createNone(android_thread_func_t, void*) {
    return 0;
}
void* allocateNone(size_t) {
    return nullptr;
}

Lines setFormat(const char* format) {
    return {
        text("hw.setParameters jpeg-quality=85;picture-format=%s;picture-size=2560x1920;preview-format=yuv420sp;"
             "preview-size=640x480",
             format)};
}

const Lines kBegun = {"E ShotSelf: takePicture is called"};
const Lines kSized = {"W ShotSelf: pictureThread - mPreviewWidth(640), mPreviewHeight(480)"};
const Lines kShutter = {"app.notify 0x2 0 0"};
Lines opened(int fill) {
    return {"caps.pixelBitSize 4380", text("caps.createImage 460800 of %d, 640x480 stride 640 4380", fill),
            "caps.createBuffer 0", "caps.createBufferStream out 0",
            text("caps.newSessionWithRaw of %d..%d", fill, fill)};
}
Lines rendering(const char* quality = "0.95") {
    return {"caps.beginRotate", "caps.setRotate 0", "caps.endRotate", text("caps.setJpegQuality %s", quality),
            "caps.render 640x480 0 1 at once"};
}
const Lines kFreed = {"caps.destroySession", "caps.destroyStream out", "caps.destroyBuffer", "caps.destroyImage"};

class ShotSelfTest : public kov::test::ShotTest<ShotSelf> {
protected:
    ShotSelfTest() {
        fakeCaps() = {};
        ShotSelf::resources = {std::malloc, keepForLater};
        hardware->params.set("jpeg-quality", 85);
    }
    ~ShotSelfTest() override {
        retireShot();
        EXPECT_EQ(kov::test::fakeCapsObjects(), 0);
        fakeCaps() = {};
        ShotSelf::resources = {std::malloc, androidCreateThread};
    }

    void makeReady(int frames = 3, uint8_t fill = 20) {
        makeShot();
        shot->startPreview();
        for (int i = 0; i < frames; ++i)
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill));
        recorder.take();
    }
    /// Asks for a picture and runs its thread.
    Lines picture() {
        EXPECT_EQ(shot->takePicture(), NO_ERROR);
        EXPECT_EQ(recorder.take(), Lines{"hw.stopPreview"});
        gEntry(gStart);
        return recorder.take();
    }
    Lines pictureLines(const char* quality = "0.95", int fill = 20) const {
        return kBegun + setFormat("yuv420sp") + kSized + kShutter + opened(fill) + rendering(quality) +
               Lines{"app.data 0x80 460808"} + setFormat("jpeg") + Lines{"app.data 0x100 9"} + kFreed;
    }
};

TEST_F(ShotSelfTest, ComesAndGoesWithItsLines) {
    makeShot();
    Lines lines = recorder.take();
    EXPECT_EQ(lines[lines.size() - 2], "I ShotSelf: ShotSelf created: pid=PID");
    EXPECT_FALSE(shot->getRawHeap().get());
    retireShot();
    EXPECT_EQ(recorder.take(),
              (Lines{"I ShotSelf: ShotSelf destroyed: pid=PID", "I ShotCommon: ShotCommon destroyed: pid=PID"}));
}

TEST_F(ShotSelfTest, TheFirstTwoFramesAreHeldBack) {
    makeReady(0);
    for (const bool delivered : {false, false, true, true}) {
        const sp<IMemory> frame = makeFrame();
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
        EXPECT_EQ(recorder.take(), delivered ? Lines{"app.data 0x10 460800"} : Lines{});
        EXPECT_EQ(lastData.get() == frame.get(), delivered);
    }
}

TEST_F(ShotSelfTest, APictureIsMadeOfTheLastFrame) {
    makeReady();
    EXPECT_EQ(picture(), pictureLines());
    EXPECT_EQ(bytesOf(lastData), (std::vector<uint8_t>{'c', 'a', 'p', 's', ' ', 'J', 'P', 'E', 'G'}));
    std::vector<uint8_t> raw(kFrame + 8, 20);
    const uint8_t sides[] = {0x80, 0x02, 0, 0, 0xE0, 0x01, 0, 0};
    std::copy(std::begin(sides), std::end(sides), raw.begin() + 4);
    std::fill(raw.end() - 8, raw.end(), uint8_t{0});
    ASSERT_EQ(shot->getRawHeap()->getSize(), raw.size());
    const auto* bytes = static_cast<const uint8_t*>(shot->getRawHeap()->base());
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + raw.size()), raw);
    // The next frame is kept again, and the next picture is made of it.
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(30));
    recorder.take();
    EXPECT_EQ(picture(), pictureLines("0.95", 30));
}

TEST_F(ShotSelfTest, QualityAndShutterFollowTheVendorLayer) {
    makeReady();
    for (const auto& [parameter, quality] : {std::pair(70, "0.90"), {40, "0.70"}, {100, "0.95"}}) {
        hardware->params.set("jpeg-quality", parameter);
        const Lines lines = picture();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), text("caps.setJpegQuality %s", quality)), 1) << parameter;
    }
    hardware->enabledTypes = ~(CAMERA_MSG_SHUTTER | CAMERA_MSG_RAW_IMAGE);
    Lines lines = picture();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), kShutter[0]), 0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.data 0x80 460808"), 1);  // enabled or not
    hardware->params.remove("picture-format");
    picture();
    EXPECT_EQ(hardware->params.getPictureFormat(), nullptr);
}

TEST_F(ShotSelfTest, APlanarFrameIsPutInTheLibrarysOrder) {
    hardware->params.setPreviewSize(4, 2);
    hardware->params.setPreviewFormat("yuv420p");
    makeReady(2);
    const sp<IMemory> frame = makeFrame(1);
    auto* const last = static_cast<uint8_t*>(frame->pointer()) + 8;
    const uint8_t chroma[] = {20, 21, 30, 31};
    std::copy(std::begin(chroma), std::end(chroma), last);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, frame);
    shot->takePicture();
    recorder.take();
    gEntry(gStart);
    EXPECT_EQ(recorder.take("caps.newSession"), Lines{"caps.newSessionWithRaw of 1..21"});  // ends with a U
}

TEST_F(ShotSelfTest, FramesThatComeWhileAPictureIsMadeAreDeliveredButNotKept) {
    makeReady();
    shot->takePicture();
    const auto [firstEntry, firstStart] = std::pair(gEntry, gStart);
    shot->takePicture();  // a second one, before the first has begun
    shot->startPreview();
    recorder.take();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(30));
    EXPECT_EQ(recorder.take(), Lines{"app.data 0x10 460800"});
    firstEntry(firstStart);
    EXPECT_EQ(recorder.take(), pictureLines());
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(40));
    recorder.take();
    gEntry(gStart);
    EXPECT_EQ(recorder.take(), pictureLines());
}

TEST_F(ShotSelfTest, EachFailureEndsThePicture) {
    const auto failedRender = [](const Lines& made, int result, const Lines& freed) {
        return kBegun + setFormat("yuv420sp") + kSized + kShutter + made +
               Lines{text("E ShotSelf: caps_render - [%d]", result)} + freed;
    };
    const Lines kOpened = opened(20);
    const struct {
        const char* name;
        std::function<void(ShotSelfTest&)> prepare;
        Lines expected;
    } cases[] = {
        {"no vendor layer", [](auto& test) { test.shot->setCameraHardware(nullptr); },
         kBegun + Lines{"E ShotSelf: mHardware is NULL, returning."}},
        {"render",
         [](auto&) {
             fakeCaps().results = {{"render", -7}};
         },
         failedRender(kOpened + rendering(), -7, kFreed)},
        {"image",
         [](auto&) {
             fakeCaps().results = {{"createImage", -7}};
         },
         failedRender(Lines(kOpened.begin(), kOpened.end() - 1), 0, Lines(kFreed.begin() + 1, kFreed.end() - 1))},
        {"buffer",
         [](auto&) {
             fakeCaps().results = {{"createBuffer", -7}};
         },
         failedRender(Lines(kOpened.begin(), kOpened.begin() + 3) + Lines{kOpened.back()}, 0,
                      {"caps.destroySession", "caps.destroyImage"})},
        {"stream",
         [](auto&) {
             fakeCaps().results = {{"createBufferStream out", -7}};
         },
         failedRender(kOpened, 0, {"caps.destroySession", "caps.destroyBuffer", "caps.destroyImage"})},
        {"session",
         [](auto&) {
             fakeCaps().results = {{"newSessionWithRaw", -7}};
         },
         failedRender(kOpened, 0, Lines(kFreed.begin() + 1, kFreed.end()))},
        {"preview size changed", [](auto& test) { test.hardware->params.setPreviewSize(1280, 720); },
         kBegun + Lines{"E ShotSelf: no whole frame of 1382400 bytes, 640 x 480; start the preview first"}},
        {"preview format unknown", [](auto& test) { test.hardware->params.setPreviewFormat("jpeg"); },
         kBegun + Lines{"E ShotSelf: Invalid preview format for real preview",
                        "E ShotSelf: no whole frame of 0 bytes, 640 x 480; start the preview first"}},
    };
    for (const auto& failure : cases) {
        SCOPED_TRACE(failure.name);
        fakeCaps() = {};
        hardware->params.setPreviewSize(640, 480);
        hardware->params.setPreviewFormat("yuv420sp");
        hardware->params.setPictureFormat("jpeg");
        makeReady();
        shot->takePicture();
        recorder.take();
        failure.prepare(*this);
        gEntry(gStart);
        EXPECT_EQ(recorder.take(), failure.expected);
        EXPECT_EQ(kov::test::fakeCapsObjects(), 0);
        retireShot();
        recorder.take();
    }
}

TEST_F(ShotSelfTest, WithoutMemoryThereIsNoPicture) {
    makeShot();
    recorder.take();
    EXPECT_EQ(picture(), kBegun + Lines{"E ShotSelf: mRawHeap is null"});  // before startPreview
    retireShot();
    ShotSelf::resources.allocate = allocateNone;
    makeReady();
    EXPECT_EQ(picture(), kBegun + Lines{"E ShotSelf: pPreviewImage is null"});
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame());
    EXPECT_EQ(recorder.take(),
              (Lines{"E ShotSelf: a frame of 460800 bytes is too large to keep", "app.data 0x10 460800"}));
}

TEST_F(ShotSelfTest, AThreadThatCannotBeCreatedLeavesThePreviewStopped) {
    makeReady();
    ShotSelf::resources.createThread = createNone;
    EXPECT_EQ(shot->takePicture(), -1);
    EXPECT_EQ(recorder.take(), Lines{"hw.stopPreview"});
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(40));  // kept again
    ShotSelf::resources.createThread = keepForLater;
    recorder.take();
    EXPECT_EQ(picture(), pictureLines("0.95", 40));
}

TEST_F(ShotSelfTest, TheCopyGrowsWithThePreview) {
    makeReady();
    hardware->params.setPreviewSize(1280, 720);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(40));  // larger than the copy
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotSelf: a frame of 1382400 bytes is too large to keep"});
    shot->startPreview();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(50));
    recorder.take();
    EXPECT_EQ(shot->getRawHeap()->getSize(), size_t{1382408});
    const Lines lines = picture();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "caps.createImage 1382400 of 50, 1280x720 stride 1280 4380"), 1);
}

TEST_F(ShotSelfTest, EveryCommandReachesTheVendorLayer) {
    makeReady();
    hardware->results = {{"sendCommand", -5}, {"startPreview", -6}};
    for (const int32_t code : {1039, 1017, 1})
        EXPECT_EQ(shot->sendCommand(code, 2, 3), -5);
    EXPECT_EQ(shot->startPreview(), -6);
    EXPECT_EQ(recorder.take(),
              (Lines{"hw.sendCommand 1039 2 3", "hw.sendCommand 1017 2 3", "hw.sendCommand 1 2 3", "hw.startPreview"}));
    shot->setCameraHardware(nullptr);
    size_t size = 1;
    EXPECT_EQ(shot->sendCommand(1039, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(shot->takePicture(), INVALID_OPERATION);
    EXPECT_TRUE(shot->getPreviewMemSize(&size));
    EXPECT_EQ(size, size_t{0});
    EXPECT_EQ(recorder.take(), Lines(4, "E ShotSelf: mHardware is NULL, returning."));
}

TEST_F(ShotSelfTest, MessagesWithoutMemoryOrCallback) {
    makeReady();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    EXPECT_EQ(recorder.take(), (Lines{"E ShotSelf: Null data returned in data callback", "app.notify 0x1 -2147483648 0",
                                      "app.data 0x10 null"}));
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(3));
    EXPECT_EQ(recorder.take(), Lines{"app.data 0x100 3"});
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    recorder.take();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame());
    EXPECT_EQ(recorder.take(), Lines{"E ShotSelf: mDataCb is NULL, returning."});
    const Lines silent =
        kBegun + setFormat("yuv420sp") + kSized + opened(20) + rendering() + setFormat("jpeg") + kFreed;
    EXPECT_EQ(picture(), silent);
}

/// A switch from within whatever the picture's thread calls: nothing of the shot is touched after it, what was made is
/// released, and the vendor layer has its picture format back.
TEST_F(ShotSelfTest, ASwitchDuringAPictureEndsItAndRestoresTheFormat) {
    const struct {
        const char* name;
        std::function<void(ShotSelfTest&)> prepare;
        Lines delivered;
    } cases[] = {
        {"before its thread begins", [](auto& test) { test.retireShot(); }, {}},
        {"while the format is changed",
         [](auto& test) { test.hardware->during["setParameters"] = [&test] { test.retireShot(); }; },
         {}},
        {"in the raw picture's callback",
         [](auto& test) { test.whileReceiving = [&test] { test.retireShot(); }; },
         {"app.data 0x80 460808"}},
        {"in the JPEG's callback",
         [](auto& test) {
             test.whileReceiving = [&test] {
                 if (test.lastData->size() == 9)
                     test.retireShot();
             };
         },
         {"app.data 0x80 460808", "app.data 0x100 9"}},
    };
    for (const auto& disturbance : cases) {
        SCOPED_TRACE(disturbance.name);
        makeReady();
        shot->takePicture();
        recorder.take();
        disturbance.prepare(*this);
        gEntry(gStart);
        EXPECT_EQ(recorder.take("app.data"), disturbance.delivered);
        EXPECT_EQ(shot, nullptr);
        EXPECT_EQ(kov::test::fakeCapsObjects(), 0);
        EXPECT_STREQ(hardware->params.getPictureFormat(), "jpeg");
        whileReceiving = {};
        hardware->during.clear();
    }
}

}  // namespace
