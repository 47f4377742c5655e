// The gallery: a page to look at what the demonstrations made.
#pragma once

#include <string>

namespace kov::cam {

// What a demonstration leaves in its folder beside its pictures.
inline constexpr const char* kItemFile = "item.json";
inline constexpr const char* kTraceFile = "trace.jsonl";

/// Writes `folder`/index.html from the sub-folders that demonstrations made. Throws Error.
void writeGallery(const std::string& folder);

}  // namespace kov::cam
