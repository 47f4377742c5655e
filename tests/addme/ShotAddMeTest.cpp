// The add-me shot: what it calls, sends and logs, in its order.

#include "shots/addme/ShotAddMe.h"

#include <thread>
#include <vector>

#include "host/runtime/Heaps.h"
#include "tests/addme/FakePlusMe.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

constexpr size_t kFrame = 640 * 480 * 3 / 2;

const Lines kIntroduced = {"D ShotAddMe: version 100%d%n%s",
                           "D ShotAddMe: Dimensions snap(2560, 1920) prev(640, 480)\\n",
                           "pm.PreInitialize 2560 1920 640 480 0 1 1900000"};
const Lines kAsked = kIntroduced + Lines{"pm.GetPermanentBufferSize"};
const Lines kOpened = kAsked + Lines{"pm.Initialize 1000", "pm.SetConfigurationParameter 0 0",
                                     "pm.SetConfigurationParameter 3 2", "pm.SetConfigurationParameter 4 0"};
const Lines kResized = kOpened + Lines{"pm.SetResolution 2560 1920 640 480"};
const Lines kAskedTemp = kResized + Lines{"pm.GetTemporaryBufferSize"};
const Lines kReady = kAskedTemp + Lines{"pm.SetTempBuffer 2000"};
const Lines kStarted = {"pm.StartCapture"};
const Lines kFreed = {"pm.Finalize"};
const Lines kError = {"app.notify 0x1C00 0 0"};
const Lines kNotStarted = {"E ShotAddMe: Failed to start series. status -1"};
const Lines kUnmerged = {"app.notify 0x1E00 0 0", "app.data 0x100 10"};
const Lines kOneAccepted = Lines{"E ShotAddMe: exiting ::HandlePreview snapshots 1"} + kUnmerged;
const Lines kPicture = {"pm.HandleSnapshotJpeg 10 of 1"};
const Lines kFirst = kPicture + kOneAccepted;
const Lines kNothingToDeliver = {"E ShotAddMe: result data ptr[0x0] size[0]", "app.data 0x100 0"};
const Lines kFrameShown = {"app.data 0x10 460800"};

Lines step(int percent, int from = 0) {
    return {text("pm.CreateResult from %d", from), text("app.notify 0x2000 %d 0", percent)};
}
Lines delivered() {
    const auto address = static_cast<unsigned>(reinterpret_cast<uintptr_t>(gFakePlusMe.jpeg.data()));
    return {"pm.GetResultJpeg", text("E ShotAddMe: result data ptr[0x%X] size[6]", address), "app.data 0x100 6"};
}
Lines noImage(int capturing) {
    return Lines{text("E ShotAddMe: No image to return. a-%d i-0\\n", capturing)} + kNothingToDeliver;
}
const auto merged = [] { return kPicture + step(100) + delivered(); };

class ShotAddMeTest : public ShotTest<ShotAddMe> {
protected:
    ~ShotAddMeTest() override { gFakePlusMe = {}; }

    Lines command(int32_t code, int32_t arg1 = 0) {
        EXPECT_EQ(shot->sendCommand(code, arg1, 0), NO_ERROR);
        return recorder.take();
    }
    Lines data(int32_t type, const sp<IMemory>& memory) {
        hardware->data(type, memory);
        return recorder.take();
    }
    Lines picture() { return data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, 1)); }
    Lines frame(const sp<IMemory>& frame = makeMemory(kFrame, 7)) { return data(CAMERA_MSG_PREVIEW_FRAME, frame); }
    /// Merges two pictures on a new shot, in steps to 50 and 100; `act` runs once when the application is told of 50.
    Lines mergeDisturbed(const std::function<void()>& act) {
        made();
        picture();
        gFakePlusMe.progress = {50, 100};
        whileNotified = [this, act](int32_t type, int32_t) {
            if (type == 0x2000) {
                whileNotified = nullptr;
                act();
            }
        };
        return picture();
    }
    void send(const std::vector<int32_t>& codes) {
        for (const int32_t code : codes)
            EXPECT_EQ(shot->sendCommand(code, 1, 0), NO_ERROR);
    }
};

