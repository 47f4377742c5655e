// The continuous shot: states, rhythm, encoder and click, in simulated time.

#include "shots/continuous/ShotContinuous.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>
#include <tuple>

#include "host/runtime/Heaps.h"
#include "host/runtime/Properties.h"
#include "tests/continuous/FakeMediaPlayer.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

/// Time that passes only when somebody sleeps: a thread that delivers a frame for less than the encoder's pauses.
class SimulatedTime {
public:
    SimulatedTime() {
        fakeSystem().now = [this](int) { return mNow.load(); };
        fakeSystem().sleep = [this](int64_t duration) { duration < 350000 ? sleep(duration) : pause(duration); };
    }
    ~SimulatedTime() { resetFakeSystem(); }

    void advance(int64_t milliseconds) { mNow += milliseconds * 1000000; }
    nsecs_t now() const { return mNow; }

    std::function<void()> onSleep;     // in the next sleep of a thread that delivers a frame
    std::function<void(int)> onPause;  // in each pause of the encoder, on its thread, with its number in the burst
    std::atomic<bool> held{false};     // the encoder, in its pause

private:
    void sleep(int64_t microseconds) {
        record(text("sleep %lld", static_cast<long long>(microseconds)));
        mNow += microseconds * 1000;
        if (onSleep)
            std::exchange(onSleep, {})();
    }
    void pause(int64_t microseconds) {
        record(text("pause %lld", static_cast<long long>(microseconds)));
        mPause = microseconds == 500000 ? 0 : mPause + 1;
        if (onPause)
            onPause(mPause);
        while (held)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        mNow += microseconds * 1000;
    }

    std::atomic<nsecs_t> mNow{1000000000000};
    std::atomic<int> mPause{0};
};

constexpr const char* kDone = "app.notify 0x2800 0 0";

class ShotContinuousTest : public kov::test::ShotTest<ShotContinuous> {
protected:
    ShotContinuousTest() {
        hardware->params.setPreviewSize(64, 48);
        made();
    }

    /// From inside the shot, as the adaptor does it.
    void command(int32_t code, int32_t argument = 0) {
        const ShotGate::Entry inside(shot->gate());
        EXPECT_EQ(shot->sendCommand(code, argument, 0), NO_ERROR);
    }
    void frameAfter(int64_t milliseconds, uint8_t fill = 0) {
        clock.advance(milliseconds);
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeFrame(fill));
    }
    void takeFrames(int count) {
        command(1023);
        for (int i = 0; i < count; ++i)
            frameAfter(400);
    }
    /// Waits until a line with `end` in it was recorded, and returns all lines that nobody has taken, without what was
    /// measured.
    Lines until(const std::string& end) {
        Lines all;
        waitUntil([&] {
            all = all + recorder.take();
            return without(all, {end.c_str()}).size() < all.size();
        });
        for (std::string& line : all) {
            for (const char* measured : {" : 0.", "  pthread_self["})
                line.resize(std::min(line.size(), line.find(measured)));
        }
        return all;
    }
    Lines burst(int frames, const std::string& end = kDone) {
        recorder.take();
        takeFrames(frames);
        command(1024);
        return until(end);
    }
    void expectCleanBurst() {
        EXPECT_EQ(only(burst(1), {"app."}), (Lines{"app.notify 0xE00 1 9", "app.data 0x10 4608",
                                                   "app.notify 0x1000 1 0", "app.data 0x100 4", kDone}));
        EXPECT_EQ(ShotContinuous::encoderKillFlag, 0U);
    }
    /// Has the application act within each message of a type, before the message is recorded.
    void actWithin(int32_t type, const std::function<void()>& act) {
        mReceived = [=](int32_t received) { received == type ? act() : void(); };
        shot->setCallbacks(
            [](int32_t type, int32_t ext1, int32_t ext2, void* user) {
                static_cast<ShotContinuousTest*>(user)->mReceived(type);
                onNotify(type, ext1, ext2, user);
            },
            [](int32_t type, const sp<IMemory>& data, void* user) {
                static_cast<ShotContinuousTest*>(user)->mReceived(type);
                onData(type, data, user);
            },
            onDataTimestamp, this);
    }

    SimulatedTime clock;
    std::function<void(int32_t)> mReceived;
};

