// The action shot: what it calls, sends, shows and logs.

#include "shots/action/ShotAction.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "imaging/Overlay.h"
#include "shots/Commands.h"
#include "tests/action/FakeActionShot.h"
#include "tests/support/FakeArcJpeg.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::fakeActionShot;
using kov::test::Lines;
using kov::test::operator+;
using kov::test::text;

namespace {

constexpr size_t kFrameSize = 64 * 48 * 3 / 2;

/// Memory as scarce as a test wants it.
struct Scarcity {
    size_t mostWork = SIZE_MAX;  // bytes in one piece
    int blocks = 1000;           // that can still be had
};
Scarcity gScarcity;

void* scarceWork(size_t size) {
    return size <= gScarcity.mostWork ? std::malloc(size) : nullptr;
}

uint8_t* scarceBlock(size_t size) {
    return gScarcity.blocks-- > 0 ? new uint8_t[size] : nullptr;
}

class ShotActionTest : public kov::test::ShotTest<ShotAction> {
protected:
    ShotActionTest() {
        fakeActionShot() = {};
        kov::test::resetFakeArcJpeg();
        gScarcity = {};
        ShotAction::allocators = {scarceWork, scarceBlock};
        hardware->params.setPreviewSize(64, 48);
    }
    ~ShotActionTest() override {
        retireShot();
        fakeActionShot() = {};
    }

    void make() {
        retireShot();
        makeShot();
        recorder.take();
    }
    void startPreview() {
        shot->startPreview();
        recorder.take();
    }
    void command(int32_t code) { shot->sendCommand(code, 0, 0); }
    void frame(uint8_t fill = 0) { hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill)); }
    Lines taken() {
        Lines lines = recorder.take();
        std::erase_if(lines,
                      [](const std::string& line) { return line.starts_with("AMCM") || line.starts_with("MStream"); });
        return lines;
    }

    const Lines frameAcquired = {"ActionShot_HandleFrame 64x48", "app.notify 0x1800 42 0", "app.data 0x10 4608"};
    const Lines result = {"app.notify 0x1200 0 0",
                          "ActionShot_CreateResult",
                          "app.notify 0x1400 100 0",
                          "app.notify 0x1600 1 0",
                          "MdBitmapSaveEx 2 quality 95 0x70000002",
                          "app.data 0x100 4"};
};

Lines configuration(int width, int height) {
    Lines lines = {"I ShotAction: Init of ActionShot successful", text("ActionShot_SetResolution %dx%d", width, height),
                   "ActionShot_SetSceneCompletionActivationMode 0"};
    for (const char* pair : {"0 8", "1 0", "2 0", "3 5", "4 24", "5 0", "7 0"})
        lines.push_back(std::string("ActionShot_SetConfigurationParameter ") + pair);
    return lines;
}

TEST_F(ShotActionTest, SetsTheLibraryUpWithAsMuchMemoryAsThereIs) {
    const struct {
        size_t most;
        int blocks;  // passed to the library
    } cases[] = {{SIZE_MAX, 25}, {10 * 460800, 10}, {4 * 460800, 4}, {3 * 460800, 0}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.blocks);
        gScarcity.mostWork = each.most;
        recorder.take();
        makeShot();
        Lines lines = recorder.take();
        lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), "I ShotAction: ShotAction created: pid=PID"));
        const std::string memory = each.blocks ? text("memory %d", each.blocks * 460800) : "null 0";
        EXPECT_EQ(lines,
                  (Lines{"I ShotAction: ShotAction created: pid=PID", "ActionShot_SetMemoryFunctions",
                         "I ShotAction: Dimensions (64, 48)\\n", "I ShotAction: Memory allocated for preview frame.",
                         "ActionShot_Initialize 64x48 " + memory} +
                   configuration(64, 48) + Lines{"hw.setCallbacks"}));
        retireShot();
        EXPECT_EQ(recorder.take(), (Lines{"I ShotAction: ShotAction destroyed: pid=PID", "ActionShot_Finalize",
                                          "I ShotCommon: ShotCommon destroyed: pid=PID"}));
    }
    gScarcity.mostWork = 0;
    makeShot();
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: Failed to allocate memory for preview frame."});
    retireShot();
    hardware->params.setPreviewSize(0, 48);
    makeShot();
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: unexpected Init(0, 48)\\n"});
}

