// The adaptor: opening, forwarding, switching and relaying.

#include "adaptor/KovCameraHardwareInterface.h"

#include <android/log.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <thread>
#include <tuple>

#include "host/runtime/Log.h"
#include "shots/Modes.h"
#include "shots/continuous/ShotContinuous.h"
#include "shots/single/ShotSingle.h"
#include "tests/support/ShotTest.h"

using namespace android;
using namespace kov::test;

namespace {

/// A code of the range that only releases the current shot.
const int32_t kNoMode = [] {
    int32_t code = KOV_MODE_FIRST;
    while (shotMakerOf(code))
        ++code;
    return code;
}();

using Camera = CameraHardwareInterface;

const Lines kSingleCreated = {
    "I ShotCommon: ShotCommon created: pid=PID",   "I ShotCommon: Preview width(640), height(480)",
    "I ShotCommon: Preview color format yuv420sp", "I ShotCommon: Picture width(2560), height(1920)",
    "I ShotCommon: Picture color format jpeg",     "I ShotSingle: ShotSingle created: pid=PID"};
const Lines kSingleDestroyed = {"I ShotSingle: ShotSingle destroyed: pid=PID",
                                "I ShotCommon: ShotCommon destroyed: pid=PID"};
const Lines kAllReceived = {"app.notify 0x2 1 2", "app.data 0x10 12", "app.dataTimestamp 34 0x20 1"};

class AdaptorTest : public ShotTest<ShotSingle> {
protected:
    void open(const sp<FakeCameraHardware>& vendor) {
        hardware = vendor;
        FakeCameraHardware::setNext(vendor.get());
        adaptor = openKovCameraHardware();
    }
    void setCallbacks() { adaptor->setCallbacks(onNotify, onData, onDataTimestamp, this); }
    /// Sends a message of each kind, and tells what became of them.
    Lines sendOneOfEach() {
        recorder.take();
        hardware->notify(CAMERA_MSG_SHUTTER, 1, 2);
        hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(12));
        hardware->dataTimestamp(34, CAMERA_MSG_VIDEO_FRAME, makeMemory(1));
        return recorder.take();
    }
    /// Has the service switch within the next registration.
    void switchWithinRegistration(int32_t mode) {
        hardware->during["setCallbacks"] = [this, mode, calls = 0]() mutable {
            if (++calls == 1)
                adaptor->sendCommand(mode, 0, 0);
        };
    }
    /// Whom the vendor layer has as its receiver: the mode of one of two shots, kNoMode for the adaptor, else 0.
    int32_t receiver() {
        const std::pair<data_callback, int32_t> receivers[] = {{KovCameraHardwareInterface::dataCallback, kNoMode},
                                                               {ShotSingle::dataCallback, 1000},
                                                               {ShotContinuous::dataCallback, 1001}};
        for (const auto& [callback, code] : receivers) {
            if (hardware->dataCb == callback)
                return code;
        }
        return 0;
    }
    void TearDown() override {
        adaptor.clear();
        FakeCameraHardware::setNext(nullptr);
    }

    sp<CameraHardwareInterface> adaptor;
};

TEST_F(AdaptorTest, OpensOnceWhileReferencedAndAnewAfterwards) {
    open(new FakeCameraHardware);
    EXPECT_EQ(recorder.take(), Lines{"openCameraHardware"} + kSingleCreated);
    setCallbacks();
    adaptor->sendCommand(kNoMode, 0, 0);
    recorder.take();

    EXPECT_EQ(openKovCameraHardware(), adaptor);
    hardware->notify(CAMERA_MSG_SHUTTER);
    EXPECT_EQ(recorder.take(), Lines{"app.notify 0x2 0 0"});  // neither mode nor callbacks were reset

    adaptor.clear();
    EXPECT_EQ(recorder.take(), Lines{});
    EXPECT_EQ(hardware->getStrongCount(), 2);  // this test's and the next opener's
    open(new FakeCameraHardware);
    EXPECT_EQ(recorder.take(), Lines{"openCameraHardware"} + kSingleCreated);
    adaptor.clear();
    EXPECT_EQ(recorder.take(), kSingleDestroyed);
}