TEST_F(ShotContinuousTest, ABurstOfThreeFromStartToLastPicture) {
    Lines expected = {"I ShotContinuous: ShotContinuous::sendCommand 1023, 0, 0",
                      "I ShotContinuous: CONTINUOUS_SHOT_START_CAPTURE"};
    for (int i = 0; i < 3; ++i)
        expected = expected + Lines({"player.seekTo 0", "player.start",
                                     text("I ShotContinuous: Capture() - start - Frame count : %d", i),
                                     "I ShotContinuous: Capture() - size : 4608", text("app.notify 0xE00 %d 9", i + 1),
                                     "app.data 0x10 4608"});
    hardware->params.set("jpeg-quality", 70);
    takeFrames(3);
    EXPECT_EQ(recorder.take(), expected);

    expected = {"I ShotContinuous: ShotContinuous::sendCommand 1024, 0, 0",
                "I ShotContinuous: CONTINUOUS_SHOT_STOP_CAPTURE", "app.notify 0x1000 3 0",
                "E ShotContinuous: encodeCSPreview2Jpeg() - start", "pause 500000"};
    for (int i = 0; i < 3; ++i)
        expected =
            expected + Lines({text("I ShotContinuous: encodeCSPreview2Jpeg() - mCSEncodeCount : [%d]", i),
                              "MdBitmapSaveEx 2 quality 90 0x70000002", "app.data 0x100 4",
                              text("I ShotContinuous: encodeCSPreview2Jpeg() - Codec time(%d)", i),
                              text("I ShotContinuous: encodeCSPreview2Jpeg - start sleep : EC FC[%d 3]\\n", i + 1),
                              "pause 350000"});
    expected = expected + Lines{"E ShotContinuous: encodeCSPreview2Jpeg - Completed jpegEncodePreview\\n", kDone};
    command(1024);
    const Lines lines = until(kDone);
    EXPECT_EQ(only(lines, {"AMCM_R"}), Lines(3, "AMCM_RegisterEx 0x81002202 0x2000000 2 3 AJL2"));
    EXPECT_EQ(without(lines, {"AMCM", "MStream", "encode2Arc"}), expected);
}

TEST_F(ShotContinuousTest, TheRhythmForFramesOfEveryInterval) {
    // By the milliseconds between frames: which frames are taken, and how long each of them is held back before.
    const std::map<int, Lines> cases = {
        {33, {"taken 0", "sleep 30000", "taken 10", "sleep 27000", "taken 21"}},
        {100, {"taken 0", "taken 4", "taken 8"}},
        {319, {"taken 0", "taken 2"}},
        {320, {"taken 0", "sleep 40000", "taken 1"}},
        {330, {"taken 0", "sleep 30000", "taken 1", "taken 3", "sleep 30000", "taken 4"}},
        {359, {"taken 0", "sleep 1000", "taken 1", "sleep 2000", "taken 2", "sleep 3000", "taken 3"}},
        {360, {"taken 0", "taken 1", "taken 2", "taken 3"}},
        {500, {"taken 0", "taken 1", "taken 2", "taken 3"}},
    };
    for (const auto& [interval, expected] : cases) {
        SCOPED_TRACE(interval);
        command(1023);
        Lines lines;
        const nsecs_t begin = clock.now();
        for (int i = 0; lines.size() < expected.size() && i < 30; ++i) {
            recorder.take();
            frameAfter(std::max<int64_t>(0, i * interval - (clock.now() - begin) / 1000000));
            for (const std::string& line : only(recorder.take(), {"sleep ", "app.notify 0xE00"}))
                lines.push_back(line.starts_with("sleep ") ? line : text("taken %d", i));
        }
        EXPECT_EQ(lines, expected);
        command(1025);
    }
}

