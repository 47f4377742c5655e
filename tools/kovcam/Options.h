// Options that a mode adds to its command.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kov::cam {

/// Adds options, each with its long name ("--seconds"), the variable that it sets, which holds the default, and its
/// help. The variables live as long as the command line is used.
class Options {
public:
    explicit Options(CLI::App& app) : mApp(app) {}

    void number(const char* name, int& value, const char* help, int least, int most);
    void number(const char* name, double& value, const char* help, double least, double most);
    /// One of a few words; an empty default is none of them.
    void choice(const char* name, std::string& value, const char* help, const std::vector<std::string>& words);
    /// The same, as often as one likes.
    void choices(const char* name, std::vector<std::string>& values, const char* help,
                 const std::vector<std::string>& words);
    void flag(const char* name, bool& value, const char* help);

private:
    CLI::App& mApp;
};

}  // namespace kov::cam
