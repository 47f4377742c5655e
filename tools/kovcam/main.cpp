// kovcam: the camera service and camera application of the host.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <opencv2/core/utils/logger.hpp>

#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Gallery.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/kovcam/Script.h"
#include "tools/kovcam/live/Serve.h"
#include "tools/session/Error.h"
#include "tools/session/Sources.h"

namespace kov::cam {

namespace {

constexpr int kUserError = 1;

const char* const kExamples = R"(Examples:
  kovcam modes
  kovcam shoot single -i scene:landscape -o out
  kovcam shoot single -i photo.jpg -o out --picture-size 1280x960 --quality 70 --count 3
  kovcam shoot single -i walk.avi -o out --save-preview 10 --trace out/trace.jsonl
  kovcam script session.kov -i scene:portrait -o out
  kovcam demo -o gallery
  kovcam serve -i scene:portrait --open
)";

const char* const kShootHelp =
    R"(A source is scene:NAME (kovcam scenes lists them), a picture, a video, a folder of pictures or a /dev/video device.
Pictures are saved as DIR/MODE-001.jpg and so on, preview frames as DIR/preview-00000.jpg.

)";

const char* const kScriptHelp =
    R"(A script has one step a line, with the time in seconds (+ for: after the step before), and # for comments:
  0.0   mode single
  0.0   start-preview
  1.0   picture
  +0.0  wait 0x100 timeout 10
docs/kovcam.md tells of every step.

Example:
  kovcam script tools/kovcam/examples/two-pictures.kov -i scene:landscape -o out
)";

/// Options that every session has.
struct CommonOptions {
    CameraOptions camera;
    std::vector<std::string> sources;
    std::string previewSize;
    std::string pictureSize;
    std::string previewFormat;
    std::string framesPerSecond;
    std::string quality;
};

/// Throws Error for what is not of the form 640x480.
void requireSize(const std::string& text) {
    int width = 0;
    int height = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%dx%d%c", &width, &height, &rest) != 2 || width <= 0 || height <= 0)
        throw Error("\"" + text + "\" is no size; write it as 640x480");
}

/// The parameters that the options set; those that are not given leave the camera's own.
std::map<std::string, std::string> parameters(const CommonOptions& options) {
    std::map<std::string, std::string> values = {{"preview-size", options.previewSize},
                                                 {"picture-size", options.pictureSize},
                                                 {"preview-format", options.previewFormat},
                                                 {"preview-frame-rate", options.framesPerSecond},
                                                 {"jpeg-quality", options.quality}};
    std::erase_if(values, [](const auto& entry) { return entry.second.empty(); });
    for (const char* key : {"preview-size", "picture-size"}) {
        if (values.contains(key))
            requireSize(values[key]);
    }
    return values;
}

/// What the options are where they may be left out.
constexpr const char* kUsualSource = "scene:landscape";
constexpr const char* kUsualFolder = ".";

void addCommonOptions(CLI::App& app, CommonOptions& options, bool sourceAndFolderRequired) {
    auto* const input =
        app.add_option("-i,--input", options.sources, "What the camera sees: scene:NAME, a file, a folder, a device")
            ->take_all();
    auto* const output = app.add_option("-o,--output", options.camera.saving.folder, "Folder for the pictures");
    if (sourceAndFolderRequired) {
        input->required();
        output->required();
    } else {
        input->default_str(kUsualSource);
        output->default_str(kUsualFolder);
    }
    app.add_option("--preview-size", options.previewSize, "WxH of preview frames");
    app.add_option("--picture-size", options.pictureSize, "WxH of pictures");
    app.add_option("--preview-format", options.previewFormat, "yuv420sp or yuv420p");
    app.add_option("--fps", options.framesPerSecond, "Preview frames a second")->check(CLI::PositiveNumber);
    app.add_option("--quality", options.quality, "JPEG quality")->check(CLI::Range(1, 100));
    app.add_option("--save-preview", options.camera.saving.previewEvery, "Save every Nth preview frame")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--trace", options.camera.trace, "Write everything that happens to this file, a JSON object a line");
}

/// The mode's first demonstration, as a person would type it.
std::string example(const Mode& mode) {
    const Demo demo = mode.demos().front();
    std::string line = "Example:\n  kovcam shoot " + mode.name;
    for (const std::string& argument : demo.arguments)
        line += " " + argument;
    return line + " -o out\n";
}

void printModes() {
    std::printf("%-12s %5s  %s\n", "mode", "code", "what it does");
    for (const auto& mode : allModes())
        std::printf("%-12s %5d  %s\n", mode->name.c_str(), mode->code, mode->summary.c_str());
}

void printScenes() {
    for (const auto& scene : scenes()) {
        std::printf("scene:%-14s %s\n", scene.name.c_str(), scene.summary.c_str());
        if (!scene.options.empty())
            std::printf("%20s options: %s\n", "", scene.options.c_str());
    }
}

