// The add-me shot: what it calls, sends and logs, in its order.

#include "shots/addme/ShotAddMe.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "shots/addme/JpegEncoderAddMe.h"
#include "tests/addme/FakePlusMe.h"
#include "tests/support/MallocWatch.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::fakePlusMe;
using kov::test::Lines;
using kov::test::makeMemory;
using kov::test::operator+;
using kov::test::MallocWatch;
using kov::test::text;

namespace {

constexpr size_t kFrame = 640 * 480 * 3 / 2;

const Lines kIntroduced = {"D ShotAddMe: version 100%d", "D ShotAddMe: Dimensions snap(2560, 1920) prev(640, 480)\\n",
                           "pm.PreInitialize 2560 1920 640 480 0 1 1900000"};
const Lines kOpened = {"pm.GetPermanentBufferSize", "pm.Initialize 1000", "pm.SetConfigurationParameter 0 0",
                       "pm.SetConfigurationParameter 3 2", "pm.SetConfigurationParameter 4 0"};
const Lines kSized = {"pm.SetResolution 2560 1920 640 480"};
const Lines kAskedTemp = {"pm.GetTemporaryBufferSize"};
const Lines kReady = kIntroduced + kOpened + kSized + kAskedTemp + Lines{"pm.SetTempBuffer 2000"};
const Lines kStarted = {"pm.StartCapture"};
const Lines kFreed = {"pm.Finalize"};
const Lines kNotStarted = {"E ShotAddMe: Failed to start series. status -1"};
const Lines kUnmerged = {"app.notify 0x1E00 0 0"};
const Lines kFirst = {"pm.HandleSnapshotJpeg 10 of 1", "E ShotAddMe: exiting ::HandlePreview snapshots 1",
                      "app.notify 0x1E00 0 0", "app.data 0x100 10"};
const Lines kNoImage = {"E ShotAddMe: No image to return. a-1 i-0\\n", "E ShotAddMe: result data ptr[0x0] size[0]",
                        "app.data 0x100 0"};

class ShotAddMeTest : public kov::test::ShotTest<ShotAddMe> {
protected:
    ShotAddMeTest() { fakePlusMe() = {}; }
    ~ShotAddMeTest() override {
        retireShot();
        fakePlusMe() = {};
    }

    void makeReady() {
        makeShot();
        recorder.take();
    }
    /// All lines, with the address of the result taken out.
    Lines taken() {
        Lines lines = recorder.take();
        for (std::string& line : lines) {
            const size_t at = line.find("ptr[0x");
            if (at != std::string::npos && !line.substr(at).starts_with("ptr[0x0]"))
                line.erase(at, line.find(' ', at) + 1 - at);
        }
        return lines;
    }
    Lines command(int32_t code, int32_t arg1 = 0) {
        EXPECT_EQ(shot->sendCommand(code, arg1, 0), NO_ERROR);
        return taken();
    }
    Lines picture(uint8_t fill = 1) {
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, fill));
        return taken();
    }
    Lines frame(size_t size = kFrame, uint8_t fill = 7) {
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(size, fill));
        return taken();
    }
    void startPreview() {
        EXPECT_EQ(shot->startPreview(), NO_ERROR);
        recorder.take();
    }
};

TEST_F(ShotAddMeTest, ANewShotIsReadyForItsFirstPicture) {
    shot = android::makeShot<ShotAddMe>(hardware);
    Lines lines = taken();
    EXPECT_EQ(Lines(std::find(lines.begin(), lines.end(), "I ShotAddMe: ShotAddMe created: pid=PID") + 1, lines.end()),
              kReady + kStarted);
    EXPECT_EQ(fakePlusMe().encoder, jpeg_compress_yuv420sp_AddMe);
    retireShot();
    EXPECT_EQ(taken(), (Lines{"I ShotAddMe: ShotAddMe destroyed: pid=PID", "pm.Finalize",
                              "I ShotCommon: ShotCommon destroyed: pid=PID"}));
}

