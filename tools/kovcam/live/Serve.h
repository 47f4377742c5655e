// kovcam serve: the camera in a browser.
#pragma once

namespace CLI {
class App;
}

namespace kov::live {

/// Adds the sub-command and its options.
void addServe(CLI::App& app);

}  // namespace kov::live