TEST_F(ShotAddMeTest, ANewShotIsReadyAndItsCommandsReachTheLibraryOrTheVendorLayer) {
    gFakePlusMe.configureResults = {{0, 1}, {3, 1}};  // these two are not looked at
    EXPECT_EQ(made(), kReady + kStarted + Lines{"hw.setCallbacks"});
    EXPECT_EQ(command(1038), kFreed);
    EXPECT_EQ(command(1033), kReady);
    EXPECT_EQ(command(1034), kStarted);
    EXPECT_EQ(command(1036, 5), Lines{});
    EXPECT_EQ(command(1037), Lines{"pm.CancelCapture"});
    for (const int32_t code : {1032, 1039})
        EXPECT_EQ(command(code, 5), Lines{text("hw.sendCommand %d 5 0", code)});
    retireShot();
    EXPECT_EQ(recorder.take(), (Lines{"I ShotAddMe: ShotAddMe destroyed: pid=PID", "pm.Finalize",
                                      "I ShotCommon: ShotCommon destroyed: pid=PID"}));
}

TEST_F(ShotAddMeTest, EveryTwoPicturesBecomeOneInAtMost301Steps) {
    made();
    for (const auto& steps : {std::vector{40, 99, 120}, {100}, std::vector(301, 99)}) {
        EXPECT_EQ(picture(), kFirst);
        Lines expected = kPicture;
        for (int32_t before = 0; const int32_t progress : steps)
            expected = expected + step(progress, std::exchange(before, progress));
        gFakePlusMe.progress = steps;  // the last one goes on
        EXPECT_EQ(picture(), expected + delivered());
        EXPECT_EQ(bytesOf(lastData), std::vector<uint8_t>({'m', 'e', 'r', 'g', 'e', 'd'}));
        EXPECT_EQ(lastData->offset(), 0);
        EXPECT_EQ(lastData->getMemory()->getSize(), 6U);
    }
    lastData.clear();
    const size_t alive = kov::host::liveHeaps();
    command(1038);
    EXPECT_EQ(kov::host::liveHeaps(), alive - 1) << "the last result is kept";
}

TEST_F(ShotAddMeTest, ARefusedPictureGoesOnUnmergedAndAFailedMergeEndsThePair) {
    made();
    const Lines refused = kPicture + Lines{"E ShotAddMe: PlusMe_HandleSnapshotJpeg FAILED 6!!!!!"} + kError;
    for (const bool first : {true, false}) {
        gFakePlusMe.results["HandleSnapshotJpeg"] = 6;
        EXPECT_EQ(picture(), refused + (first ? kUnmerged : kOneAccepted));
        gFakePlusMe.results.clear();
        EXPECT_EQ(picture(), first ? kFirst : merged());  // the first one counts
    }
    const Lines failed = kPicture + Lines{"pm.CreateResult from 0", "E ShotAddMe: ERROR ... status: 7"};
    const auto failedMerge = [&] {
        EXPECT_EQ(picture(), kFirst);
        gFakePlusMe.results["CreateResult"] = 7;
        const Lines lines = picture();
        gFakePlusMe.results.clear();
        return lines;
    };
    for (const int32_t code : {1034, 1033}) {
        EXPECT_EQ(failedMerge(), failed + delivered());  // the earlier result is still there
        command(code);                                   // which forgets it
        EXPECT_EQ(failedMerge(), failed + noImage(1));
        EXPECT_EQ(picture(), kFirst);  // the pair has ended
        EXPECT_EQ(picture(), merged());
    }
    EXPECT_EQ(picture(), kFirst);
    gFakePlusMe.results["GetResultJpeg"] = 3;  // merged, but cannot be fetched
    const Lines unfetched = {"pm.GetResultJpeg", "E ShotAddMe: get result [3]\\n",
                             "E ShotAddMe: result data ptr[0x0] size[6]", "app.data 0x100 0"};
    EXPECT_EQ(picture(), kPicture + step(100) + unfetched);
    gFakePlusMe.results.clear();
    EXPECT_EQ(picture(), kFirst);
    fakeSystem().allowsHeap = [](size_t size) { return size != 6; };
    Lines lost = delivered();
    lost.back() = "E ShotAddMe: no memory for the merged picture of 6 bytes";
    EXPECT_EQ(picture(), kPicture + step(100) + lost + Lines{"app.data 0x100 0"});
}