TEST_F(ShotAddMeTest, TwoPicturesBecomeOneAndTheNextTwoAgain) {
    makeReady();
    for (int pair = 0; pair < 2; ++pair) {
        EXPECT_EQ(picture(1), kFirst);
        fakePlusMe().progress = {40, 99, 120};
        EXPECT_EQ(picture(2),
                  (Lines{"pm.HandleSnapshotJpeg 10 of 2", "pm.CreateResult", "app.notify 0x2000 40 0",
                         "pm.CreateResult", "app.notify 0x2000 99 0", "pm.CreateResult", "app.notify 0x2000 120 0",
                         "pm.GetResultJpeg", "E ShotAddMe: result data size[6]", "app.data 0x100 6"}));
        EXPECT_EQ(kov::test::bytesOf(lastData), std::vector<uint8_t>({'m', 'e', 'r', 'g', 'e', 'd'}));
        EXPECT_EQ(lastData->offset(), 0);
        EXPECT_EQ(lastData->getMemory()->getSize(), 6U);
    }
}

TEST_F(ShotAddMeTest, ALibraryThatNeverEndsIsStoppedAfter301Steps) {
    makeReady();
    picture();
    fakePlusMe().progress = {99};
    const Lines lines = picture();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "pm.CreateResult"), 301);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.notify 0x2000 99 0"), 301);
    EXPECT_EQ(lines.back(), "app.data 0x100 6");
}

TEST_F(ShotAddMeTest, ARefusedPictureGoesOnUnmerged) {
    makeReady();
    const Lines refused = {"pm.HandleSnapshotJpeg 10 of 1", "E ShotAddMe: PlusMe_HandleSnapshotJpeg FAILED 6!!!!!",
                           "app.notify 0x1C00 0 0"};
    fakePlusMe().results["HandleSnapshotJpeg"] = 6;
    EXPECT_EQ(picture(), refused + kUnmerged + Lines{"app.data 0x100 10"});
    fakePlusMe().results.clear();
    EXPECT_EQ(picture(), kFirst);
    fakePlusMe().results["HandleSnapshotJpeg"] = 6;
    EXPECT_EQ(picture(), refused + Lines(kFirst.begin() + 1, kFirst.end()));
    fakePlusMe().results.clear();
    EXPECT_EQ(picture().back(), "app.data 0x100 6");  // the first one still counts
}

TEST_F(ShotAddMeTest, AFailedMergeEndsThePair) {
    makeReady();
    picture();
    fakePlusMe().results["CreateResult"] = 7;
    const Lines failed = {"pm.HandleSnapshotJpeg 10 of 1", "pm.CreateResult", "E ShotAddMe: ERROR ... status: 7"};
    EXPECT_EQ(picture(), failed + kNoImage);
    EXPECT_EQ(picture(), kFirst);
    fakePlusMe().results.clear();
    EXPECT_EQ(picture().back(), "app.data 0x100 6");
    picture();
    fakePlusMe().results["CreateResult"] = 7;  // the earlier result is still there
    const Lines older = {"pm.GetResultJpeg", "E ShotAddMe: result data size[6]", "app.data 0x100 6"};
    EXPECT_EQ(picture(), failed + older);
    command(1034);  // a new series forgets it
    picture();
    EXPECT_EQ(picture(), failed + kNoImage);
}

TEST_F(ShotAddMeTest, AResultThatCannotBeFetchedIsDeliveredEmpty) {
    makeReady();
    picture();
    fakePlusMe().results["GetResultJpeg"] = 3;
    const Lines lines = picture();
    EXPECT_EQ(
        Lines(lines.end() - 3, lines.end()),
        (Lines{"E ShotAddMe: get result [3]\\n", "E ShotAddMe: result data ptr[0x0] size[6]", "app.data 0x100 0"}));
}

