// The action shot: what it calls, sends, shows and logs.

#include "shots/action/ShotAction.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "imaging/Overlay.h"
#include "tests/action/FakeActionShot.h"
#include "tests/support/FakeArcJpeg.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

constexpr size_t kFrameSize = 64 * 48 * 3 / 2;

/// Memory as scarce as a test wants it: bytes in one piece, and temporary blocks that can still be had.
size_t gMostWork;
int gBlocksLeft;

class ShotActionTest : public ShotTest<ShotAction> {
protected:
    ShotActionTest() {
        resetFakeArcJpeg();
        gMostWork = SIZE_MAX;
        gBlocksLeft = 1000;
        ShotAction::allocators = {[](size_t size) { return size <= gMostWork ? std::malloc(size) : nullptr; },
                                  [](size_t size) { return gBlocksLeft-- > 0 ? new uint8_t[size] : nullptr; }};
        hardware->params.setPreviewSize(64, 48);
    }
    ~ShotActionTest() override { fakeActionShot() = {}; }

    void command(int32_t code) { shot->sendCommand(code, 0, 0); }
    void frame(uint8_t fill = 0) { hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill)); }
    /// Commands, and a frame for each 0.
    void proceed(const std::vector<int32_t>& steps) {
        for (const int32_t step : steps)
            step ? command(step) : frame();
        recorder.take();
    }
    void start(const std::vector<int32_t>& steps = {}) {
        retireShot();
        makeShot();
        shot->startPreview();
        proceed(steps);
    }
    Lines taken() {
        Lines lines = recorder.take();
        std::erase_if(lines, [](const auto& line) { return line.starts_with("AMCM") || line.starts_with("MStream"); });
        return lines;
    }
    Lines afterFrame() {
        frame();
        return taken();
    }
    static Lines created(int percent) { return {"ActionShot_CreateResult", text("app.notify 0x1400 %d 0", percent)}; }

    const Lines shown = {"app.data 0x10 4608"};
    const Lines followed = Lines{"ActionShot_HandleFrame 64x48", "app.notify 0x1800 42 0"} + shown;
    const Lines ended = {"ActionShot_HandleFrame 64x48", "E ShotAction: call StopCapture 3",
                         "D ShotAction: Stopping acquisition by myself."};
    const Lines begins = {"app.notify 0x1200 0 0"};
    const Lines delivered =
        Lines{"app.notify 0x1600 1 0", "MdBitmapSaveEx 2 quality 95 0x70000002", "app.data 0x100 4"} + shown;
    const Lines stopping = Lines{"D ShotAction: Stopping acquisition manually."} + begins;
    const Lines stopped = stopping + created(100) + delivered;
};

TEST_F(ShotActionTest, SetsTheLibraryUpWithAsMuchMemoryAsThereIs) {
    Lines configured = {"I ShotAction: Init of ActionShot successful", "ActionShot_SetResolution 64x48",
                        "ActionShot_SetSceneCompletionActivationMode 0"};
    for (const char* pair : {"0 8", "1 0", "2 0", "3 5", "4 24", "5 0", "7 0"})
        configured.push_back(std::string("ActionShot_SetConfigurationParameter ") + pair);
    const std::pair<size_t, int> cases[] = {{SIZE_MAX, 25}, {10 * 460800, 10}, {4 * 460800, 4}, {3 * 460800, 0}};
    for (const auto& [most, blocks] : cases) {
        gMostWork = most;
        makeShot();
        Lines lines = recorder.take();
        lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), "I ShotAction: ShotAction created: pid=PID"));
        const std::string memory = blocks ? text("memory %d", blocks * 460800) : "null 0";
        EXPECT_EQ(lines,
                  (Lines{"I ShotAction: ShotAction created: pid=PID", "ActionShot_SetMemoryFunctions",
                         "I ShotAction: Dimensions (64, 48)\\n", "I ShotAction: Memory allocated for preview frame.",
                         "ActionShot_Initialize 64x48 " + memory} +
                   configured + Lines{"hw.setCallbacks"}));
        retireShot();
        EXPECT_EQ(recorder.take(), (Lines{"I ShotAction: ShotAction destroyed: pid=PID", "ActionShot_Finalize",
                                          "I ShotCommon: ShotCommon destroyed: pid=PID"}));
    }
    gMostWork = 0;
    makeShot();
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: Failed to allocate memory for preview frame."});
    retireShot();
    hardware->params.setPreviewSize(0, 48);
    makeShot();
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: unexpected Init(0, 48)\\n"});
}

