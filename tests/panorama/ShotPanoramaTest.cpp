// The panorama shot: what it calls, sends and logs, in its order.

#include "shots/panorama/ShotPanorama.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <iterator>
#include <thread>
#include <utility>

#include "shots/Commands.h"
#include "tests/panorama/FakePanoraMax.h"
#include "tests/support/FakeArcJpeg.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::fakePanoraMax;
using kov::test::Lines;
using kov::test::operator+;

namespace {

class ShotPanoramaTest : public kov::test::ShotTest<ShotPanorama> {
protected:
    ShotPanoramaTest() {
        fakePanoraMax() = {};
        kov::test::resetFakeArcJpeg();
        makeShot();
        recorder.take();
    }
    ~ShotPanoramaTest() override {
        retireShot();
        fakePanoraMax() = {};
    }

    /// Everything but the encoder's calls and lines and the line that a counter of the process throttles, with times
    /// and addresses taken out.
    Lines taken() {
        Lines lines = recorder.take();
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("AMCM") || line.starts_with("MStream") || line.starts_with("MdBitmap") ||
                   line.find("encode2ArcJpegData") != std::string::npos ||
                   (line.find("HandleFrame ") != std::string::npos && line.find(" rc=0") != std::string::npos);
        });
        for (std::string& line : lines) {
            for (const auto& [before, after] : {std::pair{" time ", " ms"}, std::pair{"duration ", " ms"}}) {
                const size_t at = line.find(before);
                if (at != std::string::npos)
                    line.replace(at + std::strlen(before), line.find(after, at) - at - std::strlen(before), "T");
            }
            if (const size_t at = line.find(" instance 0x"); at != std::string::npos)
                line.resize(at);
        }
        return lines;
    }
    void command(int32_t code) { EXPECT_EQ(shot->sendCommand(code, 0, 0), NO_ERROR); }
    void frame() { hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame()); }
    void frameWithStatus(uint32_t status) {
        fakePanoraMax().status.status = status;
        frame();
    }

    const Lines start = {"I ShotPanorama: ShotPanorama::sendCommand 1019, 0, 0", "I ShotPanorama: PANORAMA_SHOT_START",
                         "W ShotPanorama: Starting panorama\\n"};
    const Lines opened = {"W ShotPanorama: init", "px_init", "W ShotPanorama: px_init(640x480) ok for buffer (nil)",
                          "px_setParams 640 480 0 640 480 0 8 15 15 104857600", "px_start"};
    const Lines begun = {"px_beginCapture 0"};
    const Lines stop = {"W ShotPanorama: Stopping panorama\\n", "px_endCapture"};
    const Lines passed = {"app.data 0x10 460800"};
    const Lines analysed = {"px_handleFrame 640x480"};
    const Lines added = {"px_handleFrame 640x480", "px_addFrame 640x480", "app.notify 0xC00 0 0"};
    const Lines duration = {"W ShotPanorama: capture duration T ms\\n"};
};

TEST_F(ShotPanoramaTest, ASweepFromStartToPicture) {
    command(1019);
    EXPECT_EQ(taken(), start + opened + begun);
    frameWithStatus(1);
    frameWithStatus(2);
    frameWithStatus(3);
    frameWithStatus(0);
    EXPECT_EQ(taken(), (analysed + passed + added + Lines{"app.notify 0x800 0 0"} + duration + passed + added +
                        duration + passed + analysed + passed));

    fakePanoraMax().progress = {30, 70, 100};
    command(1019);
    EXPECT_EQ(taken(), (Lines(start.begin(), start.end() - 1) + stop +
                        (Lines{"px_createPanorama", "app.notify 0xA00 30 0",
                               "W ShotPanorama: px_createPanorama at 30%, time T ms\\n", "px_createPanorama",
                               "app.notify 0xA00 70 0", "W ShotPanorama: px_createPanorama at 70%, time T ms\\n",
                               "px_createPanorama", "app.notify 0xA00 100 0",
                               "W ShotPanorama: px_createPanorama at 100%, time T ms\\n", "px_getPanoramaImage",
                               "W ShotPanorama: size is 32 16", "app.data 0x100 4"})));
    frame();  // done: frames go by
    EXPECT_EQ(taken(), passed);
    command(1019);  // a new capture frees the old instance
    EXPECT_EQ(taken(), (start + Lines{"W ShotPanorama: init", "W ShotPanorama: free", "px_free"} +
                        Lines(opened.begin() + 1, opened.end()) + begun));
}

