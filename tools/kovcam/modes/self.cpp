// Self: a still made from the preview of the front camera.

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 12;  // of preview, as a person would take to frame the picture

class Self : public Mode {
public:
    Self() : Mode(KOV_MODE_SELF) {}

    void run(Camera& camera) override {
        camera.session().startPreview();
        camera.waitForFrames(kFramesBefore);
        camera.session().takePicture();
        camera.waitForPicture();
    }

    std::vector<Demo> demos() const override {
        return {{"A picture of oneself", {"-i", "scene:portrait?neutral=0", "--preview-size", "1280x720"}, 3}};
    }
};

const RegisterMode<Self> registered;

}  // namespace

}  // namespace kov::cam
