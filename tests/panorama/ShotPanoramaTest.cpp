// The panorama shot: what it calls, sends and logs, in its order.

#include "shots/panorama/ShotPanorama.h"

#include <algorithm>
#include <climits>
#include <regex>
#include <thread>

#include "tests/panorama/FakePanoraMax.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

/// With the operations of which it is made.
struct OpenPanorama : ShotPanorama {
    using ShotPanorama::ShotPanorama;
    Lines handled(const sp<IMemory>& frame) {
        const AutoTurn held(mEngineLock);
        return {text("%d", HandlePreview(frame).how)};
    }
    void init(int width, int height, bool noAutoAdd) {
        const AutoTurn held(mEngineLock);
        Init(width, height, noAutoAdd);
    }
};

class ShotPanoramaTest : public ShotTest<OpenPanorama> {
protected:
    ShotPanoramaTest() {
        fakeSystem().now = [](int clock) {
            return clock == SYSTEM_TIME_REALTIME ? fakeMilliseconds * nsecs_t{1000000} : 0;
        };
        made();
    }
    ~ShotPanoramaTest() override {
        gFakePanoraMax = {};
        fakeMilliseconds = 100;
    }

    /// Without the tag, addresses, the encoder's stream and the line that a counter of the process throttles.
    Lines taken() {
        static const std::regex left("^AMCM_Create|^MStream|encode2ArcJpegData.* - [1-5]|HandleFrame .* rc=0");
        static const std::regex varies("ShotPanorama: |plane.*|encode2.*pPlane.*|(instance |px_free\\()0x[0-9a-f]+");
        Lines lines = recorder.take();
        std::erase_if(lines, [](const std::string& line) { return std::regex_search(line, left); });
        for (std::string& line : lines)
            line = std::regex_replace(line, varies, "$1");
        return lines;
    }
    void deliver(uint32_t status, uint8_t fill = 0) {
        gFakePanoraMax.status.status = status;
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill));
    }
    Lines frame(uint32_t status = 1, uint8_t fill = 0) {
        deliver(status, fill);
        return taken();
    }
    Lines command(int32_t code) {
        const ShotGate::Entry inside(shot->gate());
        EXPECT_EQ(shot->sendCommand(code, 0, 0), NO_ERROR);
        return taken();
    }
    /// A capture with a frame in it, whose stitch will report this.
    void capture(const std::vector<uint32_t>& progress = {100}) {
        command(1019);
        frame(2);
        gFakePanoraMax.progress = progress;
    }
    static long count(const Lines& lines, const std::string& line) {
        return std::count(lines.begin(), lines.end(), line);
    }

    static Lines opened(int n) {
        return {text("px_init #%d", n), "W px_init(640x480) ok for buffer (nil) instance \\n",
                text("px_setParams #%d 640 480 0 640 480 0 8 15 15 104857600", n), text("px_start #%d", n)};
    }
    static Lines started(int n) { return opened(n) + Lines{text("px_beginCapture #%d 0", n)}; }
    static Lines analysed(int at, int fill = 0, int n = 1) {
        return {text("px_handleFrame #%d 640x480 of %d at %d", n, fill, at)};
    }
    static Lines added(int at, bool first) {
        Lines lines = analysed(at) + Lines{text("px_addFrame #1 640x480 of 0 at %d", at), "app.notify 0xC00 0 0"};
        return lines + (first ? Lines{"app.notify 0x800 0 0"} : Lines{});
    }
    static Lines stop(int n = 1) { return {"W Stopping panorama\\n", text("px_endCapture #%d", n)}; }
    /// The stitching in these steps, and what happens `within` each.
    static Lines stitched(const std::vector<int>& steps, const Lines& within = {}, int n = 1) {
        Lines lines;
        for (size_t i = 0; i < steps.size(); ++i)
            lines = lines + Lines{text("px_createPanorama #%d", n)} + within +
                    Lines{text("app.notify 0xA00 %d 0", steps[i]),
                          text("W px_createPanorama at %d%%, time %zu ms\\n", steps[i], 40 * (i + 1))};
        return lines;
    }

    const std::string sent = "I ShotPanorama::sendCommand ";
    const Lines start = {sent + "1019, 0, 0", "I PANORAMA_SHOT_START"};
    const Lines ended = {sent + "1020, 0, 0", "I PANORAMA_SHOT_STOP"};
    const Lines cancelled = {sent + "1022, 0, 0", "I PANORAMA_SHOT_CANCEL"};
    const Lines init = {"W Starting panorama\\n", "W init"};
    const Lines passed = {"app.data 0x10 460800"};
    const Lines duration = Lines{"W capture duration 5 ms\\n"} + passed;
    const Lines encoded = {"AMCM_RegisterEx 0x81002202 0x2000000 2 5 AJL2", "MdBitmapSave 2"};
    const Lines closed = {"E ", "E encode2ArcJpegData() - end", "AMCM_Destroy"};
    const Lines delivered =
        Lines{"px_getPanoramaImage #1", "W size is 32 16"} + encoded + Lines{"app.data 0x100 4"} + closed;
    const std::string goesOn = "W the panorama is being stitched; that goes on";
};

