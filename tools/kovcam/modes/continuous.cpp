// Continuous: a burst of up to nine pictures.

#include <algorithm>
#include <cstdio>
#include <tuple>

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

class Continuous : public Mode {
public:
    Continuous() : Mode(KOV_MODE_CONTINUOUS) {}

    void addOptions(Options& options) override {
        options.number("--count", mCount, "Frames to take", 1, kMostFrames);
        options.flag("--mute", mMute, "Take them without the click");
    }

    void run(Camera& camera) override {
        camera.session().startPreview();
        camera.waitForFrames(kFramesBefore);
        camera.session().sendCommand(CONTINUOUS_SHOT_SOUND, mMute ? 0 : 1);
        camera.session().sendCommand(CONTINUOUS_SHOT_START_CAPTURE);
        int taken = 0;
        // Ended early by a signal, the burst delivers what it has.
        std::ignore = camera.waitOrStop("frame of the burst", [&](const Message& message) {
            if (message.type != CAMERA_MSG_CONTINUOUS_FRAME_TAKEN)
                return false;
            taken = message.ext1;
            std::fprintf(stderr, "frame %d of %d taken\n", taken, mCount);
            return taken >= mCount;
        });
        camera.session().sendCommand(CONTINUOUS_SHOT_STOP_CAPTURE);
        Progress progress("encoding");
        int pictures = 0;
        camera.wait("picture of the burst", [&](const Message& message) {
            if (message.type == CAMERA_MSG_COMPRESSED_IMAGE)
                progress.show(100 * ++pictures / std::max(taken, 1));
            return message.type == CAMERA_MSG_CONTINUOUS_DELIVERED;
        });
    }

    std::vector<Demo> demos() const override {
        return {{"A burst of nine as somebody walks by", {"-i", "scene:crossing?delay=0&seconds=4"}, 10}};
    }

    std::vector<Work> works() const override { return {{"burst", "scene:crossing", CONTINUOUS_SHOT_START_CAPTURE}}; }

private:
    int mCount = kMostFrames;
    bool mMute = false;
};

const RegisterMode<Continuous> registered;

}  // namespace

}  // namespace kov::cam
