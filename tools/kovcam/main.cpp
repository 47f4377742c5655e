// kovcam: the camera service and camera application of the host.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <opencv2/core/utils/logger.hpp>
#include <sstream>

#include "tools/kovcam/Camera.h"
#include "tools/kovcam/Child.h"
#include "tools/kovcam/Demonstration.h"
#include "tools/kovcam/Gallery.h"
#include "tools/kovcam/Listings.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/Options.h"
#include "tools/kovcam/Parameters.h"
#include "tools/kovcam/Script.h"
#include "tools/kovcam/Soak.h"
#include "tools/kovcam/TraceDrawing.h"
#include "tools/kovcam/live/Serve.h"
#include "tools/session/Error.h"
#include "tools/session/Sources.h"

namespace kov::cam {

namespace {

constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kSignalled = 128;  // and the signal's number

const char* const kExamples = R"(Examples:
  kovcam modes
  kovcam shoot single -i scene:landscape -o out
  kovcam shoot single -i photo.jpg -o out --picture-size 1280x960 --quality 70 --count 3
  kovcam shoot single -i walk.avi -o 'out/%Y%m%d-%H%M%S-{n}.jpg' --every 10
  kovcam script session.kov -i scene:portrait -o out
  kovcam demo -o gallery
  kovcam serve -i scene:portrait --open

Exit status: 0, 1 when something failed, 2 when the command line is wrong, 129, 130 or 143 after a signal.
)";

const char* const kShootHelp =
    R"(A source is scene:NAME (kovcam scenes lists them), a picture, a video, a folder of pictures or a /dev/video device.

Pictures go where -o says: into a folder as MODE-001.jpg and so on (numbers go on from what is there), to a file
(photo.jpg, then photo-2.jpg), by a pattern ('out/%Y%m%d-{mode}-{n}.jpg', with the fields of date), or to standard output
(-). A file that is there is never touched, but with --overwrite. Preview frames are preview-00000.jpg and so on.

SIGINT, SIGTERM and SIGHUP end the work in order: what was taken is delivered and saved. A second one ends at once.

)";

const char* const kScriptHelp =
    R"(A script has one step a line, with the time in seconds (+ for: after the step before), and # for comments:
  0.0   mode panorama
  0.0   start-preview
  0.5   command PANORAMA_SHOT_START
  +8.0  command PANORAMA_SHOT_STOP
  +0.0  wait COMPRESSED_IMAGE timeout 60
kovcam commands and kovcam messages list the names. docs/kovcam.md tells of every step.

Example:
  kovcam script tools/kovcam/examples/two-pictures.kov -i scene:landscape -o out
)";

/// What the options are where they may be left out.
constexpr const char* kUsualSource = "scene:landscape";
constexpr const char* kUsualFolder = ".";

/// Options that every session has.
struct CommonOptions {
    CameraOptions camera;
    std::vector<std::string> sources;
    ParameterOptions parameters;
};

void addCommonOptions(CLI::App& app, CommonOptions& options, bool sourceAndFolderRequired) {
    auto* const input =
        app.add_option("-i,--input", options.sources, "What the camera sees: scene:NAME, a file, a folder, a device")
            ->take_all();
    SaverOptions& saving = options.camera.saving;
    auto* const output = app.add_option("-o,--output", saving.output, "Folder, file or pattern for the pictures, or -");
    if (sourceAndFolderRequired) {
        input->required();
        output->required();
    } else {
        input->default_str(kUsualSource);
        output->default_str(kUsualFolder);
    }
    app.add_flag("--overwrite", saving.overwrite, "Write over files that are there, from number 1 on");
    app.add_option("--latest", saving.latest, "Keep a symbolic link of this name to the newest picture");
    options.parameters.addTo(app);
    app.add_option("--save-preview", saving.previewEvery, "Save every Nth preview frame")
        ->check(CLI::Range(0, 1000000));
    app.add_flag("--save-raw", saving.raw, "Save uncompressed pictures too, as raw-001.y4m");
    app.add_option("--patience", options.camera.patience,
                   "Seconds that the camera may show no progress while something is waited for")
        ->check(CLI::Range(0.1, 86400.0))
        ->capture_default_str();
    app.add_option("--record", options.camera.record, "Make a video of the preview: an .mp4 or .mkv file");
    app.add_option("--trace", options.camera.trace, "Write everything that happens to this file, a JSON object a line");
}

