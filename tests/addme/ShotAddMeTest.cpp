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
using namespace kov::test;

namespace {

constexpr size_t kFrame = 640 * 480 * 3 / 2;

const Lines kIntroduced = {"D ShotAddMe: version 100%d", "D ShotAddMe: Dimensions snap(2560, 1920) prev(640, 480)\\n",
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
const Lines kFirst = Lines{"pm.HandleSnapshotJpeg 10 of 1"} + kOneAccepted;
const auto kResultAddress = static_cast<unsigned>(reinterpret_cast<uintptr_t>(fakePlusMe().jpeg.data()));
const Lines kDelivered = {"pm.GetResultJpeg", text("E ShotAddMe: result data ptr[0x%X] size[6]", kResultAddress),
                          "app.data 0x100 6"};

ptrdiff_t countOf(const std::string& part, const Lines& lines) {
    return std::count_if(lines.begin(), lines.end(), [&](auto& line) { return line.find(part) != std::string::npos; });
}

class ShotAddMeTest : public ShotTest<ShotAddMe> {
protected:
    ~ShotAddMeTest() override { fakePlusMe() = {}; }

    /// What a new shot does.
    Lines made() {
        makeShot();
        const Lines lines = recorder.take();
        return {std::find(lines.begin(), lines.end(), "I ShotAddMe: ShotAddMe created: pid=PID") + 1, lines.end()};
    }
    Lines command(int32_t code, int32_t arg1 = 0) {
        EXPECT_EQ(shot->sendCommand(code, arg1, 0), NO_ERROR);
        return recorder.take();
    }
    Lines data(int32_t type, const sp<IMemory>& memory) {
        hardware->data(type, memory);
        return recorder.take();
    }
    Lines picture(uint8_t fill = 1) { return data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10, fill)); }
    Lines frame(const sp<IMemory>& frame = makeMemory(kFrame, 7)) { return data(CAMERA_MSG_PREVIEW_FRAME, frame); }
    /// Merges two pictures on a new shot, in `steps`; `act` runs when the application is told of the first one.
    Lines mergeDisturbed(const std::vector<int32_t>& steps, const std::function<void()>& act) {
        makeShot();
        shot->setCallbacks(onProgress, onData, onDataTimestamp, this);
        picture();
        fakePlusMe().progress = steps;
        whileMerging = act;
        return picture();
    }
    static void onProgress(int32_t type, int32_t, int32_t, void* user) {
        if (type == 0x2000)
            std::exchange(static_cast<ShotAddMeTest*>(user)->whileMerging, [] {})();
    }
    std::function<void()> whileMerging;
};

TEST_F(ShotAddMeTest, ANewShotIsReadyAndItsCommandsReachTheLibraryOrTheVendorLayer) {
    fakePlusMe().configureResults = {{0, 1}, {3, 1}};  // these two are not looked at
    EXPECT_EQ(made(), kReady + kStarted + Lines{"hw.setCallbacks"});
    EXPECT_EQ(fakePlusMe().encoder, jpeg_compress_yuv420sp_AddMe);
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
        EXPECT_EQ(picture(1), kFirst);
        Lines merged = {"pm.HandleSnapshotJpeg 10 of 2"};
        for (const int32_t progress : steps)
            merged = merged + Lines{"pm.CreateResult", text("app.notify 0x2000 %d 0", progress)};
        fakePlusMe().progress = steps;  // the last one goes on
        EXPECT_EQ(picture(2), merged + kDelivered);
        EXPECT_EQ(bytesOf(lastData), std::vector<uint8_t>({'m', 'e', 'r', 'g', 'e', 'd'}));
        EXPECT_EQ(lastData->offset(), 0);
        EXPECT_EQ(lastData->getMemory()->getSize(), 6U);
    }
}

TEST_F(ShotAddMeTest, ARefusedPictureGoesOnUnmerged) {
    made();
    const Lines refused =
        Lines{"pm.HandleSnapshotJpeg 10 of 1", "E ShotAddMe: PlusMe_HandleSnapshotJpeg FAILED 6!!!!!"} + kError;
    for (const Lines& rest : {kUnmerged, kOneAccepted}) {
        fakePlusMe().results["HandleSnapshotJpeg"] = 6;
        EXPECT_EQ(picture(), refused + rest);
        fakePlusMe().results.clear();
        EXPECT_EQ(picture().back(), rest == kUnmerged ? kFirst.back() : kDelivered.back());  // the first one counts
    }
}