TEST_F(ShotContinuousTest, BetweenTwoFramesThePreviewShowsTheOneTakenLast) {
    command(1023);
    for (const uint8_t taken : {11, 44}) {
        frameAfter(400, taken);
        // A frame of another size is overwritten as far as both reach.
        for (const size_t size : {size_t{4608}, size_t{1000}, size_t{6000}}) {
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(size, 33));
            auto expected = std::vector<uint8_t>(size, 33);
            std::fill_n(expected.begin(), std::min<size_t>(size, 4608), taken);
            EXPECT_EQ(bytesOf(lastData), expected);
        }
    }
}

TEST_F(ShotContinuousTest, NineFramesAreTheMostAndEachCopyGoesWithItsPicture) {
    hardware->params.setPreviewSize(1280, 720);
    made();
    const size_t before = kov::host::liveHeaps();
    std::vector<size_t> copies;
    clock.onPause = [&](int) {
        lastData.clear();
        copies.push_back(kov::host::liveHeaps() - before);
    };
    takeFrames(11);
    EXPECT_EQ(recorder.take("app.notify 0xE00").back(), "app.notify 0xE00 9 9");
    frameAfter(0, 77);  // the preview is no longer frozen
    EXPECT_EQ(bytesOf(lastData)[0], 77);
    EXPECT_EQ(shot->Capture(makeFrame()), AfterCall::GoOn);
    EXPECT_EQ(shot->Capture(nullptr), AfterCall::GoOn);
    EXPECT_EQ(only(recorder.take(), {"I ShotContinuous: Handle", "E ", "app.notify"}),
              (Lines{"I ShotContinuous: HandleCSFrame: mCSFrameCount >= 9",
                     "E ShotContinuous: Capture() - preview frame is NULL"}));
    command(1024);
    EXPECT_EQ(only(until(kDone), {"app.data 0x100"}).size(), 9U);
    EXPECT_EQ(copies, ((std::vector<size_t>{9, 8, 7, 6, 5, 4, 3, 2, 1, 0})));
}

TEST_F(ShotContinuousTest, EveryCommandInEveryState) {
    enum State { Idle, Waiting, Capturing, Encoding };  // Waiting: for the first frame
    const std::string start = "E ShotContinuous: Start() is called in wrong state";
    const std::string stop = "E ShotContinuous: StopAndEncoding() is called in wrong state";
    const std::string terminate = "I ShotContinuous: Terminate() - mStatus ";
    const std::string kill = "E ShotContinuous: Terminate() - CSSHOT_STATE_ENCODING";
    const struct {
        State state;
        Lines lines[3];  // of a start, a stop and a terminate, but for those of the command's name and of the encoder
        int after[3];    // the state that one more frame finds or makes
    } cases[] = {
        {Idle, {{}, {stop + "[0]"}, {terminate + "[0]"}}, {1, 0, 0}},
        {Waiting, {{start + "[1]"}, {}, {terminate + "[1]"}}, {1, 2, 0}},
        {Capturing, {{start + "[1]"}, {"app.notify 0x1000 2 0"}, {terminate + "[1]"}}, {1, 2, 0}},
        {Encoding, {{start + "[2]"}, {stop + "[2]"}, {terminate + "[2]", kill}}, {2, 2, 0}},
    };
    for (int i = 0; i < 12; ++i) {
        const auto& [state, lines, after] = cases[i / 3];
        SCOPED_TRACE(text("%d in state %d", 1023 + i % 3, state));
        clock.held = true;
        if (state != Idle)
            takeFrames(state >= Capturing ? 2 : 0);
        if (state == Encoding)
            command(1024);
        recorder.take();
        command(1023 + i % 3);
        EXPECT_EQ(without(recorder.take(), {"sendCommand", "CONTINUOUS_SHOT", "encodeCSPreview", "pause "}),
                  lines[i % 3]);
        frameAfter(0, 66);
        EXPECT_EQ(bytesOf(lastData)[0], state == Capturing && after[i % 3] == 1 ? 0 : 66);  // frozen
        recorder.take();
        command(1025);
        EXPECT_EQ(only(recorder.take(), {"I ShotContinuous: CONT", "I ShotContinuous: Term"}),
                  (Lines{"I ShotContinuous: CONTINUOUS_SHOT_TERMINATE", terminate + text("[%d]", after[i % 3])}));
        clock.held = false;
        expectCleanBurst();
    }
    EXPECT_EQ(shot->sendCommand(1027, 4, 5), NO_ERROR);
    EXPECT_EQ(recorder.take("hw."), Lines{"hw.sendCommand 1027 4 5"});
}

