// kovcam serve: the camera in a browser.

#include "tools/kovcam/live/Serve.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "shots/Commands.h"
#include "tools/kovcam/Parameters.h"
#include "tools/kovcam/Signals.h"
#include "tools/kovcam/live/Api.h"
#include "tools/session/Error.h"

extern char** environ;

namespace kov::live {

using cam::Error;

namespace {

constexpr uint16_t kUsualPort = 8642;

const char* const kHelp =
    R"(Prints the address of the page. Only this machine can reach it, unless --address names another one; then the address
has a token in it, and --tls-cert and --tls-key are needed for those who want to use the webcam of their browser. SIGINT
ends it in order; a second one at once.

Example:
  kovcam serve -i scene:portrait -o pictures --open
)";

struct ServeOptions {
    std::string source = "scene:landscape";
    std::string folder = "camera";
    std::string mode = "single";
    std::string address = "127.0.0.1";
    uint16_t port = kUsualPort;
    std::vector<std::string> hostNames;
    std::string certificate;
    std::string key;
    std::string trace;
    cam::ParameterOptions parameters;
    int previewQuality = 80;
    unsigned connections = 128;
    bool open = false;
};

bool isLocal(const std::string& address) {
    return address == "::1" || address.starts_with("127.");
}

/// As it stands in an address of the web.
std::string bracketed(const std::string& address) {
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

/// Every name under which this machine may be reached at the address that is listened on.
std::set<std::string> ownNames(const ServeOptions& options) {
    std::set<std::string> names(options.hostNames.begin(), options.hostNames.end());
    names.insert(bracketed(options.address));
    if (isLocal(options.address) || options.address == "0.0.0.0" || options.address == "::")
        names.insert({"localhost", "127.0.0.1", "[::1]"});
    if (options.address != "0.0.0.0" && options.address != "::")
        return names;
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) == 0) {
        for (const ifaddrs* one = all; one; one = one->ifa_next) {
            char text[INET6_ADDRSTRLEN] = {};
            if (!one->ifa_addr)
                continue;
            const int family = one->ifa_addr->sa_family;
            const void* bytes = family == AF_INET
                                    ? static_cast<void*>(&reinterpret_cast<sockaddr_in*>(one->ifa_addr)->sin_addr)
                                    : static_cast<void*>(&reinterpret_cast<sockaddr_in6*>(one->ifa_addr)->sin6_addr);
            if ((family == AF_INET || family == AF_INET6) && inet_ntop(family, bytes, text, sizeof text))
                names.insert(bracketed(text));
        }
        freeifaddrs(all);
    }
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) == 0 && host[0]) {
        names.insert(host.data());
        names.insert(std::string(host.data()) + ".local");
    }
    return names;
}

/// The address for the person at this machine.
std::string pageAddress(const ServeOptions& options, uint16_t port, const std::string& token) {
    const bool any = options.address == "0.0.0.0" || options.address == "::";
    std::array<char, 256> host{};
    std::string name = bracketed(options.address);
    if (isLocal(options.address))
        name = "localhost";
    else if (!options.hostNames.empty())
        name = options.hostNames.front();
    else if (any && gethostname(host.data(), host.size() - 1) == 0)
        name = host.data();
    return (options.certificate.empty() ? "http://" : "https://") + name + ":" + std::to_string(port) + "/" +
           (token.empty() ? "" : "?token=" + token);
}

/// In a session of its own: what ends us in a terminal leaves the browser.
void openBrowser(const std::string& address) {
    std::string program = "xdg-open";
    std::string text = address;
    std::array<char*, 3> arguments = {program.data(), text.data(), nullptr};
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&quiet, STDOUT_FILENO, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&quiet, STDERR_FILENO + 1);  // our port is ours
    posix_spawnattr_t apart;
    posix_spawnattr_init(&apart);
    posix_spawnattr_setflags(&apart, POSIX_SPAWN_SETSID);
    pid_t child = 0;
    const bool started = posix_spawnp(&child, program.c_str(), &quiet, &apart, arguments.data(), environ) == 0;
    posix_spawnattr_destroy(&apart);
    posix_spawn_file_actions_destroy(&quiet);
    std::thread([started, child] {
        int status = 0;
        if (!started || (waitpid(child, &status, 0) == child && status != 0))
            std::fprintf(stderr, "kovcam: no browser can be opened here; open the address in one\n");
    }).detach();
}

