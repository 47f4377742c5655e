// Continuous: a burst of up to nine pictures.

#include <cstdio>

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/kovcam/Progress.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kMostFrames = 9;
constexpr int kFramesBefore = 5;
constexpr double kTakeSeconds = 15;
constexpr double kEncodeSeconds = 60;

class Continuous : public Mode {
public:
    Continuous() : Mode("continuous", KOV_MODE_CONTINUOUS, "takes a burst of up to nine pictures, with clicks") {}

    void addOptions(Options& options) override {
        options.number("--count", mCount, "Frames to take", 1, kMostFrames);
        options.flag("--mute", mMute, "Take them without the click");
    }

    void run(Camera& camera) override {
        camera.session().startPreview();
        camera.waitForFrames(kFramesBefore);
        camera.session().sendCommand(CONTINUOUS_SHOT_SOUND, mMute ? 0 : 1);
        camera.session().sendCommand(CONTINUOUS_SHOT_START_CAPTURE);
        camera.wait("frame of the burst", kTakeSeconds, [&](const Message& message) {
            if (message.type != CAMERA_MSG_CONTINUOUS_FRAME_TAKEN)
                return false;
            std::fprintf(stderr, "frame %d of %d taken\n", message.ext1, mCount);
            return message.ext1 >= mCount;
        });
        camera.session().sendCommand(CONTINUOUS_SHOT_STOP_CAPTURE);
        Progress progress("encoding");
        int pictures = 0;
        camera.wait("picture of the burst", kEncodeSeconds, [&](const Message& message) {
            if (message.type == CAMERA_MSG_COMPRESSED_IMAGE)
                progress.show(100 * ++pictures / mCount);
            return message.type == CAMERA_MSG_CONTINUOUS_DELIVERED;
        });
    }

    std::vector<Demo> demos() const override {
        return {{"A burst of nine as somebody walks by", {"-i", "scene:crossing?delay=0&seconds=4"}, 10}};
    }

private:
    int mCount = kMostFrames;
    bool mMute = false;
};

const RegisterMode<Continuous> registered;

}  // namespace

}  // namespace kov::cam
