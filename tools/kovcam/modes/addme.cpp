// Add-me: two pictures of a scene become one with both people in it.

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/kovcam/Progress.h"
#include "tools/session/Error.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 12;  // of preview, as a person would take to frame the picture
constexpr double kPictureSeconds = 15;
constexpr double kMergeSeconds = 60;

class AddMe : public Mode {
public:
    AddMe() : Mode("addme", KOV_MODE_ADDME, "merges two pictures into one with both people in it") {}

    size_t mostSources() const override { return 2; }

    std::string source(const std::vector<std::string>& sources) const override {
        return sources.size() == 1 ? sources[0] : "turns:" + sources[0] + "|" + sources[1];
    }

    void addOptions(Options& options) override {
        options.number("--position", mPosition, "Who is in front where both stand: 1 the first, 0 the second person", 0,
                       1);
    }

    void run(Camera& camera) override {
        if (mPosition >= 0)
            camera.session().sendCommand(ADDME_SHOT_SWITCH_FIRST_PERSON, mPosition);
        takeFirst(camera);
        takeSecond(camera);
    }

    std::vector<Demo> demos() const override {
        return {{"One person on the left, then another on the right", {"-i", "scene:addme"}, 6}};
    }

private:
    static void askForPicture(Camera& camera) {
        camera.session().startPreview();  // a picture stops it
        camera.waitForFrames(kFramesBefore);
        camera.session().takePicture();
    }

    static void takeFirst(Camera& camera) {
        askForPicture(camera);
        bool refused = false;
        camera.wait("first picture", kPictureSeconds, [&](const Message& message) {
            refused = refused || message.type == CAMERA_MSG_ADDME_ERROR;
            return message.type == CAMERA_MSG_COMPRESSED_IMAGE;
        });
        if (refused)
            throw Error("the first picture was refused, and saved as it is; use an even size of at most 2560x1920");
    }

    static void takeSecond(Camera& camera) {
        askForPicture(camera);
        Progress progress("merging");
        bool refused = false;
        camera.wait("merged picture", kMergeSeconds, [&](const Message& message) {
            refused = refused || message.type == CAMERA_MSG_ADDME_ERROR;
            if (message.type == CAMERA_MSG_ADDME_PROGRESS)
                progress.show(message.ext1);
            if (message.type == CAMERA_MSG_COMPRESSED_IMAGE && !refused && message.size == 0)
                throw Error("the pictures could not be merged; see --log warn");
            return message.type == CAMERA_MSG_COMPRESSED_IMAGE;
        });
        if (refused)
            throw Error("the second picture does not show the place of the first; it was saved as it is");
    }

    int mPosition = -1;
};

const RegisterMode<AddMe> registered;

}  // namespace

}  // namespace kov::cam
