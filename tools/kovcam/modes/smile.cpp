// Smile: the picture is taken when the faces smile.

#include <cstdio>

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/session/Error.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 3;

class Smile : public Mode {
public:
    Smile() : Mode(KOV_MODE_SMILE) {}

    void addOptions(Options& options) override {
        options.number("--timeout", mTimeout, "Seconds to wait for a smile", 1.0, 86400.0);
    }

    void run(Camera& camera) override {
        camera.session().startPreview();
        camera.waitForFrames(kFramesBefore);
        camera.saver().saveFrameOf(CAMERA_MSG_SMILE_DETECTED, "preview-smile");
        camera.session().sendCommand(SMILE_SHOT_DETECTION_START);
        camera.saver().saveNextFrame("preview-begin");
        if (!camera.waitAtMost(mTimeout,
                               [](const Message& message) { return message.type == CAMERA_MSG_SMILE_DETECTED; }))
            throw Error("nobody smiled in time; --timeout S waits longer");
        std::fprintf(stderr, "a smile: taking the picture\n");
        camera.session().takePicture();
        camera.waitForPicture();
    }

    std::vector<Demo> demos() const override {
        return {{"Waiting for the smile", {"-i", "scene:portrait", "--picture-size", "1280x960"}, 15}};
    }

    std::vector<Work> works() const override {
        return {{"detecting", "scene:portrait?neutral=100", SMILE_SHOT_DETECTION_START}};
    }

private:
    double mTimeout = 30;
};

const RegisterMode<Smile> registered;

}  // namespace

}  // namespace kov::cam