/// The mode's first demonstration, as a person would type it.
std::string example(const Mode& mode) {
    std::vector<std::string> words = {"shoot", mode.name};
    const Demo demo = mode.demos().front();
    words.insert(words.end(), demo.arguments.begin(), demo.arguments.end());
    return "Example:\n  " + commandLine(words) + " -o out\n";
}

/// Opens a session, runs `work` in it, and closes it also when that fails: what was saved stays.
template <typename Work>
void inSession(CommonOptions& options, const std::string& source, const std::string& mode, Work work) {
    options.camera.source = source;
    options.camera.saving.mode = mode;
    options.camera.parameters = options.parameters.parameters();
    Camera camera(options.camera);
    try {
        work(camera);
    } catch (const Interrupted&) {
        // In order; main knows the signal.
    } catch (const Error&) {
        camera.close();
        throw;
    }
    camera.close();
}

void shoot(Mode& mode, CommonOptions& options) {
    if (options.sources.size() > mode.mostSources())
        throw Error("too many sources; " + mode.name + " takes " + std::to_string(mode.mostSources()));
    inSession(options, mode.source(options.sources), mode.name, [&](Camera& camera) {
        camera.session().selectMode(mode.code);
        mode.run(camera);
    });
}

void script(const std::string& path, bool checkOnly, CommonOptions& options) {
    if (options.sources.size() > 1)
        throw Error("too many sources; a script takes one, which may be turns:SOURCE|SOURCE");
    const std::vector<ScriptStep> steps = readScript(path);
    if (checkOnly)
        return;
    inSession(options, options.sources.empty() ? kUsualSource : options.sources.front(), "picture",
              [&](Camera& camera) { runScript(steps, camera); });
}

void demo(const std::string& folder, const std::string& mode) {
    const int failed = runDemo(folder, mode);
    std::printf("The pictures are in %s; open %s/index.html\n", folder.c_str(), folder.c_str());
    if (failed)
        throw Error(std::to_string(failed) + " of the demonstrations failed; the page tells which");
}

void addListings(CLI::App& app) {
    app.add_subcommand("modes", "List the capture modes")->footer("Example:\n  kovcam modes")->callback(printModes);
    app.add_subcommand("scenes", "List the built-in scenes")
        ->footer(
            "A scene and its options, as the source of a session:\n"
            "  kovcam shoot panorama -i 'scene:landscape?direction=left&seconds=12' -o out")
        ->callback(printScenes);
    app.add_subcommand("commands", "List the commands of the modes")->callback(printCommands);
    app.add_subcommand("messages", "List the messages of the camera and the modes")->callback(printMessages);
    app.add_subcommand("formats", "List the sizes, formats and frame rates of the camera")->callback(printFormats);
}

void addShooting(CLI::App& app, CommonOptions& options) {
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
}

/// Where the rest of the command line is kept while it is read.
struct Values {
    CommonOptions session;
    std::string script;
    bool checkOnly = false;
    std::string folder = "gallery";
    std::string mode;
    std::vector<std::string> folders;
    std::string trace;
    std::string page;
    std::string level;
    SoakOptions soaking;
};

int run(std::vector<std::string> arguments);

void addSoaking(CLI::App& app, SoakOptions& options) {
    auto* const soaking = app.add_subcommand("soak", "Use all modes for long and watch that nothing grows")
                              ->footer("Example:\n  KOV_CAMERA_SPEED=6 kovcam soak 3600 -o soak.svg\n");
    soaking->add_option("SECONDS", options.seconds, "For how long")->check(CLI::Range(1.0, 1e6))->capture_default_str();
    soaking->add_option("--seed", options.seed, "Of the random choices")->capture_default_str();
    soaking->add_option("-o,--output", options.curve, "An SVG file of what was held over time");
    soaking->callback([&options] {
        soak(options, [](const std::vector<std::string>& arguments) {
            if (run(arguments) != 0)
                throw Error("refused: kovcam " + commandLine(arguments));
        });
    });
}

