// Cartoon: pictures with a drawn look.

#include <map>

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/kovcam/Progress.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 12;  // of preview, as a person would take to frame the picture

const std::map<std::string, int32_t> kEffects = {
    {"cartoon", 0}, {"sketch", 1}, {"sketch-gray", 2}, {"stamp", 3}, {"none", 4}};

class Cartoon : public Mode {
public:
    Cartoon() : Mode(KOV_MODE_CARTOON) {}

    void addOptions(Options& options) override {
        options.choices("--effect", mEffects, "How to draw; a picture for each effect that is given",
                        {"cartoon", "sketch", "sketch-gray", "stamp", "none"});
    }

    void run(Camera& camera) override {
        for (const std::string& effect : mEffects) {
            camera.session().sendCommand(CARTOON_SHOT_SELECT_EFFECT, kEffects.at(effect));
            camera.session().startPreview();  // a picture stops it
            camera.waitForFrames(kFramesBefore);
            camera.saver().nameNextPicture(effect);
            camera.session().takePicture();
            Progress progress(effect);
            camera.wait("picture", [&](const Message& message) {
                if (message.type == CAMERA_MSG_CARTOON_PROGRESS)
                    progress.show(message.ext1);
                return message.type == CAMERA_MSG_COMPRESSED_IMAGE;
            });
        }
    }

    std::vector<Demo> demos() const override {
        const std::vector<std::string> all = {"--effect", "cartoon",     "--effect", "sketch",
                                              "--effect", "sketch-gray", "--effect", "stamp"};
        const auto of = [&](std::vector<std::string> source) {
            source.insert(source.end(), all.begin(), all.end());
            return source;
        };
        return {{"Four looks of a face", of({"-i", "scene:portrait", "--picture-size", "1280x960"}), 12},
                {"Four looks of a valley", of({"-i", "scene:landscape", "--picture-size", "1280x960"}), 12},
                {"Four looks of a cup", of({"-i", "scene:still-life", "--picture-size", "1280x960"}), 12}};
    }

    std::vector<Work> works() const override {
        std::vector<Work> works;
        for (const auto& [name, effect] : kEffects) {
            if (name != "none")
                works.push_back({name, "scene:still-life", CARTOON_SHOT_SELECT_EFFECT, effect});
        }
        return works;
    }

private:
    std::vector<std::string> mEffects = {"cartoon"};
};

const RegisterMode<Cartoon> registered;

}  // namespace

}  // namespace kov::cam