TEST_F(ShotContinuousTest, WhatComesWhileAFrameIsHeldBackDecidesAboutIt) {
    const auto otherBurst = [&] {  // that has come as far
        command(1025);
        takeFrames(1);
    };
    const auto otherFrame = [&] { frameAfter(30, 4); };  // from another thread: takes the turn
    const std::vector<std::tuple<std::function<void()>, Lines, uint8_t>> cases = {
        {[&] { command(1024); }, {"app.notify 0x1000 1 0"}, 2},
        {otherBurst, {"app.notify 0xE00 1 9"}, 2},
        {otherFrame, {"app.notify 0xE00 2 9"}, 4}};
    for (const auto& [meanwhile, notified, shown] : cases) {
        clock.held = true;
        takeFrames(1);
        recorder.take();
        clock.onSleep = meanwhile;
        frameAfter(330, 2);
        EXPECT_EQ(recorder.take("app.notify"), notified);
        EXPECT_EQ(bytesOf(lastData)[0], shown);
        command(1025);
        clock.held = false;
        expectCleanBurst();
    }
}

TEST_F(ShotContinuousTest, ATerminateInEachPauseOfTheEncoderAndWithinEachMessageOfABurst) {
    const size_t heapsBefore = kov::host::liveHeaps();
    const std::string exit = "E ShotContinuous: encodeCSPreview2Jpeg() -exit";
    int encoders = 0;
    fakeSystem().startThread = [&](const auto& thread) {
        ++encoders;
        std::thread(thread).detach();
        return true;
    };
    const struct {
        int pause;     // with so many frames encoded
        int32_t type;  // or of the message
        std::string end;
        int pictures;
    } cases[] = {{0, 0, exit + ": 0\\n", 0},      {1, 0, exit + ": 1\\n", 1},
                 {2, 0, exit + ": 2\\n", 2},      {3, 0, kDone, 3},
                 {-1, 0xE00, "1024, 0, 0", 0},    {-1, 0x1000, "1024, 0, 0", 0},
                 {-1, 0x100, exit + ": 1\\n", 1}, {-1, 0x2800, kDone, 3}};
    for (const auto& [at, type, end, pictures] : cases) {
        for (int terminates = 1; terminates <= (type ? 2 : 1); ++terminates) {
            SCOPED_TRACE(text("%d times in pause %d, within 0x%X", terminates, at, type));
            const auto terminate = [&] {
                for (int i = 0; i < terminates; ++i)
                    command(1025);
            };
            clock.onPause = [&, at = at](int pause) { pause == at ? terminate() : void(); };
            actWithin(type, terminate);
            encoders = 0;
            EXPECT_EQ(only(burst(3, end), {"app.data 0x100", exit.c_str(), kDone}),
                      Lines(pictures, "app.data 0x100 4") + (end[0] == '1' ? Lines{} : Lines{end}));
            EXPECT_EQ(encoders, end[0] == '1' ? 0 : 1);
            clock.onPause = {};
            actWithin(0, {});
            if (end.starts_with(exit))  // cleared after the line
                waitUntil([] { return ShotContinuous::encoderKillFlag == 0; });
            // Where no encoder comes to it, it stays for the next burst to clear.
            EXPECT_EQ(ShotContinuous::encoderKillFlag != 0, at == 3 || type == 0x1000);
            expectCleanBurst();
        }
    }
    retireShot();
    lastData.clear();
    EXPECT_EQ(kov::host::liveHeaps(), heapsBefore);
}

