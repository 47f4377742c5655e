// The action shot: what it calls, sends, shows and logs.

#include "shots/action/ShotAction.h"

#include <thread>

#include "imaging/Overlay.h"
#include "tests/action/FakeActionShot.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

constexpr size_t kFrame = 64 * 48 * 3 / 2;
constexpr size_t kBlock = 460800;

const Lines kShown = {"app.data 0x10 4608"};
const Lines kHandled = {"as.IsConnected", "as.HandleFrame 64x48 of 9", "as.IsConnected"};
const Lines kFollowed = kHandled + Lines{"app.notify 0x1800 42 0"} + kShown;
const Lines kEnded = kHandled + Lines{"E ShotAction: call StopCapture 3",
                                      "D ShotAction: Stopping acquisition by myself.", "app.notify 0x1200 0 0"};
const Lines kStopping = {"D ShotAction: Stopping acquisition manually.", "app.notify 0x1200 0 0"};
const Lines kEncoded = {"MdBitmapSaveEx 2 quality 95 0x70000002"};
const Lines kMade = {"app.notify 0x1600 1 0"};
const Lines kNotMade = {"app.notify 0x1600 0 0"};
const Lines kDelivered = {"app.data 0x100 4"};
const Lines kBegun = {"as.CancelSeries", "as.SetTempMemory 15 of 15 x 460800", "as.StartSeries"};
const Lines kBegunAgain = {"as.CancelSeries", "as.StartSeries"};
const Lines kCancelled = {"as.CancelSeries", "hw.sendCommand 1030 0 0"};

Lines created(int from, int percent) {
    return {text("as.CreateResult from %d", from), text("app.notify 0x1400 %d 0", percent)};
}
const Lines kStopped = kStopping + created(0, 100) + kEncoded + kMade + kDelivered + kShown;

/// With the step for a frame, for its status.
struct OpenAction : ShotAction {
    using ShotAction::ShotAction;
    int statusOf(std::vector<uint8_t> frame) { return HandlePreview(frame.data()).status; }
};

class ShotActionTest : public ShotTest<OpenAction> {
protected:
    ShotActionTest() {
        gFakeActionShot = {};
        hardware->params.setPreviewSize(64, 48);
    }

    void command(int32_t code) { EXPECT_EQ(shot->sendCommand(code, 0, 0), NO_ERROR); }
    void frame(const sp<IMemory>& memory = makeMemory(kFrame, 9)) { hardware->data(CAMERA_MSG_PREVIEW_FRAME, memory); }
    /// A new shot that shows its preview; then commands, and a frame for each 0.
    void start(const std::vector<int32_t>& steps = {}) {
        retireShot();
        makeShot();
        shot->startPreview();
        for (const int32_t step : steps)
            step ? command(step) : frame();
        recorder.take();
    }
    Lines taken() {
        Lines lines = recorder.take();
        std::erase_if(lines, [](auto& line) { return line.starts_with("AMCM_") || line.starts_with("MStream"); });
        return lines;
    }
    Lines afterFrame() {
        frame();
        return taken();
    }
};

