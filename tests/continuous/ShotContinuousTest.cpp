// The continuous shot: states, rhythm, encoder and click, in simulated time.

#include "shots/continuous/ShotContinuous.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <random>
#include <thread>

#include "adaptor/KovCameraHardwareInterface.h"
#include "host/runtime/Heaps.h"
#include "host/runtime/Log.h"
#include "host/runtime/Properties.h"
#include "shots/Commands.h"
#include "shots/continuous/ContinuousClock.h"
#include "tests/continuous/FakeMediaPlayer.h"
#include "tests/support/FakeArcJpeg.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::fakeMedia;
using kov::test::Lines;
using kov::test::operator+;
using kov::test::record;
using kov::test::text;

namespace {

/// Time that passes only when somebody sleeps or waits. `onSleep` runs in each sleep of a thread that delivers a frame,
/// `onPause` in each pause of the encoder, on its thread.
class SimulatedClock : public ContinuousClock {
public:
    SimulatedClock() { replace(this); }
    ~SimulatedClock() override { replace(nullptr); }

    nsecs_t now() override { return mNow; }
    void sleepMicroseconds(int64_t duration) override {
        record(text("sleep %lld", static_cast<long long>(duration)));
        mNow += duration * 1000;
        if (onSleep)
            std::exchange(onSleep, {})();
    }
    void wait(Condition&, Mutex& held, int64_t microseconds) override REQUIRES(held) {
        record(text("pause %lld", static_cast<long long>(microseconds)));
        held.unlock();
        if (onPause)
            onPause(mPauses);
        ++mPauses;
        mNow += microseconds * 1000;
        held.lock();
    }
    void advance(int64_t milliseconds) { mNow += milliseconds * 1000000; }

    std::function<void()> onSleep;     // in the next sleep only
    std::function<void(int)> onPause;  // with the number of the pause, from 0

private:
    std::atomic<nsecs_t> mNow{1000000000000};
    int mPauses = 0;  // the encoder's
};

class ShotContinuousTest : public kov::test::ShotTest<ShotContinuous> {
protected:
    ShotContinuousTest() {
        kov::test::resetFakeArcJpeg();
        fakeMedia().dataSourceResult = 0;
        hardware->params.setPreviewSize(64, 48);
        makeShot();
        recorder.take();
    }
    ~ShotContinuousTest() override {
        retireShot();
        kov::host::setProperty("ro.csc.sales_code", "none");
    }

    void command(int32_t code, int32_t argument = 0) { EXPECT_EQ(shot->sendCommand(code, argument, 0), NO_ERROR); }
    void frame(uint8_t fill = 0) { hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill)); }
    /// A frame `milliseconds` after the last one; true when it was taken.
    bool frameAfter(int64_t milliseconds, uint8_t fill = 0) {
        clock.advance(milliseconds);
        const size_t before = mAll.size();
        collect();
        frame(fill);
        collect();
        return std::any_of(mAll.begin() + static_cast<ptrdiff_t>(before), mAll.end(),
                           [](const std::string& line) { return line.starts_with("app.notify 0xE00"); });
    }
    void collect() {
        for (std::string& line : recorder.take())
            mAll.push_back(std::move(line));
    }
    /// Waits until a line with `text` was recorded, and returns all lines since the last call.
    Lines until(const std::string& end) {
        for (int i = 0; i < 5000; ++i) {
            collect();
            if (std::any_of(mAll.begin(), mAll.end(),
                            [&](const auto& line) { return line.find(end) != std::string::npos; }))
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return std::exchange(mAll, {});
    }
    static Lines only(const Lines& lines, const std::string& prefix) {
        Lines some;
        for (const std::string& line : lines) {
            if (line.starts_with(prefix))
                some.push_back(line);
        }
        return some;
    }
    void takeFrames(int count) {
        command(1023);
        for (int i = 0; i < count; ++i) {
            frame(static_cast<uint8_t>(10 + i));
            clock.advance(400);
        }
    }

    /// Has the application act within each message that it receives, before the message is recorded.
    void actWithin(std::function<void(int32_t type)> act) {
        sActWithin = std::move(act);
        shot->setCallbacks(
            [](int32_t type, int32_t ext1, int32_t ext2, void* user) {
                sActWithin(type);
                onNotify(type, ext1, ext2, user);
            },
            [](int32_t type, const sp<IMemory>& data, void* user) {
                sActWithin(type);
                onData(type, data, user);
            },
            onDataTimestamp, this);
    }

    static inline std::function<void(int32_t)> sActWithin;
    static constexpr const char* kDone = "app.notify 0x2800 0 0";
    SimulatedClock clock;
    Lines mAll;
};

