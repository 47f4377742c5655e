// Long use: every mode, over and over, while what the process holds is watched.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kov::cam {

/// Runs one kovcam command in this process. Throws Error when it fails.
using RunCommand = std::function<void(const std::vector<std::string>& arguments)>;

struct SoakOptions {
    double seconds = 60;
    unsigned seed = 1;
    std::string curve;  // an SVG file of what was held over time, or empty
};

/// For so long runs demonstrations of all modes, with random sizes, and in between random scripts, whose steps may be
/// refused. After each the camera is closed, and memory, files, threads and shared heaps are counted. A line is fitted
/// over each count, without the first fifth of the time. Prints the counts and the slopes; throws Error when one of
/// them surely grows, or when a demonstration fails. A signal ends it early, with what there is.
void soak(const SoakOptions& options, const RunCommand& run);

}  // namespace kov::cam
