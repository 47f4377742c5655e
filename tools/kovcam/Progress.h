// A progress bar on a terminal, plain lines elsewhere.
#pragma once

#include <string>

namespace kov::cam {

/// Shows how far long work is, on standard error. One thread.
class Progress {
public:
    explicit Progress(std::string label);
    /// Ends the bar's line.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(int percent);
    /// Writes a line of its own above the bar.
    void line(const std::string& text);

private:
    const std::string mLabel;
    const bool mTerminal;
    int mShown = -1;
};

}  // namespace kov::cam
