// The panorama shot: what it calls, sends and logs, in its order.

#include "shots/panorama/ShotPanorama.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <regex>
#include <thread>

#include "tests/panorama/FakePanoraMax.h"
#include "tests/support/FakeArcJpeg.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

class ShotPanoramaTest : public ShotTest<ShotPanorama> {
protected:
    ShotPanoramaTest() {
        resetFakeArcJpeg();
        makeShot();
        recorder.take();
    }
    ~ShotPanoramaTest() override { fakePanoraMax() = {}; }

    /// Without the encoder's calls, the line that a counter of the process throttles, tags, times and addresses.
    Lines taken() {
        static const std::regex left("^AMCM|^MStream|^MdBitmap|encode2ArcJpegData|HandleFrame .* rc=0");
        static const std::regex varies("ShotPanorama: |[0-9]+ ms| instance 0x.*");
        Lines lines = recorder.take();
        std::erase_if(lines, [](const std::string& line) { return std::regex_search(line, left); });
        for (std::string& line : lines)
            line = std::regex_replace(line, varies, "");
        return lines;
    }
    size_t count(const Lines& lines, const std::string& line) const {
        return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
    }
    void deliver(uint32_t status) {
        fakePanoraMax().status.status = status;
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame());
    }
    Lines frame(uint32_t status = 1) {
        deliver(status);
        return taken();
    }
    Lines command(int32_t code) {
        EXPECT_EQ(shot->sendCommand(code, 0, 0), NO_ERROR);
        return taken();
    }

    /// The stitching in these steps, and what happens `within` each.
    static Lines stitched(const std::vector<int>& steps, const Lines& within = {}) {
        Lines lines;
        for (const int percent : steps)
            lines =
                lines + Lines{"px_createPanorama"} + within +
                Lines{text("app.notify 0xA00 %d 0", percent), text("W px_createPanorama at %d%%, time \\n", percent)};
        return lines;
    }

    const std::string sent = "I ShotPanorama::sendCommand ";
    const Lines start = {sent + "1019, 0, 0", "I PANORAMA_SHOT_START"};
    const Lines ended = {sent + "1020, 0, 0", "I PANORAMA_SHOT_STOP"};
    const Lines init = {"W Starting panorama\\n", "W init"};
    const Lines opened = {"px_init", "W px_init(640x480) ok for buffer (nil)",
                          "px_setParams 640 480 0 640 480 0 8 15 15 104857600", "px_start", "px_beginCapture 0"};
    const Lines stop = {"W Stopping panorama\\n", "px_endCapture"};
    const Lines passed = {"app.data 0x10 460800"};
    const Lines analysed = {"px_handleFrame 640x480"};
    const Lines added = analysed + Lines{"px_addFrame 640x480", "app.notify 0xC00 0 0"};
    const Lines duration = Lines{"W capture duration \\n"} + passed;
    const Lines delivered = {"px_getPanoramaImage", "W size is 32 16", "app.data 0x100 4"};
};

TEST_F(ShotPanoramaTest, ASweepFromStartToPicture) {
    EXPECT_EQ(command(1019), start + init + opened);
    for (const uint32_t status : {1, 2, 3, 0})
        deliver(status);
    EXPECT_EQ(taken(), analysed + passed + added + Lines{"app.notify 0x800 0 0"} + duration + added + duration +
                           analysed + passed);

    fakePanoraMax().progress = {30, 70, 100};
    EXPECT_EQ(command(1019), start + stop + stitched({30, 70, 100}) + delivered);
    EXPECT_EQ(frame(), passed);
    EXPECT_EQ(command(1019), (start + init + Lines{"W free", "px_free"} + opened));
}

TEST_F(ShotPanoramaTest, AFullBufferStopsOnceOnTheFramesThread) {
    command(1019);
    for (int i = 0; i < 8; ++i)
        frame(2);
    fakePanoraMax().progress = {50, 100};
    // Further frames while it stitches, and another stop, do nothing.
    fakePanoraMax().during = [&](const std::string& name) {
        if (name == "px_createPanorama")
            std::thread([&] { deliver(1); }).join();
    };
    deliver(1);
    EXPECT_EQ(taken(), (Lines{"W HandleFrame skipped, frames buffer full 8 of 8"} + stop + stitched({50, 100}, passed) +
                        delivered + passed));
    EXPECT_EQ(frame(), passed);
}

TEST_F(ShotPanoramaTest, OneLineForEachNewNumberOfFrames) {
    // The counter is the process's: frames are added until their number has caught up with it.
    fakePanoraMax().status.max_frames = 10000;
    command(1019);
    uint32_t frames = 0;
    Lines lines;
    for (; frames < 9999 && lines.empty(); ++frames) {
        deliver(2);
        lines = recorder.take("W ShotPanorama: HandleFrame");
    }
    EXPECT_EQ(lines, Lines{text("W ShotPanorama: HandleFrame %u rc=0, status=2 of 10000", frames - 1)});
    for (int i = 0; i < 3; ++i)
        deliver(1);
    EXPECT_EQ(recorder.take("W ShotPanorama: HandleFrame"),
              Lines{text("W ShotPanorama: HandleFrame %u rc=0, status=1 of 10000", frames)});
}

