// Single: ordinary still pictures.

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"

namespace kov::cam {

namespace {

constexpr int kFramesBefore = 12;  // of preview, as a person would take to frame the picture
constexpr double kPictureSeconds = 15;

class Single : public Mode {
public:
    Single() : Mode("single", android::KOV_MODE_SINGLE, "takes ordinary still pictures") {}

    void addOptions(Options& options) override { options.number("--count", mCount, "Pictures to take", 1, 999); }

    void run(Camera& camera) override {
        for (int i = 0; i < mCount; ++i) {
            camera.session().startPreview();  // a picture stops it
            camera.waitForFrames(kFramesBefore);
            camera.session().takePicture();
            camera.waitFor(android::CAMERA_MSG_COMPRESSED_IMAGE, kPictureSeconds);
        }
    }

    std::vector<Demo> demos() const override {
        return {{"Two pictures of a landscape", {"-i", "scene:landscape", "--count", "2"}, 6}};
    }

private:
    int mCount = 1;
};

const RegisterMode<Single> registered;

}  // namespace

}  // namespace kov::cam