TEST_F(ShotPanoramaTest, ASweepFromStartToPicture) {
    EXPECT_EQ(command(1019), start + init + started(1));
    for (const uint32_t status : {1, 2, 3, 0})
        deliver(status);
    EXPECT_EQ(taken(), analysed(100) + passed + added(103, true) + duration + added(111, false) + duration +
                           analysed(119) + passed);

    gFakePanoraMax.progress = {30, 70, 100};
    EXPECT_EQ(command(1019), start + stop() + stitched({30, 70, 100}) + delivered);
    EXPECT_EQ(gFakeArcJpeg.lastBitmap.pPlane[0], gFakePanoraMax.bytes.data());
    EXPECT_EQ(gFakeArcJpeg.lastBitmap.dwPixelArrayFormat, 0x70000002U);
    EXPECT_EQ(frame(), passed);
    EXPECT_EQ(shot->handled(makeMemory(460800)), Lines{"0"});
    recorder.take();
    EXPECT_EQ(command(1019), (start + init + Lines{"W free", "px_free #1"} + started(2)));
}

TEST_F(ShotPanoramaTest, AFullBufferStopsOnceOnTheFramesThread) {
    command(1019);
    for (int i = 0; i < 8; ++i)
        frame(2);
    gFakePanoraMax.progress = {50, 100};
    // Further frames while it stitches go by.
    gFakePanoraMax.during = [&](const std::string& name) {
        if (name == "px_createPanorama")
            std::thread([&] { deliver(1); }).join();
    };
    EXPECT_EQ(frame(), (Lines{"W HandleFrame skipped, frames buffer full 8 of 8"} + stop() +
                        stitched({50, 100}, passed) + delivered + passed));
}

TEST_F(ShotPanoramaTest, OneLineForEachNewNumberOfFrames) {
    // The counter is the process's: frames are added until their number has caught up with it.
    gFakePanoraMax.status.max_frames = 10000;
    command(1019);
    const auto looked = [&](uint32_t status) {
        deliver(status);
        return recorder.take("W ShotPanorama: HandleFrame");
    };
    int frames = 1;
    while (looked(2).empty() && frames < 9999)
        ++frames;
    EXPECT_EQ(looked(1), Lines{text("W ShotPanorama: HandleFrame %d rc=0, status=1 of 10000", frames)});
    EXPECT_EQ(looked(1), Lines{});
}

TEST_F(ShotPanoramaTest, StopAndCancelOutsideAndInside) {
    gFakePanoraMax.results["px_endCapture"] = 5;
    EXPECT_EQ(command(1020),
              (ended + Lines{"W Stopping panorama\\n", "px_endCapture #0", "E px_endCapture rc = 5\\n"}));
    gFakePanoraMax.results.clear();
    capture();
    EXPECT_EQ(command(1022), (cancelled + Lines{"px_abort #1", "W free", "px_free #1", "W init"} + opened(2)));
    EXPECT_EQ(frame(), passed);
    EXPECT_EQ(shot->sendCommand(1021, 2, 3), NO_ERROR);
    EXPECT_EQ(taken(), (Lines{sent + "1021, 2, 3", "hw.sendCommand 1021 2 3"}));
    // Of a panorama that was made, nothing is left by a cancel; a stop that fails leaves nothing that can be used.
    capture();
    command(1020);
    command(1022);
    gFakePanoraMax.progress = {100};
    EXPECT_EQ(count(command(1020), "px_createPanorama #4"), 1);
    command(1019);
    gFakePanoraMax.results["px_endCapture"] = 5;
    command(1020);
    EXPECT_EQ(shot->handled(makeMemory(460800)), Lines{"0"});
    retireShot();
    EXPECT_EQ(recorder.take(), (Lines{"I ShotPanorama: ShotPanorama destroyed: pid=PID", "W ShotPanorama: free",
                                      "px_free #5", "I ShotCommon: ShotCommon destroyed: pid=PID"}));
}