TEST_F(AdaptorTest, TheNextIsOpenedWhenTheVendorLayerOfTheOneBeforeIsClosed) {
    static std::jthread opener;
    struct Closing : FakeCameraHardware {
        ~Closing() override {
            opener = startUntilItWaits([] { openKovCameraHardware(); });
            record("closed");
        }
    };
    open(new Closing);
    open(new FakeCameraHardware);  // the next one's; the adaptor is the same
    recorder.take();
    adaptor.clear();
    opener.join();
    EXPECT_EQ(only(recorder.take(), {"closed", "openCameraHardware"}), (Lines{"closed", "openCameraHardware"}));
}

/// Calls an operation and shows its result.
template <typename Call>
std::function<std::string(Camera&)> show(Call call) {
    return [call](Camera& camera) -> std::string {
        using Result = std::invoke_result_t<Call, Camera&>;
        if constexpr (std::is_void_v<Result>)
            return std::invoke(call, camera), "nothing";
        else if constexpr (std::is_arithmetic_v<Result>)
            return std::to_string(std::invoke(call, camera));
        else
            return std::invoke(call, camera).get() ? "heap" : "empty";
    };
}

struct Operation {
    std::string name;
    std::function<std::string(Camera&)> run;
    std::string result;          // with a vendor layer that answers 7, true or a heap
    const char* arguments = "";  // that the vendor layer records; null when it records nothing
    bool quiet = false;          // writes no line
};
const std::string kParameters =
    "picture-format=jpeg;picture-size=2560x1920;preview-format=yuv420sp;preview-size=640x480";
const Operation kOperations[] = {
    {"getPreviewHeap", show(&Camera::getPreviewHeap), "heap"},
    {"getRawHeap", show(&Camera::getRawHeap), "heap"},
    {"startPreview", show(&Camera::startPreview), "7"},
    {"stopPreview", show(&Camera::stopPreview), "nothing"},
    {"previewEnabled", show(&Camera::previewEnabled), "1"},
    {"startRecording", show(&Camera::startRecording), "7"},
    {"stopRecording", show(&Camera::stopRecording), "nothing"},
    {"recordingEnabled", show(&Camera::recordingEnabled), "1"},
    {"autoFocus", show(&Camera::autoFocus), "7"},
    {"cancelAutoFocus", show(&Camera::cancelAutoFocus), "7"},
    {"takePicture", show(&Camera::takePicture), "7"},
    {"cancelPicture", show(&Camera::cancelPicture), "7"},
    {"release", show(&Camera::release), "nothing"},
    {"enableMsgType", show([](Camera& c) { c.enableMsgType(0x30); }), "nothing", " 0x30"},
    {"disableMsgType", show([](Camera& c) { c.disableMsgType(0x200); }), "nothing", " 0x200"},
    {"msgTypeEnabled", show([](Camera& c) { return c.msgTypeEnabled(0x10); }), "1", nullptr},
    {"releaseRecordingFrame", show([](Camera& c) { c.releaseRecordingFrame(nullptr); }), "nothing", " null"},
    {"setParameters", show([](Camera& c) { return c.setParameters(CameraParameters(String8("a=b"))); }), "7", " a=b"},
    {"sendCommand", show([](Camera& c) { return c.sendCommand(1017, 2, 3); }), "7", " 1017 2 3"},
    {"dump", show([](Camera& c) { return c.dump(5, Vector<String16>()); }), "7", " 5 0"},
    {"getParameters", [](Camera& c) { return std::string(c.getParameters().flatten().string()); }, kParameters, nullptr,
     true},
    // The two that the platform answers itself.
    {"useOverlay", show([](Camera& c) { return c.useOverlay(); }), "0", nullptr, true},
    {"setOverlay", show([](Camera& c) { return c.setOverlay(nullptr); }), "-22", nullptr, true}};

