// The self shot: what it calls, sends and logs, in its order.

#include "shots/self/ShotSelf.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <thread>
#include <tuple>

#include "host/runtime/Heaps.h"
#include "tests/support/FakeCaps.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

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
        fakeSystem().startThread = [this](const auto& thread) {
            threads.push_back(thread);
            return true;
        };
        hardware->params.set("jpeg-quality", 85);
        makeReady();
    }
    ~ShotSelfTest() override { gFakeCaps = {}; }

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
        const std::function<void()> thread = threads.front();
        threads.erase(threads.begin());
        thread();
        return recorder.take(prefix);
    }
    Lines picture(const std::string& prefix = "") {
        ask();
        return runThread(prefix);
    }
    /// The preview is restarted with other frames, from inside the shot.
    void restart(int width, int height) {
        const ShotGate::Entry inside(shot->gate());
        hardware->params.setPreviewSize(width, height);
        shot->startPreview();
    }

    std::vector<std::function<void()>> threads;  // of pictures; run by the test, so that one at a time works
};

TEST_F(ShotSelfTest, TheFirstTwoFramesAreHeldBack) {
    retireShot();
    makeShot();
    recorder.take();
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
    EXPECT_EQ(std::string(static_cast<const char*>(lastData->pointer()), lastData->size()), gFakeCaps.jpeg);
    std::vector<uint8_t> raw(460808, 20);
    const uint8_t sides[] = {0x80, 0x02, 0, 0, 0xE0, 0x01, 0, 0};
    std::copy(std::begin(sides), std::end(sides), raw.begin() + 4);
    std::fill(raw.end() - 8, raw.end(), uint8_t{0});
    EXPECT_EQ(bytesOf(new MemoryBase(shot->getRawHeap(), 0, shot->getRawHeap()->getSize())), raw);
    frames(1, 30);  // kept again
    EXPECT_EQ(picture(), pictureLines(30));
    retireShot();
    makeShot();
    shot->startPreview();
    recorder.take();
    EXPECT_EQ(picture(), pictureLines(128));  // before the first frame it is grey
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
    hardware->params.setPictureFormat("jpeg");
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    recorder.take();
    EXPECT_EQ(only(picture(), {"E ", "app."}), kBegun);
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

TEST_F(ShotSelfTest, FramesThatComeBeforeAPictureIsRenderedAreDeliveredButNotKept) {
    ask();
    ask();  // a second one, before the first has begun
    shot->startPreview();
    recorder.take();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(30));
    EXPECT_EQ(recorder.take(), Lines{"app.data 0x10 460800"});
    EXPECT_EQ(runThread(), pictureLines());
    frames(1, 40);  // the second is still to be rendered
    whileReceiving = [&] {
        if (lastData->size() == 460808)
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(50));
    };
    EXPECT_EQ(runThread("caps.createImage"), caps("createImage 460800 of 20, 640x480 stride 640 4380"));
    whileReceiving = {};
    EXPECT_EQ(picture(), pictureLines(50));
}

TEST_F(ShotSelfTest, OnePictureIsMadeAtATime) {
    ask();
    ask();
    std::jthread second;
    std::atomic<bool> isBegun{false};
    whileReceiving = [&] {
        if (isBegun.exchange(true))
            return;
        second = startUntilItWaits(threads.back());
        EXPECT_EQ(recorder.take("E "), kBegun) << "of the first";
    };
    threads.front()();
    second.join();
    EXPECT_EQ(recorder.take("app.data"), (Lines{"app.data 0x100 9", "app.data 0x80 460808", "app.data 0x100 9"}));
}

TEST_F(ShotSelfTest, AFailedCallEndsThePictureAndLeavesTheFormatUntilTheSwitch) {
    const Lines all = rendering();
    const std::tuple<const char*, int, const char*, Lines> cases[] = {
        {"createImage", 2, "caps_createImage", {}},
        {"createBuffer", 3, "caps_createBuffer", caps("destroyImage")},
        {"createBufferStream out", 4, "ctstream_createBufferStream", caps("destroyBuffer", "destroyImage")},
        {"newSessionWithRaw", 5, "caps_newSessionWithRaw", {kFreed.begin() + 1, kFreed.end()}},
        {"render", 10, "caps_render", kFreed},
    };
    for (const auto& [failing, made, operation, freed] : cases) {
        for (const int result : {-7, -255}) {  // refused; and granted without anything to show for it
            if (result == -255 && made == 10)
                continue;
            gFakeCaps.results = {{failing, result}};
            gFakeCaps.makesNothing = {failing};
            EXPECT_EQ(picture(), kStarted + kShutter + Lines(all.begin(), all.begin() + made) +
                                     Lines{text("E ShotSelf: %s - [%d]", operation, result)} + freed)
                << failing;
            EXPECT_STREQ(hardware->params.getPictureFormat(), "yuv420sp");
        }
    }
    gFakeCaps = {};
    picture();  // what it found is what it leaves
    EXPECT_STREQ(hardware->params.getPictureFormat(), "yuv420sp");
    retireShot();
    EXPECT_STREQ(hardware->params.getPictureFormat(), "jpeg");

    makeReady();
    picture();
    lastData.clear();
    const size_t alive = kov::host::liveHeaps();
    gFakeCaps.results = {{"render", -7}};
    picture();
    EXPECT_EQ(kov::host::liveHeaps(), alive - 1) << "the picture of before is kept";
    hardware->params.setPictureFormat("png");  // the application's own
    retireShot();
    EXPECT_STREQ(hardware->params.getPictureFormat(), "png");
}

