// Files that are there whole or not at all.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kov::cam {

/// Writes a file under a temporary name in its folder and renames it when it is whole. `name` gives the names to try,
/// by number from 1: the first that no file has is taken, also when other processes write to the same folder; with
/// `overwrite` the first of all. Returns the name. Throws Error, and leaves nothing, when the file cannot be written.
std::string writeWhole(const std::vector<uint8_t>& bytes, const std::function<std::string(int)>& name, bool overwrite);

/// Gives a file that is whole the first of these names, in its own folder, that no file has. Returns the name. Throws
/// Error, and leaves the file as it is, when none can be had.
std::string moveToFreeName(const std::string& file, const std::function<std::string(int)>& name);

}  // namespace kov::cam