TEST_F(ShotPanoramaTest, AFullBufferStopsOnceOnTheFramesThread) {
    command(1019);
    for (int i = 0; i < 8; ++i)
        frameWithStatus(2);
    taken();
    fakePanoraMax().progress = {50, 100};
    // Further frames while it stitches, and another stop, do nothing.
    fakePanoraMax().during = [&](const std::string& name) {
        if (name == "px_createPanorama")
            std::thread([&] { frame(); }).join();
    };
    frame();
    fakePanoraMax().during = nullptr;
    EXPECT_EQ(taken(), (Lines{"W ShotPanorama: HandleFrame skipped, frames buffer full 8 of 8"} + stop +
                        Lines{"px_createPanorama"} + passed +
                        Lines{"app.notify 0xA00 50 0", "W ShotPanorama: px_createPanorama at 50%, time T ms\\n",
                              "px_createPanorama"} +
                        passed +
                        Lines{"app.notify 0xA00 100 0", "W ShotPanorama: px_createPanorama at 100%, time T ms\\n",
                              "px_getPanoramaImage", "W ShotPanorama: size is 32 16", "app.data 0x100 4"} +
                        passed));
    frame();
    EXPECT_EQ(taken(), passed);
}

TEST_F(ShotPanoramaTest, OneLineForEachNewNumberOfFrames) {
    // The counter is the process's: frames are added until their number has caught up with it.
    fakePanoraMax().status.max_frames = 10000;
    command(1019);
    uint32_t frames = 0;
    Lines lines;
    for (; frames < 9999 && lines.empty(); ++frames) {
        recorder.take();
        frameWithStatus(2);
        lines = recorder.take("W ShotPanorama: HandleFrame");
    }
    EXPECT_EQ(lines, Lines{kov::test::text("W ShotPanorama: HandleFrame %u rc=0, status=2 of 10000", frames - 1)});
    for (int i = 0; i < 3; ++i)
        frameWithStatus(1);
    EXPECT_EQ(recorder.take("W ShotPanorama: HandleFrame"),
              Lines{kov::test::text("W ShotPanorama: HandleFrame %u rc=0, status=1 of 10000", frames)});
}

TEST_F(ShotPanoramaTest, StopAndCancelOutsideAndInside) {
    fakePanoraMax().results["px_endCapture"] = 5;
    command(1020);
    EXPECT_EQ(taken(), (Lines{"I ShotPanorama: ShotPanorama::sendCommand 1020, 0, 0",
                              "I ShotPanorama: PANORAMA_SHOT_STOP", "W ShotPanorama: Stopping panorama\\n",
                              "px_endCapture without instance", "E ShotPanorama: px_endCapture rc = 5\\n"}));
    fakePanoraMax().results.clear();
    command(1019);
    frameWithStatus(2);
    taken();
    command(1022);
    EXPECT_EQ(taken(), ((Lines{"I ShotPanorama: ShotPanorama::sendCommand 1022, 0, 0",
                               "I ShotPanorama: PANORAMA_SHOT_CANCEL", "px_abort", "W ShotPanorama: free", "px_free"}) +
                        opened));
    frame();
    EXPECT_EQ(taken(), passed);
    EXPECT_EQ(shot->sendCommand(1021, 2, 3), NO_ERROR);
    EXPECT_EQ(taken(), (Lines{"I ShotPanorama: ShotPanorama::sendCommand 1021, 2, 3", "hw.sendCommand 1021 2 3"}));
}