TEST_F(ShotAddMeTest, EachStepOfTheSetUpMayFail) {
    const struct {
        Lines expected;
        std::function<void(FakePlusMe&)> prepare;
        size_t mostMemory = SIZE_MAX;
        bool instanceStays = false;
    } cases[] = {
        {kIntroduced + Lines{"E ShotAddMe: Pre-Init of PlusMe failed.[4]"},
         [](auto& fake) { fake.results["PreInitialize"] = 4; }},
        {kAsked + Lines{"E ShotAddMe: buf_size =  -1"}, [](auto& fake) { fake.permanentSize = 0; }},
        {kAsked + Lines{"E ShotAddMe: Failed to allocate memory for copy frame."}, [](auto&) {}, 999},
        {kAsked + Lines{"pm.Initialize 1000", "E ShotAddMe: Init of PlusMe failed.[5]"},
         [](auto& fake) { fake.results["Initialize"] = 5; }},
        {kOpened + Lines{"E ShotAddMe: Init of PlusMe failed.[6]"} + kFreed,
         [](auto& fake) { fake.configureResults[4] = 6; }},
        {kResized + Lines{"D ShotAddMe: set resolution failed.[7]"} + kFreed,
         [](auto& fake) { fake.results["SetResolution"] = 7; }},
        {kAskedTemp + Lines{"D ShotAddMe: buf_size =  -1"}, [](auto& fake) { fake.tempSize = 0; }, SIZE_MAX, true},
        {kAskedTemp + Lines{"D ShotAddMe: Failed to allocate memory for temp frame"}, [](auto&) {}, 1999, true},
    };
    made();
    for (const auto& failing : cases) {
        failing.prepare(gFakePlusMe);
        fakeSystem().allowsMemory = [&](size_t size) { return size <= failing.mostMemory; };
        EXPECT_EQ(command(1033), kFreed + failing.expected);
        frame();
        EXPECT_EQ(frame(), Lines{"E ShotAddMe: we are not capturing"} + kFrameShown);
        EXPECT_EQ(command(1034), failing.instanceStays ? kStarted : kError + kNotStarted);
        gFakePlusMe = {};
        fakeSystem().allowsMemory = nullptr;
        EXPECT_EQ(command(1033), (failing.instanceStays ? kFreed : Lines{}) + kReady);
    }
}

TEST_F(ShotAddMeTest, WithoutAPictureSizeThereIsNoInstance) {
    const Lines unknown = {"E ShotAddMe: PlusMe_GetFirstPersonPosition is failed[-1]"};
    for (const auto& [width, height] : {std::pair(0, 1), {1, 0}, {-5, 5}}) {
        hardware->params.setPictureSize(width, height);
        const Lines unexpected = {text("E ShotAddMe: unexpected Picture size(%d, %d)\\n", width, height)};
        EXPECT_EQ(made(), unexpected + kNotStarted + Lines{"hw.setCallbacks"});
        EXPECT_EQ(command(1033), unexpected);
        EXPECT_EQ(frame(), Lines{"E ShotAddMe: we are not capturing"} + kFrameShown);
    }
    EXPECT_EQ(command(1034), kError + kNotStarted);
    EXPECT_EQ(command(1035, 1), unknown + Lines{"D ShotAddMe: first person position is already positioned"});
    EXPECT_EQ(command(1035, 0), unknown + Lines{"E ShotAddMe: switch first person position failed"});
    EXPECT_EQ(command(1037), Lines{"E ShotAddMe: PlusMeControl::CancelCapture() - mInstance is null"});
    EXPECT_EQ(command(1038), Lines{});
    const Lines refused = {"E ShotAddMe: PlusMeControl::AddFrameJpeg - mInstance is null", "app.notify 0x1C00 1 0"};
    EXPECT_EQ(picture(), refused + kUnmerged);
    hardware->params.setPictureSize(1, 1);
    EXPECT_EQ(made()[1], "D ShotAddMe: Dimensions snap(1, 1) prev(640, 480)\\n");
}

