// The panorama shot: what it calls, sends and logs, in its order.

#include "shots/panorama/ShotPanorama.h"

#include <algorithm>
#include <thread>

#include "shots/Commands.h"
#include "tests/panorama/FakePanoraMax.h"
#include "tests/support/FakeArcJpeg.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::fakePanoraMax;
using kov::test::Lines;

namespace {

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

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

    /// Everything but the encoder's calls and lines, and with times and addresses taken out.
    Lines taken() {
        Lines lines = recorder.take();
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("AMCM") || line.starts_with("MStream") || line.starts_with("MdBitmap") ||
                   line.find("encode2ArcJpegData") != std::string::npos ||
                   line.find("HandleFrame ") != std::string::npos || line.find("px_init(") != std::string::npos ||
                   line.find("capture duration") != std::string::npos;
        });
        for (std::string& line : lines) {
            const size_t at = line.find(", time ");
            if (at != std::string::npos)
                line.erase(at, line.find(" ms", at) + 3 - at);
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
    const Lines opened = {"W ShotPanorama: init", "px_init", "px_setParams 640 480 0 640 480 0 8 15 15 104857600",
                          "px_start"};
    const Lines begun = {"px_beginCapture 0"};
    const Lines stop = {"W ShotPanorama: Stopping panorama\\n", "px_endCapture"};
    const Lines passed = {"app.data 0x10 460800"};
};

TEST_F(ShotPanoramaTest, ASweepFromStartToPicture) {
    command(1019);
    EXPECT_EQ(taken(), start + opened + begun);
    frameWithStatus(1);
    frameWithStatus(2);
    frameWithStatus(3);
    frameWithStatus(0);
    EXPECT_EQ(taken(),
              (Lines{"px_handleFrame 640x480"} + passed +
               Lines{"px_handleFrame 640x480", "px_addFrame 640x480", "app.notify 0xC00 0 0", "app.notify 0x800 0 0"} +
               passed + Lines{"px_handleFrame 640x480", "px_addFrame 640x480", "app.notify 0xC00 0 0"} + passed +
               Lines{"px_handleFrame 640x480"} + passed));

    fakePanoraMax().progress = {30, 70, 100};
    command(1019);
    EXPECT_EQ(taken(),
              (Lines(start.begin(), start.end() - 1) + stop +
               (Lines{"px_createPanorama", "app.notify 0xA00 30 0", "W ShotPanorama: px_createPanorama at 30%\\n",
                      "px_createPanorama", "app.notify 0xA00 70 0", "W ShotPanorama: px_createPanorama at 70%\\n",
                      "px_createPanorama", "app.notify 0xA00 100 0", "W ShotPanorama: px_createPanorama at 100%\\n",
                      "px_getPanoramaImage", "W ShotPanorama: size is 32 16", "app.data 0x100 4"})));
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
    frame();
    const Lines lines = taken();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_endCapture"), 1);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "px_createPanorama"), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.data 0x100 4"), 1);
    EXPECT_EQ(lines.back(), passed[0]);
    frame();
    EXPECT_EQ(taken(), passed);
}

TEST_F(ShotPanoramaTest, TheFullBufferLineHasItsNumbers) {
    command(1019);
    for (int i = 0; i < 8; ++i)
        frameWithStatus(2);
    recorder.take();
    frame();
    const Lines lines = recorder.take("W ShotPanorama: HandleFrame");
    EXPECT_EQ(lines, Lines{"W ShotPanorama: HandleFrame skipped, frames buffer full 8 of 8"});
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
                        passed));
    fakePanoraMax().results = {{"px_createPanorama", 9}};
    fakePanoraMax().progress = {20, 40};
    command(1020);
    const Lines lines = taken();
    EXPECT_EQ(
        Lines(lines.begin() + 4, lines.end()),
        (Lines{"px_createPanorama", "app.notify 0xA00 20 0", "W ShotPanorama: px_createPanorama at 20%\\n",
               "px_createPanorama", "E ShotPanorama: px_createPanorama at 40% rc = 9\\n", "app.notify 0x200 0 0"}));
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
    // A frame that is smaller than the instance's goes by unread.
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, kov::test::makeMemory(1000));
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    EXPECT_EQ(taken(), (Lines{"app.data 0x10 1000", "app.data 0x10 null"}));
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
    shot->GetRectToDraw(left, top, right, bottom);
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
    EXPECT_EQ(taken(), (Lines{"E ShotPanorama: mHardware is NULL, returning."}));
}

}  // namespace