TEST_F(ShotAddMeTest, EachStepOfTheSetUpMayFail) {
    struct Case {
        const char* name;
        std::function<void()> prepare;
        Lines expected;  // from PreInitialize on
        bool instanceStays = false;
        size_t mostMemory = SIZE_MAX;
    };
    const Lines asked = kIntroduced + Lines{"pm.GetPermanentBufferSize"};
    const Case cases[] = {
        {"pre-initialise", [] { fakePlusMe().results["PreInitialize"] = 4; },
         kIntroduced + Lines{"E ShotAddMe: Pre-Init of PlusMe failed.[4]"}},
        {"no permanent size", [] { fakePlusMe().permanentSize = 0; }, asked + Lines{"E ShotAddMe: buf_size =  -1"}},
        {"initialise", [] { fakePlusMe().results["Initialize"] = 5; },
         asked + Lines{"pm.Initialize 1000", "E ShotAddMe: Init of PlusMe failed.[5]"}},
        {"last parameter", [] { fakePlusMe().configureResults[4] = 6; },
         kIntroduced + kOpened + Lines{"E ShotAddMe: Init of PlusMe failed.[6]"} + kFreed},
        {"resolution", [] { fakePlusMe().results["SetResolution"] = 7; },
         kIntroduced + kOpened + kSized + Lines{"D ShotAddMe: set resolution failed.[7]"} + kFreed},
        {"no temporary size", [] { fakePlusMe().tempSize = 0; },
         kIntroduced + kOpened + kSized + kAskedTemp + Lines{"D ShotAddMe: buf_size =  -1"}, true},
        {"permanent memory", [] {}, asked + Lines{"E ShotAddMe: Failed to allocate memory for copy frame."}, false,
         999},
        {"temporary memory", [] {},
         kIntroduced + kOpened + kSized + kAskedTemp + Lines{"D ShotAddMe: Failed to allocate memory for temp frame"},
         true, 1999},
    };
    for (const Case& failing : cases) {
        SCOPED_TRACE(failing.name);
        fakePlusMe() = {};
        makeReady();
        failing.prepare();
        {
            const MallocWatch scarce(failing.mostMemory);
            EXPECT_EQ(command(1033), kFreed + failing.expected);
            EXPECT_FALSE(shot->Init());
        }
        recorder.take();
        if (failing.instanceStays)
            EXPECT_EQ(command(1034), kStarted);
        else
            EXPECT_EQ(command(1034), Lines{"app.notify 0x1C00 0 0"} + kNotStarted);
        fakePlusMe() = {};
        command(1033);
        EXPECT_EQ(command(1034), kStarted);
        retireShot();
    }
    // The first two parameters are not looked at.
    fakePlusMe() = {};
    fakePlusMe().configureResults = {{0, 1}, {3, 1}};
    makeReady();
    EXPECT_TRUE(shot->Init());
}

TEST_F(ShotAddMeTest, WithoutAPictureSizeThereIsNoInstance) {
    hardware->params.setPictureSize(0, 0);
    makeShot();
    const Lines lines = taken();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "E ShotAddMe: unexpected Picture size(0, 0)\\n"), 1);
    EXPECT_FALSE(std::any_of(lines.begin(), lines.end(), [](auto& line) { return line.starts_with("pm."); }));
    startPreview();
    const Lines kFailed = {"E ShotAddMe: PlusMe_GetFirstPersonPosition is failed[-1]"};
    EXPECT_EQ(command(1033), Lines{"E ShotAddMe: unexpected Picture size(0, 0)\\n"});
    EXPECT_EQ(command(1034), Lines{"app.notify 0x1C00 0 0"} + kNotStarted);
    EXPECT_EQ(command(1035, 1), kFailed + Lines{"D ShotAddMe: first person position is already positioned"});
    EXPECT_EQ(command(1035, 0), kFailed + Lines{"E ShotAddMe: switch first person position failed"});
    EXPECT_EQ(command(1036), Lines{});
    EXPECT_EQ(command(1037), Lines{"E ShotAddMe: PlusMeControl::CancelCapture() - mInstance is null"});
    EXPECT_EQ(command(1038), Lines{});
    EXPECT_EQ(picture(), (Lines{"E ShotAddMe: PlusMeControl::AddFrameJpeg - mInstance is null", "app.notify 0x1C00 1 0",
                                "app.notify 0x1E00 0 0", "app.data 0x100 10"}));
    EXPECT_EQ(frame(), (Lines{"E ShotAddMe: we are not capturing", "app.data 0x10 460800"}));
}

TEST_F(ShotAddMeTest, TheFirstPersonsPositionIsTheComplementOfTheLibrarys) {
    makeReady();
    const Lines got = {"pm.GetFirstPersonPosition", "D ShotAddMe: PlusMe_GetFirstPersonPosition is successed"};
    const Lines stays = got + Lines{"D ShotAddMe: first person position is already positioned"};
    const Lines toggles = got + Lines{"pm.SwitchFirstPersonPosition"};
    for (const auto& [wanted, current, expected] : {std::tuple(1, 0, stays),
                                                    {0, 1, stays},
                                                    {1, 1, toggles},
                                                    {0, 0, toggles},
                                                    {2, 0, toggles},
                                                    {-1, 1, toggles}}) {
        fakePlusMe().position = current;
        EXPECT_EQ(command(1035, wanted), expected) << wanted << ' ' << current;
    }
    fakePlusMe().results = {{"GetFirstPersonPosition", 3}, {"SwitchFirstPersonPosition", 4}};
    fakePlusMe().position = 1;  // a failed question counts as 0
    EXPECT_EQ(command(1035, 0),
              (Lines{"pm.GetFirstPersonPosition", "E ShotAddMe: PlusMe_GetFirstPersonPosition is failed[3]",
                     "pm.SwitchFirstPersonPosition", "E ShotAddMe: switch first person position failed"}));
}