TEST_F(ShotAddMeTest, TheFirstPersonsPositionIsTheComplementOfTheLibrarys) {
    made();
    const Lines got = {"pm.GetFirstPersonPosition", "D ShotAddMe: PlusMe_GetFirstPersonPosition is successed"};
    const Lines already = {"D ShotAddMe: first person position is already positioned"};
    const Lines switched = {"pm.SwitchFirstPersonPosition"};
    const std::tuple<int, int, bool> cases[] = {{1, 0, true},  {0, 1, true},  {1, 1, false}, {0, 0, false},
                                                {2, 0, false}, {2, 1, false}, {-1, 1, false}};
    for (const auto& [wanted, current, isThere] : cases) {
        gFakePlusMe.position = current;
        EXPECT_EQ(command(1035, wanted), got + (isThere ? already : switched)) << wanted << ' ' << current;
    }
    gFakePlusMe.results = {{"GetFirstPersonPosition", 3}, {"SwitchFirstPersonPosition", 4}};
    gFakePlusMe.position = 1;  // a failed question counts as 0
    EXPECT_EQ(command(1035, 0),
              (Lines{"pm.GetFirstPersonPosition", "E ShotAddMe: PlusMe_GetFirstPersonPosition is failed[3]",
                     "pm.SwitchFirstPersonPosition", "E ShotAddMe: switch first person position failed"}));
}

TEST_F(ShotAddMeTest, FramesAlternateBetweenTwoSlotsOfItsOwn) {
    made();
    const auto inSlot = [&](const sp<IMemory>& memory, size_t slot, const Lines& expected) {
        const std::vector<uint8_t> bytes = bytesOf(memory);
        EXPECT_EQ(frame(memory), expected);
        EXPECT_EQ(lastData->getMemory().get(), shot->getPreviewHeap().get());
        EXPECT_EQ(static_cast<size_t>(lastData->offset()), slot * bytes.size());
        EXPECT_TRUE(bytesOf(lastData) == bytes);
    };
    const auto shown = [](int fill) {
        return Lines{text("pm.HandlePreview 640x480 of %d at 12345.000012", fill)} + kFrameShown;
    };
    fakeSystem().now = [](int clock) { return clock == SYSTEM_TIME_REALTIME ? 12345000012000 : 0; };
    inSlot(makeMemory(kFrame, 4), 1, shown(4));  // before startPreview: slots are made for it
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(recorder.take(), Lines{"hw.startPreview"});
    EXPECT_EQ(shot->getPreviewHeap()->getSize(), 2 * kFrame);
    for (const uint8_t fill : {5, 6})
        inSlot(makeMemory(kFrame, fill), fill % 2 ? 0 : 1, shown(fill));
    const Lines larger = {"pm.HandlePreview 640x480 of 8 at 12345.000012", "app.data 0x10 460801"};
    inSlot(makeMemory(kFrame + 1, 8), 0, larger);  // does not fit: one heap for the new size
    const sp<IMemoryHeap> anew = shot->getPreviewHeap();
    EXPECT_EQ(anew->getSize(), 2 * (kFrame + 1));
    inSlot(makeMemory(kFrame + 1, 8), 1, larger);
    EXPECT_EQ(shot->getPreviewHeap().get(), anew.get());
    gFakePlusMe.results["StartCapture"] = 9;
    EXPECT_EQ(command(1034), kStarted + kError + Lines{"E ShotAddMe: Failed to start series. status 9"});
    inSlot(makeMemory(kFrame), 0, Lines{"E ShotAddMe: we are not capturing"} + kFrameShown);
}

