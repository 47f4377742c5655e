// Action: a moving subject, at several moments, in one picture.

#include <CLI/CLI.hpp>
#include <cstdio>

#include "shots/Commands.h"
#include "tools/kovcam/Error.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Progress.h"
#include "tools/kovcam/Session.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr double kCreateSeconds = 60;

class Action : public Mode {
public:
    Action() : Mode("action", KOV_MODE_ACTION, "shows a moving subject at several moments in one picture") {}

    void addOptions(CLI::App& app) override {
        app.add_option("--stop-after", mSeconds, "End the series after so many seconds; it may end by itself earlier")
            ->check(CLI::Range(0.5, 120.0))
            ->capture_default_str();
    }

    void run(Session& session) override {
        session.startPreview();
        session.waitForFrames(1);
        session.command(ACTION_SHOT_START_CAPTURE);
        Progress progress("composing");
        int accepted = 0;
        bool creating = false;
        bool finished = false;
        const auto look = [&](const Message& message) {
            if (message.type == CAMERA_MSG_ACTION_FRAME_ACCEPTED)
                std::fprintf(stderr, "moment %d taken\n", ++accepted);
            creating = creating || message.type == CAMERA_MSG_ACTION_CREATION_BEGIN;
            if (message.type == CAMERA_MSG_ACTION_CREATION_PROGRESS)
                progress.show(message.ext1);
            if (message.type == CAMERA_MSG_ACTION_CREATION_END && message.ext1 == 0)
                throw Error("no picture could be made; hold the camera still while somebody moves across");
            finished = finished || message.type == CAMERA_MSG_COMPRESSED_IMAGE;
            return finished;
        };
        session.runFor(mSeconds, look);
        if (!creating)
            session.command(ACTION_SHOT_STOP_CAPTURE);
        if (!finished)
            session.wait("picture", kCreateSeconds, look);
    }

    std::vector<Demo> demos() const override {
        return {{"Somebody walks by", {"-i", "scene:crossing", "--stop-after", "12"}, 20}};
    }

private:
    double mSeconds = 10;
};

const RegisterMode<Action> registered;

}  // namespace

}  // namespace kov::cam
