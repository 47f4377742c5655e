// The page, compiled in.
#pragma once

#include <string_view>
#include <vector>

namespace kov::live {

struct WebFile {
    std::string_view path;  // "/main.js"; the page itself is "/"
    std::string_view type;
    std::string_view bytes;
};

/// All files of tools/kovcam/web.
const std::vector<WebFile>& webFiles();

}  // namespace kov::live
