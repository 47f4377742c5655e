// The continuous shot: states, rhythm, encoder and click, in simulated time.

#include "shots/continuous/ShotContinuous.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <random>
#include <thread>

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
using kov::test::record;
using kov::test::text;

namespace {

Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// Time that passes only when somebody sleeps or waits. `onPause` runs in each pause of the encoder, on its thread.
class SimulatedClock : public ContinuousClock {
public:
    SimulatedClock() { replace(this); }
    ~SimulatedClock() override { replace(nullptr); }

    nsecs_t now() override { return mNow; }
    void sleepMicroseconds(int64_t duration) override {
        record(text("sleep %lld", static_cast<long long>(duration)));
        mNow += duration * 1000;
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

TEST_F(ShotContinuousTest, CommandsInTheWrongStateAreLoggedAndIgnored) {
    const auto error = [](const char* what, int state) {
        return Lines{text("E ShotContinuous: %s() is called in wrong state[%d]", what, state)};
    };
    command(1024);
    EXPECT_EQ(recorder.take("E "), error("StopAndEncoding", 0));
    command(1023);
    command(1023);
    EXPECT_EQ(recorder.take("E "), error("Start", 1));
    frame();
    clock.onPause = [&](int pause) {
        if (pause != 0)
            return;
        command(1023);
        command(1024);
    };
    command(1024);
    EXPECT_EQ(only(until(kDone), "E ShotContinuous: S"), error("Start", 2) + error("StopAndEncoding", 2));
    EXPECT_EQ(shot->sendCommand(1027, 4, 5), NO_ERROR);
    EXPECT_EQ(recorder.take("hw."), Lines{"hw.sendCommand 1027 4 5"});
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

TEST_F(ShotContinuousTest, ATerminateWhileCapturingOrIdle) {
    takeFrames(2);
    recorder.take();
    command(1025);
    EXPECT_EQ(recorder.take(),
              ((Lines{"I ShotContinuous: ShotContinuous::sendCommand 1025, 0, 0",
                      "I ShotContinuous: CONTINUOUS_SHOT_TERMINATE", "I ShotContinuous: Terminate() - mStatus [1]"})));
    frame(88);
    EXPECT_EQ(kov::test::bytesOf(lastData)[0], 88);
    command(1025);
    command(1023);
    frame();
    EXPECT_EQ(recorder.take("app.notify"), Lines{"app.notify 0xE00 1 9"});
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
    Lines lines = until("ShotCommon destroyed");
    EXPECT_EQ(only(lines, "delivered"), Lines{"delivered 0x100"});
    EXPECT_EQ(only(lines, "E ShotContinuous: Killing"), Lines{"E ShotContinuous: Killing encoder thread"});

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
    EXPECT_EQ(recorder.take("app.notify"), Lines{});
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

TEST(ContinuousStressTest, BurstsTerminatesSwitchesAndSoundAtRandom) {
    kov::host::setLogLevel(ANDROID_LOG_SILENT);
    /// A thousand times as fast as the real clock.
    class FastClock : public ContinuousClock {
    public:
        nsecs_t now() override { return systemTime() * 1000; }
        void sleepMicroseconds(int64_t) override { std::this_thread::yield(); }
        void wait(Condition& condition, Mutex& held, int64_t microseconds) override REQUIRES(held) {
            condition.waitRelative(held, microseconds);
        }
    };
    const size_t heapsBefore = kov::host::liveHeaps();
    {
        static FastClock& clock = *new FastClock;  // an encoder may be on its way out longer than this test
        ContinuousClock::replace(&clock);
        const sp<kov::test::FakeCameraHardware> vendor = new kov::test::FakeCameraHardware;
        vendor->params.setPreviewSize(64, 48);
        std::mutex lock;  // guards which shot there is, as the adaptor does
        ShotContinuous* shot = nullptr;
        std::atomic<int> delivered{0};
        static std::atomic<int>* counter;
        counter = &delivered;
        const auto make = [&] {
            shot = makeShot<ShotContinuous>(vendor.get());
            shot->setCallbacks([](int32_t, int32_t, int32_t, void*) {},
                               [](int32_t type, const sp<IMemory>&, void*) { *counter += type == 0x100; },
                               [](int64_t, int32_t, const sp<IMemory>&, void*) {}, &delivered);
        };
        make();
        const auto callback = vendor->dataCb;
        std::atomic<bool> stop{false};
        std::atomic<void*> user{vendor->user};
        std::thread delivering([&] {
            const auto frame = kov::test::makeMemory(64 * 48 * 3 / 2);
            while (!stop)
                callback(CAMERA_MSG_PREVIEW_FRAME, frame, user.load());
        });
        const auto commands = [&](uint32_t seed) {
            std::minstd_rand random(seed);
            const int32_t codes[] = {1023, 1023, 1024, 1024, 1025, 1026};
            while (!stop) {
                const uint32_t choice = random();
                const std::lock_guard held(lock);
                if (choice % 64 == 0) {
                    retireShot(shot, shot->gate());
                    make();
                    user = vendor->user;
                }
                shot->sendCommand(codes[choice % 6], static_cast<int32_t>(choice / 6 % 2), 0);
            }
        };
        std::thread first([&] { commands(1); });
        std::thread second([&] { commands(2); });
        for (int i = 0; i < 20000 && (i < 800 || delivered == 0); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        stop = true;
        first.join();
        second.join();
        delivering.join();
        retireShot(shot, shot->gate());
        // Encoders on their way out, also of the tests before this one, hold a frame at most; none is left behind.
        for (int i = 0; i < 20000 && kov::host::liveHeaps() > heapsBefore; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_GT(delivered, 0);
        ContinuousClock::replace(nullptr);
    }
    EXPECT_LE(kov::host::liveHeaps(), heapsBefore);
}

}  // namespace