TEST_F(ShotSelfTest, WithoutAWholeFrameOrAVendorLayerThereIsNoPicture) {
    const char* const noFrame = "E ShotSelf: no whole frame of %d bytes, %d x %d; start the preview first";
    ask();
    hardware->params.setPreviewSize(1280, 720);
    EXPECT_EQ(runThread(), kBegun + Lines{text(noFrame, 1382400, 640, 480)});
    ask();
    hardware->params.setPreviewSize(320, 240);
    EXPECT_EQ(runThread(), kBegun + Lines{text(noFrame, 115200, 640, 480)});
    ask();
    hardware->params.setPreviewFormat("jpeg");
    const Lines unknown = {"E ShotSelf: Invalid preview format for real preview"};
    EXPECT_EQ(runThread(), kBegun + unknown + Lines{text(noFrame, 0, 640, 480)});
    hardware->params.setPreviewFormat("yuv420sp");
    const std::tuple<int, int, int> tiny[] = {{1, 1, 1}, {2, 1, 3}, {-2, 2, 0}, {0, 0, 0}};
    for (const auto& [width, height, size] : tiny) {  // the sides have no place in so few bytes
        restart(width, height);
        EXPECT_EQ(shot->getRawHeap()->getSize(), size ? size + 8U : 0U);
        recorder.take();
        EXPECT_EQ(picture(), kBegun + Lines{text(noFrame, size, width, height)});
    }
    for (const auto& [format, height, size] : {std::tuple("yuv420sp", 2, 6), {"rgb565", 1, 4}}) {
        hardware->params.setPreviewFormat(format);
        restart(2, height);
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(static_cast<size_t>(size)));
        recorder.take();
        EXPECT_EQ(picture("app.data"), (Lines{text("app.data 0x80 %d", size + 8), "app.data 0x100 9"}));
    }
    ask();
    shot->setCameraHardware(nullptr);
    EXPECT_EQ(runThread(), kBegun + kNoHardware);
    EXPECT_EQ(shot->takePicture(), INVALID_OPERATION);
    EXPECT_EQ(recorder.take(), kNoHardware);
}

TEST_F(ShotSelfTest, WithoutMemoryOrAThreadThereIsNoPicture) {
    retireShot();
    makeShot();
    recorder.take();
    EXPECT_EQ(picture(), kBegun + Lines{"E ShotSelf: mRawHeap is null"});  // before startPreview
    fakeSystem().allowsHeap = [](size_t) { return false; };
    makeReady();
    EXPECT_EQ(picture(), kBegun + Lines{"E ShotSelf: mRawHeap is null"});
    fakeSystem().allowsHeap = {};

    const std::string tooLarge = "E ShotSelf: no memory to keep a frame of 460800 bytes";
    fakeSystem().allowsMemory = [](size_t) { return false; };
    retireShot();
    makeShot();
    EXPECT_EQ(recorder.take("E "), Lines{tooLarge});
    shot->startPreview();
    for (int i = 0; i < 5; ++i)
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame());
    EXPECT_EQ(recorder.take("E "), Lines{tooLarge});  // once a preview
    EXPECT_EQ(picture(), kBegun + Lines{"E ShotSelf: pPreviewImage is null"});
    fakeSystem().allowsMemory = {};
    frames(1);
    EXPECT_EQ(picture(), pictureLines());

    hardware->params.setPreviewFormat("yuv420p");
    fakeSystem().allowsMemory = [](size_t) { return false; };
    EXPECT_EQ(picture("E "), kBegun + Lines{"E ShotSelf: no memory for the frame in the library's order"});
    gFakeCaps.jpeg = "";
    fakeSystem().allowsMemory = {};
    EXPECT_EQ(picture("E "), kBegun + Lines{"E ShotSelf: the rendered picture has no bytes"});
    EXPECT_EQ(lastData->size() + lastData->getMemory()->getSize(), 0U);  // rather than the picture of before
}