TEST_F(ShotContinuousTest, AShotThatGoesAwayTakesItsEncoderAlong) {
    for (const size_t pictures : {1, 0}) {  // within the delivery of the first, or in the pause before it
        const auto goAway = [&] {
            switchAway();
            EXPECT_NE(ShotContinuous::encoderKillFlag, 0U);
        };
        if (pictures)
            actWithin(CAMERA_MSG_COMPRESSED_IMAGE, goAway);
        else
            clock.onPause = [&](int) { goAway(); };
        const Lines lines = burst(3, text("-exit: %zu", pictures));
        EXPECT_EQ(only(lines, {"app.data 0x100", "E ShotContinuous: Kill"}),
                  Lines{"E ShotContinuous: Killing encoder thread"} + Lines(pictures, "app.data 0x100 4"));
        EXPECT_EQ(Lines(lines.end() - 2, lines.end()),
                  (Lines{text("I ShotContinuous: encodeCSPreview2Jpeg() - mCSEncodeCount : [%zu]", pictures),
                         text("E ShotContinuous: encodeCSPreview2Jpeg() -exit: %zu\\n", pictures)}));
        clock.onPause = {};
        makeShot();
        EXPECT_EQ(ShotContinuous::encoderKillFlag, 0U);
        expectCleanBurst();
    }
    retireShot();
    EXPECT_EQ(recorder.take("E ShotContinuous: Kill"), Lines{}) << "it had ended";
    makeShot();
    clock.held = true;
    takeFrames(1);
    command(1024);
    command(1025);
    retireShot();
    EXPECT_EQ(recorder.take("E ShotContinuous: Kill"), Lines{}) << "it was told before";
    clock.held = false;
    until("-exit: 0");
}

// Another burst, that is begun and stopped while a picture is encoded: its encoder waits for the one at work.
TEST_F(ShotContinuousTest, APictureOfAnAbandonedBurstComesOnlyWhileThereIsNoOther) {
    const Lines abandoned = {"app.notify 0xE00 1 9", "app.notify 0xE00 2 9", "app.notify 0x1000 2 0"};
    const Lines alone = {"app.data 0x100 4"};
    const Lines next = {"app.notify 0xE00 1 9", "app.notify 0x1000 1 0", "app.data 0x100 4", kDone};
    for (const bool another : {false, true}) {
        std::jthread encoder;
        gFakeArcJpeg.duringSave = [&, saves = 0]() mutable {
            if (++saves > 1)
                return;
            command(1025);
            if (!another)
                return;
            std::function<void()> work;
            fakeSystem().startThread = [&](const auto& thread) {
                work = thread;
                return true;
            };
            takeFrames(1);
            command(1024);
            fakeSystem().startThread = {};
            encoder = startUntilItWaits(work);
            EXPECT_EQ(saves, 1);
        };
        EXPECT_EQ(only(burst(2, another ? kDone : "-exit: "), {"app.notify", "app.data 0x100"}),
                  abandoned + (another ? next : alone));
        gFakeArcJpeg.duringSave = {};
        expectCleanBurst();
    }
}