TEST_F(ShotActionTest, ASeriesThatTheApplicationEnds) {
    make();
    startPreview();
    frame();
    EXPECT_EQ(taken(), Lines{"app.data 0x10 4608"});
    command(1029);
    EXPECT_EQ(taken(),
              (Lines{"ActionShot_CancelSeries", "ActionShot_SetTempMemory 15 460800", "ActionShot_StartSeries"}));
    command(1029);  // nothing, and not passed on
    EXPECT_EQ(taken(), Lines{});
    fakeActionShot().frameResult = 0;
    frame();
    EXPECT_EQ(taken(), (Lines{"ActionShot_HandleFrame 64x48", "app.notify 0x1A00 0 0", "app.notify 0x1800 42 0",
                              "app.data 0x10 4608"}));
    fakeActionShot().frameResult = 3;
    frame();
    EXPECT_EQ(taken(), frameAcquired);
    command(1031);
    EXPECT_EQ(taken(), Lines{"hw.sendCommand 1031 0 0"});
    frame();
    EXPECT_EQ(taken(), (Lines{"D ShotAction: Stopping acquisition manually."} + result + Lines{"app.data 0x10 4608"}));
    frame();  // no second stop
    command(1031);
    frame();
    EXPECT_EQ(taken(), (Lines{"app.data 0x10 4608", "hw.sendCommand 1031 0 0", "app.data 0x10 4608"}));
    command(1029);
    EXPECT_EQ(taken(), (Lines{"ActionShot_CancelSeries", "ActionShot_StartSeries"}));
}

TEST_F(ShotActionTest, ASeriesThatTheLibraryEnds) {
    make();
    startPreview();
    command(1029);
    taken();
    fakeActionShot().frameResult = 4;
    fakeActionShot().progress = {30, 70, 100};
    frame();
    EXPECT_EQ(taken(), (Lines{"ActionShot_HandleFrame 64x48", "E ShotAction: call StopCapture 3",
                              "D ShotAction: Stopping acquisition by myself.", "app.notify 0x1200 0 0",
                              "ActionShot_CreateResult", "app.notify 0x1400 30 0", "ActionShot_CreateResult",
                              "app.notify 0x1400 70 0", "ActionShot_CreateResult", "app.notify 0x1400 100 0",
                              "app.notify 0x1600 1 0", "MdBitmapSaveEx 2 quality 95 0x70000002", "app.data 0x100 4",
                              "app.data 0x10 4608"}));
    command(1029);  // ignored until 1031 or 1030
    frame();
    EXPECT_EQ(taken(), Lines{"app.data 0x10 4608"});
    command(1031);
    command(1029);
    fakeActionShot().frameResult = 1;
    taken();
    frame();
    EXPECT_EQ(taken(), frameAcquired);
}

TEST_F(ShotActionTest, EveryCommandInEveryState) {
    const Lines begun = {"ActionShot_CancelSeries", "ActionShot_SetTempMemory 15 460800", "ActionShot_StartSeries"};
    const Lines begunAgain = {"ActionShot_CancelSeries", "ActionShot_StartSeries"};
    const Lines cancelled = {"ActionShot_CancelSeries", "hw.sendCommand 1030 0 0"};
    const Lines passedOn = {"hw.sendCommand 1031 0 0"};
    const Lines shown = {"app.data 0x10 4608"};
    const Lines stopped = Lines{"D ShotAction: Stopping acquisition manually."} + result + shown;
    const struct {
        const char* state;
        std::vector<int32_t> before;  // commands, and 0 for a frame
        int32_t frameResult;
        // What each command gives, and the frame after it.
        struct {
            Lines lines, frame;
        } on1029, on1030, on1031;
    } cases[] = {
        {"idle", {}, 1, {begun, frameAcquired}, {cancelled, shown}, {passedOn, shown}},
        {"running", {1029, 0}, 1, {{}, frameAcquired}, {cancelled, shown}, {passedOn, stopped}},
        {"stop asked for", {1029, 1031}, 1, {begunAgain, frameAcquired}, {cancelled, shown}, {passedOn, stopped}},
        {"stopped", {1029, 1031, 0}, 1, {begunAgain, frameAcquired}, {cancelled, shown}, {passedOn, shown}},
        {"ended by itself", {1029, 0}, 4, {{}, shown}, {cancelled, shown}, {passedOn, shown}},
        {"cancelled", {1029, 0, 1030}, 1, {begunAgain, frameAcquired}, {cancelled, shown}, {passedOn, shown}},
    };
    for (const auto& each : cases) {
        for (const int32_t code : {1029, 1030, 1031, 1032}) {
            SCOPED_TRACE(text("%d when %s", code, each.state));
            make();
            startPreview();
            fakeActionShot().frameResult = each.frameResult;
            for (const int32_t step : each.before) {
                if (step)
                    command(step);
                else
                    frame();
            }
            fakeActionShot().frameResult = 1;
            taken();
            if (code == 1032) {
                EXPECT_EQ(shot->sendCommand(code, 7, 8), NO_ERROR);
                EXPECT_EQ(taken(), Lines{"hw.sendCommand 1032 7 8"});
                continue;
            }
            const auto& expected = code == 1029 ? each.on1029 : code == 1030 ? each.on1030 : each.on1031;
            command(code);
            EXPECT_EQ(taken(), expected.lines);
            frame();
            EXPECT_EQ(taken(), expected.frame);
        }
    }
}