TEST_F(ShotContinuousTest, ABurstOfThreeFromStartToLastPicture) {
    takeFrames(3);
    EXPECT_EQ(recorder.take(), (Lines({"I ShotContinuous: ShotContinuous::sendCommand 1023, 0, 0",
                                       "I ShotContinuous: CONTINUOUS_SHOT_START_CAPTURE",
                                       "player.seekTo 0",
                                       "player.start",
                                       "I ShotContinuous: Capture() - start - Frame count : 0",
                                       "I ShotContinuous: Capture() - size : 4608",
                                       "app.notify 0xE00 1 9",
                                       "app.data 0x10 4608",
                                       "player.seekTo 0",
                                       "player.start",
                                       "I ShotContinuous: Capture() - start - Frame count : 1",
                                       "I ShotContinuous: Capture() - size : 4608",
                                       "app.notify 0xE00 2 9",
                                       "app.data 0x10 4608",
                                       "player.seekTo 0",
                                       "player.start",
                                       "I ShotContinuous: Capture() - start - Frame count : 2",
                                       "I ShotContinuous: Capture() - size : 4608",
                                       "app.notify 0xE00 3 9",
                                       "app.data 0x10 4608"})));
    command(1024);
    Lines lines = until(kDone);
    std::erase_if(lines, [](const std::string& line) {
        return line.starts_with("AMCM") || line.starts_with("MStream") ||
               line.find("encode2Arc") != std::string::npos || line.find("pthread_self") != std::string::npos;
    });
    for (std::string& line : lines) {
        if (const size_t at = line.find(") : "); line.find("Codec time") != std::string::npos)
            line.resize(at + 1);
    }
    const auto picture = [](int number) {
        return Lines{"MdBitmapSaveEx 2 quality 95 0x70000002", "app.data 0x100 4",
                     text("I ShotContinuous: encodeCSPreview2Jpeg() - Codec time(%d)", number),
                     text("I ShotContinuous: encodeCSPreview2Jpeg - start sleep : EC FC[%d 3]\\n", number + 1),
                     "pause 350000"};
    };
    EXPECT_EQ(lines, (Lines({"I ShotContinuous: ShotContinuous::sendCommand 1024, 0, 0",
                             "I ShotContinuous: CONTINUOUS_SHOT_STOP_CAPTURE", "app.notify 0x1000 3 0",
                             "E ShotContinuous: encodeCSPreview2Jpeg() - start", "pause 500000"}) +
                      picture(0) + picture(1) + picture(2) +
                      Lines({"E ShotContinuous: encodeCSPreview2Jpeg - Completed jpegEncodePreview\\n", kDone})));
}