TEST_F(ShotAddMeTest, CommandsReachTheLibraryOrTheVendorLayer) {
    makeReady();
    EXPECT_EQ(command(1033), kFreed + kReady);
    EXPECT_EQ(command(1034), kStarted);
    EXPECT_EQ(command(1036, 5), Lines{});
    EXPECT_EQ(command(1037), Lines{"pm.CancelCapture"});
    EXPECT_EQ(command(1038), kFreed);
    EXPECT_EQ(command(1032), Lines{"hw.sendCommand 1032 0 0"});
    EXPECT_EQ(command(1039), Lines{"hw.sendCommand 1039 0 0"});
    shot->setCameraHardware(nullptr);
    EXPECT_EQ(shot->sendCommand(1034, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(taken(), Lines(2, "E ShotAddMe: mHardware is NULL, returning."));
}

TEST_F(ShotAddMeTest, FramesAlternateBetweenTwoSlots) {
    makeReady();
    EXPECT_FALSE(shot->getPreviewHeap().get());
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(taken(), Lines{"hw.startPreview"});
    EXPECT_EQ(shot->getPreviewHeap()->getSize(), 2 * kFrame);
    for (const size_t offset : {kFrame, size_t{0}, kFrame}) {
        const uint8_t fill = static_cast<uint8_t>(offset / 4096 + 5);
        EXPECT_EQ(frame(kFrame, fill), (Lines{text("pm.HandlePreview 640x480 of %d", fill), "app.data 0x10 460800"}));
        EXPECT_EQ(lastData->getMemory().get(), shot->getPreviewHeap().get());
        EXPECT_EQ(static_cast<size_t>(lastData->offset()), offset);
        EXPECT_EQ(kov::test::bytesOf(lastData), std::vector<uint8_t>(kFrame, fill));
    }
    fakePlusMe().results["StartCapture"] = 9;
    const Lines failed = {"pm.StartCapture", "app.notify 0x1C00 0 0", "E ShotAddMe: Failed to start series. status 9"};
    EXPECT_EQ(command(1034), failed);
    EXPECT_EQ(frame(), (Lines{"E ShotAddMe: we are not capturing", "app.data 0x10 460800"}));
    EXPECT_EQ(lastData->offset(), 0);
}

TEST_F(ShotAddMeTest, AFrameThatFitsNoSlotIsDeliveredAsItCame) {
    makeReady();
    const Lines lineAndFrame = {"E ShotAddMe: a frame of 460800 bytes has no slot", "app.data 0x10 460800"};
    EXPECT_EQ(frame(), lineAndFrame);  // before startPreview
    startPreview();
    const sp<IMemory> large = makeMemory(kFrame + 1);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, large);
    EXPECT_EQ(lastData.get(), large.get());
    recorder.take();
    // A smaller one fits, but the library would read beyond it.
    EXPECT_EQ(frame(1000), Lines{"app.data 0x10 1000"});
    EXPECT_EQ(lastData->offset(), 1000);
    EXPECT_EQ(frame(0).back(), "app.data 0x10 0");
}

TEST_F(ShotAddMeTest, TheSlotsFollowTheFormat) {
    makeReady();
    hardware->params.setPreviewSize(320, 240);
    const size_t half = 320 * 240 / 2;
    for (const auto& [format, size] : {std::pair("yuv420sp", 3 * half),
                                       {"yuv420sp_custom", 3 * half},
                                       {"yuv420p", 3 * half},
                                       {"yuv422i", 4 * half},
                                       {"yuv422p", 4 * half},
                                       {"rgb565", 4 * half},
                                       {"yuv422i-yuyv", size_t{0}}}) {
        hardware->params.setPreviewFormat(format);
        shot->startPreview();
        EXPECT_EQ(shot->getPreviewHeap()->getSize(), 2 * size) << format;
    }
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAddMe: Invalid preview format for real preview"});
}

TEST_F(ShotAddMeTest, MessagesWithoutMemoryOrCallback) {
    makeReady();
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, nullptr);
    EXPECT_EQ(taken(), (Lines{"E ShotAddMe: Null data returned in data callback", "app.notify 0x1 -2147483648 0",
                              "app.data 0x100 null"}));
    hardware->data(CAMERA_MSG_RAW_IMAGE, makeMemory(3));
    EXPECT_EQ(taken(), Lines{"app.data 0x80 3"});
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    recorder.take();
    EXPECT_EQ(picture(), Lines{"E ShotAddMe: mDataCb is NULL, returning."});
    fakePlusMe().results["StartCapture"] = 9;  // no notification without a callback
    EXPECT_EQ(command(1034), kStarted + Lines{"E ShotAddMe: Failed to start series. status 9"});
}

