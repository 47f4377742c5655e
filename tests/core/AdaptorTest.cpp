// The adaptor: opening, forwarding, switching and relaying.

#include "adaptor/KovCameraHardwareInterface.h"

#include <android/log.h>

#include <cstdlib>
#include <functional>

#include "host/runtime/Log.h"
#include "shots/Commands.h"
#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::FakeCameraHardware;
using kov::test::Lines;
using kov::test::makeMemory;
using kov::test::operator+;

namespace {

const Lines kSingleCreated = {
    "I ShotCommon: ShotCommon created: pid=PID",   "I ShotCommon: Preview width(640), height(480)",
    "I ShotCommon: Preview color format yuv420sp", "I ShotCommon: Picture width(2560), height(1920)",
    "I ShotCommon: Picture color format jpeg",     "I ShotSingle: ShotSingle created: pid=PID"};
const Lines kSingleDestroyed = {"I ShotSingle: ShotSingle destroyed: pid=PID",
                                "I ShotCommon: ShotCommon destroyed: pid=PID"};

class AdaptorTest : public ::testing::Test {
protected:
    void open(const sp<FakeCameraHardware>& vendor) {
        hardware = vendor;
        FakeCameraHardware::setNext(vendor.get());
        adaptor = openKovCameraHardware();
    }
    void setCallbacks() {
        adaptor->setCallbacks(
            [](int32_t type, int32_t ext1, int32_t ext2, void* cookie) {
                kov::test::record(kov::test::text("service.notify 0x%X %d %d %s", type, ext1, ext2,
                                                  static_cast<const char*>(cookie)));
            },
            [](int32_t type, const sp<IMemory>& data, void* cookie) {
                kov::test::record(kov::test::text("service.data 0x%X %zu %s", type, data.get() ? data->size() : 0,
                                                  static_cast<const char*>(cookie)));
            },
            [](int64_t time, int32_t type, const sp<IMemory>&, void* cookie) {
                kov::test::record(kov::test::text("service.dataTimestamp %d 0x%X %s", static_cast<int>(time), type,
                                                  static_cast<const char*>(cookie)));
            },
            cookie);
    }
    void sendOneOfEach() {
        hardware->notify(CAMERA_MSG_SHUTTER, 1, 2);
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(12));
        hardware->dataTimestamp(34, CAMERA_MSG_VIDEO_FRAME, makeMemory(1));
    }
    void TearDown() override {
        adaptor.clear();
        FakeCameraHardware::setNext(nullptr);
    }

    char cookie[7] = "cookie";
    kov::test::Recorder recorder;
    sp<FakeCameraHardware> hardware;
    sp<CameraHardwareInterface> adaptor;
};

TEST_F(AdaptorTest, OpensOnceWhileReferencedAndAnewAfterwards) {
    open(new FakeCameraHardware);
    EXPECT_EQ(recorder.take(), Lines{"openCameraHardware"} + kSingleCreated);
    setCallbacks();
    adaptor->sendCommand(1004, 0, 0);
    recorder.take();

    EXPECT_EQ(openKovCameraHardware(), adaptor);
    hardware->notify(CAMERA_MSG_SHUTTER);
    EXPECT_EQ(recorder.take(), Lines{"service.notify 0x2 0 0 cookie"});  // neither mode nor callbacks were reset

    adaptor.clear();
    EXPECT_EQ(recorder.take(), Lines{});
    EXPECT_EQ(hardware->getStrongCount(), 2);  // this test's and the next opener's
    open(new FakeCameraHardware);
    EXPECT_EQ(recorder.take(), Lines{"openCameraHardware"} + kSingleCreated);
    adaptor.clear();
    EXPECT_EQ(recorder.take(), kSingleDestroyed);
}

struct Operation {
    const char* name;
    std::function<std::string(CameraHardwareInterface&)> run;  // calls it and shows its result
    std::string vendorCall;                                    // what the fake records
    std::string vendorResult;                                  // with a vendor layer that answers 7, true or a heap
    std::string lineWithoutShot;
    std::string resultWithout;  // with neither shot nor vendor layer
};

