// The frame rates that the modes keep at the usual preview sizes.
#pragma once

#include <string>

namespace kov::cam {

struct RatesOptions {
    std::string mode;  // only this one; empty: all
    int frames = 90;   // to count in each cell
};

/// Puts every mode to its work on the preview at each size, counts the frames that arrive, and prints a table in
/// Markdown: in each cell the frames a second, and in parentheses the processor time that the whole process took for
/// one, in milliseconds. The camera runs at 30 frames a second, in one more column at 60.
/// Throws Error, and Interrupted after a signal.
void printRates(const RatesOptions& options);

}  // namespace kov::cam
