// A session script, carried out.

#include <string>

#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Clock.h"
#include "tools/kovcam/Script.h"
#include "tools/session/Error.h"

namespace kov::cam {

namespace {

void wait(const ScriptStep& step, Camera& camera) {
    const auto done = [&](const Message& message) {
        return message.type == step.numbers[0] && (step.numbers.size() < 2 || step.numbers[1] == message.ext1);
    };
    const std::string what = "message " + step.arguments[0];
    if (!step.timeout)
        camera.wait(what, done);
    else if (!camera.waitAtMost(*step.timeout, done))
        throw Error("no " + what + " came in time; \"timeout S\" waits longer, --trace FILE shows what did come");
}

void perform(const ScriptStep& step, Camera& camera) {
    Session& session = camera.session();
    if (step.what == "start-preview")
        session.startPreview();
    else if (step.what == "stop-preview")
        session.stopPreview();
    else if (step.what == "picture")
        session.takePicture();
    else if (step.what == "autofocus")
        session.autoFocus();
    else if (step.what == "mode")
        session.selectMode(step.numbers[0]);
    else if (step.what == "command")
        session.sendCommand(step.numbers[0], step.numbers[1], step.numbers[2]);
    else if (step.what == "set")
        session.setParameter(step.arguments[0], step.arguments[1]);
    else
        wait(step, camera);
}

}  // namespace

void runScript(const std::vector<ScriptStep>& steps, Camera& camera) {
    const double begin = now();
    double last = begin;
    int asked = 0;  // pictures that must have been received
    const auto waitForPictures = [&] {
        while (camera.saver().received() < asked)
            camera.wait("picture", [&](const Message&) { return camera.saver().received() >= asked; });
    };
    for (const ScriptStep& step : steps) {
        // Messages that come meanwhile are still there for a wait.
        camera.sleepUntil((step.relative ? last : begin) + step.seconds);
        // Counted before it is asked for: a fast camera delivers it meanwhile.
        const int before = camera.saver().received();
        try {
            perform(step, camera);
        } catch (const Error& error) {
            try {
                waitForPictures();
            } catch (const Error&) {
                // Told already: what stopped the script stopped the camera too.
            }
            throw Error("line " + std::to_string(step.line) + ": " + error.what());
        }
        if (step.what == "picture")
            asked = before + 1;
        last = now();
    }
    waitForPictures();
}

}  // namespace kov::cam