TEST_F(ShotAddMeTest, SlotsThatCannotBeHad) {
    made();
    hardware->params.setPreviewFormat("yuv422i-yuyv");
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAddMe: Invalid preview format for real preview"});
    EXPECT_EQ(shot->getPreviewHeap()->getSize(), 0U);
    int asked = 0;
    fakeSystem().allowsHeap = [&](size_t) { return ++asked == 5; };
    const Lines none = {"E ShotAddMe: no memory for preview frames of 460800 bytes; they are dropped"};
    for (const Lines& expected : {none, Lines(), none, Lines()}) {  // told once for each start
        if (asked == 2)
            shot->startPreview();
        EXPECT_EQ(only(frame(), {"E ShotAddMe: no", "app."}), expected);
    }
    EXPECT_EQ(frame().back(), kFrameShown[0]);
}

TEST_F(ShotAddMeTest, AMergeMayBeDisturbedFromWithinItsProgress) {
    const Lines begun = kPicture + step(50);
    const Lines position = {"pm.GetFirstPersonPosition", "D ShotAddMe: PlusMe_GetFirstPersonPosition is successed",
                            "D ShotAddMe: first person position is already positioned"};
    const struct {
        std::vector<int32_t> commands;
        Lines then;
    } cases[] = {{{1038}, kFreed + noImage(0)},
                 {{1033}, kFreed + kReady + noImage(1)},
                 {{1033, 1034}, kFreed + kReady + kStarted + noImage(1)},
                 {{1034}, kStarted + noImage(1)},
                 // These wait for the step, and come in their order.
                 {{1035, 1037}, position + Lines{"pm.CancelCapture"} + step(100, 50) + delivered()},
                 {{1037, 1035}, Lines{"pm.CancelCapture"} + position + step(100, 50) + delivered()}};
    for (const auto& [commands, then] : cases) {
        SCOPED_TRACE(::testing::PrintToString(commands));
        EXPECT_EQ(mergeDisturbed([&, &commands = commands] { send(commands); }), begun + then);
        if (commands[0] == 1038)
            send({1033});
        gFakePlusMe.progress = {100};
        recorder.take();
        EXPECT_EQ(picture(), kFirst);           // the pair has ended
        EXPECT_EQ(command(1035, 1), position);  // nothing is merged yet
        EXPECT_EQ(picture(), merged());
        EXPECT_EQ(command(1037), Lines{"pm.CancelCapture"});  // nobody notes it any more
    }
    EXPECT_EQ(mergeDisturbed([&] { retireShot(); }).back(), "I ShotCommon: ShotCommon destroyed: pid=PID");
    // A series that was begun, and merged, within the older merge keeps its picture.
    EXPECT_EQ(mergeDisturbed([&] {
                  send({1034});
                  for (int i = 0; i < 2; ++i)
                      hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, 1));
              }),
              begun + kStarted + kFirst + merged() + noImage(1));
    // A picture of such a series is its first one, when the older merge is over too.
    mergeDisturbed([&] {
        send({1033, 1034});
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, 1));
    });
    EXPECT_EQ(picture(), merged());
    // A picture that is refused meanwhile begins no second merge.
    const Lines merge = mergeDisturbed([&] {
        gFakePlusMe.results["HandleSnapshotJpeg"] = 7;
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, 1));
        gFakePlusMe.results.clear();
    });
    const Lines refused = Lines{"E ShotAddMe: PlusMe_HandleSnapshotJpeg FAILED 7!!!!!"} + kError + kUnmerged;
    EXPECT_EQ(merge, begun + kPicture + refused + step(100, 50) + delivered());
}

TEST_F(ShotAddMeTest, NothingWaitsForAStepOfAMerge) {
    made();
    frame();
    picture();
    gFakePlusMe.during = [&](const std::string& call) {
        if (call != "CreateResult")
            return;
        std::thread([&] {
            hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(kFrame, 3));
            send({1037});
            record("is back");
        }).join();
    };
    const Lines meanwhile = Lines{"pm.CreateResult from 0"} + kFrameShown + Lines{"is back", "app.notify 0x2000 100 0"};
    EXPECT_EQ(picture(), kPicture + meanwhile + Lines{"pm.CancelCapture"} + delivered());
    gFakePlusMe.results["CreateResult"] = 5;  // what comes within the last step is carried out after it
    picture();
    EXPECT_EQ(only(picture(), {"is back", "pm.CancelCapture"}), (Lines{"is back", "pm.CancelCapture"}));
}

}  // namespace