TEST_F(ShotAddMeTest, AFailedMergeEndsThePair) {
    made();
    const Lines failed = {"pm.HandleSnapshotJpeg 10 of 1", "pm.CreateResult", "E ShotAddMe: ERROR ... status: 7"};
    const Lines noImage = {"E ShotAddMe: No image to return. a-1 i-0\\n", "E ShotAddMe: result data ptr[0x0] size[0]",
                           "app.data 0x100 0"};
    const auto failedMerge = [&] {
        EXPECT_EQ(picture(), kFirst);
        fakePlusMe().results["CreateResult"] = 7;
        const Lines lines = picture();
        fakePlusMe().results.clear();
        return lines;
    };
    picture();
    picture();
    EXPECT_EQ(failedMerge(), failed + kDelivered);  // the earlier result is still there
    command(1034);                                  // a new series forgets it
    EXPECT_EQ(failedMerge(), failed + noImage);
    EXPECT_EQ(picture(), kFirst);               // the pair has ended
    fakePlusMe().results["GetResultJpeg"] = 3;  // merged, but cannot be fetched
    EXPECT_EQ(picture(), (Lines{"pm.HandleSnapshotJpeg 10 of 1", "pm.CreateResult", "app.notify 0x2000 100 0",
                                "pm.GetResultJpeg", "E ShotAddMe: get result [3]\\n",
                                "E ShotAddMe: result data ptr[0x0] size[6]", "app.data 0x100 0"}));
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
        SCOPED_TRACE(::testing::PrintToString(failing.expected));
        failing.prepare(fakePlusMe());
        {
            const MallocWatch scarce(failing.mostMemory);
            EXPECT_FALSE(shot->Init());
        }
        EXPECT_EQ(recorder.take(), kFreed + failing.expected);
        EXPECT_EQ(command(1034), failing.instanceStays ? kStarted : kError + kNotStarted);
        fakePlusMe() = {};
        EXPECT_TRUE(shot->Init());
        recorder.take();
        EXPECT_EQ(command(1034), kStarted);
    }
}

TEST_F(ShotAddMeTest, WithoutAPictureSizeThereIsNoInstance) {
    hardware->params.setPictureSize(0, 0);
    const Lines unexpected = {"E ShotAddMe: unexpected Picture size(0, 0)\\n"};
    EXPECT_EQ(made(), unexpected + kNotStarted + Lines{"hw.setCallbacks"});
    const Lines unknown = {"E ShotAddMe: PlusMe_GetFirstPersonPosition is failed[-1]"};
    EXPECT_EQ(command(1033), unexpected);
    EXPECT_EQ(command(1034), kError + kNotStarted);
    EXPECT_EQ(command(1035, 1), unknown + Lines{"D ShotAddMe: first person position is already positioned"});
    EXPECT_EQ(command(1035, 0), unknown + Lines{"E ShotAddMe: switch first person position failed"});
    EXPECT_EQ(command(1037), Lines{"E ShotAddMe: PlusMeControl::CancelCapture() - mInstance is null"});
    EXPECT_EQ(command(1038), Lines{});
    const Lines refused = {"E ShotAddMe: PlusMeControl::AddFrameJpeg - mInstance is null", "app.notify 0x1C00 1 0"};
    EXPECT_EQ(picture(), refused + kUnmerged);
    shot->startPreview();
    EXPECT_EQ(frame(), (Lines{"hw.startPreview", "E ShotAddMe: we are not capturing", "app.data 0x10 460800"}));
}

TEST_F(ShotAddMeTest, TheFirstPersonsPositionIsTheComplementOfTheLibrarys) {
    made();
    const Lines got = {"pm.GetFirstPersonPosition", "D ShotAddMe: PlusMe_GetFirstPersonPosition is successed"};
    for (const auto& [wanted, current] : {std::pair(1, 0), {0, 1}, {1, 1}, {0, 0}, {2, 0}, {-1, 1}}) {
        const char* const then = wanted == 1 - current ? "D ShotAddMe: first person position is already positioned"
                                                       : "pm.SwitchFirstPersonPosition";
        fakePlusMe().position = current;
        EXPECT_EQ(command(1035, wanted), got + Lines{then}) << wanted << ' ' << current;
    }
    fakePlusMe().results = {{"GetFirstPersonPosition", 3}, {"SwitchFirstPersonPosition", 4}};
    fakePlusMe().position = 1;  // a failed question counts as 0
    EXPECT_EQ(command(1035, 0),
              (Lines{"pm.GetFirstPersonPosition", "E ShotAddMe: PlusMe_GetFirstPersonPosition is failed[3]",
                     "pm.SwitchFirstPersonPosition", "E ShotAddMe: switch first person position failed"}));
}