TEST_F(ShotPanoramaTest, EachCallOfTheStartFailingInTurn) {
    const Lines none = {"W free", "px_beginCapture #0 0"}, given = {"W free", "px_free #1", "px_beginCapture #0 0"};
    const std::tuple<std::string, int, Lines> cases[] = {{"px_init failed", 9, none},
                                                         {"px_init failed", -1, none},
                                                         {"px_setParams", 9, given},
                                                         {"px_start", 9, given},
                                                         {"px_beginCapture", 9, {}}};
    for (const auto& [what, result, last] : cases) {
        retireShot();
        gFakePanoraMax = {};
        makeShot();
        gFakePanoraMax.results = {{what.substr(0, what.find(' ')), result}};
        const Lines lines = command(1019);
        const std::string failed = "E " + what + text(" rc = %d\\n", result == -1 ? 0 : result);
        EXPECT_EQ(Lines(std::find(lines.begin(), lines.end(), failed), lines.end()), Lines{failed} + last);
        EXPECT_EQ(frame(), passed) << what << ": it goes by unanalysed";
    }
}

TEST_F(ShotPanoramaTest, EachLaterCallFailingInTurn) {
    command(1019);
    gFakePanoraMax.results = {{"px_handleFrame", 9}};
    EXPECT_EQ(frame(), analysed(100) + Lines{"E HandleFrame rc=9\\n"} + passed);
    gFakePanoraMax.results = {{"px_addFrame", 9}};
    Lines counted = added(103, true);
    counted.insert(counted.begin() + 2, "E px_addFrame rc = 9\\n");
    EXPECT_EQ(frame(2), counted + duration);
    gFakePanoraMax.results = {{"px_createPanorama", 9}};
    gFakePanoraMax.progress = {20, 40};
    EXPECT_EQ(command(1020), (ended + stop() + stitched({20}) +
                              Lines{"px_createPanorama #1", "E px_createPanorama at 40%, time 80 ms rc = 9\\n",
                                    "app.notify 0x200 0 0"}));
    gFakePanoraMax.results.clear();
    gFakePanoraMax.progress = {100};
    EXPECT_EQ(command(1020), ended + stop() + stitched({100}) + Lines{"W size is -1 -1"});  // nothing that can be used
    capture();
    gFakePanoraMax.results = {{"px_getPanoramaImage", 9}, {"px_free", 8}};
    const Lines noImage = {"px_getPanoramaImage #2", "E px_getPanoramaImage rc = 9\\n", "W size is -1 -1"};
    EXPECT_EQ(command(1020), ended + stop(2) + stitched({100}, {}, 2) + noImage);
    EXPECT_EQ(command(1019), (start + init + Lines{"W free", "px_free #2", "E px_free() = 8\\n"} + started(3)));
}

TEST_F(ShotPanoramaTest, NothingThatCannotBeAnImageIsEncodedAndNoFailureIsSilent) {
    const std::pair<int32_t, int32_t> sizes[] = {{INT_MAX, INT_MAX}, {-1, 64}, {64, -1000}, {0, 64}, {64, 0},
                                                 {16384, 4268},      {32, 16}};
    for (const auto& [width, height] : sizes) {
        SCOPED_TRACE(text("%d x %d", width, height));
        capture();
        gFakePanoraMax.image = {0, width, height, {width == 32 ? nullptr : gFakePanoraMax.bytes.data()}};
        const Lines lines = command(1020);
        EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
                  (Lines{text("W size is %d %d", width, height),
                         "E the library's panorama cannot be an image; there is no picture of it"}));
    }
    gFakePanoraMax.image = FakePanoraMax().image;
    const std::string unmade = "E the panorama could not be encoded; there is no picture of it";
    for (const bool opens : {false, true}) {
        capture();
        gFakePanoraMax.image = {0, 1, 1, {gFakePanoraMax.bytes.data(), nullptr, nullptr}};
        gFakeArcJpeg.streamOpens = opens;
        gFakeArcJpeg.jpeg = "";
        const Lines lines = command(1020);
        EXPECT_EQ(count(lines, "app.data 0x100 0"), opens);
        EXPECT_EQ(count(lines, unmade), 1);
        EXPECT_EQ(lines[lines.size() - 3], opens ? closed[1] : encoded[0]);  // after the encoder's own
    }
}