TEST_F(ShotActionTest, SetsTheLibraryUpWithAsMuchMemoryAsThereIs) {
    Lines configured = {"I ShotAction: Init of ActionShot successful", "as.SetResolution 64x48",
                        "as.SetSceneCompletionActivationMode 0"};
    for (const char* pair : {"0 8", "1 0", "2 0", "3 5", "4 24", "5 0", "7 0"})
        configured.push_back(std::string("as.SetConfigurationParameter ") + pair);
    const Lines failed = {"E ShotAction: Init of ActionShot failed."};
    const auto begun = [](const char* memory, bool copy = true) {
        return Lines{"as.SetMemoryFunctions", "I ShotAction: Dimensions (64, 48)\\n",
                     copy ? "I ShotAction: Memory allocated for preview frame."
                          : "E ShotAction: Failed to allocate memory for preview frame.",
                     std::string("as.Initialize 64x48 ") + memory};
    };
    const Lines ended = {"as.Finalize"};
    const struct {
        int width;
        size_t most;          // bytes that can be had in one piece
        int32_t initialized;  // by the library
        bool noHandle;
        Lines made, gone;
    } cases[] = {{64, SIZE_MAX, 1, false, begun("memory 11520000") + configured, ended},
                 {64, 10 * kBlock, 1, false, begun("memory 4608000") + configured, ended},
                 {64, 4 * kBlock, 1, false, begun("memory 1843200") + configured, ended},
                 {64, 4 * kBlock - 1, 1, false, begun("null 0") + configured, ended},
                 {64, 0, 1, false, begun("null 0", false) + configured, ended},
                 {64, SIZE_MAX, 0, false, begun("memory 11520000") + failed, {}},
                 {64, SIZE_MAX, 1, true, begun("memory 11520000") + failed, {}},
                 {0, SIZE_MAX, 1, false, {"E ShotAction: unexpected Init(0, 48)\\n"}, {}},
                 {-64, SIZE_MAX, 1, false, {"E ShotAction: unexpected Init(-64, 48)\\n"}, {}}};
    for (const auto& each : cases) {
        hardware->params.setPreviewSize(each.width, 48);
        gFakeActionShot.results = {{"Initialize", each.initialized}};
        gFakeActionShot.noHandle = each.noHandle;
        fakeSystem().allowsMemory = [&](size_t size) { return size <= each.most; };
        EXPECT_EQ(made(), each.made + Lines{"hw.setCallbacks"});
        if (each.gone.empty()) {  // and a start without an engine
            command(1029);
            command(1030);
            EXPECT_EQ(recorder.take(), (Lines{"E ShotAction: Failed to start series.", "hw.sendCommand 1030 0 0"}));
        }
        retireShot();
        EXPECT_EQ(recorder.take(), Lines{"I ShotAction: ShotAction destroyed: pid=PID"} + each.gone +
                                       Lines{"I ShotCommon: ShotCommon destroyed: pid=PID"});
    }
    gFakeActionShot = {};
    fakeSystem().allowsMemory = nullptr;
    hardware->params.setPreviewSize(1, 1);
    makeShot();
    EXPECT_EQ(recorder.take("E "), Lines{});
}

TEST_F(ShotActionTest, TheLibrarySaysWhatBecomesOfAFrameAndEndsTheSeries) {
    const Lines whole =
        kEnded + created(0, 30) + created(30, 70) + created(70, 100) + kEncoded + kMade + kDelivered + kShown;
    const Lines accepted = kHandled + Lines{"app.notify 0x1A00 0 0", "app.notify 0x1800 42 0"} + kShown;
    for (const auto& [result, lines] : {std::pair(0, accepted), {3, kFollowed}, {4, whole}, {-1, whole}}) {
        start({1029});
        gFakeActionShot.frameResult = result;
        gFakeActionShot.progress = {30, 70, 100};
        EXPECT_EQ(afterFrame(), lines) << result;
    }
    EXPECT_EQ(gFakeArcJpeg.lastBitmap.pPlane[0], gFakeActionShot.image.data());
    EXPECT_EQ(gFakeArcJpeg.lastBitmap.lWidth * 100 + gFakeArcJpeg.lastBitmap.lHeight, 6448);
    hardware->params.set("jpeg-quality", 70);
    start({1029, 1031});
    frame();
    EXPECT_EQ(only(recorder.take(), {"AMCM_R", "MdB"}),
              (Lines{"AMCM_RegisterEx 0x81002202 0x2000000 2 3 AJL2", "MdBitmapSaveEx 2 quality 90 0x70000002"}));
}

