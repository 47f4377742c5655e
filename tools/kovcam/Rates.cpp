// The frame rates that the modes keep at the usual preview sizes.

#include "tools/kovcam/Rates.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "tools/kovcam/Clock.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Signals.h"
#include "tools/session/Error.h"
#include "tools/session/Inbox.h"
#include "tools/session/Session.h"

namespace kov::cam {

using namespace android;

namespace {

constexpr int kFramesBefore = 10;  // the first ones of a size wait until the scene is drawn
constexpr double kPatience = 120;  // seconds for one frame

struct Column {
    const char* size;
    const char* rate;
};
constexpr Column kColumns[] = {
    {"320x240", "30"}, {"640x480", "30"}, {"1280x720", "30"}, {"1920x1080", "30"}, {"640x480", "60"}};

double processorSeconds() {
    rusage used = {};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

void waitForFrames(Inbox& inbox, int count) {
    for (Message message; count > 0; count -= message.type == CAMERA_MSG_PREVIEW_FRAME) {
        if (!inbox.next(&message, kPatience))
            throw Error("no preview frame came for two minutes");
        if (message.type == CAMERA_MSG_ERROR)
            throw Error(message.reason.empty() ? "the camera broke" : message.reason);
        if (endSignal() != 0)
            throw Interrupted();
    }
}

void printCell(const Mode& mode, const Work& work, const Column& column, int frames) {
    const auto inbox = std::make_shared<Inbox>();
    const auto session =
        Session::open({work.source, {{"preview-size", column.size}, {"preview-frame-rate", column.rate}}, {inbox}});
    session->selectMode(mode.code);
    session->startPreview();
    waitForFrames(*inbox, kFramesBefore);
    if (work.command != 0)
        session->sendCommand(work.command, work.argument);
    waitForFrames(*inbox, 1);
    const double begin = now();
    const double used = processorSeconds();
    waitForFrames(*inbox, frames);
    std::printf(" %.1f (%.1f) |", frames / (now() - begin), (processorSeconds() - used) * 1e3 / frames);
    std::fflush(stdout);
    session->close();
}

}  // namespace

void printRates(const RatesOptions& options) {
    const auto& modes = allModes();
    const auto wanted = [&](const auto& mode) { return options.mode.empty() || mode->name == options.mode; };
    if (std::ranges::none_of(modes, wanted))
        throw Error("there is no mode \"" + options.mode + "\"; kovcam modes lists them");
    unsetenv("KOV_CAMERA_SPEED");  // the rates are those of real time
    std::printf("| mode |");
    for (const Column& column : kColumns)
        std::printf(" %s at %s |", column.size, column.rate);
    std::printf("\n|---|");
    for (size_t i = 0; i < std::size(kColumns); ++i)
        std::printf("---:|");
    std::printf("\n");
    for (const auto& mode : modes) {
        if (!wanted(mode))
            continue;
        for (const Work& work : mode->works()) {
            std::printf("| %s |", (work.name.empty() ? mode->name : mode->name + ", " + work.name).c_str());
            for (const Column& column : kColumns)
                printCell(*mode, work, column, options.frames);
            std::printf("\n");
        }
    }
}

}  // namespace kov::cam