TEST_F(ShotPanoramaTest, InitTakesItsOwnSizeAndRefusesAndIgnores) {
    EXPECT_EQ(shot->handled(makeMemory(460800)), Lines{"0"}) << "there is no instance yet";
    shot->init(640, 0, true);
    shot->init(0, 480, true);
    EXPECT_EQ(taken(), (Lines{"W init", "E unexpected Init(640, 0)\\n", "W free", "W init",
                              "E unexpected Init(0, 480)\\n", "W free"}));
    command(1019);
    shot->init(640, 480, false);
    EXPECT_EQ(taken(), (Lines{"W init", "E ignore Init(640, 480) while capturing\\n"}));
    shot->init(640, 240, true);
    taken();
    gFakePanoraMax.status = {2, 0, 0, 1, 30, 10, {}, 2};
    EXPECT_EQ(shot->handled(makeMemory(460800)), Lines{"1"});  // ready, but not added
    EXPECT_EQ(taken(), Lines{"px_handleFrame #2 640x240 of 0 at 100"});
    gFakePanoraMax.status.status = 3;                   // add it
    for (const char* const how : {"2", "2", "0", "0"})  // the buffer is full, but there is no capture to stop
        EXPECT_EQ(shot->handled(makeMemory(460800)), Lines{how});
    command(1022);  // a full buffer is forgotten
    EXPECT_EQ(shot->handled(makeMemory(460800)), Lines{"2"});
    shot->init(1, 1, true);  // the smallest
    EXPECT_EQ(taken().back(), "px_start #4");
    made();  // a capture without an instance ends with it
    gFakePanoraMax.results["px_init"] = -2;
    command(1019);
    gFakePanoraMax.results.clear();
    shot->init(640, 240, false);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(460800));
    EXPECT_EQ(only(taken(), {"px_h", "app."}), Lines{"app.data 0x10 460800"});
}

TEST_F(ShotPanoramaTest, FramesThatAreNotTheCapturesGoByUnread) {
    const std::string line =
        "E preview frames are not semi-planar 4:2:0 of 640 x 480, as the capture wants them; they "
        "are passed on as they are";
    command(1019);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(460801));  // with something behind it
    EXPECT_EQ(taken(), analysed(100) + Lines{"app.data 0x10 460801"});
    const auto restart = [&](int width, int height) {
        hardware->params.setPreviewSize(width, height);
        EXPECT_EQ(shot->startPreview(), NO_ERROR);
        recorder.take();
        deliver(1);
        return frame();
    };
    const Lines unfit = {line, "app.data 0x10 576000", "app.data 0x10 576000"};
    EXPECT_EQ(restart(800, 480), unfit);
    EXPECT_EQ(restart(640, 600), Lines(2, "app.data 0x10 576000"));
    EXPECT_EQ(restart(640, 480), analysed(103) + passed + analysed(106) + passed);
    shot->init(320, 240, false);
    command(1019);  // another capture, which tells again; and one for the new size
    EXPECT_EQ(restart(800, 600), Lines{line} + Lines(2, "app.data 0x10 720000"));
    shot->init(320, 240, false);
    command(1019);
    EXPECT_EQ(frame(), (Lines{"px_handleFrame #5 800x600 of 0 at 109", "app.data 0x10 720000"}));
    hardware->params.setPreviewSize(640, 480);
    for (const char* const format : {"yuv420p", "yuv422i"}) {
        hardware->params.setPreviewFormat(format);
        made();
        command(1019);
        deliver(1);
        EXPECT_EQ(frame(), Lines{line} + passed + passed);
    }
}

