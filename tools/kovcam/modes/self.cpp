// Self: a still made from the preview of the front camera.

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 12;  // of preview, as a person would take to frame the picture
constexpr double kPictureSeconds = 15;

class Self : public Mode {
public:
    Self() : Mode("self", KOV_MODE_SELF, "takes the picture from the preview, at its size") {}

    void run(Camera& camera) override {
        camera.session().startPreview();
        camera.waitForFrames(kFramesBefore);
        camera.session().takePicture();
        camera.waitFor(CAMERA_MSG_COMPRESSED_IMAGE, kPictureSeconds);
    }

    std::vector<Demo> demos() const override {
        return {{"A picture of oneself", {"-i", "scene:portrait?neutral=0", "--preview-size", "1280x720"}, 3}};
    }
};

const RegisterMode<Self> registered;

}  // namespace

}  // namespace kov::cam