TEST_F(ShotActionTest, AFramesStatusTellsOfTheSeries) {
    const struct {
        std::vector<int32_t> before;
        int frameResult, connectedBefore, connectedAfter, progress, status;
    } cases[] = {{{}, 1, 1, 1, 100, 4},           {{1029}, 1, 1, 1, 100, 3},       {{1029}, 1, 0, 1, 100, 7},
                 {{1029}, 1, 1, 0, 100, 6},       {{1029}, 9, 1, 1, 100, 0},       {{1029}, 9, 1, 1, 101, 1},
                 {{1029, 1031}, 1, 1, 1, 100, 0}, {{1029, 1031}, 1, 1, 1, 101, 1}, {{1029, 1031, 0}, 1, 1, 1, 101, 0}};
    for (const auto& each : cases) {
        SCOPED_TRACE(text("%d after %s", each.status, ::testing::PrintToString(each.before).c_str()));
        gFakeActionShot = {};
        gFakeActionShot.progress = {each.progress};
        start(each.before);
        gFakeActionShot.frameResult = each.frameResult;
        gFakeActionShot.results["IsConnected"] = each.connectedBefore;
        gFakeActionShot.during = [&](const std::string& call) {
            if (call == "HandleFrame")
                gFakeActionShot.results["IsConnected"] = each.connectedAfter;
        };
        EXPECT_EQ(shot->statusOf(std::vector<uint8_t>(kFrame)), each.status);
    }
    gFakeActionShot = {};
}

TEST_F(ShotActionTest, EveryCommandInEveryState) {
    const struct {
        const char* state;
        std::vector<int32_t> before;  // commands, and 0 for a frame
        int32_t frameResult;
        // What 1029 gives, and the frame after it; the frame after 1031. After 1030 a frame is only shown.
        Lines on1029, frameAfter1029, frameAfter1031;
    } cases[] = {{"idle", {}, 1, kBegun, kFollowed, kShown},
                 {"running", {1029, 0}, 1, {}, kFollowed, kStopped},
                 {"told to run twice", {1029, 1029}, 1, {}, kFollowed, kStopped},
                 {"stop asked for", {1029, 1031}, 1, kBegunAgain, kFollowed, kStopped},
                 {"stopped", {1029, 1031, 0, 0}, 1, kBegunAgain, kFollowed, kShown},
                 {"begun anew", {1029, 1031, 0, 1029}, 1, {}, kFollowed, kStopped},
                 {"ended by itself", {1029, 0}, 4, {}, kShown, kShown},
                 {"ended by itself and stopped", {1029, 0, 1031}, 4, kBegunAgain, kFollowed, kShown},
                 {"cancelled", {1029, 0, 1030}, 1, kBegunAgain, kFollowed, kShown}};
    for (const auto& each : cases) {
        const std::pair<Lines, Lines> given[] = {{each.on1029, each.frameAfter1029},
                                                 {kCancelled, kShown},
                                                 {{"hw.sendCommand 1031 0 0"}, each.frameAfter1031}};
        for (int32_t code = 1029; code <= 1031; ++code) {
            SCOPED_TRACE(text("%d when %s", code, each.state));
            gFakeActionShot.frameResult = each.frameResult;
            start(each.before);
            gFakeActionShot.frameResult = 1;
            command(code);
            EXPECT_EQ(taken(), given[code - 1029].first);
            EXPECT_EQ(afterFrame(), given[code - 1029].second);
        }
        EXPECT_EQ(shot->sendCommand(1032, 7, 8), NO_ERROR);
        EXPECT_EQ(taken(), Lines{"hw.sendCommand 1032 7 8"});
    }
}