/// Opens a session, runs `work` in it, and closes it also when that fails: what was saved stays.
template <typename Work>
void inSession(CommonOptions& options, const std::string& source, const std::string& prefix, Work work) {
    options.camera.source = source;
    options.camera.saving.prefix = prefix;
    options.camera.parameters = parameters(options);
    Camera camera(options.camera);
    try {
        work(camera);
    } catch (...) {
        camera.close();
        throw;
    }
    camera.close();
    for (const std::string& picture : camera.saver().pictures())
        std::printf("%s\n", picture.c_str());
}

void shoot(Mode& mode, CommonOptions& options) {
    if (options.sources.size() > mode.mostSources())
        throw Error("too many sources; " + mode.name + " takes " + std::to_string(mode.mostSources()));
    inSession(options, mode.source(options.sources), mode.name, [&](Camera& camera) {
        camera.session().selectMode(mode.code);
        mode.run(camera);
    });
}

void script(const std::string& path, CommonOptions& options) {
    if (options.sources.size() > 1)
        throw Error("too many sources; a script takes one, which may be turns:SOURCE|SOURCE");
    const std::vector<ScriptStep> steps = readScript(path);
    if (options.camera.saving.folder.empty())
        options.camera.saving.folder = kUsualFolder;
    inSession(options, options.sources.empty() ? kUsualSource : options.sources.front(), "picture",
              [&](Camera& camera) { runScript(steps, camera); });
}

void demo(const std::string& folder) {
    const int failed = runDemo(folder);
    std::printf("The pictures are in %s; open %s/index.html\n", folder.c_str(), folder.c_str());
    if (failed)
        throw Error(std::to_string(failed) + " of the demonstrations failed; the page tells which");
}

int run(int argc, char** argv) {
    CLI::App app("Plays the camera service and the application on top of libkovcameraadaptor.");
    app.name("kovcam");
    app.footer(kExamples);
    app.set_version_flag("--version", "kovcam " KOV_VERSION);
    app.require_subcommand(1);
    std::string level;
    app.add_option("--log", level, "Show the log from this level on")
        ->check(CLI::IsMember({"verbose", "debug", "info", "warn", "error", "silent"}));
    app.fallthrough();

    app.add_subcommand("modes", "List the capture modes")->footer("Example:\n  kovcam modes")->callback(printModes);
    app.add_subcommand("scenes", "List the built-in scenes")
        ->footer(
            "A scene and its options, as the source of a session:\n"
            "  kovcam shoot panorama -i 'scene:landscape?direction=left&seconds=12' -o out")
        ->callback(printScenes);

    CommonOptions options;
    auto* shooting = app.add_subcommand("shoot", "Take pictures in a mode")
                         ->footer(std::string(kShootHelp) +
                                  "Example:\n  kovcam shoot single -i photo.jpg -o out --preview-size 1280x720 "
                                  "--save-preview 10\n");
    shooting->require_subcommand(1);
    for (const auto& mode : allModes()) {
        auto* command = shooting->add_subcommand(mode->name, mode->summary)->footer(kShootHelp + example(*mode));
        addCommonOptions(*command, options, true);
        Options own(*command);
        mode->addOptions(own);
        command->callback([&options, &mode] { shoot(*mode, options); });
    }

    std::string scriptPath;
    auto* scripting = app.add_subcommand("script", "Run a session script")->footer(kScriptHelp);
    scripting->add_option("FILE", scriptPath, "The script")->required();
    addCommonOptions(*scripting, options, false);
    scripting->callback([&] { script(scriptPath, options); });

    std::string folder = "gallery";
    auto* demonstrating = app.add_subcommand("demo", "Run every mode on built-in scenes and write a gallery page")
                              ->footer("Example:\n  kovcam demo -o gallery\n");
    demonstrating->add_option("-o,--output", folder, "Folder for the gallery")->capture_default_str();
    demonstrating->callback([&] { demo(folder); });

    live::addServe(app);

    app.parse_complete_callback([&] { setLogLevel(level.empty() ? "silent" : level); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        const std::vector<std::string> unknown = app.remaining(true);
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) && !unknown.empty())
            std::fprintf(stderr, "kovcam: unknown command or mode \"%s\"; try --help\n", unknown.front().c_str());
        else
            std::fprintf(stderr, "kovcam: %s; try --help\n", error.what());
        return error.get_exit_code();
    }
    return 0;
}

}  // namespace

}  // namespace kov::cam

int main(int argc, char** argv) {
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    int status = kov::cam::kUserError;
    try {
        status = kov::cam::run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kovcam: %s\n", error.what());
    }
    // At once: the camera's threads may still be on their way out, and destroying static objects would take away what
    // they use. All files are written.
    std::fflush(nullptr);
    std::_Exit(status);
}