TEST_F(ShotPanoramaTest, EachLibraryCallFailingInTurn) {
    const struct {
        const char* call;
        const char* line;
        Lines last;  // what is recorded from the failing call on
    } opening[] = {
        {"px_init",
         "E ShotPanorama: px_init failed rc = 9\\n",
         {"W ShotPanorama: free", "px_beginCapture without instance 0"}},
        {"px_setParams",
         "E ShotPanorama: px_setParams rc = 9\\n",
         {"W ShotPanorama: free", "px_free", "px_beginCapture without instance 0"}},
        {"px_start",
         "E ShotPanorama: px_start rc = 9\\n",
         {"W ShotPanorama: free", "px_free", "px_beginCapture without instance 0"}},
        {"px_beginCapture", "E ShotPanorama: px_beginCapture rc = 9\\n", {}},
    };
    for (const auto& each : opening) {
        SCOPED_TRACE(each.call);
        retireShot();
        makeShot();
        fakePanoraMax().results = {{each.call, 9}};
        recorder.take();
        command(1019);
        Lines lines = taken();
        const auto failed = std::find(lines.begin(), lines.end(), each.line);
        ASSERT_NE(failed, lines.end());
        EXPECT_EQ(Lines(failed + 1, lines.end()), each.last);
        frame();  // goes by unanalysed
        EXPECT_EQ(taken(), passed);
        fakePanoraMax().results.clear();
    }

    retireShot();
    makeShot();
    command(1019);
    recorder.take();
    fakePanoraMax().results = {{"px_handleFrame", 9}};
    frame();
    EXPECT_EQ(recorder.take(), Lines{"px_handleFrame 640x480"} + Lines{"E ShotPanorama: HandleFrame rc=9\\n"} + passed);
    fakePanoraMax().results = {{"px_addFrame", 9}};
    frameWithStatus(2);
    EXPECT_EQ(taken(), ((Lines{"px_handleFrame 640x480", "px_addFrame 640x480", "E ShotPanorama: px_addFrame rc = 9\\n",
                               "app.notify 0xC00 0 0", "app.notify 0x800 0 0"}) +
                        duration + passed));
    fakePanoraMax().results = {{"px_createPanorama", 9}};
    fakePanoraMax().progress = {20, 40};
    command(1020);
    const Lines lines = taken();
    EXPECT_EQ(Lines(lines.begin() + 4, lines.end()),
              (Lines{"px_createPanorama", "app.notify 0xA00 20 0",
                     "W ShotPanorama: px_createPanorama at 20%, time T ms\\n", "px_createPanorama",
                     "E ShotPanorama: px_createPanorama at 40%, time T ms rc = 9\\n", "app.notify 0x200 0 0"}));
    int width = 0;
    int height = 0;
    EXPECT_EQ(shot->GetPanoramaImage(width, height), nullptr);
    EXPECT_EQ(width, -1);
    EXPECT_EQ(height, -1);

    command(1019);
    fakePanoraMax().results = {{"px_getPanoramaImage", 9}, {"px_free", 8}};
    fakePanoraMax().progress = {100};
    taken();
    command(1020);
    const Lines without = taken();
    EXPECT_EQ(Lines(without.end() - 2, without.end()),
              (Lines{"E ShotPanorama: px_getPanoramaImage rc = 9\\n", "W ShotPanorama: size is -1 -1"}));
    shot->Free();
    EXPECT_EQ(recorder.take("E ").size(), 1U);  // "px_free(%p) = 8"
}

TEST_F(ShotPanoramaTest, InitRefusesAndIgnores) {
    shot->Init(640, 0, true);
    EXPECT_EQ(taken(),
              (Lines{"W ShotPanorama: init", "E ShotPanorama: unexpected Init(640, 0)\\n", "W ShotPanorama: free"}));
    command(1019);
    taken();
    shot->Init(640, 480, false);
    EXPECT_EQ(taken(), (Lines{"W ShotPanorama: init", "E ShotPanorama: ignore Init(640, 480) while capturing\\n"}));
    // Frames that are not of the instance's size go by unread.
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, kov::test::makeMemory(1000));
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    hardware->params.setPreviewSize(800, 600);
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    frame();
    EXPECT_EQ(taken(), (Lines{"app.data 0x10 1000", "app.data 0x10 null", "hw.startPreview", "app.data 0x10 720000"}));
}

TEST_F(ShotPanoramaTest, TheGuideIsInTheFrameThatTheApplicationGets) {
    fakePanoraMax().status.dx = 5;
    fakePanoraMax().status.dy = -3;
    command(1019);
    frameWithStatus(1);
    const auto bytes = kov::test::bytesOf(lastData);
    const auto luma = [&](int row, int column) { return bytes[static_cast<size_t>(row) * 640 + column]; };
    for (const int row : {6, 7, 466, 467})
        EXPECT_EQ(luma(row, 300), 149) << row;
    for (const int column : {14, 15, 634, 635})
        EXPECT_EQ(luma(100, column), 149) << column;
    EXPECT_EQ(luma(8, 300), 0);
    EXPECT_NE(luma(240, 600), 0);  // the arrow to the right
    int left = 0, top = 0, right = 0, bottom = 0;
    {
        const AutoMutex held(shot->engineLock());
        shot->GetRectToDraw(left, top, right, bottom);
    }
    EXPECT_EQ((std::vector<int>{left, top, right, bottom}), (std::vector<int>{15, 7, 634, 466}));

    // Frames below 64 x 64 are not marked.
    hardware->params.setPreviewSize(62, 64);
    retireShot();
    makeShot();
    command(1019);
    frame();
    const auto small = kov::test::bytesOf(lastData);
    EXPECT_EQ(std::count(small.begin(), small.end(), 0), static_cast<ptrdiff_t>(small.size()));
}