TEST_F(ShotActionTest, ACancelWaitsForTheCallThatTheLibraryIsIn) {
    make();
    startPreview();
    command(1029);
    std::thread service;
    fakeActionShot().during = [&](const std::string& call) {
        if (call != "ActionShot_HandleFrame")
            return;
        service = std::thread([&] { command(1030); });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        kov::test::record("leaves the library");
    };
    taken();
    frame();
    service.join();
    fakeActionShot().during = nullptr;
    Lines lines = taken();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("app."); });
    EXPECT_EQ(lines, (Lines{"ActionShot_HandleFrame 64x48", "leaves the library", "ActionShot_CancelSeries",
                            "hw.sendCommand 1030 0 0"}));
}

TEST_F(ShotActionTest, AStopIsCarriedOutWithAFrameThatIsNotCopiedToo) {
    make();  // and no startPreview
    command(1029);
    command(1031);
    taken();
    frame();
    EXPECT_EQ(taken(), (Lines{"D ShotAction: Stopping acquisition manually."} + result + Lines{"app.data 0x10 4608"}));
}

TEST_F(ShotActionTest, FramesOfSeveralThreadsAndCommandsAtRandom) {
    make();
    startPreview();
    fakeActionShot().progress = {40, 100};
    std::atomic<int> inside{0};  // the library
    fakeActionShot().during = [&](const std::string&) {
        EXPECT_EQ(++inside, 1);
        std::this_thread::yield();
        --inside;
    };
    const auto callback = hardware->dataCb;
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
    const auto repeat = [&](auto act) {
        return std::thread([=] {
            for (uint32_t i = 0; std::chrono::steady_clock::now() < until; ++i)
                act(i);
        });
    };
    const auto deliver = [&, callback](uint32_t) { callback(CAMERA_MSG_PREVIEW_FRAME, makeFrame(1), shot); };
    std::thread threads[] = {repeat(deliver), repeat(deliver), repeat([&](uint32_t i) {
                                 const int32_t codes[] = {1029, 1031, 1029, 1030, 1029};
                                 command(codes[i * 7 % 5]);
                                 std::this_thread::sleep_for(std::chrono::microseconds(i % 300));
                             })};
    for (std::thread& thread : threads)
        thread.join();
    fakeActionShot().during = nullptr;
    const Lines lines = taken();
    EXPECT_GE(std::count(lines.begin(), lines.end(), "app.notify 0x1600 1 0"),
              std::count(lines.begin(), lines.end(), "app.data 0x100 4"));
    for (const int32_t code : {1030, 1029, 1031})  // and the next series is as ever
        command(code);
    taken();
    fakeActionShot().progress = {100};
    frame();
    EXPECT_EQ(taken(), (Lines{"D ShotAction: Stopping acquisition manually."} + result + Lines{"app.data 0x10 4608"}));
}