TEST_F(ShotActionTest, ACommandFromWithinAMessageOfTheResult) {
    const Lines step = {"as.CreateResult from 0", "app.notify 0x1400 100 0"};
    const Lines untilMade = step + kEncoded + kMade;
    const struct {
        int32_t command, within;
        Lines before, after;
    } cases[] = {{1029, 0x1200, {}, kBegunAgain + kNotMade + kShown},
                 {1029, 0x1400, step, kBegunAgain + kNotMade + kShown},
                 {1029, 0x1600, untilMade, kBegunAgain + kDelivered + kShown},  // what is finished is not lost
                 {1030, 0x1200, {}, kCancelled + kShown},
                 {1030, 0x1400, step, kCancelled + kShown},
                 {1030, 0x1600, untilMade, kCancelled + kShown},
                 {0, 0x1200, {}, {}},  // the shot is retired
                 {0, 0x1400, step, {}},
                 {0, 0x1600, untilMade, {}}};
    for (const auto& each : cases) {
        SCOPED_TRACE(text("%d within %x", each.command, each.within));
        whileNotified = nullptr;
        start({1029, 1031});
        whileNotified = [&](int32_t type, int32_t) {
            type != each.within ? void() : each.command ? command(each.command) : retireShot();
        };
        Lines lines = afterFrame();
        std::erase_if(lines, [](auto& line) {
            return line.ends_with("destroyed: pid=PID") || line == "as.UnsetTempMemory" || line == "as.Finalize";
        });
        EXPECT_EQ(lines, kStopping + each.before + each.after);
        if (each.command) {
            EXPECT_EQ(afterFrame(), each.command == 1029 ? kFollowed : kShown);
        }
    }
}

TEST_F(ShotActionTest, AStartThatWaitsForACancelCanBeStopped) {
    start({1029, 1031, 0});
    runMeeting(
        gFakeActionShot, "CancelSeries", [&] { command(1030); }, [&] { command(1029); });
    command(1031);
    taken();
    EXPECT_EQ(afterFrame(), kStopped);
}

TEST_F(ShotActionTest, AResultThatBeginsWhileACommandWaitsEndsWithIt) {
    for (const int32_t code : {1029, 1030}) {
        start({1029, 1031});
        std::jthread framing, commanding;
        whileNotified = [&](int32_t type, int32_t) {
            if (type == 0x1200 && commanding.joinable())
                commanding.join();
        };
        fakeSystem().allowsHeap = [&](size_t) {
            framing = startUntilItWaits([&] { frame(); });  // which goes on first
            commanding = startUntilItWaits([&, code] { command(code); });
            return true;
        };
        shot->startPreview();
        framing.join();
        if (commanding.joinable())
            commanding.join();
        whileNotified = nullptr;
        fakeSystem().allowsHeap = nullptr;
        EXPECT_TRUE(recorder.take("as.CreateResult").empty()) << code;
    }
}

TEST_F(ShotActionTest, AStartThatFailsAndMemoryThatIsShort) {
    const std::tuple<const char*, int, const char*> starts[] = {
        {"", 0, "E ShotAction: Failed to create temp buffer."},
        {"SetTempMemory", 15, "E ShotAction: Failed to create temp buffer."},
        {"StartSeries", 15, "E ShotAction: Failed to start series."}};
    int blocksLeft = 0;
    const auto limit = [&](int blocks) {
        fakeSystem().allowsMemory = nullptr;
        start();
        blocksLeft = blocks;
        fakeSystem().allowsMemory = [&](size_t size) { return size == kBlock && blocksLeft-- > 0; };
        command(1029);
    };
    for (const auto& [call, blocks, error] : starts) {
        gFakeActionShot.results = {{call, 0}};
        limit(blocks);
        EXPECT_EQ(recorder.take("E "), Lines{error});
        command(1029);  // nothing until 1030 or 1031
        EXPECT_EQ(afterFrame(), kShown);
        gFakeActionShot.results.clear();
        blocksLeft = 1;
        command(1030);
        recorder.take();
        command(1029);
        EXPECT_EQ(recorder.take().back(), "as.StartSeries");
    }
    // A series that could not be started can be stopped, as one that was stopped and cancelled before.
    fakeSystem().allowsMemory = nullptr;
    start({1029, 1031, 0, 1030});
    gFakeActionShot.results = {{"StartSeries", 0}};
    command(1029);
    command(1031);
    taken();
    EXPECT_EQ(afterFrame(), kStopped);
    gFakeActionShot.results = {{"UnsetTempMemory", 0}};  // the blocks are freed all the same
    for (int blocks = 1; blocks <= 15; ++blocks) {
        limit(blocks);
        EXPECT_EQ(recorder.take("as.SetT"), Lines{text("as.SetTempMemory %d of %d x 460800", blocks, blocks)});
    }
    retireShot();
    EXPECT_EQ(recorder.take("as."), (Lines{"as.UnsetTempMemory", "as.Finalize"}));
}

