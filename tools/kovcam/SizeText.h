// Sizes as people write them.
#pragma once

#include <string>

namespace kov::cam {

/// Throws Error for what is not of the form 640x480.
void requireSize(const std::string& text);

}  // namespace kov::cam
