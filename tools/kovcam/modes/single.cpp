// Single: ordinary still pictures.

#include <CLI/CLI.hpp>

#include "shots/Commands.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Session.h"

namespace kov::cam {

namespace {

constexpr int kFramesBefore = 12;  // of preview, as a person would take to frame the picture
constexpr double kPictureSeconds = 15;

class Single : public Mode {
public:
    Single() : Mode("single", android::KOV_MODE_SINGLE, "takes ordinary still pictures") {}

    void addOptions(CLI::App& app) override {
        app.add_option("--count", mCount, "Pictures to take")->check(CLI::Range(1, 999))->capture_default_str();
    }

    void run(Session& session) override {
        for (int i = 0; i < mCount; ++i) {
            session.startPreview();  // a picture stops it
            session.waitForFrames(kFramesBefore);
            session.takePicture();
            session.waitFor(android::CAMERA_MSG_COMPRESSED_IMAGE, kPictureSeconds);
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
