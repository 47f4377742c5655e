// Smile: the picture is taken when the faces smile.

#include <cstdio>

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 3;
constexpr double kPictureSeconds = 15;

class Smile : public Mode {
public:
    Smile() : Mode("smile", KOV_MODE_SMILE, "frames faces in the preview and takes the picture when they smile") {}

    void addOptions(Options& options) override {
        options.number("--timeout", mTimeout, "Seconds to wait for a smile", 1.0, 86400.0);
    }

    void run(Camera& camera) override {
        camera.session().startPreview();
        camera.waitForFrames(kFramesBefore);
        camera.saver().saveFrameOf(CAMERA_MSG_SMILE_DETECTED, "preview-smile");
        camera.session().sendCommand(SMILE_SHOT_DETECTION_START);
        camera.saver().saveNextFrame("preview-begin");
        camera.wait("smile", mTimeout, [&](const Message& message) {
            return message.kind == Message::Kind::Notify && message.type == CAMERA_MSG_SMILE_DETECTED;
        });
        std::fprintf(stderr, "a smile: taking the picture\n");
        camera.session().takePicture();
        camera.waitFor(CAMERA_MSG_COMPRESSED_IMAGE, kPictureSeconds);
    }

    std::vector<Demo> demos() const override {
        return {{"Waiting for the smile", {"-i", "scene:portrait", "--picture-size", "1280x960"}, 15}};
    }

private:
    double mTimeout = 30;
};

const RegisterMode<Smile> registered;

}  // namespace

}  // namespace kov::cam