TEST_F(ShotActionTest, AResultThatCannotBeMadeBelievedOrEncoded) {
    const auto unsound = [](const char* size) {
        return Lines{text("E ShotAction: a result of %s cannot be", size)} + kNotMade;
    };
    const Lines failed = {"E ShotAction: the result could not be encoded"};
    using Fake = FakeActionShot;
    const std::tuple<int, void (*)(Fake&), Lines> cases[] = {
        {60, [](Fake& fake) { fake.endsEarly = true; }, kNotMade},
        {101, [](Fake&) {}, kNotMade},
        {100, [](Fake& fake) { fake.result.plane[0] = nullptr; }, unsound("64 x 48")},
        {100, [](Fake& fake) { fake.result.width = 0; }, unsound("0 x 48")},
        {100, [](Fake& fake) { fake.result.height = 0; }, unsound("64 x 0")},
        {100, [](Fake& fake) { fake.result.width = 8193; }, unsound("8193 x 48")},
        {100, [](Fake& fake) { fake.result.height = 8193; }, unsound("64 x 8193")},
        {100, [](Fake& fake) { fake.result.width = fake.result.height = 8192; }, kEncoded + kMade + kDelivered},
        {100, [](Fake& fake) { fake.result.width = fake.result.height = 1; }, kEncoded + kMade + kDelivered},
        {100, [](Fake&) { gFakeArcJpeg.streamOpens = false; }, failed + kNotMade},
        {100, [](Fake&) { gFakeArcJpeg.jpeg = "J"; }, kEncoded + kMade + Lines{"app.data 0x100 1"}},
        {100, [](Fake&) { gFakeArcJpeg.jpeg.clear(); }, kEncoded + failed + kMade + Lines{"app.data 0x100 0"}}};
    for (const auto& [last, spoil, then] : cases) {
        gFakeArcJpeg = {};
        gFakeActionShot = {};
        gFakeActionShot.progress = {30, last};
        start({1029, 1031});
        spoil(gFakeActionShot);
        EXPECT_EQ(afterFrame(), kStopping + created(0, 30) + created(30, last) + then + kShown);
        EXPECT_EQ(afterFrame(), kShown);
    }
}

TEST_F(ShotActionTest, FramesAreLentFromItsOwnHeapInTurn) {
    makeShot();
    for (const int32_t code : {1029, 1031})
        command(code);
    recorder.take();
    const auto told = [](const char* what) {
        return text("E ShotAction: a preview frame %s; such frames are passed on as they are", what);
    };
    // Before startPreview it is the vendor's own frame, but a stop is carried out.
    EXPECT_EQ(afterFrame(), Lines{told("of 4608 bytes has no place")} + kStopped);
    EXPECT_EQ(lastData->offset(), 48);
    shot->startPreview();
    command(1029);
    const sp<IMemoryHeap> heap = shot->getPreviewHeap();
    EXPECT_EQ(recorder.take().back(), "D ShotAction: call getPreviewHeap");
    const auto isLent = [&](const sp<IMemory>& memory, size_t place, const Lines& expected) {
        recorder.take();
        const std::vector<uint8_t> bytes = bytesOf(memory);
        frame(memory);
        EXPECT_EQ(taken(), expected);
        EXPECT_EQ(lastData->getMemory().get(), heap.get());
        EXPECT_EQ(static_cast<size_t>(lastData->offset()), place * bytes.size());
        EXPECT_TRUE(bytesOf(lastData) == bytes);
    };
    for (const int place : {0, 1, 2, 0, 1}) {
        isLent(makeMemory(kFrame, 9), place, kFollowed);
        const wp<IMemory> last(lastData);
        lastData.clear();
        EXPECT_TRUE(last.promote().get()) << "gone when the callback returns";
    }
    isLent(makeMemory(kFrame - 1), 2, {told("of 4607 bytes is smaller than 64 x 48"), "app.data 0x10 4607"});
    for (const Lines& expected : {Lines{told("of 4609 bytes has no place")}, Lines{}}) {
        const sp<IMemory> larger = makeMemory(kFrame + 1);
        frame(larger);
        EXPECT_EQ(lastData.get(), larger.get());
        EXPECT_EQ(recorder.take("E "), expected);
    }
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(9));
    EXPECT_EQ(taken(), (Lines{"I ShotAction: CAMERA_MSG_COMPRESSED_IMAGE", "app.data 0x100 9"}));
}

