// A progress bar on a terminal, plain lines elsewhere.

#include "tools/kovcam/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace kov::cam {

namespace {
constexpr int kWidth = 40;       // of the bar, in characters
constexpr int kLinesEvery = 25;  // percent, where there is no terminal
}  // namespace

Progress::Progress(std::string label) : mLabel(std::move(label)), mTerminal(isatty(STDERR_FILENO)) {}

Progress::~Progress() {
    if (mTerminal && mShown >= 0)
        std::fputc('\n', stderr);
}

void Progress::line(const std::string& text) {
    if (!mTerminal || mShown < 0) {
        std::fprintf(stderr, "%s\n", text.c_str());
        return;
    }
    std::fprintf(stderr, "\r%*s\r%s\n", static_cast<int>(mLabel.size()) + kWidth + 9, "", text.c_str());
    show(mShown);
}

void Progress::show(int percent) {
    percent = std::clamp(percent, 0, 100);
    if (mTerminal) {
        const int full = percent * kWidth / 100;
        std::fprintf(stderr, "\r%s [%s%s] %3d %%", mLabel.c_str(), std::string(full, '#').c_str(),
                     std::string(kWidth - full, ' ').c_str(), percent);
    } else if (mShown < 0 || percent / kLinesEvery > mShown / kLinesEvery) {
        std::fprintf(stderr, "%s: %d %%\n", mLabel.c_str(), percent);
    }
    mShown = percent;
}

}  // namespace kov::cam
