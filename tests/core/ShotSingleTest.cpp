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

}  // namespace