void addCommands(CLI::App& app, Values& values) {
    addListings(app);
    addShooting(app, values.session);

    auto* scripting = app.add_subcommand("script", "Run a session script")->footer(kScriptHelp);
    scripting->add_option("FILE", values.script, "The script, or - for standard input")->required();
    scripting->add_flag("--check", values.checkOnly, "Only tell what is wrong with it");
    addCommonOptions(*scripting, values.session, false);
    values.session.camera.saving.output = kUsualFolder;
    scripting->callback([&values] { script(values.script, values.checkOnly, values.session); });

    auto* demonstrating = app.add_subcommand("demo", "Run every mode on built-in scenes and write a gallery page")
                              ->footer("Example:\n  kovcam demo -o gallery\n  kovcam demo panorama -o sweep\n");
    demonstrating->add_option("MODE", values.mode, "Only this mode");
    demonstrating->add_option("-o,--output", values.folder, "Folder for the gallery")->capture_default_str();
    demonstrating->callback([&values] { demo(values.folder, values.mode); });

    auto* showing =
        app.add_subcommand("gallery", "Write a page of the pictures in folders, with the time line of their traces")
            ->footer(
                "A trace is shown where the folder holds it as trace.jsonl.\n\n"
                "Example:\n  kovcam gallery out\n  kovcam gallery monday tuesday -o week.html\n");
    showing->add_option("FOLDER", values.folders, "Folders that kovcam wrote pictures to")->required();
    showing->add_option("-o,--output", values.page, "The page (default: index.html in the folder)");
    showing->callback([&values] { std::printf("%s\n", writeGallery(values.folders, values.page).c_str()); });

    addSoaking(app, values.soaking);

    auto* tracing = app.add_subcommand("trace", "Draw a trace as text, or with -o as a page with a time line")
                        ->footer("Example:\n  kovcam trace out/trace.jsonl -o out/trace.html\n");
    tracing->add_option("FILE", values.trace, "What --trace wrote")->required();
    tracing->add_option("-o,--output", values.page, "The page");
    tracing->callback([&values] { drawTrace(values.trace, values.page); });
}

/// Says in one line what is wrong with the command line.
int usageError(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) && !unknown.empty())
        std::fprintf(stderr, "kovcam: unknown command or mode \"%s\"; try --help\n", unknown.front().c_str());
    else
        std::fprintf(stderr, "kovcam: %s; try --help\n", error.what());
    return kUsage;
}

/// "help shoot panorama" is "shoot panorama --help".
std::vector<std::string> plainArguments(std::vector<std::string> arguments) {
    if (arguments.empty())
        return {"--help"};
    if (arguments.front() == "help") {
        arguments.erase(arguments.begin());
        arguments.emplace_back("--help");
    }
    std::ranges::reverse(arguments);  // as CLI11 wants them
    return arguments;
}

int run(std::vector<std::string> arguments) {
    CLI::App app("Plays the camera service and the application on top of libkovcameraadaptor.");
    app.name("kovcam");
    app.footer(kExamples);
    app.set_version_flag("-V,--version", "kovcam " KOV_VERSION);
    app.require_subcommand(1);
    Values values;
    app.add_option("--log", values.level, "Show the log from this level on (default: what KOV_LOG says, or silent)")
        ->check(CLI::IsMember({"verbose", "debug", "info", "warn", "error", "silent"}));
    app.fallthrough();
    addCommands(app, values);
    live::addServe(app);
    app.parse_complete_callback([&] {
        const char* const wanted = std::getenv("KOV_LOG");
        setLogLevel(!values.level.empty() ? values.level : wanted && *wanted ? wanted : "silent");
    });
    try {
        app.parse(plainArguments(std::move(arguments)));
    } catch (const CLI::ParseError& error) {
        return error.get_exit_code() == 0 ? app.exit(error) : usageError(app, error);
    }
    return 0;
}

void complain(const std::string& what) {
    std::istringstream lines(what);
    for (std::string line; std::getline(lines, line);)
        std::fprintf(stderr, "kovcam: %s\n", line.c_str());
}

}  // namespace

}  // namespace kov::cam

int main(int argc, char** argv) {
    using namespace kov::cam;
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    watchSignals();
    int status = kFailed;
    try {
        status = run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        complain(error.what());
    }
    if (endSignal() != 0)
        status = kSignalled + endSignal();
    // At once: the camera's threads may still be on their way out, and destroying static objects would take away what
    // they use. All files are written.
    std::fflush(nullptr);
    std::_Exit(status);
}