TEST_F(ShotPanoramaTest, ACancelFromWithinAProgressMessageEndsTheStitch) {
    command(1019);
    frameWithStatus(2);
    fakePanoraMax().progress = {30, 70, 100};
    static ShotPanorama* current;
    current = shot;
    shot->setCallbacks(
        [](int32_t type, int32_t ext1, int32_t, void*) {
            if (type == 0xA00 && ext1 == 30)
                current->sendCommand(PANORAMA_SHOT_CANCEL, 0, 0);
        },
        onData, onDataTimestamp, this);
    recorder.take();
    command(1020);
    const Lines lines = taken();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_createPanorama"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_getPanoramaImage"), 0);
    frame();
    EXPECT_EQ(taken(), passed);
}

TEST_F(ShotPanoramaTest, ACancelOnAnotherThreadIsNotLeftWaitingForTheWholeStitch) {
    shot->setCallbacks(nullptr, onData, onDataTimestamp, this);  // nothing lets the cancel in between two steps
    command(1019);
    frameWithStatus(2);
    taken();
    fakePanoraMax().progress = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
    std::thread canceller;
    fakePanoraMax().during = [&](const std::string& name) {
        if (name != "px_createPanorama" || canceller.joinable())
            return;
        std::atomic<bool> begun{false};
        canceller = std::thread([&] {
            begun = true;
            command(1022);
        });
        while (!begun)
            std::this_thread::yield();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));  // enough to come to where it waits
    };
    command(1020);
    canceller.join();
    const Lines lines = taken();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_createPanorama"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.data 0x100 4"), 0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_free"), 1);
    EXPECT_EQ(lines.back(), "px_start");  // the cancel's fresh instance
}

TEST_F(ShotPanoramaTest, CommandsAndASwitchWhileFramesCome) {
    // Whatever the order, the library is used by one thread at a time and every instance is given back.
    std::atomic<int> inLibrary{0};
    std::atomic<int> overlaps{0};
    fakePanoraMax().during = [&](const std::string& name) {
        overlaps += inLibrary.fetch_add(1) != 0;
        std::this_thread::yield();
        if (name == "px_endCapture")
            fakePanoraMax().progress = {50, 100};
        --inLibrary;
    };
    fakePanoraMax().status.status = 2;
    std::atomic<bool> over{false};
    std::thread frames([&] {
        while (!over)
            frame();
    });
    constexpr int32_t kCommands[] = {1019, 1019, 1022, 1019, 1020, 1019, 1022};
    for (int i = 0; i < 35; ++i) {
        const ShotGate::Entry inside(shot->gate());
        command(kCommands[i % std::size(kCommands)]);
        std::this_thread::sleep_for(std::chrono::microseconds(200 * (i % 7)));
    }
    command(1019);
    retireShot();
    over = true;
    frames.join();
    EXPECT_EQ(overlaps, 0);
    const Lines lines = taken();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_init"), std::count(lines.begin(), lines.end(), "px_free"));
}

TEST_F(ShotPanoramaTest, RetiredFromWithinAProgressMessage) {
    command(1019);
    frameWithStatus(2);
    fakePanoraMax().progress = {30, 70, 100};
    static ShotPanoramaTest* self;
    self = this;
    shot->setCallbacks(
        [](int32_t type, int32_t, int32_t, void*) {
            if (type == 0xA00)
                self->retireShot();
        },
        onData, onDataTimestamp, this);
    recorder.take();
    {
        const ShotGate::Entry inside(shot->gate());
        command(1020);
    }
    const Lines lines = taken();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_createPanorama"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_free"), 1);
}

TEST_F(ShotPanoramaTest, WithoutAVendorLayer) {
    retireShot();
    hardware.clear();
    makeShot();
    recorder.take();
    EXPECT_EQ(shot->sendCommand(1019, 0, 0), INVALID_OPERATION);
    shot->processDataCallback(CAMERA_MSG_PREVIEW_FRAME, kov::test::makeMemory(100));
    EXPECT_EQ(taken(),
              (Lines{"E ShotPanorama: mHardware is NULL, returning.", "E ShotPanorama: mDataCb is NULL, returning."}));
}

}  // namespace
