// The gallery: a page to look at what the demonstrations, or any sessions, made.
#pragma once

#include <string>
#include <vector>

namespace kov::cam {

// What a demonstration leaves in its folder beside its pictures.
inline constexpr const char* kItemFile = "item.json";
inline constexpr const char* kTraceFile = "trace.jsonl";

/// Writes `folder`/index.html from the sub-folders that demonstrations made. Throws Error.
void writeDemoGallery(const std::string& folder);

/// Writes a page of the pictures in `folders`, with the time line of those that hold a trace. A gallery among them
/// stands with all its demonstrations. The page is `page`, or index.html of the only folder; a page that is no gallery
/// is not written over. Returns its path. Throws Error.
std::string writeGallery(const std::vector<std::string>& folders, const std::string& page);

}  // namespace kov::cam