TEST_F(ShotContinuousTest, TheRhythmForFramesOfEveryInterval) {
    const struct {
        int interval;            // ms between frames
        std::vector<int> taken;  // which of the first frames are taken
        int sleeps;
    } cases[] = {{33, {0, 10, 21}, 2},  // the 10th comes after 330 ms and is held; the 20th 300 ms after that
                 {100, {0, 4, 8}, 0},    {330, {0, 1, 3, 4}, 2}, {359, {0, 1, 2, 3}, 3},
                 {360, {0, 1, 2, 3}, 0}, {500, {0, 1, 2, 3}, 0}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.interval);
        command(1023);
        collect();
        mAll.clear();
        std::vector<int> taken;
        const nsecs_t begin = clock.now();
        for (int i = 0; taken.size() < each.taken.size() && i < 30; ++i) {
            const nsecs_t arrival = begin + i * each.interval * nsecs_t{1000000};
            if (frameAfter(std::max<nsecs_t>(0, arrival - clock.now()) / 1000000))
                taken.push_back(i);
        }
        EXPECT_EQ(taken, each.taken);
        EXPECT_EQ(only(mAll, "sleep ").size(), static_cast<size_t>(each.sleeps));
        command(1025);
    }
    command(1023);
    frame();
    recorder.take();
    clock.advance(330);
    frame();
    EXPECT_EQ(recorder.take("sleep "), Lines{"sleep 30000"});
    EXPECT_FALSE(frameAfter(319));
    EXPECT_TRUE(frameAfter(1));  // 320
}

TEST_F(ShotContinuousTest, BetweenTwoFramesThePreviewIsFrozen) {
    command(1023);
    frame(11);
    clock.advance(100);
    frame(22);
    EXPECT_EQ(kov::test::bytesOf(lastData), std::vector<uint8_t>(4608, 11));
    // A frame of another size is overwritten as far as both reach.
    for (const size_t size : {size_t{1000}, size_t{6000}}) {
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, kov::test::makeMemory(size, 33));
        auto expected = std::vector<uint8_t>(size, 33);
        std::fill_n(expected.begin(), std::min<size_t>(size, 4608), uint8_t{11});
        EXPECT_EQ(kov::test::bytesOf(lastData), expected);
    }
    clock.advance(400);
    frame(44);
    clock.advance(10);
    frame(55);
    EXPECT_EQ(kov::test::bytesOf(lastData), std::vector<uint8_t>(4608, 44));
}

TEST_F(ShotContinuousTest, NineFramesAreTheMost) {
    takeFrames(11);
    const Lines taken = recorder.take("app.notify 0xE00");
    ASSERT_EQ(taken.size(), 9U);
    EXPECT_EQ(taken.back(), "app.notify 0xE00 9 9");
    frame(77);  // the preview is no longer frozen
    EXPECT_EQ(kov::test::bytesOf(lastData)[0], 77);
    EXPECT_TRUE(shot->Capture(makeFrame()));
    EXPECT_EQ(recorder.take("I ShotContinuous: HandleCSFrame"),
              Lines{"I ShotContinuous: HandleCSFrame: mCSFrameCount >= 9"});
    EXPECT_TRUE(shot->Capture(nullptr));
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotContinuous: Capture() - preview frame is NULL"});
    command(1024);
    EXPECT_EQ(only(until(kDone), "app.data 0x100").size(), 9U);
}

TEST_F(ShotContinuousTest, AStopBeforeTheFirstFrameWaitsForIt) {
    command(1023);
    command(1024);
    EXPECT_EQ(recorder.take("app."), Lines{});
    frame();
    const Lines lines = until(kDone);
    EXPECT_EQ(only(lines, "app.notify"), ((Lines{"app.notify 0xE00 1 9", "app.notify 0x1000 1 0", kDone})));
    EXPECT_EQ(only(lines, "app.data 0x100").size(), 1U);
}

