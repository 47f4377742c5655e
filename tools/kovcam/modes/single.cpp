// Single: ordinary still pictures.

#include "shots/Commands.h"
#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"

namespace kov::cam {

namespace {

constexpr int kFramesBefore = 12;  // of preview, as a person would take to frame the picture

class Single : public Mode {
public:
    Single() : Mode(android::KOV_MODE_SINGLE) {}

    void addOptions(Options& options) override {
        options.number("--count", mCount, "Pictures to take; 1, or without end with --every or --wait", 1, 999999);
        options.number("--every", mEvery, "A picture every so many seconds, until --count or a signal", 0.1, 86400.0);
        options.flag("--wait", mWait, "A picture at each Enter on standard input, or SIGUSR1, until its end or a signal");
    }

    void run(Camera& camera) override {
        const bool endless = mCount == 0 && (mWait || mEvery > 0);
        const int count = mCount == 0 ? 1 : mCount;
        for (int i = 0; (endless || i < count) && endSignal() == 0; ++i) {
            camera.session().startPreview();  // a picture stops it
            camera.waitForFrames(kFramesBefore);
            if (mWait && !camera.waitForTrigger())
                return;
            if (mEvery > 0 && i > 0)
                camera.runFor(mEvery);
            if (endSignal() != 0)
                return;
            camera.session().takePicture();
            camera.waitForPicture();
        }
    }

    std::vector<Demo> demos() const override {
        return {{"A still picture", {"-i", "scene:still-life"}, 5}};
    }

private:
    int mCount = 0;  // not given
    double mEvery = 0;
    bool mWait = false;
};

const RegisterMode<Single> registered;

}  // namespace

}  // namespace kov::cam