TEST_F(ShotPanoramaTest, TheGuideIsInTheFrameAndIsThatFramesOwn) {
    gFakePanoraMax.status = {8, 0, 0, 1, 5, -3, {}, 1};
    command(1019);
    bool within = false;
    whileNotified = [&](int32_t type, int32_t) {
        if (type != 0xC00 || std::exchange(within, true))
            return;
        gFakePanoraMax.status = {8, 0, 0, 1, 100, 100, {}, 0};  // of the next frame, which comes meanwhile
        std::thread([&] { deliver(1); }).join();
    };
    deliver(2);
    const std::tuple<size_t, size_t, int> places[] = {{6, 300, 76},  {7, 300, 76},  {466, 300, 76}, {467, 300, 76},
                                                      {100, 14, 76}, {100, 15, 76}, {100, 634, 76}, {100, 635, 76},
                                                      {8, 300, 0},   {240, 600, 0}};
    for (const auto& [row, column, luma] : places)
        EXPECT_EQ(bytesOf(lastData)[row * 640 + column], luma) << row << ' ' << column;
    frame(0);
    EXPECT_NE(bytesOf(lastData)[240 * 640 + 600 - 8], 1);
    gFakePanoraMax.results["px_handleFrame"] = 1;  // not marked
    frame(1);
    EXPECT_TRUE(bytesOf(lastData) == std::vector<uint8_t>(460800));
}

TEST_F(ShotPanoramaTest, ACancelOrASwitchFromWithinTheStitchEndsIt) {
    for (const bool cancels : {true, false}) {
        retireShot();
        gFakePanoraMax = {};
        makeShot();
        capture({30, 70, 100});
        whileNotified = [&](int32_t type, int32_t) {
            type != 0xA00 ? void() : cancels ? (void)shot->sendCommand(1022, 0, 0) : retireShot();
        };
        {
            const ShotGate::Entry inside(shot->gate());
            shot->sendCommand(1020, 0, 0);
        }
        whileNotified = nullptr;
        const Lines ends = cancels ? Lines{"px_abort #1", "px_free #1"} : Lines{"px_free #1"};
        EXPECT_EQ(only(recorder.take(), {"px_endC", "px_createP", "px_abort", "px_free"}),
                  (Lines{"px_endCapture #1", "px_createPanorama #1"} + ends));
    }
}

TEST_F(ShotPanoramaTest, AStartOrStopFromAnotherThreadWaitsForOneStepOfTheStitch) {
    for (const int32_t code : {1019, 1020}) {
        capture({10, 20, 30, 40, 50, 60, 70, 80, 90, 100});
        const std::string step = text("px_createPanorama #%d", static_cast<int>(gFakePanoraMax.made));
        runMeeting(
            gFakePanoraMax, "px_createPanorama", [&] { shot->sendCommand(1020, 0, 0); },
            [&] { shot->sendCommand(code, 0, 0); });
        const Lines lines = taken();
        EXPECT_EQ(count(lines, step), 10);
        EXPECT_EQ(count(lines, "app.data 0x100 4"), 1);
        const auto second = std::find(std::find(lines.begin(), lines.end(), step) + 1, lines.end(), step);
        EXPECT_EQ(std::count(lines.begin(), second, goesOn), 1);
    }
}

TEST_F(ShotPanoramaTest, WhatWaitedForACancelIsNotOfTheFreshInstance) {
    capture();
    Lines all;
    runMeeting(
        gFakePanoraMax, "px_abort", [&] { all = command(1022); }, [&] { deliver(2); });
    // It may have come through before the command returned.
    all = all + taken();
    EXPECT_EQ(std::count(all.begin(), all.end(), passed[0]), 1);
    EXPECT_EQ(std::ranges::count_if(all, [](const auto& line) { return line.starts_with("px_handleFrame"); }), 0);
    // A cancel from within 0xC00: the frame is not the first of anything.
    command(1019);
    Lines told;
    whileNotified = [&](int32_t type, int32_t) {
        told.push_back(text("%X", type));
        shot->sendCommand(1022, 0, 0);
    };
    deliver(2);
    EXPECT_EQ(told, Lines{"C00"});
}

TEST_F(ShotPanoramaTest, AStitchWithoutAnInstanceLeavesALaterOneAlone) {
    gFakePanoraMax.progress = {50, 100};
    whileNotified = [&](int32_t, int32_t) { shot->init(640, 480, false); };
    command(1020);
    EXPECT_EQ(gFakePanoraMax.progress, std::vector<uint32_t>{100});
    EXPECT_EQ(count(command(1019), goesOn), 0);
    // The progress of the stitch before is forgotten, also where no instance can be made.
    whileNotified = nullptr;
    made();
    capture();
    command(1020);
    hardware->params.setPreviewSize(0, 0);
    shot->startPreview();
    command(1019);
    EXPECT_EQ(count(command(1019), "px_createPanorama #0"), 1);
}

}  // namespace