TEST_F(ShotAddMeTest, FramesAlternateBetweenTwoSlots) {
    made();
    EXPECT_EQ(frame(), (Lines{"E ShotAddMe: a frame of 460800 bytes has no slot", "app.data 0x10 460800"}));
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(recorder.take(), Lines{"hw.startPreview"});
    for (const auto& [offset, fill] : {std::pair(kFrame, uint8_t{5}), {size_t{0}, uint8_t{6}}}) {
        EXPECT_EQ(frame(makeMemory(kFrame, fill)),
                  (Lines{text("pm.HandlePreview 640x480 of %d", fill), "app.data 0x10 460800"}));
        EXPECT_EQ(lastData->getMemory().get(), shot->getPreviewHeap().get());
        EXPECT_EQ(static_cast<size_t>(lastData->offset()), offset);
        EXPECT_EQ(bytesOf(lastData), std::vector<uint8_t>(kFrame, fill));
    }
    const sp<IMemory> large = makeMemory(kFrame + 1);  // is delivered as it came, and takes no slot
    frame(large);
    EXPECT_EQ(lastData.get(), large.get());
    EXPECT_EQ(frame(makeMemory(1000)), Lines{"app.data 0x10 1000"});  // it fits, but the library would read beyond it
    EXPECT_EQ(lastData->offset(), 1000);
    fakePlusMe().results["StartCapture"] = 9;
    EXPECT_EQ(command(1034), kStarted + kError + Lines{"E ShotAddMe: Failed to start series. status 9"});
    EXPECT_EQ(frame(), (Lines{"E ShotAddMe: we are not capturing", "app.data 0x10 460800"}));
    EXPECT_EQ(lastData->offset(), 0);
}

TEST_F(ShotAddMeTest, TheSlotsFollowTheFormat) {
    made();
    hardware->params.setPreviewSize(320, 240);
    for (const std::string format :
         {"yuv420sp", "yuv420sp_custom", "yuv420p", "yuv422i", "yuv422p", "rgb565", "yuv422i-yuyv"}) {
        const size_t halves = format == "yuv422i-yuyv" ? 0 : format.starts_with("yuv420") ? 3 : 4;
        hardware->params.setPreviewFormat(format.c_str());
        shot->startPreview();
        EXPECT_EQ(shot->getPreviewHeap()->getSize(), halves * 320 * 240) << format;
    }
    EXPECT_EQ(recorder.take("E "), Lines{"E ShotAddMe: Invalid preview format for real preview"});
}

TEST_F(ShotAddMeTest, MemoryACallbackOrTheVendorLayerMayBeMissing) {
    made();
    EXPECT_EQ(data(CAMERA_MSG_COMPRESSED_IMAGE, nullptr),
              (Lines{"E ShotAddMe: Null data returned in data callback", "app.notify 0x1 -2147483648 0",
                     "app.data 0x100 null"}));
    EXPECT_EQ(data(CAMERA_MSG_RAW_IMAGE, makeMemory(3)), Lines{"app.data 0x80 3"});
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(picture().back(), "E ShotAddMe: mDataCb is NULL, returning.");
    shot->setCameraHardware(nullptr);
    EXPECT_EQ(shot->sendCommand(1034, 0, 0), INVALID_OPERATION);
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(recorder.take(), Lines(2, "E ShotAddMe: mHardware is NULL, returning."));
}

TEST_F(ShotAddMeTest, AMergeMayBeDisturbedFromWithinItsProgress) {
    for (const auto& commands : {std::vector{1038}, {1033, 1034}, {1034}, {}}) {  // none: the shot is retired
        SCOPED_TRACE(::testing::PrintToString(commands));
        const Lines lines = mergeDisturbed({50}, [&] {
            for (const int32_t code : commands)
                shot->sendCommand(code, 0, 0);
            if (commands.empty())
                retireShot();
        });
        EXPECT_EQ(countOf("pm.CreateResult", lines), 1);
        EXPECT_EQ(countOf("app.data 0x100 0", lines), commands.empty() ? 0 : 1);
        EXPECT_EQ(countOf("wrong instance", lines), 0);
        retireShot();
    }
}

TEST_F(ShotAddMeTest, ASeriesStartedDuringAMergeKeepsItsPictures) {
    mergeDisturbed({50, 100}, [&] {
        shot->sendCommand(1034, 0, 0);
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(10));
    });
    EXPECT_EQ(picture().back(), kDelivered.back());
}

TEST_F(ShotAddMeTest, TheLibraryIsNeverEnteredTwice) {
    made();
    shot->startPreview();
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    fakePlusMe().during = [&](const std::string&) {
        overlaps += inside++ != 0;
        std::this_thread::yield();
        --inside;
    };
    const auto deliver = [&](int times, int32_t type, size_t size, uint8_t fill) {
        for (int i = 0; i < times; ++i)
            hardware->data(type, makeMemory(size, fill));
    };
    std::vector<std::jthread> threads;
    for (const uint8_t fill : {1, 2, 3})
        threads.emplace_back(deliver, 40, CAMERA_MSG_PREVIEW_FRAME, kFrame, fill);
    threads.emplace_back(deliver, 100, CAMERA_MSG_COMPRESSED_IMAGE, 10, 0);
    for (int i = 0; i < 100; ++i)
        for (const int32_t code : {1035, 1037, 1034, i % 10 == 0 ? 1033 : 1037})
            shot->sendCommand(code, 0, 0);
    threads.clear();
    fakePlusMe().during = {};  // what it counts with ends here, the shot does not
    EXPECT_EQ(overlaps, 0);
    EXPECT_EQ(countOf(" odd", recorder.take()), 0) << "a frame was copied over another one that the library looked at";
}

}  // namespace