TEST_F(ShotActionTest, TheLibrarySaysWhatBecomesOfAFrameAndEndsTheSeries) {
    const Lines whole = ended + begins + created(30) + created(70) + created(100) + delivered;
    const Lines accepted = {"ActionShot_HandleFrame 64x48", "app.notify 0x1A00 0 0", "app.notify 0x1800 42 0"};
    const std::pair<int32_t, Lines> cases[] = {{0, accepted + shown}, {3, followed}, {4, whole}, {-1, whole}};
    for (const auto& [result, lines] : cases) {
        start({1029});
        fakeActionShot().frameResult = result;
        fakeActionShot().progress = {30, 70, 100};
        EXPECT_EQ(afterFrame(), lines) << result;
    }
}

TEST_F(ShotActionTest, EveryCommandInEveryState) {
    const Lines begun = {"ActionShot_CancelSeries", "ActionShot_SetTempMemory 15 460800", "ActionShot_StartSeries"};
    const Lines begunAgain = {"ActionShot_CancelSeries", "ActionShot_StartSeries"};
    const struct {
        const char* state;
        std::vector<int32_t> before;  // commands, and 0 for a frame
        int32_t frameResult;
        // What 1029 gives, and the frame after it; the frame after 1031. After 1030 a frame is only shown.
        Lines on1029, frameAfter1029, frameAfter1031;
    } cases[] = {{"idle", {}, 1, begun, followed, shown},
                 {"running", {1029, 0}, 1, {}, followed, stopped},
                 {"stop asked for", {1029, 1031}, 1, begunAgain, followed, stopped},
                 {"stopped", {1029, 1031, 0, 0}, 1, begunAgain, followed, shown},
                 {"begun anew", {1029, 1031, 0, 1029}, 1, {}, followed, stopped},
                 {"ended by itself", {1029, 0}, 4, {}, shown, shown},
                 {"ended by itself and stopped", {1029, 0, 1031}, 4, begunAgain, followed, shown},
                 {"cancelled", {1029, 0, 1030}, 1, begunAgain, followed, shown}};
    for (const auto& each : cases) {
        const std::pair<Lines, Lines> given[] = {{each.on1029, each.frameAfter1029},
                                                 {{"ActionShot_CancelSeries", "hw.sendCommand 1030 0 0"}, shown},
                                                 {{"hw.sendCommand 1031 0 0"}, each.frameAfter1031}};
        for (int32_t code = 1029; code <= 1031; ++code) {
            SCOPED_TRACE(text("%d when %s", code, each.state));
            fakeActionShot().frameResult = each.frameResult;
            start(each.before);
            fakeActionShot().frameResult = 1;
            EXPECT_EQ(shot->sendCommand(code, 0, 0), NO_ERROR);
            EXPECT_EQ(taken(), given[code - 1029].first);
            EXPECT_EQ(afterFrame(), given[code - 1029].second);
        }
        EXPECT_EQ(shot->sendCommand(1032, 7, 8), NO_ERROR);
        EXPECT_EQ(taken(), Lines{"hw.sendCommand 1032 7 8"});
    }
}

TEST_F(ShotActionTest, ACancelWaitsForTheCallThatTheLibraryIsIn) {
    start({1029});
    std::thread service;
    fakeActionShot().during = [&](const std::string& call) {
        if (call != "ActionShot_HandleFrame")
            return;
        service = std::thread([&] { command(1030); });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        record("leaves the library");
    };
    frame();
    service.join();
    fakeActionShot().during = nullptr;
    Lines lines = taken();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("app."); });
    EXPECT_EQ(lines, (Lines{"ActionShot_HandleFrame 64x48", "leaves the library", "ActionShot_CancelSeries",
                            "hw.sendCommand 1030 0 0"}));
}

TEST_F(ShotActionTest, AStopIsCarriedOutWithAFrameThatIsNotCopiedToo) {
    makeShot();  // and no startPreview
    proceed({1029, 1031});
    EXPECT_EQ(afterFrame(), stopped);
}

