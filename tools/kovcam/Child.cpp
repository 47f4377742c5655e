// kovcam as a process of its own.

#include "tools/kovcam/Child.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include "tools/kovcam/Signals.h"
#include "tools/session/Error.h"

extern char** environ;

namespace kov::cam {

namespace {

/// In a process group of its own, so that a terminal's Ctrl-C comes once: from here.
pid_t spawn(const std::string& program, std::vector<char*>& argv) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    pid_t child = 0;
    const int failure = posix_spawn(&child, program.c_str(), nullptr, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (failure != 0)
        throw Error("kovcam cannot start itself from " + program);
    return child;
}

}  // namespace

int runSelf(const std::vector<std::string>& arguments) {
    std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::vector<char*> argv = {self.data()};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = spawn(self, argv);
    onSignal([child](int signal) { kill(child, signal); });
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    onSignal({});
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string commandLine(const std::vector<std::string>& words) {
    constexpr const char* kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./:=,+%@";
    std::string line = "kovcam";
    for (const std::string& word : words) {
        line += ' ';
        if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
            line += word;
            continue;
        }
        line += '\'';
        for (const char c : word)
            line += c == '\'' ? "'\\''" : std::string(1, c);
        line += '\'';
    }
    return line;
}

}  // namespace kov::cam