TEST_F(ShotPanoramaTest, StopAndCancelOutsideAndInside) {
    fakePanoraMax().results["px_endCapture"] = 5;
    EXPECT_EQ(command(1020),
              (ended + Lines{"W Stopping panorama\\n", "px_endCapture without handle", "E px_endCapture rc = 5\\n"}));
    fakePanoraMax().results.clear();
    command(1019);
    frame(2);
    EXPECT_EQ(command(1022),
              (Lines{sent + "1022, 0, 0", "I PANORAMA_SHOT_CANCEL", "px_abort", "W free", "px_free", "W init"} +
               Lines(opened.begin(), opened.end() - 1)));
    EXPECT_EQ(frame(), passed);
    EXPECT_EQ(shot->sendCommand(1021, 2, 3), NO_ERROR);
    EXPECT_EQ(taken(), (Lines{sent + "1021, 2, 3", "hw.sendCommand 1021 2 3"}));
}

TEST_F(ShotPanoramaTest, EachCallOfTheStartFailingInTurn) {
    const Lines none = {"W free", "px_beginCapture without handle 0"};
    const Lines freed = {"W free", "px_free", "px_beginCapture without handle 0"};
    const std::pair<std::string, Lines> cases[] = {
        {"px_init failed", none}, {"px_setParams", freed}, {"px_start", freed}, {"px_beginCapture", {}}};
    for (const auto& [what, last] : cases) {
        retireShot();
        makeShot();
        fakePanoraMax().results = {{what.substr(0, what.find(' ')), 9}};
        const Lines lines = command(1019);
        const auto failed = std::find(lines.begin(), lines.end(), "E " + what + " rc = 9\\n");
        ASSERT_NE(failed, lines.end());
        EXPECT_EQ(Lines(failed + 1, lines.end()), last);
        EXPECT_EQ(frame(), passed) << what << ": it goes by unanalysed";
    }
}

TEST_F(ShotPanoramaTest, EachLaterCallFailingInTurn) {
    command(1019);
    fakePanoraMax().results = {{"px_handleFrame", 9}};
    EXPECT_EQ(frame(), analysed + Lines{"E HandleFrame rc=9\\n"} + passed);
    fakePanoraMax().results = {{"px_addFrame", 9}};
    EXPECT_EQ(frame(2),
              (analysed +
               Lines{"px_addFrame 640x480", "E px_addFrame rc = 9\\n", "app.notify 0xC00 0 0", "app.notify 0x800 0 0"} +
               duration));
    fakePanoraMax().results = {{"px_createPanorama", 9}};
    fakePanoraMax().progress = {20, 40};
    EXPECT_EQ(command(1020),
              (ended + stop + stitched({20}) +
               Lines{"px_createPanorama", "E px_createPanorama at 40%, time  rc = 9\\n", "app.notify 0x200 0 0"}));
    int width = 0, height = 0;
    EXPECT_EQ(shot->GetPanoramaImage(width, height), nullptr);
    EXPECT_EQ(std::pair(width, height), std::pair(-1, -1));

    command(1019);
    fakePanoraMax().results = {{"px_getPanoramaImage", 9}, {"px_free", 8}};
    fakePanoraMax().progress = {100};
    EXPECT_EQ(command(1020), (ended + stop + stitched({100}) +
                              Lines{"px_getPanoramaImage", "E px_getPanoramaImage rc = 9\\n", "W size is -1 -1"}));
    shot->Free();
    EXPECT_EQ(recorder.take("E ").size(), 1U);  // "px_free(%p) = 8"
}

TEST_F(ShotPanoramaTest, InitRefusesAndIgnores) {
    shot->Init(640, 0, true);
    EXPECT_EQ(taken(), (Lines{"W init", "E unexpected Init(640, 0)\\n", "W free"}));
    command(1019);
    shot->Init(640, 480, false);
    EXPECT_EQ(taken(), (Lines{"W init", "E ignore Init(640, 480) while capturing\\n"}));
    // Frames that are not of the instance's size go by unread.
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(1000));
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    hardware->params.setPreviewSize(800, 600);
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(frame(), (Lines{"app.data 0x10 1000", "app.data 0x10 null", "hw.startPreview", "app.data 0x10 720000"}));
}