const sp<IMemory> kNoMemory;
const char kNothing[] = "";

std::vector<Operation> operations() {
    const auto heap = [](const sp<IMemoryHeap>& heap) { return std::string(heap.get() ? "heap" : "empty"); };
    const auto name = [](const char* operation) { return std::string(operation) + " : mCurShot is NULL, returning."; };
    std::vector<Operation> all = {
        {"getPreviewHeap", [=](auto& c) { return heap(c.getPreviewHeap()); }, "hw.getPreviewHeap", "heap",
         name("CameraParameters"), "empty"},
        {"getRawHeap", [=](auto& c) { return heap(c.getRawHeap()); }, "hw.getRawHeap", "heap", name("getRawHeap"),
         "empty"},
        {"enableMsgType", [](auto& c) { return c.enableMsgType(0x30), kNothing; }, "hw.enableMsgType 0x30", kNothing,
         name("enableMsgType"), kNothing},
        {"disableMsgType", [](auto& c) { return c.disableMsgType(0x200), kNothing; }, "hw.disableMsgType 0x200",
         kNothing, name("disableMsgType"), kNothing},
        {"msgTypeEnabled", [](auto& c) { return std::to_string(c.msgTypeEnabled(0x10)); }, kNothing, "1",
         name("msgTypeEnabled"), "0"},
        {"previewEnabled", [](auto& c) { return std::to_string(c.previewEnabled()); }, "hw.previewEnabled", "1",
         name("previewEnabled"), "0"},
        {"recordingEnabled", [](auto& c) { return std::to_string(c.recordingEnabled()); }, "hw.recordingEnabled", "1",
         name("recordingEnabled"), "0"},
        {"releaseRecordingFrame", [](auto& c) { return c.releaseRecordingFrame(kNoMemory), kNothing; },
         "hw.releaseRecordingFrame null", kNothing, name("releaseRecordingFrame"), kNothing},
        {"stopPreview", [](auto& c) { return c.stopPreview(), kNothing; }, "hw.stopPreview", kNothing,
         name("stopPreview"), kNothing},
        {"stopRecording", [](auto& c) { return c.stopRecording(), kNothing; }, "hw.stopRecording", kNothing,
         name("stopRecording"), kNothing},
        {"release", [](auto& c) { return c.release(), kNothing; }, "hw.release", kNothing, name("release"), kNothing},
        {"getParameters", [](auto& c) { return std::string(c.getParameters().flatten().string()); }, kNothing,
         "picture-format=jpeg;picture-size=2560x1920;preview-format=yuv420sp;preview-size=640x480", kNothing, kNothing},
    };
    const auto status = [&](const char* operation, std::function<status_t(CameraHardwareInterface&)> run,
                            const char* arguments = "") {
        all.push_back({operation, [run](auto& c) { return std::to_string(run(c)); },
                       std::string("hw.") + operation + arguments, "7", name(operation), "-38"});
    };
    status("startPreview", [](auto& c) { return c.startPreview(); });
    status("startRecording", [](auto& c) { return c.startRecording(); });
    status("autoFocus", [](auto& c) { return c.autoFocus(); });
    status("cancelAutoFocus", [](auto& c) { return c.cancelAutoFocus(); });
    status("takePicture", [](auto& c) { return c.takePicture(); });
    status("cancelPicture", [](auto& c) { return c.cancelPicture(); });
    status(
        "setParameters", [](auto& c) { return c.setParameters(CameraParameters(String8("a=b"))); }, " a=b");
    status(
        "sendCommand", [](auto& c) { return c.sendCommand(1017, 2, 3); }, " 1017 2 3");
    status(
        "dump", [](auto& c) { return c.dump(5, Vector<String16>()); }, " 5 0");
    return all;
}

/// Lines of the vendor layer and of failures, which is what the table tells of.
Lines callsAndErrors(kov::test::Recorder& recorder) {
    Lines lines = recorder.take();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("hw.") && !line.starts_with("E "); });
    return lines;
}