TEST_F(ShotContinuousTest, EveryCommandInEveryState) {
    enum State { Idle, Waiting, Capturing, Encoding };  // Waiting: for the first frame
    const struct {
        State state;
        int32_t command;
        Lines lines;  // without those of the command's name and of the encoder
        int after;
    } cases[] = {
        {Idle, 1023, {}, 1},
        {Idle, 1024, {"E ShotContinuous: StopAndEncoding() is called in wrong state[0]"}, 0},
        {Idle, 1025, {"I ShotContinuous: Terminate() - mStatus [0]"}, 0},
        {Waiting, 1023, {"E ShotContinuous: Start() is called in wrong state[1]"}, 1},
        {Waiting, 1024, {}, 1},
        {Waiting, 1025, {"I ShotContinuous: Terminate() - mStatus [1]"}, 0},
        {Capturing, 1023, {"E ShotContinuous: Start() is called in wrong state[1]"}, 1},
        {Capturing, 1024, {"app.notify 0x1000 2 0"}, 2},
        {Capturing, 1025, {"I ShotContinuous: Terminate() - mStatus [1]"}, 0},
        {Encoding, 1023, {"E ShotContinuous: Start() is called in wrong state[2]"}, 2},
        {Encoding, 1024, {"E ShotContinuous: StopAndEncoding() is called in wrong state[2]"}, 2},
        {Encoding,
         1025,
         {"I ShotContinuous: Terminate() - mStatus [2]", "E ShotContinuous: Terminate() - CSSHOT_STATE_ENCODING"},
         0},
    };
    std::atomic<bool> held{false};  // the encoder, in its first pause
    clock.onPause = [&](int) {
        while (held)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(text("%d in state %d", each.command, each.state));
        retireShot();
        makeShot();
        held = true;
        if (each.state != Idle)
            command(1023);
        for (int i = 0; each.state >= Capturing && i < 2; ++i)
            frameAfter(400);
        if (each.state == Encoding) {
            command(1024);
            until("pause 500000");
        }
        recorder.take();
        command(each.command);
        Lines lines = recorder.take();
        lines.erase(lines.begin(), lines.begin() + 2);
        std::erase_if(lines, [](const std::string& line) {
            return line.find("encodeCSPreview") != std::string::npos || line.starts_with("pause ");
        });
        EXPECT_EQ(lines, each.lines);
        frame(66);
        EXPECT_EQ(kov::test::bytesOf(lastData)[0], each.state == Capturing && each.after == 1 ? 0 : 66);  // frozen
        recorder.take();
        command(1025);
        EXPECT_EQ(recorder.take("I ShotContinuous: Terminate")[0],
                  text("I ShotContinuous: Terminate() - mStatus [%d]",
                       each.state == Waiting && each.command == 1024 ? 2 : each.after));  // the frame let it stop
        held = false;
        // A burst after it is clean whatever was before.
        mAll.clear();
        takeFrames(1);
        command(1024);
        EXPECT_EQ(only(until(kDone), "app.notify"), ((Lines{"app.notify 0xE00 1 9", "app.notify 0x1000 1 0", kDone})));
    }
    EXPECT_EQ(shot->sendCommand(1027, 4, 5), NO_ERROR);
    EXPECT_EQ(recorder.take("hw."), Lines{"hw.sendCommand 1027 4 5"});
}

TEST_F(ShotContinuousTest, WhatComesWhileAFrameIsHeldBackDecidesAboutIt) {
    const auto afterHold = [&](std::function<void()> during) {
        command(1023);
        frame(1);
        clock.onSleep = std::move(during);
        recorder.take();
        EXPECT_EQ(frameAfter(330, 2), false);
        return only(std::exchange(mAll, {}), "app.notify");
    };
    EXPECT_EQ(afterHold([&] { command(1024); }), Lines{"app.notify 0x1000 1 0"});
    until(kDone);
    // A burst that begins meanwhile does not get the frame, and waits for one of its own.
    afterHold([&] {
        command(1025);
        command(1023);
    });
    command(1024);
    frame(3);
    EXPECT_EQ(only(until(kDone), "app.notify"), ((Lines{"app.notify 0xE00 1 9", "app.notify 0x1000 1 0", kDone})));
    // A frame of another thread takes the turn; this one shows it.
    command(1023);
    frame(1);
    clock.onSleep = [&] { frameAfter(30, 4); };
    frameAfter(330, 5);
    EXPECT_EQ(only(mAll, "app.notify"), ((Lines{"app.notify 0xE00 1 9", "app.notify 0xE00 2 9"})));
    EXPECT_EQ(kov::test::bytesOf(lastData), std::vector<uint8_t>(4608, 4));
}