TEST_F(ShotContinuousTest, AFirstFrameClicksOnceWhateverBecomesOfItAndCanBeStopped) {
    fakeSystem().allowsHeap = [](size_t) { return false; };
    command(1023);
    for (const int64_t elapsed : {0, 33, 286, 400})  // two of them too early
        frameAfter(elapsed, 9);
    const Lines once =
        Lines{"player.seekTo 0", "player.start"} + Lines{"E ShotContinuous: Capture() - no memory for the frame"};
    EXPECT_EQ(only(recorder.take(), {"player.", "E ", "sleep", "app.notify"}), once + once);
    EXPECT_EQ(bytesOf(lastData)[0], 9);
    fakeSystem().allowsHeap = {};
    command(1024);
    EXPECT_EQ(only(until(kDone), {"app."}), (Lines{"app.notify 0x1000 0 0", kDone}));

    // From within the message of the first frame, or the second; or of the first, with another frame at once.
    for (const auto& [stopped, follows] : {std::pair(1, false), {2, false}, {1, true}}) {
        int told = 0;
        actWithin(0xE00, [&, stopped = stopped, follows = follows] {
            if (++told != stopped)
                return;
            command(1024);
            if (follows)
                frameAfter(400);
        });
        takeFrames(stopped);
        EXPECT_EQ(only(until(kDone), {"app.notify 0x1", "E ShotContinuous: Stop"}),
                  Lines{text("app.notify 0x1000 %d 0", stopped + follows)});
        actWithin(0, {});
    }
    // Outside a burst a frame is the first one, whatever came before: a burst that ended, or a stop that waited.
    burst(2);
    for (int i = 0; i < 2; ++i) {
        recorder.take();
        EXPECT_EQ(shot->Capture(makeFrame()), AfterCall::GoOn);
        EXPECT_EQ(only(recorder.take(), {"I ShotContinuous: Capture() - start", "E "}),
                  Lines{"I ShotContinuous: Capture() - start - Frame count : 0"});
        for (const int32_t code : {1025, 1023, 1024, 1025})
            command(code);
    }
    command(1023);
    command(1024);
    EXPECT_EQ(shot->Capture(makeFrame()), AfterCall::GoOn);
    EXPECT_EQ(only(until(kDone), {"app."}),
              (Lines{"app.notify 0xE00 1 9", "app.notify 0x1000 1 0", "app.data 0x100 4", kDone}));
}

TEST_F(ShotContinuousTest, WhatCannotBeEncodedSaysSoAndTheBurstEnds) {
    const std::string noPicture = "E ShotContinuous: encode2ArcJpegData() - a frame of the burst gave no picture";
    const std::string first = "E ShotContinuous: encode2ArcJpegData() - 1";
    const std::string last = "E ShotContinuous: encode2ArcJpegData() - end";
    const auto encoding = [&] {
        return only(burst(1), {"app.data 0x100", "E ShotContinuous: encode2", "app.notify 0x28"});
    };
    gFakeArcJpeg.streamOpens = false;
    EXPECT_EQ(encoding(), (Lines{first, noPicture, kDone}));
    gFakeArcJpeg = {};
    gFakeArcJpeg.jpeg = "";
    EXPECT_EQ(encoding(), (Lines{first, "app.data 0x100 0", last, noPicture, kDone}));
    gFakeArcJpeg = {};
    command(1023);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(4607));
    command(1024);
    EXPECT_EQ(only(until(kDone), {"app.data 0x100", "E ShotContinuous: encode2", "app.notify 0x28"}),
              (Lines{"E ShotContinuous: encode2ArcJpegData() - the frame is smaller than 64 x 48", kDone}));
    fakeSystem().startThread = [](const auto&) { return false; };
    EXPECT_EQ(only(burst(1), {"app.notify", "E "}),
              (Lines{"app.notify 0xE00 1 9", "app.notify 0x1000 1 0",
                     "E ShotContinuous: the encoder thread cannot be started; the burst is dropped", kDone}));
    fakeSystem().startThread = {};
    expectCleanBurst();
}

