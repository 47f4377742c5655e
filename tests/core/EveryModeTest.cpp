// What holds for every mode alike: what may be missing, who is in its library, what ends its long work.

#include <chrono>
#include <functional>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "shots/Modes.h"
#include "tests/action/FakeActionShot.h"
#include "tests/addme/FakePlusMe.h"
#include "tests/panorama/FakePanoraMax.h"
#include "tests/smile/FakeArcFace.h"
#include "tests/support/FakeCaps.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

constexpr size_t kFrame = 640 * 480 * 3 / 2;

/// What a mode looks at in a preview frame: nothing, whether it is there, or whether it is a whole one too.
enum Look { kNothing, kRegion, kSize };

const struct Mode {
    int32_t code;
    const char* tag;
    int32_t start;     // the command that has it look at frames
    bool refusesNull;  // data without memory are passed on with an error
    Look look;
    const char* starts;             // whose operation it is to start the preview
    status_t unstarted;             // its result without a vendor layer
    std::vector<int32_t> commands;  // in the order of a session
} kModes[] = {
    {1000, "ShotSingle", 0, false, kNothing, "ShotCommon", INVALID_OPERATION, {}},
    {1001, "ShotContinuous", 1023, true, kRegion, "ShotCommon", INVALID_OPERATION, {}},
    {1002, "ShotPanorama", 1019, false, kSize, "ShotCommon", INVALID_OPERATION, {1019, 1019, 1022, 1019, 1020, 1019}},
    {1003, "ShotSmile", 1017, true, kSize, "ShotSmile", INVALID_OPERATION, {1017, 1018, 1017}},
    {1006, "ShotSelf", 0, true, kSize, "ShotSelf", NO_ERROR, {}},
    {1009, "ShotAddMe", 1034, true, kSize, "ShotAddMe", NO_ERROR, {1035, 1037, 1034, 1038, 1033, 1034, 1035}},
    {1010, "ShotAction", 1029, false, kSize, "ShotAction", NO_ERROR, {1029, 1031, 1029, 1031, 1030}},
    {1013, "ShotCartoon", 0, true, kSize, "ShotCommon", INVALID_OPERATION, {}},
};

class EveryModeTest : public ShotTest<ShotCommon> {
protected:
    ~EveryModeTest() override { resetFakes(); }

    static void resetFakes() {
        gFakeActionShot = {};
        gFakePlusMe = {};
        gFakePanoraMax = {};
        fakeMilliseconds = 100;
        gFakeArcFace = {};
        gFakeCaps = {};
    }
    void make(int32_t code) {
        retireShot();
        resetFakes();
        hardware->results.clear();
        shot = shotMakerOf(code)(hardware);
        shot->setCallbacks(onNotify, onData, onDataTimestamp, this);
        shot->startPreview();
    }
    Lines data(int32_t type, const sp<IMemory>& memory) {
        recorder.take();
        hardware->data(type, memory);
        return only(recorder.take(), {"E ", "app."});
    }
};

TEST_F(EveryModeTest, WhatIsMissingIsToldAndPassedOn) {
    fakeSystem().now = [](int) { return nsecs_t{}; };  // a burst takes one frame
    for (const Mode& mode : kModes) {
        SCOPED_TRACE(mode.tag);
        const std::string tag = std::string("E ") + mode.tag + ": ";
        make(mode.code);
        if (mode.start)
            shot->sendCommand(mode.start, 0, 0);
        for (int i = 0; i < 2; ++i)
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame());  // the self shot keeps them back

        const Lines refused = {tag + "Null data returned in data callback", "app.notify 0x1 -2147483648 0"};
        EXPECT_EQ(data(CAMERA_MSG_PREVIEW_FRAME, nullptr),
                  (mode.refusesNull ? refused : Lines{}) + Lines{"app.data 0x10 null"});
        EXPECT_EQ(data(CAMERA_MSG_RAW_IMAGE, makeMemory(3)), Lines{"app.data 0x80 3"});
        if (mode.code == 1009 || mode.code == 1013) {  // they work on pictures
            EXPECT_EQ(data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(0)), refused + Lines{"app.data 0x100 0"});
            EXPECT_EQ(data(CAMERA_MSG_COMPRESSED_IMAGE, makeLyingRegion(12)), refused + Lines{"app.data 0x100 12"});
        }
        const std::tuple<sp<IMemory>, Look, const char*> frames[] = {
            {makeMemory(0), kRegion, "has no memory"},
            {new MemoryBase(nullptr, 0, 0), kRegion, ""},
            {makeLyingRegion(kFrame), kRegion, "reaches beyond its heap"},
            {makeMemory(kFrame - 97, 1, kFrame), kRegion, ""},
            {makeMemory(kFrame - 1), kSize, "of 460799 bytes is smaller than 640 x 480"}};
        for (const auto& [frame, seenBy, fault] : frames) {
            for (const bool first : {true, false}) {  // each kind of fault is told once
                const std::string line = tag + "a preview frame " + fault + "; such frames are passed on as they are";
                const bool told = first && *fault && mode.look >= seenBy;
                EXPECT_EQ(data(CAMERA_MSG_PREVIEW_FRAME, frame),
                          (told ? Lines{line} : Lines{}) + Lines{text("app.data 0x10 %zu", frame->size())});
                EXPECT_TRUE(seenBy == kSize || lastData.get() == frame.get());
            }
        }
        hardware->results = {{"sendCommand", -5}, {"startPreview", -6}};
        EXPECT_EQ(shot->sendCommand(1099, 2, 3), -5);
        EXPECT_EQ(recorder.take("hw."), Lines{"hw.sendCommand 1099 2 3"});
        EXPECT_EQ(shot->startPreview(), -6);
        shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(data(CAMERA_MSG_PREVIEW_FRAME, makeFrame()), Lines{tag + "mDataCb is NULL, returning."});
        shot->setCameraHardware(nullptr);
        EXPECT_EQ(shot->sendCommand(1099, 0, 0), INVALID_OPERATION);
        EXPECT_EQ(shot->sendCommand(mode.start, 0, 0), INVALID_OPERATION);
        EXPECT_EQ(recorder.take("E "), Lines(2, tag + "mHardware is NULL, returning."));
        EXPECT_EQ(shot->startPreview(), mode.unstarted);
        EXPECT_EQ(recorder.take(), Lines{text("E %s: mHardware is NULL, returning.", mode.starts)});
    }
}