TEST_F(AdaptorTest, EveryOperationReachesTheShotElseTheVendorLayerElseNothing) {
    // The result with neither shot nor vendor layer, where it is another.
    std::map<std::string, std::string> without = {{"7", "-38"}, {"1", "0"}, {"heap", "empty"}, {kParameters, ""}};
    const sp<FakeCameraHardware> vendor = new FakeCameraHardware;
    vendor->flag = true;
    vendor->previewHeap = vendor->rawHeap = new MemoryHeapBase(1);
    for (const auto& [name, run, result, arguments, quiet] : kOperations) {
        vendor->results[name] = result == "7" ? 7 : 0;
        for (const auto& [haveVendor, haveShot] : {std::pair{0, 0}, {0, 1}, {1, 0}, {1, 1}}) {
            SCOPED_TRACE(text("%s, vendor layer %d, shot %d", name.c_str(), haveVendor, haveShot));
            open(haveVendor ? vendor : nullptr);
            adaptor->sendCommand(haveShot ? 1000 : 1016, 0, 0);
            recorder.take();
            EXPECT_EQ(run(*adaptor.get()), haveVendor || !without.contains(result) ? result : without[result]);
            Lines expected;
            if (!haveShot && !quiet)
                expected = {"E KovCameraHardwareInterface: " + (name == "getPreviewHeap" ? "CameraParameters" : name) +
                            " : mCurShot is NULL, returning."};
            else if (!haveVendor && !quiet)
                expected = {text("E Shot%s: mHardware is NULL, returning.",
                                 name == "takePicture" || name == "sendCommand" ? "Single" : "Common")};
            if (haveVendor && arguments)
                expected.push_back("hw." + name + arguments);
            Lines lines = recorder.take();
            std::erase_if(lines, [](const auto& line) { return line.starts_with("I ") || line.starts_with("W "); });
            EXPECT_EQ(lines, expected);
            adaptor.clear();
        }
    }
}

TEST_F(AdaptorTest, WithoutAVendorLayerItStillOpensAndSwitches) {
    open(nullptr);
    recorder.take();
    EXPECT_EQ(adaptor->sendCommand(1000, 0, 0), NO_ERROR);
    const Lines missing = {"E ShotSingle: mHardware is NULL, returning."};  // from a registration
    EXPECT_EQ(recorder.take(), Lines{"W KovCameraHardwareInterface: sendCommand : 1000 0 0 "} + missing +
                                   kSingleDestroyed + Lines{kSingleCreated.front()} +
                                   Lines{"E ShotCommon: mHardware is NULL, returning."} + Lines{kSingleCreated.back()} +
                                   missing);
}

TEST_F(AdaptorTest, ASwitchIsMadeInFullAndInItsOrder) {
    open(new FakeCameraHardware);
    setCallbacks();
    EXPECT_EQ(recorder.take("hw."), Lines{"hw.setCallbacks"});
    const Lines released = Lines{"hw.setCallbacks"} + kSingleDestroyed + Lines{"hw.setCallbacks"};
    for (const int32_t mode : {1000, kNoMode}) {
        EXPECT_EQ(adaptor->sendCommand(mode, 5, 6), NO_ERROR);
        EXPECT_EQ(recorder.take(), Lines{text("W KovCameraHardwareInterface: sendCommand : %d 5 6 ", mode)} + released +
                                       (mode == 1000 ? kSingleCreated + Lines{"hw.setCallbacks"} : Lines{}));
        EXPECT_EQ(sendOneOfEach(), kAllReceived);
    }
    auto* const own = static_cast<KovCameraHardwareInterface*>(adaptor.get());
    EXPECT_EQ(hardware->user, static_cast<void*>(own));
    adaptor->sendCommand(1000, 0, 0);
    recorder.take();
    own->releaseCurrentShot();
    EXPECT_EQ(recorder.take(), released);
}