TEST_F(ShotContinuousTest, ATerminateAtEachPointOfTheEncodersLoop) {
    const size_t heapsBefore = kov::host::liveHeaps();
    // In pause 0 nothing is encoded yet; in pause N, N frames are.
    for (int at = 0; at <= 2; ++at) {
        SCOPED_TRACE(at);
        retireShot();
        clock.~SimulatedClock();
        new (&clock) SimulatedClock;
        makeShot();
        clock.onPause = [&](int pause) {
            if (pause == at)
                command(1025);
        };
        takeFrames(3);
        command(1024);
        const Lines lines = until("-exit: ");
        EXPECT_EQ(only(lines, "app.data 0x100").size(), static_cast<size_t>(at));
        EXPECT_EQ(only(lines, "E ShotContinuous: encodeCSPreview2Jpeg() -exit").back(),
                  text("E ShotContinuous: encodeCSPreview2Jpeg() -exit: %d\\n", at));
        EXPECT_FALSE(ShotContinuous::encoderKillFlag);
        EXPECT_EQ(only(lines, kDone), Lines{});
        // The next burst starts clean.
        clock.onPause = {};
        takeFrames(1);
        command(1024);
        EXPECT_EQ(only(until(kDone), "app."), ((Lines{"app.notify 0xE00 1 9", "app.data 0x10 4608",
                                                      "app.notify 0x1000 1 0", "app.data 0x100 4", kDone})));
    }
    // In the last gap it comes too late: the burst completes, and the flag stays for the next burst to clear.
    retireShot();
    clock.~SimulatedClock();
    new (&clock) SimulatedClock;
    makeShot();
    clock.onPause = [&](int pause) {
        if (pause == 1)
            command(1025);
    };
    takeFrames(1);
    command(1024);
    EXPECT_EQ(only(until(kDone), "app.data 0x100").size(), 1U);
    EXPECT_TRUE(ShotContinuous::encoderKillFlag);
    clock.onPause = {};
    takeFrames(2);
    EXPECT_FALSE(ShotContinuous::encoderKillFlag);
    command(1024);
    EXPECT_EQ(only(until(kDone), "app.data 0x100").size(), 2U);
    retireShot();
    lastData.clear();
    EXPECT_EQ(kov::host::liveHeaps(), heapsBefore);
}

TEST_F(ShotContinuousTest, ATerminateFromWithinEachMessageOfABurst) {
    const struct {
        int32_t type;  // of the message
        int pictures;  // delivered all the same
        const char* exit;
    } cases[] = {{0xE00, 0, ""}, {0x1000, 0, ""}, {0x100, 1, "encodeCSPreview2Jpeg() -exit: 1\\n"}, {0x2800, 2, ""}};
    for (const auto& each : cases) {
        for (const int terminates : {1, 2}) {
            SCOPED_TRACE(text("%d times within 0x%X", terminates, each.type));
            actWithin([&](int32_t type) {
                for (int i = 0; type == each.type && i < terminates; ++i)
                    command(1025);
            });
            takeFrames(2);
            command(1024);
            const Lines lines = until(*each.exit ? each.exit : each.type == 0x2800 ? kDone : "1024, 0, 0");
            EXPECT_EQ(only(lines, "app.data 0x100").size(), static_cast<size_t>(each.pictures));
            EXPECT_EQ(only(lines, kDone).size(), each.type == 0x2800 ? 1U : 0U);
            actWithin([](int32_t) {});
            takeFrames(1);
            command(1024);
            EXPECT_EQ(only(until(kDone), "app.notify"),
                      ((Lines{"app.notify 0xE00 1 9", "app.notify 0x1000 1 0", kDone})));
        }
    }
}

