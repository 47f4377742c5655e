// Smile: the picture is taken when the faces smile.

#include <CLI/CLI.hpp>
#include <cstdio>

#include "shots/Commands.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Session.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 3;
constexpr double kPictureSeconds = 15;

class Smile : public Mode {
public:
    Smile() : Mode("smile", KOV_MODE_SMILE, "frames faces in the preview and takes the picture when they smile") {}

    void addOptions(CLI::App& app) override {
        app.add_option("--timeout", mTimeout, "Give up after so many seconds without a smile")
            ->check(CLI::PositiveNumber)
            ->capture_default_str();
    }

    void run(Session& session) override {
        session.startPreview();
        session.waitForFrames(kFramesBefore);
        session.saveFrameOf(CAMERA_MSG_SMILE_DETECTED, "preview-smile");
        session.command(SMILE_SHOT_DETECTION_START);
        session.saveNextFrame("preview-begin");
        session.wait("smile", mTimeout, [&](const Message& message) {
            return message.kind == Message::Kind::Notify && message.type == CAMERA_MSG_SMILE_DETECTED;
        });
        std::fprintf(stderr, "a smile: taking the picture\n");
        session.takePicture();
        session.waitFor(CAMERA_MSG_COMPRESSED_IMAGE, kPictureSeconds);
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