TEST_F(AdaptorTest, CallbacksMayBeMissingAtEveryPlace) {
    open(new FakeCameraHardware);
    const Lines withoutShot = {"E KovCameraHardwareInterface: setCallbacks : mCurShot is NULL, return"};
    for (const std::string receiver : {"ShotSingle", "KovCameraHardwareInterface"}) {
        recorder.take();
        adaptor->setCallbacks(nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(recorder.take("E "), receiver == "ShotSingle" ? Lines{} : withoutShot);
        EXPECT_EQ(sendOneOfEach(), (Lines{"E KovCameraHardwareInterface: mNotifyCb is NULL, returning.",
                                          "E KovCameraHardwareInterface: mDataCb is NULL, returning.",
                                          "E KovCameraHardwareInterface: mDataCbTimestamp is NULL, returning."}));
        hardware->user = nullptr;
        EXPECT_EQ(sendOneOfEach(), Lines(3, "E " + receiver + ": " + receiver + " is NULL, returning."));
        adaptor->sendCommand(kNoMode, 0, 0);
    }
}

TEST_F(AdaptorTest, LateMessagesOfTheDeadAreDropped) {
    open(new FakeCameraHardware);
    setCallbacks();
    const auto shotNotify = hardware->notifyCb;
    void* const shot = hardware->user;
    adaptor->sendCommand(kNoMode, 0, 0);
    const auto adaptorNotify = hardware->notifyCb;
    void* const dead = hardware->user;
    shotNotify(CAMERA_MSG_SHUTTER, 0, 0, shot);
    adaptorNotify(CAMERA_MSG_SHUTTER, 0, 0, shot);  // of another class than what the address was
    adaptor.clear();
    adaptorNotify(CAMERA_MSG_SHUTTER, 0, 0, dead);
    EXPECT_EQ(recorder.take("app."), Lines{});
}

TEST_F(AdaptorTest, ASwitchFromWithinACallbackWithinAnOperation) {
    open(new FakeCameraHardware);
    setCallbacks();
    // The vendor layer calls back synchronously from takePicture, and the service switches there, twice.
    hardware->during["takePicture"] = [&] {
        adaptor->sendCommand(kNoMode, 0, 0);
        adaptor->sendCommand(1000, 0, 0);
        hardware->notify(CAMERA_MSG_SHUTTER);
    };
    hardware->results["takePicture"] = 3;
    recorder.take();
    EXPECT_EQ(adaptor->takePicture(), 3);
    EXPECT_EQ(recorder.take("app."), Lines{"app.notify 0x2 0 0"});

    // A switch from within a registration that a switch makes: the last wish wins.
    switchWithinRegistration(kNoMode);
    adaptor->sendCommand(1000, 0, 0);
    recorder.take();
    EXPECT_EQ(adaptor->cancelAutoFocus(), NO_ERROR);
    EXPECT_EQ(recorder.take("E "),
              Lines{"E KovCameraHardwareInterface: cancelAutoFocus : mCurShot is NULL, returning."});
}

// The vendor layer stores a registration late: another thread switches, or registers, while one is on its way. What is
// registered last must be what is current.
TEST_F(AdaptorTest, NoRegistrationIsLostHoweverLateTheVendorLayerStoresIt) {
    const std::pair<int32_t, int32_t> switches[] = {{1000, 1001}, {1001, 1000}, {kNoMode, 1000}, {1000, kNoMode}};
    for (const auto& [from, to] : switches) {
        for (const bool afterStoring : {false, true}) {
            SCOPED_TRACE(text("%d to %d, %s", from, to, afterStoring ? "after storing" : "before storing"));
            open(new FakeCameraHardware);
            adaptor->sendCommand(from, 0, 0);
            const char* const within = afterStoring ? "setCallbacks stored" : "setCallbacks";
            hardware->during[within] = [&, calls = 0, to = to]() mutable {
                if (++calls > 1)
                    return;
                std::thread([&] { adaptor->sendCommand(to, 0, 0); }).join();  // nobody waits for the one at work
                std::thread([&] { setCallbacks(); }).join();
            };
            setCallbacks();
            EXPECT_EQ(sendOneOfEach(), kAllReceived);
            EXPECT_EQ(receiver(), to);
            adaptor.clear();
        }
    }
}

TEST_F(AdaptorTest, EveryModeCodeMakesItsShotOrNone) {
    const std::map<int32_t, std::string> shots = {
        {1000, "ShotSingle"}, {1001, "ShotContinuous"}, {1002, "ShotPanorama"}, {1003, "ShotSmile"},
        {1006, "ShotSelf"},   {1009, "ShotAddMe"},      {1010, "ShotAction"},   {1013, "ShotCartoon"}};
    open(new FakeCameraHardware);
    for (int32_t code = 999; code <= 1017; ++code) {
        SCOPED_TRACE(code);
        const bool switches = code >= 1000 && code <= 1016;
        const std::string name = shots.contains(code) ? shots.at(code) : switches ? "" : "ShotSingle";
        adaptor->sendCommand(1000, 0, 0);
        recorder.take();
        EXPECT_EQ(adaptor->sendCommand(code, 3, 4), NO_ERROR);
        const std::string line = "I " + name + ": " + name;
        EXPECT_EQ(only(recorder.take(), {(line + " created: ").c_str()}),
                  Lines(switches && !name.empty(), line + " created: pid=PID"));
        EXPECT_EQ(receiver() == kNoMode, name.empty());
        adaptor->sendCommand(1016, 0, 0);
        EXPECT_EQ(only(recorder.take(), {"I Shot"}),
                  name.empty() ? Lines{}
                               : (Lines{line + " destroyed: pid=PID", "I ShotCommon: ShotCommon destroyed: pid=PID"}));
    }
}

TEST_F(AdaptorTest, TheLastReferenceMayGoWithinACallbackOrAnOperation) {
    open(new FakeCameraHardware);
    const auto drop = [](int32_t, int32_t, int32_t, void* held) { static_cast<sp<Camera>*>(held)->clear(); };
    adaptor->setCallbacks(drop, nullptr, nullptr, &adaptor);
    recorder.take();
    hardware->notify(CAMERA_MSG_SHUTTER);
    EXPECT_EQ(recorder.take(), kSingleDestroyed);
    EXPECT_EQ(hardware->getStrongCount(), 2);
    const auto registers = [](Camera& c) { c.setCallbacks(nullptr, nullptr, nullptr, nullptr); };
    // The mode, the vendor layer's operation in which the service drops its reference, and what leads to it.
    const std::tuple<int32_t, const char*, std::function<void(Camera&)>> cases[] = {
        {1000, "takePicture", &Camera::takePicture},
        {kNoMode, "takePicture", &Camera::takePicture},
        {1000, "setCallbacks", registers},
        {kNoMode, "setCallbacks", registers},
        {1000, "setCallbacks", [](Camera& c) { c.sendCommand(1000, 0, 0); }},
        {1000, "setCallbacks", [](Camera& c) { c.sendCommand(kNoMode, 0, 0); }},
    };
    for (const auto& [mode, vendorOperation, run] : cases) {
        SCOPED_TRACE(text("%s in mode %d", vendorOperation, mode));
        open(new FakeCameraHardware);
        adaptor->sendCommand(mode, 0, 0);
        const wp<FakeCameraHardware> vendor = hardware;
        hardware->during[vendorOperation] = [&] {
            FakeCameraHardware::setNext(nullptr);
            hardware.clear();
            adaptor.clear();
            EXPECT_TRUE(vendor.promote().get()) << "the vendor layer went while it was in use";
        };
        run(*adaptor.get());
        EXPECT_FALSE(vendor.promote().get()) << "an adaptor or a shot was left over";
    }
}

/// Opens the adaptor before all other static objects are made and, where it is enabled, after they were destroyed.
struct OpensEarlyAndLate {
    bool enabled = false;
    sp<CameraHardwareInterface> opened;

    OpensEarlyAndLate() {
        FakeCameraHardware::setNext(new FakeCameraHardware);
        openKovCameraHardware();
        FakeCameraHardware::setNext(nullptr);
    }
    ~OpensEarlyAndLate() {
        if (enabled && openKovCameraHardware() != opened)
            std::_Exit(3);
    }
};
__attribute__((init_priority(101))) OpensEarlyAndLate earlyAndLate;

TEST(AdaptorLifeTest, AnAdaptorMayBeOpenedBeforeAndAfterTheStaticObjects) {
    const auto endHoldingOne = [] {
        kov::host::setLogLevel(ANDROID_LOG_SILENT);
        FakeCameraHardware::setNext(new FakeCameraHardware);
        earlyAndLate.opened = openKovCameraHardware();
        earlyAndLate.enabled = true;
        std::exit(0);
    };
    EXPECT_EXIT(endHoldingOne(), testing::ExitedWithCode(0), "");
}

}  // namespace