TEST_F(AdaptorTest, EveryOperationReachesTheShotElseTheVendorLayerElseNothing) {
    for (const Operation& operation : operations()) {
        SCOPED_TRACE(operation.name);
        const Lines call = operation.vendorCall.empty() ? Lines{} : Lines{operation.vendorCall};
        const Lines noShot = operation.lineWithoutShot.empty()
                                 ? Lines{}
                                 : Lines{"E KovCameraHardwareInterface: " + operation.lineWithoutShot};
        const sp<FakeCameraHardware> vendor = new FakeCameraHardware;
        vendor->flag = true;
        vendor->previewHeap = vendor->rawHeap = new MemoryHeapBase(1);
        for (const char* name : {"startPreview", "startRecording", "autoFocus", "cancelAutoFocus", "takePicture",
                                 "cancelPicture", "setParameters", "sendCommand", "dump"})
            vendor->results[name] = 7;
        open(vendor);
        recorder.take();
        EXPECT_EQ(operation.run(*adaptor.get()), operation.vendorResult);
        EXPECT_EQ(callsAndErrors(recorder), call);

        adaptor->sendCommand(1004, 0, 0);
        recorder.take();
        EXPECT_EQ(operation.run(*adaptor.get()), operation.vendorResult);
        EXPECT_EQ(callsAndErrors(recorder), noShot + call);

        adaptor.clear();
        open(nullptr);
        recorder.take();
        const bool quiet = operation.lineWithoutShot.empty();  // getParameters has no line at all
        const std::string tag =
            operation.name == std::string("takePicture") || operation.name == std::string("sendCommand") ? "ShotSingle"
                                                                                                         : "ShotCommon";
        EXPECT_EQ(operation.run(*adaptor.get()), operation.resultWithout);
        EXPECT_EQ(callsAndErrors(recorder), quiet ? Lines{} : Lines{"E " + tag + ": mHardware is NULL, returning."});

        adaptor->sendCommand(1016, 0, 0);
        recorder.take();
        EXPECT_EQ(operation.run(*adaptor.get()), operation.resultWithout);
        EXPECT_EQ(callsAndErrors(recorder), noShot);
        adaptor.clear();
    }
}

TEST_F(AdaptorTest, TheTwoPlatformDefaultsNeverLeaveTheAdaptor) {
    open(new FakeCameraHardware);
    recorder.take();
    EXPECT_FALSE(adaptor->useOverlay());
    EXPECT_EQ(adaptor->setOverlay(nullptr), BAD_VALUE);
    EXPECT_EQ(recorder.take(), Lines{});
}

TEST_F(AdaptorTest, ASwitchIsMadeInFullAndInItsOrder) {
    open(new FakeCameraHardware);
    setCallbacks();
    EXPECT_EQ(recorder.take("hw."), Lines{"hw.setCallbacks"});
    EXPECT_EQ(adaptor->sendCommand(1000, 5, 6), NO_ERROR);
    EXPECT_EQ(recorder.take(), Lines{"W KovCameraHardwareInterface: sendCommand : 1000 5 6 "} +
                                   Lines{"hw.setCallbacks"} + kSingleDestroyed + Lines{"hw.setCallbacks"} +
                                   kSingleCreated + Lines{"hw.setCallbacks"});
    sendOneOfEach();
    EXPECT_EQ(recorder.take(), (Lines{"service.notify 0x2 1 2 cookie", "service.data 0x10 12 cookie",
                                      "service.dataTimestamp 34 0x20 cookie"}));

    EXPECT_EQ(adaptor->sendCommand(1004, 0, 0), NO_ERROR);
    EXPECT_EQ(recorder.take(), Lines{"W KovCameraHardwareInterface: sendCommand : 1004 0 0 "} +
                                   Lines{"hw.setCallbacks"} + kSingleDestroyed + Lines{"hw.setCallbacks"});
    EXPECT_EQ(hardware->user, static_cast<void*>(static_cast<KovCameraHardwareInterface*>(adaptor.get())));
    sendOneOfEach();
    EXPECT_EQ(recorder.take(), (Lines{"service.notify 0x2 1 2 cookie", "service.data 0x10 12 cookie",
                                      "service.dataTimestamp 34 0x20 cookie"}));
}

