// The demonstration: every mode on built-in scenes.

#include "tools/kovcam/Demonstration.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/kovcam/Child.h"
#include "tools/kovcam/Gallery.h"
#include "tools/kovcam/Mode.h"
#include "tools/kovcam/PictureWriter.h"
#include "tools/kovcam/Signals.h"
#include "tools/session/Error.h"

namespace kov::cam {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

/// Runs one demonstration into a folder of its own. False when it failed.
bool runItem(const Mode& mode, const Demo& demo, const fs::path& folder) {
    prepareFolder(folder);
    std::vector<std::string> words = {"shoot", mode.name};
    words.insert(words.end(), demo.arguments.begin(), demo.arguments.end());
    std::vector<std::string> all = words;
    for (const std::string& word :
         {std::string("-o"), folder.string(), std::string("--trace"), (folder / kTraceFile).string(),
          std::string("--save-preview"), std::to_string(demo.previewEvery)})
        all.push_back(word);
    std::printf("%s: %s\n", mode.name.c_str(), demo.title.c_str());
    std::fflush(stdout);
    const int status = runSelf(all);
    words.insert(words.end(), {"-o", "out"});
    std::ofstream(folder / kItemFile) << Json{
        {"mode", mode.name},
        {"summary", mode.summary},
        {"title", demo.title},
        {"command", commandLine(words)},
        {"status", status}}.dump(1);
    return status == 0;
}

/// Whether a folder may be replaced: there is none, it is empty, or it is a gallery.
bool mayBeReplaced(const fs::path& folder) {
    std::error_code ignored;
    if (!fs::exists(folder, ignored))
        return true;
    if (!fs::is_directory(folder, ignored))
        return false;
    return fs::is_empty(folder, ignored) || fs::exists(folder / "index.html", ignored);
}

/// Puts a folder in the place of another.
void swapIn(const fs::path& fresh, const fs::path& folder) {
    const fs::path old = fresh.string() + "-old";
    std::error_code failure;
    if (fs::exists(folder))
        fs::rename(folder, old, failure);
    if (!failure)
        fs::rename(fresh, folder, failure);
    if (failure)
        throw Error(folder.string() + " cannot be replaced: " + failure.message() + "; the gallery is in " +
                    fresh.string());
    fs::remove_all(old, failure);
}

}  // namespace

int runDemo(const std::string& folder, const std::string& only) {
    const auto& modes = allModes();
    if (!only.empty() && std::ranges::none_of(modes, [&](const auto& mode) { return mode->name == only; }))
        throw Error("there is no mode \"" + only + "\"; kovcam modes lists them");
    const fs::path place = fs::path(folder).has_filename() ? fs::path(folder) : fs::path(folder).parent_path();
    if (folder.empty() || !mayBeReplaced(place))
        throw Error("\"" + folder + "\" is no gallery and would be replaced; name another folder with -o");
    const fs::path fresh = place.string() + ".new-" + std::to_string(getpid());
    prepareFolder(fresh);
    int failed = 0;
    int item = 0;
    for (const auto& mode : modes) {
        if (!only.empty() && mode->name != only)
            continue;
        for (const Demo& demo : mode->demos()) {
            if (endSignal() != 0)
                break;
            char prefix[16];
            std::snprintf(prefix, sizeof prefix, "%02d-", ++item);
            failed += runItem(*mode, demo, fresh / (prefix + mode->name)) ? 0 : 1;
        }
    }
    writeDemoGallery(fresh);
    swapIn(fresh, place);
    return failed;
}

}  // namespace kov::cam