TEST_F(ShotContinuousTest, LoadingTheSoundKeepsNoFrameWaiting) {
    command(1026, 0);
    command(1023);
    gFakeMedia.whileLoading = [&] { std::thread([&] { frameAfter(0); }).join(); };  // would wait for ever
    command(1026, 1);
    gFakeMedia.whileLoading = {};
    EXPECT_EQ(gFakeMedia.playersAlive, 1);
}

TEST_F(ShotContinuousTest, TheClickFollowsTheSalesCode) {
    const Lines called = {"E ShotContinuous: call newMediaPlayer"};
    const std::vector<std::pair<const char*, bool>> cases = {
        {"XSA", true}, {"OPS", true}, {"VNZ", true}, {"VAU", true}, {"ops", false}, {"XSA2", false}, {"none", false}};
    for (const auto& [code, special] : cases) {
        SCOPED_TRACE(code);
        kov::host::setProperty("ro.csc.sales_code", code);
        const Lines lines = made();
        const Lines player = {"player.setDataSource /system/media/audio/ui/camera_click_short.ogg",
                              special ? "player.setAudioStreamType 7" : "player.setAudioStreamType 1",
                              "player.prepare"};
        const double volume = special ? 15 : 0.5;
        const Lines loud = {special ? "E ShotContinuous: ShotContinuous OPS OPS OPS OPS OPS OPS OPS OPS OPS OPS"
                                    : "getSituationVolume 2 -1",
                            text("I ShotContinuous: ShotContinuous - mVolume : %f", volume),
                            text("player.setVolume %g %g", volume, volume), "hw.setCallbacks"};
        EXPECT_EQ(without(lines, {"Preview"}), called + player + loud);
        command(1026, 1);  // a player is there: only the volume is taken anew
        EXPECT_EQ(recorder.take(), ((Lines{"I ShotContinuous: ShotContinuous::sendCommand 1026, 1, 0",
                                           "I ShotContinuous: CONTINUOUS_SHOT_SOUND 1",
                                           special ? "getSituationVolume 2 7" : "getSituationVolume 2 -1"})));
        command(1026, 0);
        EXPECT_EQ(recorder.take("player."), Lines{"player.disconnect"});
        command(1026, -1);
        takeFrames(1);  // silently
        command(1026, 1);
        EXPECT_EQ(recorder.take("player."), player + Lines{"player.setVolume 0.5 0.5"});
        retireShot();
        EXPECT_EQ(recorder.take("player."), Lines{"player.disconnect"});
        EXPECT_EQ(gFakeMedia.playersAlive, 0);
    }
    gFakeMedia.dataSourceResult = -2;
    const Lines lines = made();
    takeFrames(1);
    EXPECT_EQ(only(lines + recorder.take(), {"E ", "player."}),
              called + Lines({"player.setDataSource /system/media/audio/ui/camera_click_short.ogg",
                              "E ShotContinuous: Failed to load CameraService sounds."}));
    gFakeMedia.dataSourceResult = 0;
    command(1026, 1);  // tries again
    EXPECT_EQ(gFakeMedia.playersAlive, 1);
}

TEST_F(ShotContinuousTest, PicturesWithoutAVendorLayerOrACookieToGoTo) {
    clock.onPause = [&](int) { shot->setCameraHardware(nullptr); };
    EXPECT_EQ(only(burst(1), {"MdBitmap"}), Lines{"MdBitmapSaveEx 2 quality 85 0x70000002"});
    clock.onPause = {};
    made();
    takeFrames(1);
    shot->setCallbacks(nullptr, onData, nullptr, nullptr);
    recorder.take();
    command(1024);
    const Lines lines = until("Completed");
    EXPECT_EQ(only(lines, {"E ShotContinuous: encode2ArcJpegData() - mData"}).size(), 1U);
    EXPECT_EQ(only(lines, {"app."}), Lines{});
}

}  // namespace
