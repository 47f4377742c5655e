// Options that a mode adds to its command.

#include "tools/kovcam/Options.h"

#include <CLI/CLI.hpp>

namespace kov::cam {

namespace {

template <typename Value>
void addNumber(CLI::App& app, const char* name, Value& value, const char* help, Value least, Value most) {
    auto* const option = app.add_option(name, value, help)->check(CLI::Range(least, most));
    if (value >= least && value <= most)
        option->capture_default_str();
}

}  // namespace

void Options::number(const char* name, int& value, const char* help, int least, int most) {
    addNumber(mApp, name, value, help, least, most);
}

void Options::number(const char* name, double& value, const char* help, double least, double most) {
    addNumber(mApp, name, value, help, least, most);
}

void Options::choice(const char* name, std::string& value, const char* help, const std::vector<std::string>& words) {
    auto* const option = mApp.add_option(name, value, help)->check(CLI::IsMember(words));
    if (!value.empty())
        option->capture_default_str();
}

void Options::choices(const char* name, std::vector<std::string>& values, const char* help,
                      const std::vector<std::string>& words) {
    mApp.add_option(name, values, help)->check(CLI::IsMember(words))->capture_default_str();
}

void Options::flag(const char* name, bool& value, const char* help) {
    mApp.add_flag(name, value, help);
}

}  // namespace kov::cam