TEST_F(ShotContinuousTest, AShotThatGoesAwayTakesItsEncoderAlong) {
    // From within one of the encoder's own deliveries, as an application that switches modes would.
    static ShotContinuousTest* self;
    self = this;
    takeFrames(3);
    shot->setCallbacks(
        onNotify,
        [](int32_t type, const sp<IMemory>&, void*) {
            record(text("delivered 0x%X", type));
            self->retireShot();
        },
        onDataTimestamp, this);
    recorder.take();
    command(1024);
    Lines lines = until("-exit: 1");
    EXPECT_EQ(only(lines, "delivered"), Lines{"delivered 0x100"});
    EXPECT_EQ(only(lines, "E ShotContinuous: Killing"), Lines{"E ShotContinuous: Killing encoder thread"});
    EXPECT_FALSE(ShotContinuous::encoderKillFlag);

    // From another thread during a pause.
    makeShot();
    clock.onPause = [&](int) { retireShot(); };
    takeFrames(1);
    command(1024);
    lines = until("-exit: 0");
    EXPECT_EQ(only(lines, "app.data 0x100"), Lines{});
}

TEST_F(ShotContinuousTest, DataWithoutMemoryAndCallbacksThatAreMissing) {
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, nullptr);
    EXPECT_EQ(recorder.take(), ((Lines{"E ShotContinuous: Null data returned in data callback",
                                       "app.notify 0x1 -2147483648 0", "app.data 0x10 null"})));
    takeFrames(1);
    shot->setCallbacks(nullptr, onData, nullptr, nullptr);  // no cookie: nothing is delivered
    lastData.clear();
    recorder.take();
    command(1024);
    const Lines lines = until("Completed");
    EXPECT_EQ(only(lines, "E ShotContinuous: encode2ArcJpegData() - mData").size(), 1U);
    EXPECT_EQ(only(lines, "app."), Lines{});
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    recorder.take();
    hardware->data(0x10, nullptr);
    EXPECT_EQ(recorder.take(), (Lines{"E ShotContinuous: mDataCb is NULL, returning."}));
}

TEST_F(ShotContinuousTest, TheClickFollowsTheSalesCode) {
    const std::string source = "player.setDataSource /system/media/audio/ui/camera_click_short.ogg";
    const struct {
        const char* code;
        bool special;
    } cases[] = {{"none", false}, {"XSA", true},  {"OPS", true},  {"VNZ", true},
                 {"VAU", true},   {"ops", false}, {"XSA2", false}};
    for (const auto& each : cases) {
        SCOPED_TRACE(each.code);
        kov::host::setProperty("ro.csc.sales_code", each.code);
        retireShot();
        recorder.take();
        makeShot();
        const std::string stream = each.special ? "player.setAudioStreamType 7" : "player.setAudioStreamType 1";
        Lines lines = recorder.take();
        lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), "E ShotContinuous: call newMediaPlayer"));
        const Lines made = {"E ShotContinuous: call newMediaPlayer", source, stream, "player.prepare"};
        EXPECT_EQ(
            lines,
            (made +
             (each.special ? Lines{"E ShotContinuous: ShotContinuous OPS OPS OPS OPS OPS OPS OPS OPS OPS OPS",
                                   "I ShotContinuous: ShotContinuous - mVolume : 15.000000", "player.setVolume 15 15"}
                           : Lines{"getSituationVolume 2 -1", "I ShotContinuous: ShotContinuous - mVolume : 0.500000",
                                   "player.setVolume 0.5 0.5"}) +
             Lines{"hw.setCallbacks"}));
        const std::string volume = each.special ? "getSituationVolume 2 7" : "getSituationVolume 2 -1";
        command(1026, 1);  // a player is there: only the volume is taken anew
        EXPECT_EQ(recorder.take(),
                  ((Lines{"I ShotContinuous: ShotContinuous::sendCommand 1026, 1, 0",
                          "I ShotContinuous: CONTINUOUS_SHOT_SOUND 1", volume, "player.setVolume 0.5 0.5"})));
        command(1026, 0);
        EXPECT_EQ(recorder.take("player."), Lines{"player.disconnect"});
        EXPECT_EQ(fakeMedia().playersAlive, 0);
        command(1026, -1);
        takeFrames(1);
        EXPECT_EQ(recorder.take("player."), Lines{});
        command(1026, 1);
        EXPECT_EQ(recorder.take("player."), ((Lines{source, stream, "player.prepare", "player.setVolume 0.5 0.5"})));
        retireShot();
        EXPECT_EQ(fakeMedia().playersAlive, 0);
        makeShot();
    }
    fakeMedia().dataSourceResult = -2;
    retireShot();
    recorder.take();
    makeShot();
    EXPECT_EQ(
        recorder.take("E "),
        ((Lines{"E ShotContinuous: call newMediaPlayer", "E ShotContinuous: Failed to load CameraService sounds."})));
    takeFrames(1);
    EXPECT_EQ(recorder.take("player."), Lines{});
    fakeMedia().dataSourceResult = 0;
    command(1026, 1);  // tries again
    EXPECT_EQ(fakeMedia().playersAlive, 1);
}