TEST_F(ShotActionTest, FramesOfSeveralThreadsAndCommandsAtRandom) {
    start();
    fakeActionShot().progress = {40, 100};
    std::atomic<int> inside{0};  // the library
    fakeActionShot().during = [&](const std::string&) {
        EXPECT_EQ(++inside, 1);
        std::this_thread::sleep_for(std::chrono::microseconds(20));  // for another thread to come in
        --inside;
    };
    std::atomic<bool> over{false};
    const auto deliver = [&, callback = hardware->dataCb] {
        while (!over)
            callback(CAMERA_MSG_PREVIEW_FRAME, makeFrame(1), shot);
    };
    std::thread threads[] = {std::thread(deliver), std::thread(deliver)};
    for (uint32_t i = 0; i < 1000; ++i) {
        command(i % 5 < 3 ? 1029 : i % 5 == 3 ? 1031 : 1030);
        std::this_thread::sleep_for(std::chrono::microseconds(i % 300));
    }
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    fakeActionShot().during = nullptr;
    fakeActionShot().progress = {100};
    proceed({1030, 1029, 1031});  // and the next series is as ever
    EXPECT_EQ(afterFrame(), stopped);
}

TEST_F(ShotActionTest, ACancelFromWithinAMessageEndsTheResult) {
    start({1029});
    fakeActionShot().frameResult = 4;
    fakeActionShot().progress = {30, 70, 100};
    shot->setCallbacks(
        [](int32_t type, int32_t, int32_t, void* test) {
            if (type == 0x1400)
                static_cast<ShotTest*>(test)->shot->sendCommand(1030, 0, 0);
        },
        onData, onDataTimestamp, this);
    recorder.take();
    EXPECT_EQ(afterFrame(),
              (ended + Lines{"ActionShot_CreateResult", "ActionShot_CancelSeries", "hw.sendCommand 1030 0 0"} + shown));
}

TEST_F(ShotActionTest, EachCallFailingInTurn) {
    const std::tuple<const char*, int, const char*> starts[] = {
        {"", 0, "E ShotAction: Failed to create temp buffer."},
        {"ActionShot_SetTempMemory", 15, "E ShotAction: Failed to create temp buffer."},
        {"ActionShot_StartSeries", 15, "E ShotAction: Failed to start series."}};
    for (const auto& [call, blocks, error] : starts) {
        fakeActionShot().results = {{call, 0}};
        gBlocksLeft = blocks;
        start();
        command(1029);
        EXPECT_EQ(recorder.take("E "), Lines{error});
        command(1029);  // nothing until 1030 or 1031
        EXPECT_EQ(afterFrame(), shown);
    }
    fakeActionShot().results = {{"ActionShot_UnsetTempMemory", 0}};  // the blocks are freed all the same
    for (int blocks = 1; blocks <= 15; ++blocks) {
        gBlocksLeft = blocks;
        start();
        command(1029);
        EXPECT_EQ(recorder.take("ActionShot_SetTempMemory"), Lines{text("ActionShot_SetTempMemory %d 460800", blocks)});
    }
    fakeActionShot().results = {{"ActionShot_Initialize", 0}};
    retireShot();
    makeShot();
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: Init of ActionShot failed."});
    command(1029);
    EXPECT_EQ(taken(), Lines{"E ShotAction: Failed to start series."});
    command(1030);
    EXPECT_EQ(taken(), Lines{"hw.sendCommand 1030 0 0"});
}

TEST_F(ShotActionTest, AResultThatCannotBeMadeOrBelieved) {
    const std::pair<int, void (*)(FakeActionShot&)> cases[] = {
        {60, [](FakeActionShot& fake) { fake.endsEarly = true; }},
        {100, [](FakeActionShot& fake) { fake.result.width = 0; }},
        {100, [](FakeActionShot& fake) { fake.result.height = 2000000; }},
        {100, [](FakeActionShot& fake) { fake.nullPlane = true; }}};
    for (const auto& [last, spoil] : cases) {
        fakeActionShot() = {};
        fakeActionShot().progress = {30, last};
        spoil(fakeActionShot());
        start({1029, 1031});
        EXPECT_EQ(afterFrame(), (stopping + created(30) + created(last) + Lines{"app.notify 0x1600 0 0"} + shown));
    }
}

