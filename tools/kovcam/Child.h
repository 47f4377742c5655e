// kovcam as a process of its own.
#pragma once

#include <string>
#include <vector>

namespace kov::cam {

/// Runs kovcam itself with these arguments; returns its exit status. A signal that asks for the end is handed on to it.
int runSelf(const std::vector<std::string>& arguments);

/// "kovcam" and the words as a shell takes them: quoted where they have to be.
std::string commandLine(const std::vector<std::string>& words);

}  // namespace kov::cam
