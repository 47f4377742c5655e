// What people write. A byte chooses the reader; the text follows. A reader takes it, or tells what is
// wrong in one line, that of a script in a line for each of its own. None opens a file.
#include <camera/CameraParameters.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>

#include "fuzz/Targets.h"
#include "host/camera/Sources.h"
#include "tools/kovcam/OutputName.h"
#include "tools/kovcam/Script.h"
#include "tools/kovcam/SizeText.h"
#include "tools/session/Error.h"

using namespace kov::cam;

namespace {

/// Sources in turn, all of them scenes: others are files.
std::string scenesIn(const std::string& text) {
    std::string sources = "turns:scene:";
    for (const char c : text)
        sources += c == '|' ? "|scene:" : std::string(1, c);
    return sources;
}

/// What is wrong with the text; empty when nothing is.
std::string read(int reader, const std::string& text) {
    try {
        switch (reader) {
            case 0: {
                std::istringstream script(text);
                readScript(script, "script");
                return "";
            }
            case 1:
                return kov::camera::checkSource("scene:" + text);
            case 2:
                return kov::camera::checkSource(scenesIn(text));
            case 3: {
                const OutputName name(text, "single");
                for (const char* const word : {"", "sketch"})
                    (void)(name.standardOutput() || !name.path(2, word).empty() || !name.folder().empty());
                return "";
            }
            case 4:
                requireSize(text);
                return "";
            default: {
                android::CameraParameters parameters;
                parameters.unflatten(android::String8(text.c_str()));
                int width = 0, height = 0;
                parameters.getPreviewSize(&width, &height);
                return "";
            }
        }
    } catch (const Error& error) {
        return error.what()[0] ? error.what() : "\n";  // an error says something
    }
}

}  // namespace

void kov::test::runText(const uint8_t* bytes, size_t size) {
    if (size == 0)
        return;
    const int reader = bytes[0] % 6;
    const std::string text(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    const auto lines = std::ranges::count(text, '\n');
    if (reader > 0 && lines > 0)
        return;
    const std::string wrong = read(reader, text);
    if (wrong == "\n" || std::ranges::count(wrong, '\n') > lines)
        std::abort();
}