TEST_F(ShotActionTest, ACancelAtEveryPoint) {
    make();
    startPreview();
    command(1030);
    EXPECT_EQ(taken(), (Lines{"ActionShot_CancelSeries", "hw.sendCommand 1030 0 0"}));
    command(1029);
    command(1030);
    taken();
    frame();
    EXPECT_EQ(taken(), Lines{"app.data 0x10 4608"});
    // While the result is being made, from within one of its messages.
    command(1029);
    fakeActionShot().frameResult = 4;
    fakeActionShot().progress = {30, 70, 100};
    static ShotAction* current;
    current = shot;
    shot->setCallbacks(
        [](int32_t type, int32_t, int32_t, void*) {
            if (type == 0x1400)
                current->sendCommand(1030, 0, 0);
        },
        onData, onDataTimestamp, this);
    taken();
    frame();
    const Lines lines = taken();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "ActionShot_CreateResult"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.data 0x100 4"), 0);
    EXPECT_EQ(lines.back(), "app.data 0x10 4608");
}

TEST_F(ShotActionTest, EachCallFailingInTurn) {
    const struct {
        std::map<std::string, int32_t> results;
        int blocks;
        Lines errors;
    } starts[] = {{{}, 0, {"E ShotAction: Failed to create temp buffer."}},
                  {{{"ActionShot_SetTempMemory", 0}}, 15, {"E ShotAction: Failed to create temp buffer."}},
                  {{{"ActionShot_StartSeries", 0}}, 15, {"E ShotAction: Failed to start series."}}};
    for (const auto& each : starts) {
        fakeActionShot().results = each.results;
        gScarcity.blocks = each.blocks;
        make();
        startPreview();
        command(1029);
        EXPECT_EQ(recorder.take("E "), each.errors);
        command(1029);
        EXPECT_EQ(taken(), Lines{});  // until 1030 or 1031
        frame();
        EXPECT_EQ(taken(), Lines{"app.data 0x10 4608"});
    }
    for (int blocks = 1; blocks <= 15; ++blocks) {
        fakeActionShot().results = {{"ActionShot_UnsetTempMemory", 0}};  // the blocks are freed all the same
        gScarcity.blocks = blocks;
        make();
        command(1029);
        EXPECT_EQ(recorder.take("ActionShot_SetTempMemory"), Lines{text("ActionShot_SetTempMemory %d 460800", blocks)});
    }
    fakeActionShot().results = {{"ActionShot_Initialize", 0}};
    retireShot();
    recorder.take();
    makeShot();
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: Init of ActionShot failed."});
    command(1029);
    EXPECT_EQ(taken(), Lines{"E ShotAction: Failed to start series."});
    command(1030);
    EXPECT_EQ(taken(), Lines{"hw.sendCommand 1030 0 0"});
}

TEST_F(ShotActionTest, AResultThatCannotBeMadeOrBelieved) {
    const struct {
        std::vector<int32_t> progress;
        bool endsEarly;
        OPT_API_ASImage image;
        bool nullPlane;
    } cases[] = {{{30, 60}, true, {0, 64, 48, {}}, false},
                 {{100}, false, {0, 0, 48, {}}, false},
                 {{100}, false, {0, 64, 2000000, {}}, false},
                 {{100}, false, {0, 64, 48, {}}, true}};
    for (const auto& each : cases) {
        fakeActionShot() = {};
        fakeActionShot().progress = each.progress;
        fakeActionShot().endsEarly = each.endsEarly;
        fakeActionShot().result = each.image;
        fakeActionShot().nullPlane = each.nullPlane;
        make();
        startPreview();
        command(1029);
        command(1031);
        taken();
        frame();
        const Lines lines = taken();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.notify 0x1600 0 0"), 1);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.data 0x100 4"), 0);
    }
}