TEST_F(ShotActionTest, APlaceForEachFormatAndTheOldHeapGoesFirst) {
    start({0});
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

    hardware->params.setPreviewFormat("yuv420p");
    shot->startPreview();
    frame();
    lastData.clear();
    const sp<IMemoryHeap> old = shot->getPreviewHeap();
    fakeSystem().allowsHeap = [&](size_t) {
        EXPECT_EQ(old->getStrongCount(), 1);
        return false;
    };
    shot->startPreview();
    EXPECT_EQ(shot->getPreviewHeap().get(), nullptr);
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAction: no preview heap of 13824 bytes could be had"});
    const sp<IMemory> own = makeMemory(kFrame);
    frame(own);
    EXPECT_EQ(lastData.get(), own.get());
}

TEST_F(ShotActionTest, TheGuidesAreDrawnToTheByte) {
    hardware->params.setPreviewSize(320, 240);
    start({1029});
    auto& display = gFakeActionShot.display;
    std::vector<uint8_t> expected;
    for (const int by : {0, 1}) {  // corners are made even
        display.entries[0] = {101 + by, 101 + by, 201 + by, 181 + by, 0};
        display.entries[1] = {41 + by, 21 + by, 121 + by, 151 + by, 1};
        display.entries[2] = {5, 5, 50, 50, 2};
        display.count = 3;
        frame(makeMemory(320 * 240 * 3 / 2, 90));
        expected.assign(320 * 240 * 3 / 2, 90);
        uint8_t* const chroma = expected.data() + 320 * 240;
        const auto draw = [&](int left, int top, int right, int bottom, uint32_t rgb) {
            drawRectangle({320, 240, {expected.data(), chroma, chroma + 1}}, OverlayLayout::SemiPlanar, left + by,
                          top + by, right + by, bottom + by, overlayColor(rgb), OverlayFrame::Outward2);
        };
        draw(117, 125, 217, 205, 0x00FF00);
        draw(27, 45, 137, 125, 0x000000);
        draw(29, 47, 135, 123, 0xFFFFFF);
        draw(133, 121, 135, 123, 0xFFFFFF);
        draw(31, 49, 133, 121, 0xFFFFFF);
        draw(33, 51, 131, 119, 0x000000);
        EXPECT_TRUE(bytesOf(lastData) == expected) << by;
    }
    display.entries[3] = {INT32_MIN, INT32_MAX, INT32_MAX, INT32_MIN, 1};
    for (const int32_t count : {4, 1000, -5}) {  // wild coordinates and counts draw nothing outside
        display.count = count;
        frame(makeMemory(320 * 240 * 3 / 2, 90));
    }
    // One entry without height, one without width.
    display.entries[0] = {100, 100, 200, 100, 0};
    display.entries[1] = {100, 100, 100, 180, 0};
    display.count = 2;
    frame(makeMemory(320 * 240 * 3 / 2, 90));
    EXPECT_TRUE(bytesOf(lastData) == std::vector<uint8_t>(expected.size(), 90));
}

}  // namespace
