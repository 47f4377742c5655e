// Action: a moving subject, at several moments, in one picture.

#include <optional>
#include <string>

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/kovcam/Progress.h"
#include "tools/session/Error.h"

namespace kov::cam {

namespace {

using namespace android;

class Action : public Mode {
public:
    Action() : Mode(KOV_MODE_ACTION) {}

    void addOptions(Options& options) override {
        options.number("--stop-after", mSeconds, "End the series after so many seconds; it may end by itself earlier",
                       0.5, 120.0);
    }

    void run(Camera& camera) override {
        camera.session().startPreview();
        camera.waitForFrames(1);
        camera.session().sendCommand(ACTION_SHOT_START_CAPTURE);
        std::optional<Progress> progress(std::in_place, "following");
        int accepted = 0;
        int shown = -1;  // percent
        bool creating = false;
        bool finished = false;
        const auto look = [&](const Message& message) {
            if (message.type == CAMERA_MSG_ACTION_FRAME_ACCEPTED)
                progress->line("moment " + std::to_string(++accepted) + " taken");
            if (message.type == CAMERA_MSG_ACTION_ACQUISITION_PROGRESS && message.ext1 != shown)
                progress->show(shown = message.ext1);
            if (message.type == CAMERA_MSG_ACTION_CREATION_BEGIN) {
                creating = true;
                progress.emplace("composing");
            }
            if (message.type == CAMERA_MSG_ACTION_CREATION_PROGRESS)
                progress->show(message.ext1);
            if (message.type == CAMERA_MSG_ACTION_CREATION_END && message.ext1 == 0)
                throw Error("no picture could be made; hold the camera still while somebody moves across");
            finished = finished || message.type == CAMERA_MSG_COMPRESSED_IMAGE;
            return finished;
        };
        camera.runFor(mSeconds, look);
        if (!creating)
            camera.session().sendCommand(ACTION_SHOT_STOP_CAPTURE);
        if (!finished)
            camera.wait("picture", look);
    }

    std::vector<Demo> demos() const override {
        return {{"Somebody walks by", {"-i", "scene:crossing", "--stop-after", "12"}, 20}};
    }

    std::vector<Work> works() const override { return {{"following", "scene:crossing", ACTION_SHOT_START_CAPTURE}}; }

private:
    double mSeconds = 10;
};

const RegisterMode<Action> registered;

}  // namespace

}  // namespace kov::cam