TEST_F(AdaptorTest, CallbacksMayBeMissingAtEveryPlace) {
    open(new FakeCameraHardware);
    adaptor->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    recorder.take();
    const Lines dropped = {"E KovCameraHardwareInterface: mNotifyCb is NULL, returning.",
                           "E KovCameraHardwareInterface: mDataCb is NULL, returning.",
                           "E KovCameraHardwareInterface: mDataCbTimestamp is NULL, returning."};
    sendOneOfEach();
    EXPECT_EQ(recorder.take(), dropped);

    void* const shot = hardware->user;
    hardware->user = nullptr;
    sendOneOfEach();
    EXPECT_EQ(recorder.take(), (Lines(3, "E ShotSingle: ShotSingle is NULL, returning.")));
    hardware->user = shot;

    adaptor->sendCommand(1004, 0, 0);
    recorder.take();
    adaptor->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(recorder.take(),
              (Lines{"E KovCameraHardwareInterface: setCallbacks : mCurShot is NULL, return", "hw.setCallbacks"}));
    sendOneOfEach();
    EXPECT_EQ(recorder.take(), dropped);
    hardware->user = nullptr;
    sendOneOfEach();
    EXPECT_EQ(recorder.take(),
              (Lines(3, "E KovCameraHardwareInterface: KovCameraHardwareInterface is NULL, returning.")));
}

TEST_F(AdaptorTest, LateMessagesOfTheDeadAreDropped) {
    open(new FakeCameraHardware);
    setCallbacks();
    const auto shotNotify = hardware->notifyCb;
    void* const shot = hardware->user;
    adaptor->sendCommand(1004, 0, 0);
    const auto adaptorNotify = hardware->notifyCb;
    void* const dead = hardware->user;
    recorder.take();
    shotNotify(CAMERA_MSG_SHUTTER, 0, 0, shot);
    adaptorNotify(CAMERA_MSG_SHUTTER, 0, 0, shot);  // of another class than what the address was
    EXPECT_EQ(recorder.take(), Lines{});
    adaptor.clear();
    adaptorNotify(CAMERA_MSG_SHUTTER, 0, 0, dead);
    EXPECT_EQ(recorder.take(), Lines{});
}

TEST_F(AdaptorTest, WithoutAVendorLayerItStillOpensAndSwitches) {
    open(nullptr);
    recorder.take();
    EXPECT_EQ(adaptor->sendCommand(1000, 0, 0), NO_ERROR);
    const Lines created = {"I ShotCommon: ShotCommon created: pid=PID", "E ShotCommon: mHardware is NULL, returning.",
                           "I ShotSingle: ShotSingle created: pid=PID", "E ShotSingle: mHardware is NULL, returning."};
    EXPECT_EQ(recorder.take(), Lines{"W KovCameraHardwareInterface: sendCommand : 1000 0 0 "} +
                                   Lines{"E ShotSingle: mHardware is NULL, returning."} + kSingleDestroyed + created);
}

TEST_F(AdaptorTest, ASwitchFromWithinACallbackWithinAnOperation) {
    open(new FakeCameraHardware);
    setCallbacks();
    // The vendor layer calls back synchronously from takePicture, and the service switches there, twice.
    hardware->during["takePicture"] = [&] {
        adaptor->sendCommand(1004, 0, 0);
        adaptor->sendCommand(1000, 0, 0);
        hardware->notify(CAMERA_MSG_SHUTTER);
    };
    hardware->results["takePicture"] = 3;
    recorder.take();
    EXPECT_EQ(adaptor->takePicture(), 3);
    EXPECT_EQ(recorder.take("service."), Lines{"service.notify 0x2 0 0 cookie"});

    // A switch from within a registration that a switch makes: the last wish wins.
    int calls = 0;
    hardware->during["setCallbacks"] = [&] {
        if (++calls == 1)
            adaptor->sendCommand(1004, 0, 0);
    };
    adaptor->sendCommand(1000, 0, 0);
    hardware->during.clear();
    recorder.take();
    EXPECT_EQ(adaptor->cancelAutoFocus(), NO_ERROR);
    EXPECT_EQ(recorder.take("E "),
              Lines{"E KovCameraHardwareInterface: cancelAutoFocus : mCurShot is NULL, returning."});
}

