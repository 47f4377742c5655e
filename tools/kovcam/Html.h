// Text in pages.
#pragma once

#include <string>

namespace kov::cam {

/// Text as it stands in a page, also within the quotes of an attribute.
inline std::string escaped(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        switch (c) {
            case '&':
                safe += "&amp;";
                break;
            case '<':
                safe += "&lt;";
                break;
            case '>':
                safe += "&gt;";
                break;
            case '"':
                safe += "&quot;";
                break;
            default:
                safe += c;
        }
    }
    return safe;
}

/// The beginning of every page, up to its body's content.
std::string pageHead(const std::string& title);

}  // namespace kov::cam
