// The demonstration: every mode on built-in scenes.
#pragma once

#include <string>

namespace kov::cam {

/// Runs every mode's demonstrations, or those of one mode, each as a kovcam process of its own, into numbered folders,
/// and writes the gallery page. All is written beside `folder` and takes its place in the end, so a gallery that is there
/// stays until then; a folder that is no gallery is refused. A signal ends it early, with the page of what there is.
/// Returns how many demonstrations failed. Throws Error.
int runDemo(const std::string& folder, const std::string& mode);

}  // namespace kov::cam
