// The single shot and the callback pattern that it shares with all modes.

#include "shots/ShotSingle.h"

#include "tests/support/ShotTest.h"

using namespace android;
using kov::test::Lines;

namespace {

class ShotSingleTest : public kov::test::ShotTest<ShotSingle> {};

TEST_F(ShotSingleTest, StillCaptureInItsOrder) {
    makeShot();
    EXPECT_EQ(recorder.take(),
              (Lines{"I ShotCommon: ShotCommon created: pid=PID", "I ShotCommon: Preview width(640), height(480)",
                     "I ShotCommon: Preview color format yuv420sp", "I ShotCommon: Picture width(2560), height(1920)",
                     "I ShotCommon: Picture color format jpeg", "I ShotSingle: ShotSingle created: pid=PID",
                     "hw.setCallbacks"}));
    hardware->results["takePicture"] = -17;
    EXPECT_EQ(shot->takePicture(), -17);
    hardware->notify(CAMERA_MSG_SHUTTER, 1, 2);
    hardware->data(CAMERA_MSG_PREVIEW_FRAME, kov::test::makeMemory(12));
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, kov::test::makeMemory(34));
    hardware->dataTimestamp(56, CAMERA_MSG_VIDEO_FRAME, kov::test::makeMemory(78));
    EXPECT_EQ(shot->sendCommand(1040, 7, 8), NO_ERROR);
    retireShot();
    EXPECT_EQ(recorder.take(),
              (Lines{"I ShotSingle: ShotSingle::takePicture start", "hw.takePicture",
                     "I ShotSingle: ShotSingle::takePicture end", "app.notify 0x2 1 2", "app.data 0x10 12",
                     "I ShotSingle: CAMERA_MSG_COMPRESSED_IMAGE", "app.data 0x100 34", "app.dataTimestamp 56 0x20 78",
                     "I ShotSingle: ShotSingle::sendCommand 1040, 7, 8", "hw.sendCommand 1040 7 8",
                     "I ShotSingle: ShotSingle destroyed: pid=PID", "I ShotCommon: ShotCommon destroyed: pid=PID"}));
}

TEST_F(ShotSingleTest, MessagesWithoutACallbackAreDroppedWithALine) {
    makeShot();
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    recorder.take();
    hardware->notify(CAMERA_MSG_SHUTTER);
    hardware->data(CAMERA_MSG_COMPRESSED_IMAGE, kov::test::makeMemory(1));
    hardware->dataTimestamp(1, CAMERA_MSG_VIDEO_FRAME, kov::test::makeMemory(1));
    EXPECT_EQ(recorder.take(),
              (Lines{"E ShotSingle: mNotifyCb is NULL, returning.", "E ShotSingle: mDataCb is NULL, returning.",
                     "E ShotSingle: mDataCbTimestamp is NULL, returning."}));
}

/// The geometry of a shot, which it shares with every mode.
class Geometry : public ShotSingle {
public:
    explicit Geometry(const sp<CameraHardwareInterface>& hardware) : ShotSingle(hardware) {}
    Lines all() const {
        return {kov::test::text("%dx%d %d", getPreviewWidth(), getPreviewHeight(), mPreviewFormat.load()),
                kov::test::text("%dx%d %d", mPictureWidth.load(), mPictureHeight.load(), mPictureFormat.load())};
    }
    void readAgain() { init(); }
};

TEST_F(ShotSingleTest, GeometryIsReadAtConstructionAndThePreviewSizeAtEveryStart) {
    Geometry geometry(hardware);
    EXPECT_EQ(geometry.all(), (Lines{"640x480 35", "2560x1920 0"}));
    CameraParameters changed = hardware->params;
    changed.setPreviewSize(320, 240);
    changed.setPreviewFormat("yuv420p");
    changed.setPictureSize(800, 600);
    EXPECT_EQ(geometry.setParameters(changed), NO_ERROR);
    EXPECT_EQ(geometry.all(), (Lines{"640x480 35", "2560x1920 0"}));
    recorder.take();
    EXPECT_EQ(geometry.startPreview(), NO_ERROR);
    EXPECT_EQ(recorder.take(), Lines{"hw.startPreview"});
    EXPECT_EQ(geometry.all(), (Lines{"320x240 35", "2560x1920 0"}));

    hardware->params.remove(CameraParameters::KEY_PREVIEW_FORMAT);
    hardware->params.remove(CameraParameters::KEY_PICTURE_FORMAT);
    geometry.readAgain();
    EXPECT_EQ(recorder.take(), (Lines{"I ShotCommon: Preview width(320), height(240)",
                                      "I ShotCommon: Picture width(800), height(600)"}));
    EXPECT_EQ(geometry.all(), (Lines{"320x240 35", "800x600 0"}));
}

TEST_F(ShotSingleTest, WithItsVendorLayerTakenAwayItKeepsItsCallbacksAndRefuses) {
    makeShot();
    shot->setCameraHardware(nullptr);
    recorder.take();
    shot->setCallbacks(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(shot->takePicture(), INVALID_OPERATION);
    EXPECT_EQ(shot->startPreview(), INVALID_OPERATION);
    hardware->notify(CAMERA_MSG_SHUTTER);
    EXPECT_EQ(recorder.take(),
              (Lines{"E ShotSingle: mHardware is NULL, returning.", "E ShotSingle: mHardware is NULL, returning.",
                     "E ShotCommon: mHardware is NULL, returning.", "app.notify 0x2 0 0"}));
    shot->ShotCommon::setCallbacks(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(recorder.take(), Lines{"E ShotCommon: setCallbacks must be implemented in each shot"});
}

}  // namespace