TEST_F(EveryModeTest, MemoryIsGivenBackWithTheShot) {
    std::vector<std::function<void()>> threads;
    fakeSystem().startThread = [&](const auto& thread) {
        threads.push_back(thread);
        return true;
    };
    const auto runThreads = [&] {
        for (const auto& thread : std::exchange(threads, {}))
            thread();
    };
    fakeSystem().sleep = [](int64_t) {};
    for (const Mode& mode : kModes) {
        std::vector<int32_t> commands = mode.commands;
        if (mode.code == 1001)
            commands = {1026, 1023, 1024};
        size_t before = 0, after = 0;
        for (int session = 0; session < 4; ++session) {
            hardware->params.setPreviewSize(64, 48);
            make(mode.code);
            for (int i = 0; i < 3; ++i)
                hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame());
            shot->takePicture();
            runThreads();
            hardware->params.setPreviewSize(96, 64);
            shot->startPreview();
            for (const int32_t command : commands) {
                shot->sendCommand(command, 1, 0);
                runThreads();
                hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame());
                hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10));
            }
            retireShot();
            lastData.clear();
            recorder.take();
            before = std::exchange(after, memoryInUse());
        }
        EXPECT_LT(after, before + 500) << mode.tag;
    }
}

TEST_F(EveryModeTest, ALibraryIsUsedByOneThreadAtATime) {
    hardware->params.setPreviewSize(64, 48);
    for (const Mode& mode : kModes) {
        if (mode.commands.empty())
            continue;
        SCOPED_TRACE(mode.tag);
        make(mode.code);
        gFakePanoraMax.status.status = 2;  // frames are added
        recorder.take();
        std::vector<std::jthread> threads;
        for (const int32_t type : {CAMERA_MSG_PREVIEW_FRAME, CAMERA_MSG_PREVIEW_FRAME, CAMERA_MSG_COMPRESSED_IMAGE}) {
            threads.emplace_back([this, type](const std::stop_token& over) {
                for (uint8_t fill = 0; !over.stop_requested(); ++fill) {
                    hardware->data(type, makeFrame(fill));
                    std::this_thread::sleep_for(std::chrono::microseconds(20));  // for a command to get its turn
                }
            });
        }
        for (size_t i = 0; i < 300; ++i) {
            const ShotGate::Entry inside(shot->gate());
            shot->sendCommand(mode.commands[i % mode.commands.size()], 1, 0);
            if (i % 50 == 0)
                shot->startPreview();
            std::this_thread::sleep_for(std::chrono::microseconds(i % 100));
        }
        threads.clear();
        const Lines lines = recorder.take();
        EXPECT_GT(lines.size(), 300U);
        EXPECT_EQ(only(lines, {"two threads"}), Lines{});
        // A frame that was copied over another one while the library looked at it.
        EXPECT_EQ(without(lines, {" odd"}).size(), lines.size());
    }
}

TEST_F(EveryModeTest, ASwitchOrACommandEndsLongWorkAtItsNextStep) {
    const auto frame = [&] { hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame()); };
    const auto stop = [&] {
        const ShotGate::Entry inside(shot->gate());
        shot->sendCommand(1020, 0, 0);
    };
    const auto picture = [&] { hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(9)); };
    const struct {
        int32_t mode;
        std::vector<int32_t> before;  // commands, and 0 for a picture
        std::function<void()> work;
        const char* step;
        std::vector<int32_t> ends;  // commands, and 0 for a switch
    } cases[] = {{1002, {1019}, stop, "px_createPanorama", {0, 1022}},
                 {1009, {0}, picture, "CreateResult", {0}},
                 {1010, {1029, 1031}, frame, "CreateResult", {0, 1029, 1030}},
                 {1013, {}, picture, "doNextIteration", {0}}};
    for (const auto& [mode, before, work, step, ends] : cases) {
        for (const int32_t end : ends) {
            SCOPED_TRACE(text("%d in mode %d", end, mode));
            make(mode);
            for (const int32_t command : before)
                command ? (void)shot->sendCommand(command, 0, 0) : picture();
            // Nothing comes to an end by itself.
            gFakePanoraMax.progress = {30};
            gFakePlusMe.progress = gFakeActionShot.progress = {50};
            gFakeCaps.endless = true;
            gFakeCaps.total = 20;
            int steps = 0;
            std::jthread ending;
            gFakePanoraMax.during = gFakePlusMe.during = gFakeActionShot.during =
                gFakeCaps.during = [&, name = std::string(step), end = end](const std::string& call) {
                    if (call != name || ++steps != 3)
                        return;
                    if (!end)
                        shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
                    ending = startUntilItWaits([&, end] { end ? (void)shot->sendCommand(end, 0, 0) : retireShot(); });
                };
            work();
            ending.join();
            EXPECT_EQ(steps, 3);
        }
    }
}

}  // namespace
