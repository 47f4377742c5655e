// Panorama: a sweep of the camera becomes one wide picture.

#include <string>

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/kovcam/Progress.h"
#include "tools/session/Error.h"
#include "tools/session/Sources.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 5;

class Panorama : public Mode {
public:
    Panorama() : Mode(KOV_MODE_PANORAMA) {}

    void addOptions(Options& options) override {
        options.choice("--direction", mDirection, "Way of the sweep, for scene:landscape and still pictures",
                       {"right", "left", "up", "down"});
        options.number("--seconds", mSeconds, "Stop the sweep after this long; a full buffer stops it earlier", 0.5,
                       120.0);
    }

    std::string source(const std::vector<std::string>& sources) const override {
        const std::string& source = sources.front();
        if (mDirection.empty())
            return source;
        const std::string option = source.starts_with("scene:") ? "direction=" + mDirection : "path=pan-" + mDirection;
        std::string turned = source + (source.find('?') == std::string::npos ? "?" : "&") + option;
        if (!checkSource(turned).empty() && checkSource(source).empty())
            throw Error("--direction is for scene:landscape and still pictures; " + source + " moves in its own way");
        return turned;
    }

    void run(Camera& camera) override {
        camera.session().startPreview();
        camera.waitForFrames(kFramesBefore);
        int added = 0;
        const auto saveNextAdded = [&] {
            camera.saver().saveFrameOf(CAMERA_MSG_PANORAMA_FRAME_ADDED, "preview-added-" + std::to_string(added + 1));
        };
        saveNextAdded();
        camera.session().sendCommand(PANORAMA_SHOT_START);
        Progress progress("stitching");
        bool stitching = false;
        bool finished = false;
        const auto look = [&](const Message& message) {
            if (message.type == CAMERA_MSG_PANORAMA_FRAME_ADDED) {
                ++added;
                saveNextAdded();
            }
            if (message.type == CAMERA_MSG_PANORAMA_ERROR && added < 2)
                throw Error("the camera did not move; sweep it slowly to one side, up or down");
            if (message.type == CAMERA_MSG_PANORAMA_ERROR)
                throw Error("the frames do not fit together; sweep more slowly, or over something with more detail");
            if (message.type == CAMERA_MSG_PANORAMA_PROGRESS) {
                stitching = true;
                progress.show(message.ext1);
            }
            finished = finished || message.type == CAMERA_MSG_COMPRESSED_IMAGE;
            return finished;
        };
        camera.runFor(mSeconds, look);
        if (!stitching)
            camera.session().sendCommand(PANORAMA_SHOT_STOP);
        if (!finished)
            camera.wait("panorama", look);
    }

    std::vector<Demo> demos() const override {
        return {{"A sweep over a valley", {"-i", "scene:landscape", "--seconds", "9"}, 20}};
    }

    std::vector<Work> works() const override { return {{"capturing", "scene:landscape", PANORAMA_SHOT_START}}; }

private:
    std::string mDirection;
    double mSeconds = 8;
};

const RegisterMode<Panorama> registered;

}  // namespace

}  // namespace kov::cam