/// Runs `act` when the application is told of the first step of a merge.
struct DuringProgress {
    static std::function<void()> act;
    static void onNotify(int32_t type, int32_t, int32_t, void*) {
        if (type == 0x2000 && act)
            std::exchange(act, nullptr)();
    }
};
std::function<void()> DuringProgress::act;

TEST_F(ShotAddMeTest, AMergeMayBeDisturbedFromWithinItsProgress) {
    const struct {
        const char* name;
        std::function<void(ShotAddMeTest&)> act;
        bool retired;
    } cases[] = {
        {"released", [](auto& test) { test.shot->sendCommand(1038, 0, 0); }, false},
        {"initialised and started",
         [](auto& test) {
             test.shot->sendCommand(1033, 0, 0);
             test.shot->sendCommand(1034, 0, 0);
         },
         false},
        {"started again", [](auto& test) { test.shot->sendCommand(1034, 0, 0); }, false},
        {"retired", [](auto& test) { test.retireShot(); }, true},
    };
    for (const auto& disturbance : cases) {
        SCOPED_TRACE(disturbance.name);
        fakePlusMe() = {};
        makeShot();
        shot->setCallbacks(DuringProgress::onNotify, onData, onDataTimestamp, this);
        picture();
        fakePlusMe().progress = {50};
        DuringProgress::act = [&] { disturbance.act(*this); };
        const Lines lines = picture();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "pm.CreateResult"), 1);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "app.data 0x100 0"), disturbance.retired ? 0 : 1);
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                                [](auto& line) { return line.find("wrong instance") != std::string::npos; }),
                  0);
        retireShot();
    }
}

TEST_F(ShotAddMeTest, ASeriesStartedDuringAMergeKeepsItsPictures) {
    makeShot();
    shot->setCallbacks(DuringProgress::onNotify, onData, onDataTimestamp, this);
    picture();
    fakePlusMe().progress = {50, 100};
    DuringProgress::act = [&] {
        shot->sendCommand(1034, 0, 0);
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10));
    };
    picture();
    EXPECT_EQ(picture().back(), "app.data 0x100 6");
}

TEST_F(ShotAddMeTest, TheLibraryIsNeverEnteredTwice) {
    makeReady();
    startPreview();
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    fakePlusMe().during = [&](const std::string&) {
        overlaps += inside++ != 0;
        std::this_thread::yield();
        --inside;
    };
    std::vector<std::thread> frames;
    for (const uint8_t fill : {1, 2, 3}) {
        frames.emplace_back([&, fill] {
            for (int i = 0; i < 40; ++i)
                hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(kFrame, fill));
        });
    }
    std::thread pictures([&] {
        for (int i = 0; i < 100; ++i)
            hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10));
    });
    for (int i = 0; i < 100; ++i) {
        for (const int32_t code : {1035, 1037, 1034})
            shot->sendCommand(code, 0, 0);
        if (i % 10 == 0)
            shot->sendCommand(1033, 0, 0);
    }
    for (std::thread& thread : frames)
        thread.join();
    pictures.join();
    fakePlusMe().during = {};  // what it counts with ends here, the shot does not
    EXPECT_EQ(overlaps, 0);
    const Lines lines = taken();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](auto& line) { return line.ends_with(" odd"); }), 0)
        << "a frame was copied over another one that the library looked at";
}

}  // namespace