TEST_F(ShotSelfTest, APictureThatCannotBeStartedKeepsNoFrameBack) {
    const auto start = std::exchange(fakeSystem().startThread, [](const auto&) { return false; });
    EXPECT_EQ(shot->takePicture(), -1);
    fakeSystem().startThread = start;
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotSelf: the picture's thread cannot be started; there is no picture"});
    EXPECT_EQ(shot->getRawHeap()->getSize(), 460808U);
    frames(1, 40);
    EXPECT_EQ(picture(), pictureLines(40));
    hardware->during["stopPreview"] = [&] { retireShot(); };
    const ShotGate::Entry inside(shot->gate());
    EXPECT_EQ(shot->takePicture(), -1);
    EXPECT_EQ(threads.size(), 0U);
}

TEST_F(ShotSelfTest, TheCopyGrowsWithThePreview) {
    const auto larger = [&](const std::string& kept) {
        frames(1, 50);
        EXPECT_EQ(shot->getRawHeap()->getSize(), size_t{1382408});
        EXPECT_EQ(picture("caps.createImage"), caps("createImage 1382400 of 50, 1280x720 stride 1280 4380")) << kept;
    };
    restart(1280, 720);
    larger("between pictures");
    for (const size_t within : {460808, 9}) {
        restart(640, 480);
        makeReady();
        whileReceiving = [&] { lastData->size() == within ? restart(1280, 720) : void(); };
        picture();
        whileReceiving = {};
        larger(text("within the message of %zu bytes", within));
    }
    restart(640, 480);
    makeReady();
    ask();
    restart(1280, 720);  // before the picture is rendered
    runThread();
    larger("while one is to be rendered");
    const size_t before = memoryInUse();
    retireShot();
    EXPECT_TRUE(before == 0 || memoryInUse() + 2 * 1382400 <= before) << "the copy or the raw picture is kept";
}

TEST_F(ShotSelfTest, FramesAreKeptAsFarAsTheyAreThere) {
    fakeSystem().allowsMemory = [](size_t size) { return size != 460800; };  // there is room for a frame already
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(460900, 30));        // padded
    recorder.take();
    EXPECT_EQ(picture(), pictureLines(30));
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(460799, 31));
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeLyingRegion(460800));
    recorder.take();
    EXPECT_EQ(picture(), pictureLines(30));
}

/// A switch from within whatever the picture's thread calls: nothing of the shot is touched after it, what was made is
/// released, and the vendor layer has its picture format back, if it can be before the next shot is made.
TEST_F(ShotSelfTest, ASwitchDuringAPictureEndsItAndRestoresTheFormat) {
    const auto restored = [&] {
        switchAway();
        EXPECT_STREQ(hardware->params.getPictureFormat(), "jpeg");
    };
    std::jthread switcher;
    const std::tuple<const char*, std::function<void()>, size_t, Lines> cases[] = {
        {"before its thread begins", restored, 0, {}},
        {"while the format is changed", [&] { hardware->during["setParameters"] = [&] { retireShot(); }; }, 0, {}},
        {"from another thread while the format is set back",
         [&] {
             hardware->during["setParameters"] = [&, calls = 0]() mutable {
                 if (++calls == 2)
                     std::thread(restored).join();
             };
         },
         0,
         {"app.data 0x80 460808"}},
        {"from another thread while it is rendered",
         [&] {
             gFakeCaps.during = [&](const std::string& name) {
                 if (name == "render")
                     switcher = startUntilItWaits(restored);
             };
         },
         0,
         {}},
        {"in the raw picture's callback", [] {}, 460808, {"app.data 0x80 460808"}},
        {"in the JPEG's callback", [] {}, 9, {"app.data 0x80 460808", "app.data 0x100 9"}},
    };
    for (const auto& [name, disturb, retiredBy, delivered] : cases) {
        SCOPED_TRACE(name);
        makeReady();
        ask();
        whileReceiving = [&, size = retiredBy] {
            if (lastData->size() != size)
                return;
            restored();
            hardware->params.setPictureFormat("yuv420sp");  // now it is the application's, and stays
        };
        disturb();
        EXPECT_EQ(runThread("app.data"), delivered);
        switcher = {};
        EXPECT_EQ(shot, nullptr);
        EXPECT_STREQ(hardware->params.getPictureFormat(), retiredBy ? "yuv420sp" : "jpeg");
        hardware->params.setPictureFormat("jpeg");
        EXPECT_EQ(handlesOwed(), "");
        hardware->during.clear();
        gFakeCaps = {};
    }
}

TEST_F(ShotSelfTest, ACallbackOfAnOldShotHoldsNoOtherPictureUp) {
    ask();
    std::promise<void> stuck, released;
    whileReceiving = [&] {
        stuck.set_value();
        released.get_future().wait();
    };
    std::thread old(std::exchange(threads, {}).front());
    stuck.get_future().wait();
    whileReceiving = {};
    switchAway();
    makeReady();
    EXPECT_EQ(picture(), pictureLines());
    ask();
    released.set_value();
    old.join();
    EXPECT_EQ(runThread("E "), kBegun);
}

}  // namespace