TEST_F(ShotContinuousTest, AFullBurstHoldsNineCopiesAndLetsEachGoWithItsPicture) {
    hardware->params.setPreviewSize(1280, 720);
    retireShot();
    makeShot();
    lastData.clear();
    const size_t before = kov::host::liveHeaps();
    std::vector<size_t> held;
    takeFrames(9);
    lastData.clear();
    EXPECT_EQ(kov::host::liveHeaps() - before, 9U);
    clock.onPause = [&](int) {
        lastData.clear();
        held.push_back(kov::host::liveHeaps() - before);
    };
    command(1024);
    until(kDone);
    EXPECT_EQ(held, ((std::vector<size_t>{9, 8, 7, 6, 5, 4, 3, 2, 1, 0})));
}

TEST_F(ShotContinuousTest, QualityFollowsTheVendorLayer) {
    int quality = 0;
    hardware->params.set("jpeg-quality", 70);
    EXPECT_TRUE(shot->getJpegQuality(&quality));
    EXPECT_EQ(quality, 90);
    retireShot();
    hardware.clear();
    makeShot();
    EXPECT_TRUE(shot->getJpegQuality(&quality));
    EXPECT_EQ(quality, 85);
    recorder.take();
    EXPECT_EQ(shot->sendCommand(1023, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(recorder.take(), (Lines{"E ShotContinuous: mHardware is NULL, returning."}));
}

TEST(ContinuousClockTest, TheRealClockCountsInTheUnitsItSays) {
    ContinuousClock& clock = ContinuousClock::get();
    Mutex lock;
    Condition never;
    for (const bool wait : {false, true}) {
        const nsecs_t begin = clock.now();
        if (wait) {
            const AutoMutex held(lock);
            clock.wait(never, lock, 20000);
        } else {
            clock.sleepMicroseconds(20000);
        }
        EXPECT_GE(clock.now() - begin, 20000000);
        EXPECT_LT(clock.now() - begin, 2000000000);
    }
}

/// A thousand times as fast as the real clock.
class FastClock : public ContinuousClock {
public:
    nsecs_t now() override { return systemTime() * 1000; }
    void sleepMicroseconds(int64_t) override { std::this_thread::yield(); }
    void wait(Condition& condition, Mutex& held, int64_t microseconds) override REQUIRES(held) {
        condition.waitRelative(held, microseconds);
    }
};

/// Delivers frames through whatever was registered last, on a thread that is not the registering one.
class DeliveringVendor : public kov::test::FakeCameraHardware {
public:
    DeliveringVendor() { params.setPreviewSize(64, 48); }
    void setCallbacks(notify_callback, data_callback callback, data_callback_timestamp, void* newUser) override {
        const std::lock_guard held(mLock);
        mCallback = callback;
        mUser = newUser;
    }
    void deliver(const sp<IMemory>& frame) {
        data_callback callback = nullptr;
        void* to = nullptr;
        {
            const std::lock_guard held(mLock);
            callback = mCallback;
            to = mUser;
        }
        if (callback)
            callback(CAMERA_MSG_PREVIEW_FRAME, frame, to);
    }

private:
    std::mutex mLock;
    data_callback mCallback = nullptr;
    void* mUser = nullptr;
};

/// The service: takes a lock of its own in its callbacks and around every other command.
struct StressingService {
    std::recursive_mutex lock;
    std::atomic<int> pictures{0}, bursts{0}, messages{0}, encoders{0};
    std::atomic<bool> stop{false};
    sp<CameraHardwareInterface> adaptor;  // set before the threads start, dropped after they end

    void act(uint32_t random) {
        const int32_t codes[] = {1023, 1023, 1024, 1024, 1023, 1024, 1026, 1025};
        const bool change = random % 32 == 0;
        adaptor->sendCommand(change ? 1000 : codes[random % 8], static_cast<int32_t>(random / 8 % 2), 0);
        if (change)
            adaptor->sendCommand(1001, 0, 0);
    }
    void received(int32_t type) {
        const std::lock_guard held(lock);
        pictures += type == CAMERA_MSG_COMPRESSED_IMAGE;
        bursts += type == CAMERA_MSG_CONTINUOUS_DELIVERED;
        const int count = ++messages;
        if (!stop && (type == CAMERA_MSG_COMPRESSED_IMAGE || count % 4001 == 0))
            act(static_cast<uint32_t>(count) * 2654435761U >> 8);
    }
    void commands(uint32_t seed) {
        std::minstd_rand random(seed);
        while (!stop) {
            std::unique_lock held(lock, std::defer_lock);
            if (random() % 2)
                held.lock();
            act(static_cast<uint32_t>(random()));
            if (held)
                held.unlock();
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 800));
        }
    }
};

