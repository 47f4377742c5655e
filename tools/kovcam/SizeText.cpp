// Sizes as people write them.

#include "tools/kovcam/SizeText.h"

#include <cstdio>

#include "tools/session/Error.h"

namespace kov::cam {

void requireSize(const std::string& text) {
    int width = 0;
    int height = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%dx%d%c", &width, &height, &rest) != 2 || width <= 0 || height <= 0)
        throw Error("\"" + text + "\" is no size; write it as 640x480");
}

}  // namespace kov::cam
