// The demonstration: every mode on built-in scenes, and a page to look at what came out.
#pragma once

#include <string>

namespace kov::cam {

/// Runs every mode's demonstrations, each as a kovcam process of its own, into numbered folders under `folder`, and
/// writes `folder`/index.html. Returns how many failed. Throws Error.
int runDemo(const std::string& folder);

/// Writes `folder`/index.html from the sub-folders that `runDemo` made. Throws Error.
void writeGallery(const std::string& folder);

}  // namespace kov::cam
