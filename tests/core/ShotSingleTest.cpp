// The single shot and the callback pattern that it shares with all modes.

#include "shots/single/ShotSingle.h"

#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::Lines;
using kov::test::makeMemory;

namespace {

/// A shot that shows its geometry, which it shares with every mode.
class Geometry : public ShotSingle {
public:
    using ShotSingle::ShotSingle;
    std::string geometry() const {
        return kov::test::text("%dx%d %d, %dx%d %d", getPreviewWidth(), getPreviewHeight(), mPreviewFormat.load(),
                               mPictureWidth.load(), mPictureHeight.load(), mPictureFormat.load());
    }
    using ShotSingle::init;
};

class ShotSingleTest : public kov::test::ShotTest<Geometry> {
protected:
    ShotSingleTest() { made(); }
};

TEST_F(ShotSingleTest, StillCaptureInItsOrder) {
    hardware->results["takePicture"] = -17;
    EXPECT_EQ(shot->takePicture(), -17);
    EXPECT_EQ(shot->sendCommand(1040, 7, 8), NO_ERROR);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, makeMemory(12));
    for (const bool registered : {true, false}) {
        if (!registered)
            shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
        hardware->notify(CAMERA_MSG_SHUTTER, 1, 2);
        hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, makeMemory(34));
        hardware->dataTimestamp(56, CAMERA_MSG_VIDEO_FRAME, makeMemory(78));
    }
    EXPECT_EQ(
        recorder.take(),
        (Lines{"I ShotSingle: ShotSingle::takePicture start", "hw.takePicture",
               "I ShotSingle: ShotSingle::takePicture end", "I ShotSingle: ShotSingle::sendCommand 1040, 7, 8",
               "hw.sendCommand 1040 7 8", "app.data 0x10 12", "app.notify 0x2 1 2",
               "I ShotSingle: CAMERA_MSG_COMPRESSED_IMAGE", "app.data 0x100 34", "app.dataTimestamp 56 0x20 78",
               "hw.setCallbacks", "E ShotSingle: mNotifyCb is NULL, returning.",
               "E ShotSingle: mDataCb is NULL, returning.", "E ShotSingle: mDataCbTimestamp is NULL, returning."}));
}

TEST_F(ShotSingleTest, GeometryIsReadAtConstructionAndThePreviewSizeAtEveryStart) {
    CameraParameters changed = hardware->params;
    changed.setPreviewSize(320, 240);
    changed.setPreviewFormat("yuv420p");
    changed.setPictureSize(800, 600);
    shot->setParameters(changed);
    EXPECT_EQ(shot->geometry(), "640x480 35, 2560x1920 0");
    EXPECT_EQ(shot->startPreview(), NO_ERROR);
    EXPECT_EQ(shot->geometry(), "320x240 35, 2560x1920 0");
    hardware->params.remove(CameraParameters::KEY_PREVIEW_FORMAT);
    hardware->params.remove(CameraParameters::KEY_PICTURE_FORMAT);
    shot->init();
    EXPECT_EQ(recorder.take("I "), (Lines{"I ShotCommon: Preview width(320), height(240)",
                                          "I ShotCommon: Picture width(800), height(600)"}));
    EXPECT_EQ(shot->geometry(), "320x240 35, 800x600 0");
    hardware->params.setPictureFormat("yuv420sp");
    shot->init();
    EXPECT_EQ(shot->geometry(), "320x240 35, 800x600 35");
    hardware.clear();
    made();
    EXPECT_EQ(shot->geometry(), "0x0 0, 0x0 0");
}

TEST_F(ShotSingleTest, WithItsVendorLayerTakenAwayItKeepsItsCallbacks) {
    shot->setCameraHardware(nullptr);
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    hardware->notify(CAMERA_MSG_SHUTTER);
    shot->ShotCommon::setCallbacks(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(recorder.take(), (Lines{"E ShotSingle: mHardware is NULL, returning.", "app.notify 0x2 0 0",
                                      "E ShotCommon: setCallbacks must be implemented in each shot"}));
    delete std::exchange(shot, nullptr);  // no late message finds it, though nobody has retired it
    hardware->notify(CAMERA_MSG_SHUTTER);
    EXPECT_EQ(recorder.take("app"), Lines{});
}

}  // namespace