TEST_F(AdaptorTest, ARegistrationThatOvertakesASwitchIsMadeAgain) {
    for (const int32_t mode : {1000, 1004}) {
        open(new FakeCameraHardware);
        int calls = 0;
        hardware->during["setCallbacks"] = [&] {
            if (++calls == 1)
                adaptor->sendCommand(mode, 0, 0);
        };
        setCallbacks();
        recorder.take();
        sendOneOfEach();
        EXPECT_EQ(recorder.take("service.").size(), 3U) << mode;
        adaptor.clear();
    }
}

TEST_F(AdaptorTest, TheLastReferenceMayGoWithinACallback) {
    open(new FakeCameraHardware);
    static CameraHardwareInterface* held;
    held = adaptor.get();
    held->incStrong(&held);
    adaptor->setCallbacks([](int32_t, int32_t, int32_t, void*) { held->decStrong(&held); }, nullptr, nullptr, nullptr);
    adaptor.clear();
    recorder.take();
    hardware->notify(CAMERA_MSG_SHUTTER);
    EXPECT_EQ(recorder.take(), kSingleDestroyed);
    EXPECT_EQ(hardware->getStrongCount(), 2);
}

TEST_F(AdaptorTest, TheLastReferenceMayGoWithinAnOperation) {
    const struct {
        const char* name;
        int32_t mode;
        const char* vendorOperation;  // calls back; the service drops its reference there
        std::function<void(CameraHardwareInterface&)> run;
    } cases[] = {
        {"picture", 1000, "takePicture", [](auto& c) { c.takePicture(); }},
        {"picture without a shot", 1004, "takePicture", [](auto& c) { c.takePicture(); }},
        {"registration", 1000, "setCallbacks", [](auto& c) { c.setCallbacks(nullptr, nullptr, nullptr, nullptr); }},
        {"registration without a shot", 1004, "setCallbacks",
         [](auto& c) { c.setCallbacks(nullptr, nullptr, nullptr, nullptr); }},
        {"switch", 1000, "setCallbacks", [](auto& c) { c.sendCommand(1000, 0, 0); }},
        {"release", 1000, "setCallbacks", [](auto& c) { c.sendCommand(1004, 0, 0); }},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        open(new FakeCameraHardware);
        adaptor->sendCommand(test.mode, 0, 0);
        const wp<FakeCameraHardware> vendor = hardware;
        CameraHardwareInterface& inUse = *adaptor.get();
        hardware->during[test.vendorOperation] = [&] {
            FakeCameraHardware::setNext(nullptr);
            hardware.clear();
            adaptor.clear();
            EXPECT_TRUE(vendor.promote().get()) << "the vendor layer went while it was in use";
        };
        test.run(inUse);
        EXPECT_FALSE(vendor.promote().get()) << "an adaptor or a shot was left over";
    }
}

// Constructed before every other static object, and so destroyed after all of them.
__attribute__((init_priority(101))) sp<CameraHardwareInterface> heldToTheEnd;

TEST(AdaptorLifeTest, AnAdaptorMayOutliveTheStaticObjects) {
    const auto endHoldingOne = [] {
        kov::host::setLogLevel(ANDROID_LOG_SILENT);
        FakeCameraHardware::setNext(new FakeCameraHardware);
        heldToTheEnd = openKovCameraHardware();
        std::exit(0);
    };
    EXPECT_EXIT(endHoldingOne(), testing::ExitedWithCode(0), "");
}

}  // namespace