TEST(ContinuousStressTest, BurstsTerminatesSwitchesAndSoundAtRandom) {
    kov::host::setLogLevel(ANDROID_LOG_SILENT);
    static FastClock& clock = *new FastClock;  // an encoder may be on its way out longer than this test
    ContinuousClock::replace(&clock);
    static StressingService& service = *new StressingService;
    service.stop = false;
    const int sink = kov::host::addLogSink([](const kov::host::LogLine& line) {
        const auto says = [&](const char* text) { return line.message.find(text) != std::string_view::npos; };
        if (says("encodeCSPreview2Jpeg() - start"))
            ++service.encoders;
        else if (says("encodeCSPreview2Jpeg() -exit") || says("encodeCSPreview2Jpeg - Completed"))
            --service.encoders;
    });
    const size_t heapsBefore = kov::host::liveHeaps();
    {
        const sp<DeliveringVendor> vendor = new DeliveringVendor;
        kov::test::FakeCameraHardware::setNext(vendor.get());
        service.adaptor = openKovCameraHardware();
        service.adaptor->setCallbacks([](int32_t type, int32_t, int32_t, void*) { service.received(type); },
                                      [](int32_t type, const sp<IMemory>&, void*) { service.received(type); },
                                      [](int64_t, int32_t, const sp<IMemory>&, void*) {}, nullptr);
        service.adaptor->sendCommand(1001, 0, 0);
        std::thread delivering([&] {
            const auto frame = kov::test::makeMemory(64 * 48 * 3 / 2);
            while (!service.stop)
                vendor->deliver(frame);
        });
        std::thread first([] { service.commands(1); });
        std::thread second([] { service.commands(2); });
        for (int i = 0; i < 30000 && (i < 1000 || service.pictures == 0); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        service.stop = true;
        first.join();
        second.join();
        delivering.join();
        service.adaptor.clear();
        kov::test::FakeCameraHardware::setNext(nullptr);
    }
    // Encoders may still be on their way out; none is left behind.
    for (int i = 0; i < 20000 && (service.encoders != 0 || kov::host::liveHeaps() > heapsBefore); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    kov::host::removeLogSink(sink);
    EXPECT_EQ(service.encoders, 0);
    EXPECT_LE(kov::host::liveHeaps(), heapsBefore);
    EXPECT_GT(service.pictures, 0);
    EXPECT_GT(service.messages, 1000);
    std::printf("%d messages, %d pictures, %d whole bursts\n", service.messages.load(), service.pictures.load(),
                service.bursts.load());
    ContinuousClock::replace(nullptr);
}

}  // namespace
