// Cartoon: pictures with a drawn look.

#include <algorithm>
#include <string>
#include <vector>

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/kovcam/Progress.h"
#include "tools/session/Names.h"

namespace kov::cam {

namespace {

using namespace android;

constexpr int kFramesBefore = 12;  // of preview, as a person would take to frame the picture

std::vector<std::string> effectNames() {
    std::vector<std::string> names;
    for (const NamedCode& effect : cartoonEffects())
        names.push_back(effect.name);
    return names;
}

int32_t effectCode(const std::string& name) {
    return std::ranges::find(cartoonEffects(), name, &NamedCode::name)->code;
}

class Cartoon : public Mode {
public:
    Cartoon() : Mode(KOV_MODE_CARTOON) {}

    void addOptions(Options& options) override {
        options.choices("--effect", mEffects, "How to draw; a picture for each effect that is given", effectNames());
    }

    void run(Camera& camera) override {
        for (const std::string& effect : mEffects) {
            camera.session().sendCommand(CARTOON_SHOT_SELECT_EFFECT, effectCode(effect));
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
        for (const NamedCode& effect : cartoonEffects()) {
            if (effect.name != "none")
                works.push_back({effect.name, "scene:still-life", CARTOON_SHOT_SELECT_EFFECT, effect.code});
        }
        return works;
    }

private:
    std::vector<std::string> mEffects = {"cartoon"};
};

const RegisterMode<Cartoon> registered;

}  // namespace

}  // namespace kov::cam