TEST_F(ShotActionTest, FramesAreLentFromItsOwnHeapInTurn) {
    make();
    frame(5);  // before startPreview: the vendor's own frame
    EXPECT_EQ(lastData->getMemory()->getSize(), kFrameSize);
    shot->startPreview();
    const sp<IMemoryHeap> heap = shot->getPreviewHeap();
    EXPECT_EQ(heap->getSize(), 3 * kFrameSize);
    for (const ssize_t place : {0, 1, 2, 0, 1}) {
        frame(static_cast<uint8_t>(place + 7));
        EXPECT_EQ(lastData->getMemory().get(), heap.get());
        EXPECT_EQ(lastData->offset(), place * static_cast<ssize_t>(kFrameSize));
        EXPECT_EQ(kov::test::bytesOf(lastData), std::vector<uint8_t>(kFrameSize, static_cast<uint8_t>(place + 7)));
    }
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, kov::test::makeMemory(kFrameSize + 1));  // does not fit a place
    EXPECT_NE(lastData->getMemory().get(), heap.get());
    recorder.take();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, kov::test::makeMemory(9));
    EXPECT_EQ(recorder.take(),
              (Lines{"app.data 0x10 null", "I ShotAction: CAMERA_MSG_COMPRESSED_IMAGE", "app.data 0x100 9"}));

    const struct {
        const char* format;
        size_t place;
    } formats[] = {{"yuv420sp", 4608}, {"yuv420sp_custom", 4608}, {"yuv420p", 4608}, {"yuv422i", 6144},
                   {"yuv422p", 6144},  {"rgb565", 6144},          {"nv21", 0}};
    for (const auto& each : formats) {
        hardware->params.setPreviewFormat(each.format);
        shot->startPreview();
        EXPECT_EQ(shot->getPreviewHeap()->getSize(), 3 * each.place) << each.format;
    }
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: Invalid preview format for real preview"});
    hardware->params.remove(CameraParameters::KEY_PREVIEW_FORMAT);
    shot->startPreview();
    EXPECT_EQ(recorder.take("E "), Lines{});
}

TEST_F(ShotActionTest, TheGuidesAreDrawnToTheByte) {
    hardware->params.setPreviewSize(320, 240);
    make();
    startPreview();
    command(1029);
    fakeActionShot().display.entries[0] = {100, 100, 200, 180, 0};
    fakeActionShot().display.entries[1] = {40, 20, 120, 150, 1};
    fakeActionShot().display.entries[2] = {5, 5, 50, 50, 2};
    fakeActionShot().display.entries[3] = {INT32_MIN, INT32_MAX, INT32_MAX, INT32_MIN, 1};
    fakeActionShot().display.count = 3;
    frame(90);
    std::vector<uint8_t> expected(320 * 240 * 3 / 2, 90);
    const OverlayImage image = {
        320, 240, {expected.data(), expected.data() + 320 * 240, expected.data() + 320 * 240 + 1}};
    const auto draw = [&](int l, int t, int r, int b, uint32_t rgb) {
        drawRectangle(image, OverlayLayout::SemiPlanar, l, t, r, b, overlayColor(rgb), OverlayFrame::Outward2);
    };
    draw(116, 124, 216, 204, 0x00FF00);
    draw(26, 44, 136, 124, 0x000000);
    draw(28, 46, 134, 122, 0xFFFFFF);
    draw(132, 120, 134, 122, 0xFFFFFF);
    draw(30, 48, 132, 120, 0xFFFFFF);
    draw(32, 50, 130, 118, 0x000000);
    EXPECT_TRUE(kov::test::bytesOf(lastData) == expected);
    for (const int32_t count : {4, 1000, -5}) {  // wild coordinates and counts draw nothing outside
        fakeActionShot().display.count = count;
        frame(90);
        EXPECT_EQ(lastData->size(), expected.size());
    }
}

TEST_F(ShotActionTest, TheStepTellsHowTheConnectionChanged) {
    make();
    startPreview();
    std::vector<uint8_t> pixels(kFrameSize);
    EXPECT_EQ(shot->HandlePreview(pixels.data()), 4);
    command(1029);
    const struct {
        std::vector<int32_t> connected;
        int status;
    } cases[] = {{{1, 0}, 6}, {{0, 1}, 7}, {{1, 1}, 3}, {{0, 0}, 3}};
    for (const auto& each : cases) {
        fakeActionShot().connected = each.connected;
        EXPECT_EQ(shot->HandlePreview(pixels.data()), each.status);
    }
}

TEST_F(ShotActionTest, WithoutAVendorLayer) {
    hardware.clear();
    makeShot();
    recorder.take();
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(shot->sendCommand(1029, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(recorder.take(), Lines(2, "E ShotAction: mHardware is NULL, returning."));
}

}  // namespace
