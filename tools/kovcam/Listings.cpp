// What can be asked for: modes, scenes, commands, messages, formats.

#include "tools/kovcam/Listings.h"

#include <cstdio>

#include "tools/kovcam/Mode.h"
#include "tools/session/Names.h"
#include "tools/session/Session.h"
#include "tools/session/Sources.h"

namespace kov::cam {

void printModes() {
    std::printf("%-12s %5s  %s\n", "mode", "code", "what it does");
    for (const auto& mode : allModes())
        std::printf("%-12s %5d  %s\n", mode->name.c_str(), mode->code, mode->summary.c_str());
}

void printScenes() {
    for (const Scene& scene : scenes()) {
        std::printf("scene:%-14s %s\n", scene.name.c_str(), scene.summary.c_str());
        if (!scene.options.empty())
            std::printf("%20s options: %s\n", "", scene.options.c_str());
    }
}

void printCommands() {
    for (const NamedCode& command : allCommands())
        std::printf("%5d  %-31s %s\n", command.code, command.name.c_str(), command.meaning.c_str());
}

void printMessages() {
    for (const NamedCode& message : allMessages())
        std::printf("%7s  %-28s %s\n", hex(message.code).c_str(), message.name.c_str(), message.meaning.c_str());
}

void printFormats() {
    const auto session = Session::open({.source = scenes().empty() ? "" : "scene:" + scenes().front().name});
    for (const char* key : {"preview-size", "preview-format", "preview-frame-rate", "picture-size", "picture-format"})
        std::printf("%-19s %s\n", key, session->parameter(std::string(key) + "-values").c_str());
    std::printf("%-19s 1 to 100\n", "jpeg-quality");
}

}  // namespace kov::cam