TEST_F(ShotActionTest, FramesAreLentFromItsOwnHeapInTurn) {
    makeShot();
    frame(5);  // before startPreview: the vendor's own frame
    EXPECT_EQ(lastData->getMemory()->getSize(), kFrameSize);
    shot->startPreview();
    const sp<IMemoryHeap> heap = shot->getPreviewHeap();
    for (const uint8_t place : {0, 1, 2, 0, 1}) {
        frame(place);
        EXPECT_EQ(lastData->getMemory().get(), heap.get());
        EXPECT_EQ(lastData->offset(), static_cast<ssize_t>(place * kFrameSize));
        EXPECT_EQ(bytesOf(lastData), std::vector<uint8_t>(kFrameSize, place));
    }
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(kFrameSize + 1));  // does not fit a place
    EXPECT_NE(lastData->getMemory().get(), heap.get());
    recorder.take();
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(9));
    EXPECT_EQ(taken(), (Lines{"app.data 0x10 null", "I ShotAction: CAMERA_MSG_COMPRESSED_IMAGE", "app.data 0x100 9"}));

    const std::pair<const char*, size_t> formats[] = {{"yuv420sp", 4608}, {"yuv420sp_custom", 4608}, {"yuv420p", 4608},
                                                      {"yuv422i", 6144},  {"yuv422p", 6144},         {"rgb565", 6144},
                                                      {"nv21", 0}};
    for (const auto& [format, place] : formats) {
        hardware->params.setPreviewFormat(format);
        shot->startPreview();
        EXPECT_EQ(shot->getPreviewHeap()->getSize(), 3 * place) << format;
    }
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: Invalid preview format for real preview"});
    hardware->params.remove(CameraParameters::KEY_PREVIEW_FORMAT);
    shot->startPreview();
    EXPECT_EQ(recorder.take("E "), Lines{});
}

TEST_F(ShotActionTest, TheGuidesAreDrawnToTheByte) {
    hardware->params.setPreviewSize(320, 240);
    start({1029});
    auto& display = fakeActionShot().display;
    display.entries[0] = {100, 100, 200, 180, 0};
    display.entries[1] = {40, 20, 120, 150, 1};
    display.entries[2] = {5, 5, 50, 50, 2};
    display.entries[3] = {INT32_MIN, INT32_MAX, INT32_MAX, INT32_MIN, 1};
    display.count = 3;
    frame(90);
    std::vector<uint8_t> expected(320 * 240 * 3 / 2, 90);
    uint8_t* const chroma = expected.data() + 320 * 240;
    const auto draw = [&](int left, int top, int right, int bottom, uint32_t rgb) {
        drawRectangle({320, 240, {expected.data(), chroma, chroma + 1}}, OverlayLayout::SemiPlanar, left, top, right,
                      bottom, overlayColor(rgb), OverlayFrame::Outward2);
    };
    draw(116, 124, 216, 204, 0x00FF00);
    draw(26, 44, 136, 124, 0x000000);
    draw(28, 46, 134, 122, 0xFFFFFF);
    draw(132, 120, 134, 122, 0xFFFFFF);
    draw(30, 48, 132, 120, 0xFFFFFF);
    draw(32, 50, 130, 118, 0x000000);
    EXPECT_TRUE(bytesOf(lastData) == expected);
    for (const int32_t count : {4, 1000, -5}) {  // wild coordinates and counts draw nothing outside
        display.count = count;
        frame(90);
    }
    EXPECT_TRUE(bytesOf(lastData) == std::vector<uint8_t>(expected.size(), 90));
}

TEST_F(ShotActionTest, TheStepTellsHowTheConnectionChanged) {
    start();
    std::vector<uint8_t> pixels(kFrameSize);
    EXPECT_EQ(shot->HandlePreview(pixels.data()), 4);
    command(1029);
    const std::pair<std::vector<int32_t>, int> cases[] = {{{1, 0}, 6}, {{0, 1}, 7}, {{1, 1}, 3}, {{0, 0}, 3}};
    for (const auto& [connected, status] : cases) {
        fakeActionShot().connected = connected;
        EXPECT_EQ(shot->HandlePreview(pixels.data()), status);
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