TEST_F(ShotPanoramaTest, TheGuideIsInTheFrameThatTheApplicationGets) {
    fakePanoraMax().status = {8, 0, 0, 1, 5, -3, {}, 1};
    command(1019);
    frame(1);
    const auto bytes = bytesOf(lastData);
    const std::tuple<size_t, size_t, int> places[] = {{6, 300, 149},   {7, 300, 149},   {466, 300, 149},
                                                      {467, 300, 149}, {100, 14, 149},  {100, 15, 149},
                                                      {100, 634, 149}, {100, 635, 149}, {8, 300, 0}};
    for (const auto& [row, column, luma] : places)
        EXPECT_EQ(bytes[row * 640 + column], luma) << row << ' ' << column;
    EXPECT_NE(bytes[240 * 640 + 600], 0);  // the arrow to the right
    std::vector<int> rect(4);
    {
        const AutoMutex held(shot->engineLock());
        shot->GetRectToDraw(rect[0], rect[1], rect[2], rect[3]);
    }
    EXPECT_EQ(rect, (std::vector{15, 7, 634, 466}));

    // Frames below 64 x 64 are not marked.
    hardware->params.setPreviewSize(62, 64);
    retireShot();
    makeShot();
    command(1019);
    frame();
    EXPECT_TRUE(bytesOf(lastData) == std::vector<uint8_t>(62 * 64 * 3 / 2));
}

TEST_F(ShotPanoramaTest, ACancelOrASwitchFromWithinAProgressMessageEndsTheStitch) {
    static bool cancels;
    for (const bool cancelled : {true, false}) {
        cancels = cancelled;
        command(1019);
        frame(2);
        fakePanoraMax().progress = {30, 70, 100};
        shot->setCallbacks(
            [](int32_t type, int32_t ext1, int32_t, void* user) {
                auto* const test = static_cast<ShotTest*>(user);
                if (type == 0xA00 && ext1 == 30)
                    cancels ? (void)test->shot->sendCommand(1022, 0, 0) : test->retireShot();
            },
            onData, onDataTimestamp, this);
        {
            const ShotGate::Entry held(shot->gate());
            shot->sendCommand(1020, 0, 0);
        }
        const Lines lines = taken();
        EXPECT_EQ(count(lines, "px_createPanorama"), 1U);
        EXPECT_EQ(count(lines, "px_getPanoramaImage"), 0U);
        EXPECT_EQ(count(lines, "px_free"), 1U);
    }
}

TEST_F(ShotPanoramaTest, ACancelOnAnotherThreadIsNotLeftWaitingForTheWholeStitch) {
    shot->setCallbacks(nullptr, onData, onDataTimestamp, this);  // nothing lets the cancel in between two steps
    command(1019);
    frame(2);
    fakePanoraMax().progress = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
    std::thread canceller;
    fakePanoraMax().during = [&](const std::string& name) {
        if (name != "px_createPanorama" || canceller.joinable())
            return;
        canceller = std::thread([&] { shot->sendCommand(1022, 0, 0); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // enough to come to where it waits
    };
    shot->sendCommand(1020, 0, 0);
    canceller.join();
    const Lines lines = taken();
    EXPECT_EQ(count(lines, "px_createPanorama"), 1U);
    EXPECT_EQ(count(lines, "app.data 0x100 4"), 0U);
    EXPECT_EQ(count(lines, "px_free"), 1U);
    EXPECT_EQ(count(lines, "px_start"), 1U);  // the cancel's fresh instance
}

TEST_F(ShotPanoramaTest, CommandsAndASwitchWhileFramesCome) {
    // Whatever the order, the library is used by one thread at a time and every instance is given back.
    std::atomic<int> inside{0};  // the library
    fakePanoraMax().during = [&](const std::string& name) {
        EXPECT_EQ(++inside, 1);
        std::this_thread::sleep_for(std::chrono::microseconds(20));  // for another thread to come in
        if (name == "px_endCapture")
            fakePanoraMax().progress = {50, 100};
        --inside;
    };
    std::atomic<bool> over{false};
    std::thread frames([&] {
        while (!over)
            deliver(2);
    });
    for (int i = 0; i < 140; ++i) {
        constexpr int32_t codes[] = {1019, 1019, 1022, 1019, 1020, 1019, 1022};
        const ShotGate::Entry held(shot->gate());
        shot->sendCommand(codes[i % 7], 0, 0);
        std::this_thread::sleep_for(std::chrono::microseconds(200 * (i % 7)));
    }
    shot->sendCommand(1019, 0, 0);
    retireShot();
    over = true;
    frames.join();
    const Lines lines = taken();
    EXPECT_EQ(count(lines, "px_init"), count(lines, "px_free"));
}

TEST_F(ShotPanoramaTest, WithoutAVendorLayer) {
    retireShot();
    hardware.clear();
    makeShot();
    EXPECT_EQ(shot->sendCommand(1019, 0, 0), INVALID_OPERATION);
    shot->processDataCallback(CAMERA_MSG_PREVIEW_FRAME, makeMemory(100));
    EXPECT_EQ(recorder.take("E ShotPanorama"),
              (Lines{"E ShotPanorama: mHardware is NULL, returning.", "E ShotPanorama: mDataCb is NULL, returning."}));
}

}  // namespace