int32_t modeCode(const std::string& name) {
    for (const android::KovMode& mode : android::kKovModes) {
        if (name == mode.name)
            return mode.code;
    }
    throw Error("there is no mode \"" + name + "\"; kovcam modes lists them");
}

void serve(const ServeOptions& options) {
    if (options.certificate.empty() != options.key.empty())
        throw Error("--tls-cert and --tls-key belong together; name both files");
    Api::Options apiOptions;
    apiOptions.source = options.source;
    apiOptions.camera.folder = options.folder;
    apiOptions.camera.trace = options.trace;
    apiOptions.camera.mode = modeCode(options.mode);
    apiOptions.camera.previewQuality = options.previewQuality;
    apiOptions.camera.parameters = options.parameters.parameters();

    ServerOptions serverOptions;
    serverOptions.address = options.address;
    serverOptions.port = options.port;
    serverOptions.certificate = options.certificate;
    serverOptions.key = options.key;
    serverOptions.mostConnections = options.connections;
    // Both live until the process ends: threads of the camera may be on their way out still.
    static auto* const api = new Api(std::move(apiOptions));
    static auto* const server = new Server(serverOptions, *api);

    Guard::Options guard;
    guard.tls = !options.certificate.empty();
    guard.port = server->port();
    guard.names = ownNames(options);
    if (!isLocal(options.address))
        guard.token = makeToken();
    const std::string address = pageAddress(options, guard.port, guard.token);
    api->begin(*server, Guard(guard));
    cam::onSignal([](int signal) {
        if (signal == SIGUSR1)
            return;
        std::fprintf(stderr, "\nkovcam: finishing; once more ends at once\n");
        server->post([] { api->end(); });
    });
    if (cam::endSignal() != 0)  // it came while we opened
        server->post([] { api->end(); });
    std::printf("The camera is at %s\n", address.c_str());
    std::printf("Pictures go to %s; Ctrl-C ends.\n", options.folder.c_str());
    std::fflush(stdout);
    if (options.open)
        openBrowser(address);
    server->run();
    cam::onSignal({});
    cam::forgetSignal();
    if (!api->failure().empty())
        throw Error(api->failure());
}

}  // namespace

void addServe(CLI::App& app) {
    auto options = std::make_shared<ServeOptions>();
    auto* command = app.add_subcommand("serve", "Show the camera in a browser")->footer(kHelp);
    command->add_option("-i,--input", options->source, "What the camera sees first")->capture_default_str();
    command->add_option("-o,--output", options->folder, "Folder for the pictures")->capture_default_str();
    command->add_option("--mode", options->mode, "The mode that is on first")->capture_default_str();
    command->add_option("--port", options->port, "Port of the page; 0 takes any that is free")->capture_default_str();
    command
        ->add_option("--address", options->address, "Address to listen on; other than this machine's own needs a token")
        ->capture_default_str();
    command->add_option("--host-name", options->hostNames, "A further name under which this machine is reached");
    command->add_option("--tls-cert", options->certificate, "Certificate chain (PEM), for https")
        ->check(CLI::ExistingFile);
    command->add_option("--tls-key", options->key, "Its key (PEM)")->check(CLI::ExistingFile);
    options->parameters.addTo(*command);
    command->add_option("--preview-quality", options->previewQuality, "JPEG quality of the preview on the page")
        ->check(CLI::Range(1, 100))
        ->capture_default_str();
    command->add_option("--connections", options->connections, "The most connections at once")
        ->check(CLI::Range(4, 1000))
        ->capture_default_str();
    command->add_option("--trace", options->trace, "Write everything that happens to this file, a JSON object a line");
    command->add_flag("--open", options->open, "Open a browser");
    command->callback([options] { serve(*options); });
}

}  // namespace kov::live
